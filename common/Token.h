// Tokenizer and keyword lists.
//
// GetToken keeps one process-wide cursor: start on a string, then pass null
// to fetch the following tokens. A keyword list is one string whose first
// character is its delimiter: ",y,yes,n,no,".
#pragma once

constexpr int GETTOKENBUF_SIZE = 4096;  ///< longest token kept, NUL included
constexpr int FINDTOKEN_PATTERN = 512;  ///< FindToken's "%c%s%c" pattern, NUL included

/// Passed as the string to GetToken: continue at the cursor in line mode,
/// where a token ended by a newline is not returned.
#define TOKEN_LINEMODE (reinterpret_cast<const char *>(-1))

extern char GetTokenBuf[GETTOKENBUF_SIZE];  ///< the current token of GetToken
extern char *szTokenIn;                     ///< input after the last token returned
extern char chTokenDel;                     ///< last delimiter met by the last call, 0 when none

/// Reads one line of standard input (newline dropped) into `buffer`; at end of
/// input the line fills with 0xFF bytes. Returns `buffer`.
char *Gets(char *buffer, int size);
/// Gets for one typed answer: a line longer than the buffer is cut and the
/// rest of it dropped, so that it is never read as the next answer.
char *GetsLine(char *buffer, int size);
/// Sets both szTokenIn and the cursor to `string`.
void SetTokenBuf(char *string);
/// The cursor: the next character GetToken examines.
char *GetTokenBufInput();
/// Next token (escapes resolved) in GetTokenBuf, or null. `string` null
/// continues, TOKEN_LINEMODE continues in line mode.
char *GetToken(const char *string, const char *delimiters);
/// Re-entrant GetToken with the caller's cursor and output (at least as large
/// as the input).
char *GetTokenD(const char *string, const char *delimiters, const char **cursor, char *output);
/// Destructive tokenizer: cuts `string` in place and returns a pointer into it.
char *GetTokenParse(char *string, const char *delimiters);
/// Splits `string` in place into at most `max` words; returns the count.
int ParseStr(char *string, const char *delimiters, char **vector, int max);
/// The n-th token (1-based); the cursor is left after it.
char *GetTokenN(const char *string, const char *delimiters, int n);
/// Number of tokens in `string`; the tokenizer's state is left untouched.
int GetTokenCount(const char *string, const char *delimiters);
/// 1-based index of `word` in keyword list `list` (case-sensitive), 0 when absent.
int FindToken(const char *word, const char *list);
/// As FindToken, ignoring case.
int FindTokenC(const char *word, const char *list);
/// Sorts the words of a delimited list in place.
void SortTokens(char *list, char delimiter, int ignoreCase);
