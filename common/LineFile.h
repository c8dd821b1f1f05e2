// Line files: opening with error modes, existence tests, the line readers,
// and in-place editing through a temporary copy replaced with "rm -f" / "mv".
#pragma once

#include <cstdio>
#include <ctime>

#include "Str.h"

constexpr int LINEBUF_SIZE = 4096;  ///< LineBuf: one input line or typed answer
constexpr int FN_SIZE = 4096;       ///< Fn, FnOut, InputFileName
constexpr int READ_PIECE = 511;     ///< fgets limit of every line reader

extern FILE *pIn;                      ///< current input file
extern FILE *pOut;                     ///< output of the streaming pair
extern char Fn[FN_SIZE];               ///< name of the edited file
extern char FnOut[FN_SIZE];            ///< name of its temporary copy
extern char *pLine;                    ///< position in Line (GetLine)
extern int LineCnt;                    ///< physical lines consumed by the last GetLine
extern long InPos;                     ///< file position where the last logical line began
extern char flInputFilterState;        ///< GetLine strips comments when set
extern char InputFileName[FN_SIZE];
extern int FileStatus;                 ///< 0 open, 1 ended or closed, 2 could not be opened
extern char LineBuf[LINEBUF_SIZE];
extern int LineLen;
extern long SavedFileSize;

/// Closes `previous`, opens `path`; on failure errorMode 2 ends the program,
/// 1 prints "ERROR: can't open file, %s", other values are silent.
FILE *OpenFile(FILE *previous, const char *path, const char *mode, int errorMode);
int OpenRawFile(const char *path, int flags, int permissions);
FILE *OpenIOFiles(const char *file, const char *ext);
int ReplaceInputFile();

/// 1 when `name` is an entry of `directory` (through the directory file list).
int FindFile(const char *directory, const char *name);
/// The same answered with stat.
int FindFile_(const char *directory, const char *name);

int FileChange(const char *file, const char *ext, const char *search, const char *replace);
int FileChangeChar(const char *file, const char *ext, const char *fromCode, const char *toCodes);
int FileDel(const char *file, const char *ext, int skip, const char *search);
int FileDelLine(const char *file, const char *ext, int keep, const char *search);
int FileDelLinePair(const char *file, const char *ext, int keep, const char *startText,
                    const char *endText);
/// Returns 1 at once, editing nothing, for an unknown mode.
int FileDelFormat(const char *file, const char *ext, const char *mode, const char *text);
int FileInsert(const char *file, const char *ext, const char *tmpl);
int FileSearchInsert(const char *file, const char *ext, const char *tmpl, const char *search);

/// "hello world-2x" -> "HelloWorld2x", in a static buffer.
char *GenName(const char *text);
/// Next logical line of pIn into Line; physical lines consumed, 0 at end.
int GetLine();

int OpenInputFile(const char *name, int errorKind);
int GetFileLine();
void CloseInputFile();
int GetFileContent(const char *directory, const char *name);
int GetFileContentR(const char *directory, const char *name, char *buffer, int size);
char *GetSavedFileContent(const char *directory, const char *name);
long GetFileSize(const char *path);
int GetFileType(const char *path);  ///< 1 directory, 2 symlink, 3 other, 0 missing
char *FileSearch(const char *path, const char *text, int errorMode);
