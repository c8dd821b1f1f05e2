// Line files: opening with error modes, existence tests, the line readers,
// and in-place editing through a temporary copy replaced with "rm -f" / "mv".
//
// Every reader takes lines in pieces of at most READ_PIECE - 1 characters
// (fgets with READ_PIECE): a longer line is seen, and matched, piece by piece.
// Editing routines write "<file>.<ext>out" beside "<file>.<ext>" ("<file>.out"
// when ext is empty) and return the result of the final "mv"; the edited file
// ends up with the permissions and owner of the fresh copy.
#pragma once

#include <cstdio>
#include <ctime>
#include <memory>

#include "Str.h"

constexpr int LINEBUF_SIZE = 4096;  ///< LineBuf: one input line or typed answer
constexpr int FN_SIZE = 4096;       ///< Fn, FnOut, InputFileName
constexpr int READ_PIECE = 511;     ///< fgets limit of every line reader
constexpr int GETLINE_SIZE = 512;   ///< the part of Line that GetLine uses
constexpr int GENNAME_SIZE = 512;   ///< GenName's buffer, NUL included

extern FILE *pIn;                ///< current input file
extern FILE *pOut;               ///< output of the streaming pair
extern char Fn[FN_SIZE];         ///< name of the edited file
extern char FnOut[FN_SIZE];      ///< name of its temporary copy
extern char *pLine;              ///< position in Line (GetLine)
extern int LineCnt;              ///< physical lines consumed by the last GetLine
extern long InPos;               ///< file position where the last logical line began
extern char flInputFilterState;  ///< GetLine strips comments when set
extern char InputFileName[FN_SIZE];
extern int FileStatus;  ///< 0 open, 1 ended or closed, 2 could not be opened
extern char LineBuf[LINEBUF_SIZE];
extern int LineLen;         ///< GetFileLine: characters before the last joined piece
extern long SavedFileSize;  ///< size found by the last GetSavedFileContent

