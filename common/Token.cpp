// Tokenizer and keyword lists.
#include "Token.h"

#include "MemMgr.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <strings.h>

char GetTokenBuf[GETTOKENBUF_SIZE];
char *szTokenIn;
char chTokenDel;

namespace {

char *tokenCursor;  // next character GetToken and GetTokenParse examine

bool IsLineMode(const char *string) {
    return string == TOKEN_LINEMODE;
}

bool IsDelimiter(char c, const char *delimiters) {
    return c != '\0' && delimiters && std::strchr(delimiters, c) != nullptr;
}

char ResolveEscape(char c) {
    switch (c) {
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 't':
            return '\t';
        default:
            return c;
    }
}

/// Bounded output of one token: characters past the capacity are dropped, so
/// an over-long token is cut short while the scan still runs to its end.
class TokenOutput {
  public:
    TokenOutput(char *buffer, size_t capacity) : buffer_(buffer), capacity_(capacity) {}
    void Append(char c) {
        if (length_ + 1 < capacity_) buffer_[length_++] = c;
    }
    void Terminate() {
        if (capacity_ > 0) buffer_[length_] = '\0';
    }

  private:
    char *buffer_;
    size_t capacity_;
    size_t length_ = 0;
};

struct ScanResult {
    const char *cursor;  // first character not consumed
    int count;           // token characters seen, escapes counting one each
    bool endedByDelimiter;
};

/// The scan shared by GetToken and GetTokenD: skips leading delimiters,
/// resolves escapes, stops after the delimiter that ends the token.
ScanResult ScanToken(const char *cursor, const char *delimiters, TokenOutput &out) {
    ScanResult r{cursor, 0, false};
    while (*r.cursor) {
        char c = *r.cursor;
        if (c == '\\') {
            // A backslash at the very end has nothing to escape: it is dropped
            // rather than stepping over the terminator.
            if (r.cursor[1] == '\0') {
                ++r.cursor;
                continue;
            }
            out.Append(ResolveEscape(r.cursor[1]));
            r.cursor += 2;
            ++r.count;
        } else if (IsDelimiter(c, delimiters)) {
            out.Terminate();
            chTokenDel = c;
            ++r.cursor;
            if (r.count) {
                r.endedByDelimiter = true;
                break;
            }
        } else {
            out.Append(c);
            ++r.cursor;
            ++r.count;
        }
    }
    out.Terminate();
    return r;
}

/// Length of the word at `p` together with its trailing delimiter, if any.
size_t WordSpan(const char *p, char delimiter) {
    const char *end = delimiter ? std::strchr(p, delimiter) : nullptr;
    return end ? static_cast<size_t>(end - p) + 1 : std::strlen(p);
}

int CountChar(std::string_view text, char c) {
    int n = 0;
    for (char x : text) n += (x == c);
    return n;
}

/// Whether `list` holds d + word + d at `pos`.
bool DelimitedWordAt(std::string_view list, size_t pos, char d, std::string_view word) {
    if (pos + word.size() + 2 > list.size()) return false;
    return list[pos] == d && list.substr(pos + 1, word.size()) == word &&
           list[pos + 1 + word.size()] == d;
}

}  // namespace

char *Gets(char *buffer, int size) {
    if (!buffer || size < 1) return buffer;
    buffer[0] = '\0';
    if (size - 1 < 1) return buffer;
    int i = 0;
    // End of input is not tested: each read then stores 0xFF. Callers only
    // look at the line once the user has answered.
    for (;;) {
        buffer[i] = static_cast<char>(std::getchar());
        if (buffer[i] == '\n') break;
        if (++i == size - 1) break;
    }
    buffer[i] = '\0';
    return buffer;
}

char *GetsLine(char *buffer, int size) {
    Gets(buffer, size);
    // Gets stops short of the line end only when the buffer is full.
    if (buffer && size > 1 && std::strlen(buffer) == static_cast<size_t>(size) - 1 && !std::feof(stdin))
        for (int c = std::getchar(); c != '\n' && c != EOF;) c = std::getchar();
    return buffer;
}

void SetTokenBuf(char *string) {
    szTokenIn = tokenCursor = string;
}

char *GetTokenBufInput() {
    return tokenCursor;
}

char *GetToken(const char *string, const char *delimiters) {
    chTokenDel = 0;
    bool lineMode = IsLineMode(string);
    if (string && !lineMode) tokenCursor = const_cast<char *>(string);
    if (!tokenCursor) {
        GetTokenBuf[0] = '\0';
        return nullptr;
    }
    TokenOutput out(GetTokenBuf, sizeof GetTokenBuf);
    ScanResult r = ScanToken(tokenCursor, delimiters, out);
    tokenCursor = const_cast<char *>(r.cursor);
    if (r.endedByDelimiter && lineMode && chTokenDel == '\n') return nullptr;
    szTokenIn = tokenCursor;
    return r.count ? GetTokenBuf : nullptr;
}

char *GetTokenD(const char *string, const char *delimiters, const char **cursor, char *output) {
    chTokenDel = 0;
    const char *start = (string && !IsLineMode(string)) ? string : (cursor ? *cursor : nullptr);
    if (!start || !output) return nullptr;
    // The output is as large as the input, and a token never outgrows it.
    TokenOutput out(output, std::strlen(start) + 1);
    ScanResult r = ScanToken(start, delimiters, out);
    if (cursor) *cursor = r.cursor;
    return r.count ? output : nullptr;
}

