// Messages, the log, and whole-file operations done through system commands.
#pragma once

#include <cstdio>

#include "Str.h"

constexpr int LINE_SIZE = 0x10000;

extern char *my_name;         ///< program base name: message prefixes, log name
extern char flUseLog;         ///< PutLogMsg writes, SysCmd sends output to the log
extern const char *pLogPath;  ///< directory of the log, "/tmp"
extern FILE *pLog;            ///< the log while one message is written
extern char flLogOpenError;   ///< reserved
extern char Line[LINE_SIZE];  ///< shared scratch line

/// Appends to /tmp/<my_name>.log when flUseLog is set; the first message of a
/// run truncates the file.
void PutLogMsg(const char *format, ...) PRINTF_LIKE(1, 2);
/// "\n<name>: <message> : <errno text>" on standard error; exits with 1.
[[noreturn]] void SysError(const char *format, ...) PRINTF_LIKE(1, 2);
/// Kind 1 warns, kind 2 reports an error and exits with `exitCode`, other
/// kinds only format into Line.
void ErrorMsg(int kind, int exitCode, const char *format, ...) PRINTF_LIKE(3, 4);
/// "<name>: <message>\n" on standard error.
void errormsg(const char *format, ...) PRINTF_LIKE(1, 2);
[[noreturn]] void exit_app(int code);

/// Writes a whole text file; 1 on success, 0 when it cannot be opened.
int CreateTextFile(const char *path, const char *openMode, int permissions, const char *format, ...)
    PRINTF_LIKE(4, 5);
/// Ensures a directory, optionally touches a file in it, sets mode/owner/group.
int CreateFile(const char *directory, const char *fileName, const char *mode, const char *owner,
               const char *group);
/// Removes a file or tree when it exists (`rm -rf`).
void DeleteFile(const char *directory, const char *name);
int DeleteFile_(const char *path, const char *name);
/// Moves a file when it exists (`mv -f`); the command's result or 0.
int RenameFile(const char *directory, const char *oldName, const char *newName);