/// Owner of a stdio stream: closes it when it goes out of scope.
struct FileCloser {
    void operator()(FILE *file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<FILE, FileCloser>;

// ---- Opening

/// Closes `previous`, opens `path`; on failure errorMode 2 ends the program,
/// 1 prints "ERROR: can't open file, %s", other values are silent.
FILE *OpenFile(FILE *previous, const char *path, const char *mode, int errorMode);
/// OpenFile with the path formatted from `format`.
FILE *OpenFileF(FILE *previous, const char *mode, int errorMode, const char *format, ...)
    PRINTF_LIKE(4, 5);
/// open(2) descriptor, or a negative value after "ERROR: can't open file, %s"
/// on standard output.
int OpenRawFile(const char *path, int flags, int permissions);
/// Opens pIn on "<file>.<ext>" and pOut on "<that>out" (Fn, FnOut); returns
/// pOut. Ends the program when either cannot be opened.
FILE *OpenIOFiles(const char *file, const char *ext);
/// Closes pIn and pOut and moves FnOut over Fn; the result of the "mv".
int ReplaceInputFile();
/// Runs "rm -f <file>" and then "mv <copy> <file>" through system(); the
/// result of the "mv". Neither is logged nor redirected.
int ReplaceFileByCopy(const char *file, const char *copy);

// ---- Durable replacement: a crash leaves the old file or the complete new one

/// Flushes a stream and then its file to disk; 0 when either failed or the
/// stream saw a write error.
int FlushToDisk(FILE *file);
/// Flushes the directory holding `path`, so that a rename into it lasts.
void FlushDirectoryOf(const char *path);
/// Opens a new file beside `path` (its name, "<path>.XXXXXX", goes to
/// `scratch`) to write the replacement into; a symbolic link at `path` is
/// followed. Null when it cannot be made.
FILE *OpenReplacement(const char *path, char *scratch, size_t size);
/// Sets the mode (when non-zero), flushes the replacement to disk, closes it
/// and renames it over `path`, then flushes the directory. 1 when done; 0
/// after any failure, with the scratch file removed and `path` untouched.
int CommitReplacement(FILE *file, const char *scratch, const char *path, int permissions);

// ---- Existence

/// 1 when `name` is an entry of `directory` (through the directory file list).
/// A null directory takes `name` as a full path; an empty name tests the
/// directory's last component in its parent; unreadable directory: 0.
int FindFile(const char *directory, const char *name);
/// The same answered with stat on "<directory>/<name>" (directory alone when
/// name is null, name alone when directory is null).
int FindFile_(const char *directory, const char *name);
/// 1 when `path` exists, asked as FindFile(StripFn(path), StripPath(path)).
int FindPath(const char *path);

// ---- In-place editing (each ends the program when a file cannot be opened)

/// Replaces the first `search` of every line by `replace`.
int FileChange(const char *file, const char *ext, const char *search, const char *replace);
/// Replaces every byte of code `fromCode` ("%i") by the bytes listed in
/// `toCodes` ("13,10").
int FileChangeChar(const char *file, const char *ext, const char *fromCode, const char *toCodes);
/// Removes the first `search` from every line holding it, except the first `skip` such lines.
int FileDel(const char *file, const char *ext, int skip, const char *search);
/// Deletes the lines holding `search`, except the first `keep` of them.
int FileDelLine(const char *file, const char *ext, int keep, const char *search);
/// Deletes start lines beyond the first `keep`, and for each one deleted the
/// next line holding `endText`; the lines between stay.
int FileDelLinePair(const char *file, const char *ext, int keep, const char *startText,
                    const char *endText);
/// Edits every line by mode "" (remove text), "a" (cut after text), "b" (cut
/// before text), "c" (remove a character code), "l" (delete line). Returns 0,
/// or 1 at once, editing nothing, for an unknown mode.
int FileDelFormat(const char *file, const char *ext, const char *mode, const char *text);
/// Writes `tmpl` before every line; "%s<n>" sets the first counter value,
/// "%#<n>" writes the template only from counter n on, as "%05i" of counter - n.
int FileInsert(const char *file, const char *ext, const char *tmpl);
/// FileInsert before the lines holding `search` only, counting only those.
int FileSearchInsert(const char *file, const char *ext, const char *tmpl, const char *search);

// ---- Names

/// "hello world-2x" -> "HelloWorld2x", in a static buffer; "" without letters.
char *GenName(const char *text);

// ---- Line readers

/// Next logical line of pIn into Line (with flInputFilterState set: comments
/// removed, lines inside a block comment skipped, line end cut); physical
/// lines consumed, 0 at end of file.
int GetLine();
/// Re-reads with GetLine the logical line that begins at `position` (an
/// earlier InPos); 0 when pIn is not open or cannot be positioned.
int GetLinePos(long position);
/// The n-th (1-based) logical line of pIn from its start, through GetLine;
/// 0 when the file has fewer lines or n < 1.
int GetLineN(int n);
/// fgets that first stores the position where the piece begins in *position
/// (when not null); `buffer` or null at end of file.
char *fgetsp(char *buffer, int size, FILE *file, long *position);

/// Opens pIn on `name`: 1, or 0 after "can't open file, %s" through ErrorMsg
/// of `errorKind` (kind 2 ends the program).
int OpenInputFile(const char *name, int errorKind);
/// OpenInputFile with the name formatted from `format`.
int OpenInputFileF(int errorKind, const char *format, ...) PRINTF_LIKE(2, 3);
/// Next line of pIn into LineBuf, joined with the following ones while a
/// piece ends in backslash-newline; 0 (and pIn closed) at end of file.
int GetFileLine();
/// GetFileLine with the line end ("\n", "\r\n") removed from LineBuf.
int GetFileTextLine();
/// Closes pIn; FileStatus = 1.
void CloseInputFile();

// ---- Whole files and file queries

/// Up to 4095 bytes of "<directory>/<name>" (directory alone when name is
/// null) into LineBuf, NUL-ended; 0 when it cannot be opened.
int GetFileContent(const char *directory, const char *name);
/// The same into `buffer` (at most `size` bytes); the NUL goes into LineBuf at
/// the byte count, never into `buffer`: callers end the text themselves.
int GetFileContentR(const char *directory, const char *name, char *buffer, int size);
/// The whole file in a new block (caller's PutMem); SavedFileSize = its size.
/// Null for an empty, missing or unreadable file; a 1-byte file gives "".
char *GetSavedFileContent(const char *directory, const char *name);
long GetFileSize(const char *path);    ///< size from stat, 0 when stat fails
int GetFileType(const char *path);     ///< 1 directory, 2 symlink, 3 other, 0 missing
time_t GetFileTime(const char *path);  ///< modification time, 0 when stat fails
/// The first line (piece) holding `text` (the first line for null text) in a
/// static buffer, or null; errorMode as OpenFile.
char *FileSearch(const char *path, const char *text, int errorMode);