char *GetTokenParse(char *string, const char *delimiters) {
    chTokenDel = 0;
    // TOKEN_LINEMODE is accepted and means plain continuation: the newline
    // test would see the delimiter already overwritten, so a caller switching
    // between GetToken and this function may pass it to either.
    if (string && !IsLineMode(string)) tokenCursor = string;
    if (!tokenCursor) return nullptr;
    char *start = tokenCursor;
    char *p = tokenCursor;
    int count = 0;
    while (*p) {
        if (*p == '\\') {
            p += p[1] ? 2 : 1;
            ++count;
        } else if (IsDelimiter(*p, delimiters)) {
            chTokenDel = *p;
            *p++ = '\0';
            if (count) break;
            start = p;
        } else {
            ++p;
            ++count;
        }
    }
    tokenCursor = p;
    szTokenIn = p;
    return *start ? start : nullptr;
}

int ParseStr(char *string, const char *delimiters, char **vector, int max) {
    if (max > 0 && vector) std::memset(vector, 0, sizeof(char *) * static_cast<size_t>(max));
    if (!string || !*string || max < 1 || !vector) return 0;
    int n = 0;
    char *p = string;
    while (*p && n < max) {
        while (IsDelimiter(*p, delimiters)) ++p;
        if (!*p) break;
        vector[n++] = p;
        while (*p && !IsDelimiter(*p, delimiters)) ++p;
        if (*p) *p++ = '\0';
    }
    return n;
}

char *GetTokenN(const char *string, const char *delimiters, int n) {
    char *token = GetToken(string, delimiters);
    for (int i = 1; i < n && token; ++i) token = GetToken(nullptr, delimiters);
    return token;
}

int GetTokenCount(const char *string, const char *delimiters) {
    char *savedCursor = tokenCursor;
    char *savedIn = szTokenIn;
    // The whole buffer is kept, so that a caller's current token of any
    // length survives the count.
    char savedBuf[GETTOKENBUF_SIZE];
    std::memcpy(savedBuf, GetTokenBuf, sizeof savedBuf);

    int count = 0;
    if (GetToken(string, delimiters)) {
        ++count;
        while (GetToken(nullptr, delimiters)) ++count;
    }

    tokenCursor = savedCursor;
    szTokenIn = savedIn;
    std::memcpy(GetTokenBuf, savedBuf, sizeof savedBuf);
    return count;
}

int FindToken(const char *word, const char *list) {
    if (!word || !list || !*list) return 0;
    std::string_view l(list);
    std::string_view w(word);
    char d = l[0];
    size_t match = std::string_view::npos;
    for (size_t pos = 0; pos < l.size(); ++pos) {
        if (DelimitedWordAt(l, pos, d, w)) {
            match = pos;
            break;
        }
    }
    if (match == std::string_view::npos) {
        // The list's last word may lack its trailing delimiter.
        size_t last = l.rfind(d);
        if (l.substr(last + 1) == w) match = last;
    }
    if (match == std::string_view::npos) return 0;
    return CountChar(l.substr(0, match + 1), d);
}

int FindTokenC(const char *word, const char *list) {
    if (!word || !list || !*list) return 0;
    char d = list[0];
    size_t len = std::strlen(word);
    int count = 0;
    for (const char *p = list; *p; ++p) {
        if (*p != d) continue;
        ++count;
        // The comparison stops at the list's end, so p[len + 1] is only read
        // when all those characters exist.
        if (strncasecmp(p + 1, word, len) == 0 && (p[len + 1] == d || p[len + 1] == '\0'))
            return count;
    }
    return 0;
}

void SortTokens(char *list, char delimiter, int ignoreCase) {
    if (!list) return;
    size_t total = std::strlen(list);
    MemPtr<char> copy(static_cast<char *>(GetMem(static_cast<long>(total) + 1)));
    if (!copy) return;
    std::memcpy(copy.get(), list, total);

    auto compare = ignoreCase ? strncasecmp : strncmp;
    char *out = list;
    char *end = list + total;  // the list's own terminator stays put
    while (*out && *out == delimiter) ++out;
    char *rest = copy.get();
    while (*rest && *rest == delimiter) ++rest;

    while (*rest) {
        char *smallest = rest;
        size_t smallestLen = WordSpan(rest, delimiter);
        for (char *w = rest + smallestLen; *w; w += WordSpan(w, delimiter)) {
            size_t len = WordSpan(w, delimiter);
            if (compare(w, smallest, len) < 0) {
                smallest = w;
                smallestLen = len;
            }
        }
        bool endsWithDelimiter = smallest[smallestLen - 1] == delimiter;
        size_t n = std::min(smallestLen, static_cast<size_t>(end - out));
        std::memcpy(out, smallest, n);
        out += n;
        std::memmove(smallest, smallest + smallestLen, std::strlen(smallest + smallestLen) + 1);
        // A last word without delimiter that sorts earlier gains one; the
        // list has no room for the extra byte, so the final one is dropped.
        if (!endsWithDelimiter && *rest && out < end) *out++ = delimiter;
    }
}
