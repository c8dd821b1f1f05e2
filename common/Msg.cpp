// Messages, the log, and whole-file operations done through system commands.
#include <sys/stat.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "LineFile.h"
#include "MemMgr.h"
#include "Msg.h"
#include "SysCmd.h"

char *my_name = nullptr;
char flUseLog = 0;
const char *pLogPath = "/tmp";
FILE *pLog = nullptr;
char flLogOpenError = 0;
char Line[LINE_SIZE];

namespace {

constexpr const char *LOG_DIR = "/tmp";
constexpr const char *COULDNT_OPEN = "ERROR: couldn't open %s\n";
constexpr int PATH_SIZE = 4096;

bool firstLogMessage = true;

// Callers may pass Line itself as an argument of the message they format
// into Line, so the text is built here first.
char errorScratch[LINE_SIZE];

const char *ProgramName() {
    return my_name ? my_name : "";
}

int RemoveTree(const char *path, const char *name) {
    return SysCmd(CMD_RM_R, 1, "%s%s%s", path, name ? "/" : "", name ? name : "");
}

}  // namespace

void PutLogMsg(const char *format, ...) {
    if (!flUseLog || !format) return;
    pLogPath = LOG_DIR;
    const char *mode = firstLogMessage ? "wt" : "at";
    firstLogMessage = false;

    char name[PATH_SIZE];
    std::snprintf(name, sizeof name, "%s.log", ProgramName());
    if (!FindFile(pLogPath, name)) {
        SysCmd(CMD_TOUCH, 0, "%s/%s", pLogPath, name);
        SysCmd(CMD_CHMOD, 0, "666 %s/%s", pLogPath, name);
    }

    char path[PATH_SIZE];
    std::snprintf(path, sizeof path, "%s/%s.log", pLogPath, ProgramName());
    pLog = std::fopen(path, mode);
    if (!pLog) {
        std::fprintf(stderr, COULDNT_OPEN, path);
        return;
    }
    va_list args;
    va_start(args, format);
    std::vfprintf(pLog, format, args);
    va_end(args);
    std::fclose(pLog);
    pLog = nullptr;
}

void SysError(const char *format, ...) {
    int error = errno;
    std::fprintf(stderr, "\n%s: ", ProgramName());
    if (format) {
        va_list args;
        va_start(args, format);
        std::vfprintf(stderr, format, args);
        va_end(args);
    }
    std::fputs(" : ", stderr);
    std::fprintf(stderr, "%s\n", std::strerror(error));
    std::exit(1);
}

void ErrorMsg(int kind, int exitCode, const char *format, ...) {
    if (format) {
        va_list args;
        va_start(args, format);
        std::vsnprintf(errorScratch, sizeof errorScratch, format, args);
        va_end(args);
    } else {
        errorScratch[0] = '\0';
    }
    std::memcpy(Line, errorScratch, std::strlen(errorScratch) + 1);
    if (kind == 1) {
        std::fprintf(stderr, "WARNING: %s\n", Line);
    } else if (kind == 2) {
        std::fprintf(stderr, "ERROR: %s\n", Line);
        std::exit(exitCode);
    }
}

void errormsg(const char *format, ...) {
    std::fprintf(stderr, "%s: ", ProgramName());
    if (format) {
        va_list args;
        va_start(args, format);
        std::vfprintf(stderr, format, args);
        va_end(args);
    }
    std::fputc('\n', stderr);
}

void exit_app(int code) {
    std::exit(code);
}

int CreateTextFile(const char *path, const char *openMode, int permissions, const char *format,
                   ...) {
    // Writing a file anew replaces it; appending keeps what is there.
    bool replacing = openMode && openMode[0] == 'w';
    char scratch[FN_SIZE + 16];
    FILE *file = !path || !openMode ? nullptr
                 : replacing        ? OpenReplacement(path, scratch, sizeof scratch)
                                    : std::fopen(path, openMode);
    if (!file) {
        std::fprintf(stderr, COULDNT_OPEN, path ? path : "");
        return 0;
    }
    if (format) {
        va_list args;
        va_start(args, format);
        std::vfprintf(file, format, args);
        va_end(args);
    }
    if (replacing) return CommitReplacement(file, scratch, path, permissions);
    if (permissions) fchmod(fileno(file), static_cast<mode_t>(permissions));
    bool flushed = FlushToDisk(file);
    return std::fclose(file) == 0 && flushed ? 1 : 0;
}

int CreateFile(const char *directory, const char *fileName, const char *mode, const char *owner,
               const char *group) {
    if (!directory) return 0;
    int result = 0;
    if (!FindPath(directory)) result = SysCmd(CMD_MKDIR, 2, "%s", directory);
    MemPtr<char> target(
        SaveStr("%s%s%s", directory, fileName ? "/" : "", fileName ? fileName : ""));
    if (fileName) result = SysCmd(CMD_TOUCH, 2, "%s", target.get());
    if (mode) result = SysCmd(CMD_CHMOD, 2, "%s %s", mode, target.get());
    if (owner) result = SysCmd(CMD_CHOWN, 2, "%s %s", owner, target.get());
    if (group) result = SysCmd(CMD_CHGRP, 2, "%s %s", group, target.get());
    return result;
}

void DeleteFile(const char *directory, const char *name) {
    // Without a directory the name is the whole path.
    if (!directory) {
        directory = name;
        name = nullptr;
    }
    if (!directory || !FindFile(directory, name)) return;
    RemoveTree(directory, name);
}

int DeleteFile_(const char *path, const char *name) {
    if (!path) return 0;
    bool found = name ? FindFile(path, name) != 0 : FindPath(path) != 0;
    return found ? RemoveTree(path, name) : 0;
}

int RenameFile(const char *directory, const char *oldName, const char *newName) {
    if (!oldName || !newName) return 0;
    if (directory) {
        if (!FindFile(directory, oldName)) return 0;
        return SysCmd(-CMD_MV, 1, "%s/%s %s/%s", directory, oldName, directory, newName);
    }
    if (!FindFile(nullptr, oldName)) return 0;
    return SysCmd(-CMD_MV, 1, "%s %s", oldName, newName);
}
