// The command table, the resolution of its directories, and directory file
// lists. Running the commands is in SysExec.cpp, the queries in SysQuery.cpp.
#include "SysCmd.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

SysCommand ComList[CMD_COUNT + 1] = {
    {"", "", nullptr, 0},
    {"", "", nullptr, 0},
    {"cancel", "", nullptr, 2},
    {"cat", "", nullptr, 0},
    {"chgrp", "", nullptr, 0},
    {"chmod", "", nullptr, 0},
    {"chown", "", nullptr, 0},
    {"clear", "", nullptr, 0},
    {"compress", "", nullptr, 0},
    {"cp", "-p", nullptr, 0},
    {"cp", "-pr", nullptr, 0},
    {"cupsd", "", nullptr, 0},
    {"id", "", nullptr, 0},
    {"echo", "", nullptr, 0},
    {"eject", "-f", nullptr, 1},
    {"eject", "-q", nullptr, 1},
    {"file", "", nullptr, 0},
    {"ln", "", nullptr, 0},
    {"lp", "", nullptr, 0},
    {"lpc", "", nullptr, 1},
    {"lpr", "", nullptr, 0},
    {"lprm", "", nullptr, 1},
    {"lpstat", "", nullptr, 1},
    {"ls", "", nullptr, 0},
    {"kill", "-KILL", nullptr, 0},
    {"mv", "-f", nullptr, 0},
    {"mkdir", "-p", nullptr, 0},
    {"more", "", nullptr, 0},
    {"ping", "", nullptr, 0},
    {"rm", "-f", nullptr, 0},
    {"rm", "-rf", nullptr, 0},
    {"sh", "", nullptr, 0},
    {"sleep", "", nullptr, 0},
    {"tar", "cvfp", nullptr, 0},
    {"tar", "xvfp", nullptr, 0},
    {"touch", "", nullptr, 0},
    {"uncompress", "", nullptr, 0},
    {"whoami", "", nullptr, 0},
    {"zcat", "", nullptr, 0},
    {"uname", "", nullptr, 0},
    {"sed", "", nullptr, 0},
    {"du", "-s", nullptr, 0},
    {"checkpc", "", nullptr, 0},
    {"lpd", "", nullptr, 0},
    {"pkgadd", "", nullptr, 1},
    {"pkginfo", "", nullptr, 0},
    {"pkgrm", "", nullptr, 1},
    {"accept", "", nullptr, 1},
    {"disable", "", nullptr, 1},
    {"enable", "", nullptr, 1},
    {"lpadmin", "", nullptr, 1},
    {"lpfilter", "", nullptr, 1},
    {"lpsched", "", nullptr, 1},
    {"lpshut", "", nullptr, 1},
    {"lpsystem", "", nullptr, 1},
    {"ps", "-e", nullptr, 0},
    {"bar", "", nullptr, 0},
    {"df", "", nullptr, 0},
    {"lpq", "-P", nullptr, 0},
    {"ypcat", "", nullptr, 0},
    {"reject", "", nullptr, 1},
    {"pmadm", "", nullptr, 1},
    {"sacadm", "", nullptr, 1},
    {"volcheck", "", nullptr, 0},
    {"capture", "", nullptr, 0},
    {"lpset", "", nullptr, 1},
    {"instnetpr", "", nullptr, 1},
    {"piomkpq", "", nullptr, 0},
    {"piomisc_ext", "", nullptr, 0},
    {"piomisc_base", "", nullptr, 0},
    {"lsallq", "", nullptr, 0},
    {"mkque", "", nullptr, 0},
    {"mkquedev", "", nullptr, 0},
    {"rmque", "", nullptr, 0},
    {"rmquedev", "", nullptr, 0},
    {"piochdfq", "", nullptr, 0},
    {"enq", "", nullptr, 0},
    {"lsquedev", "", nullptr, 0},
    {"lsque", "", nullptr, 0},
    {"startsrc", "", nullptr, 1},
    {"stopsrc", "", nullptr, 0},
    {"lssrc", "", nullptr, 0},
    {nullptr, nullptr, nullptr, 0},
};

char flInitSysCmd = 1;
char flSysCmdLog = 0;

namespace {

constexpr char DEFAULT_SEARCH_PATH[] =
    "/usr/bin:/usr/ucb:/usr/sbin:/bin:/sbin:/usr/lib:/usr/lib/print";

// InitSysCmdList cuts this copy into its directories in place, and the
// resolved entries point into it for the rest of the run.
char DefaultSearchPath[sizeof(DEFAULT_SEARCH_PATH)] =
    "/usr/bin:/usr/ucb:/usr/sbin:/bin:/sbin:/usr/lib:/usr/lib/print";

char *pSearchPath = nullptr;  // "<default>:<PATH>", kept whole for FillCmdPath
char *pEnvPath = nullptr;     // PATH, cut in place like the default path
size_t EnvPathSize = 0;       // its size before the cutting
char *pShellEnv = nullptr;    // the "SHELL=..." string handed to putenv

constexpr const char *ENTRY_DELIMITERS = ":";

bool InTable(int index) {
    return index >= 0 && index < CMD_COUNT;
}

bool PointsInto(const char *p, const char *start, size_t size) {
    return p && start && p >= start && p < start + size;
}

// "<default>:<PATH>" sized to fit: a PATH may be longer than SaveStr keeps.
void BuildSearchPath() {
    if (pSearchPath) return;
    MemPtr<char> env(GetEnv("PATH"));
    const char *tail = env ? env.get() : "";
    size_t head = std::strlen(DefaultSearchPath), rest = std::strlen(tail);
    auto *path = static_cast<char *>(GetMem(static_cast<long>(head + 1 + rest + 1)));
    if (!path) return;
    std::memcpy(path, DefaultSearchPath, head);
    path[head] = ':';
    std::memcpy(path + head + 1, tail, rest + 1);
    pSearchPath = path;
}

// Offers each directory of a ':' list, cut in place, to FillCmdPaths until
// every command has a path.
void FillFromList(char *list) {
    for (char *dir = GetTokenParse(list, ENTRY_DELIMITERS); dir;
         dir = GetTokenParse(nullptr, ENTRY_DELIMITERS)) {
        if (!FillCmdPaths(dir)) return;
    }
}

bool AnyUnresolved() {
    for (int i = 2; ComList[i].name; ++i)
        if (!ComList[i].path) return true;
    return false;
}

void ExportShell() {
    const SysCommand &sh = ComList[CMD_SH];
    if (!sh.path) return;
    // The trailing blank is part of the value children have always seen.
    char *value = SaveStr("SHELL=%s/%s ", sh.path, sh.name);
    putenv(value);
    PutMem(pShellEnv);
    pShellEnv = value;
}

// Bytes needed for " name" of every entry, so the second pass never outgrows
// the first one's count even when the directory changes in between.
long SumEntryLengths(DIR *dir) {
    char entry[256];
    long total = 0;
    while (ReadDir(dir, entry)) total += static_cast<long>(std::strlen(entry)) + 1;
    return total;
}

bool HasExtension(std::string_view entry, const char *extension) {
    if (!extension) return true;
    size_t dot = entry.rfind('.');
    return dot != std::string_view::npos && entry.substr(dot + 1) == extension;
}

// " a b c " of the entries that pass the filter; null when the directory
// cannot be opened, or when the filter kept nothing and `emptyIsNull` is set.
char *ListDirectory(const char *directory, const char *extension, bool emptyIsNull) {
    if (!directory) return nullptr;
    DIR *dir = opendir(directory);
    if (!dir) return nullptr;
    long capacity = SumEntryLengths(dir) + 3;
    char *list = static_cast<char *>(GetMem(capacity));
    if (!list) {
        closedir(dir);
        return nullptr;
    }
    rewinddir(dir);
    long used = 0;
    bool kept = false;
    char entry[256];
    while (ReadDir(dir, entry)) {
        if (!HasExtension(entry, extension)) continue;
        long len = static_cast<long>(std::strlen(entry));
        if (used + len + 1 + 2 > capacity) continue;  // entry added after the count
        list[used++] = ' ';
        std::memcpy(list + used, entry, len);
        used += len;
        kept = true;
    }
    closedir(dir);
    if (!kept && emptyIsNull) return static_cast<char *>(PutMem(list));
    list[used++] = ' ';
    list[used] = '\0';
    return list;
}

}  // namespace

void InitSysCmdList() {
    flInitSysCmd = 0;
    BuildSearchPath();
    // Kept for the run: resolved entries point into it once it is cut.
    if (!pEnvPath) {
        pEnvPath = GetEnv("PATH");
        EnvPathSize = pEnvPath ? std::strlen(pEnvPath) + 1 : 0;
    }
    FillFromList(DefaultSearchPath);
    if (AnyUnresolved() && pEnvPath) FillFromList(pEnvPath);
    ExportShell();
    if (flUseLog) {
        flSysCmdLog = 1;
        PutLogMsg("initializing system\n");
    }
}

void ResetSysCmdList() {
    for (int i = 0; i < CMD_COUNT; ++i) {
        const char *path = ComList[i].path;
        ComList[i].path = nullptr;
        // Paths set by FillCmdPaths point into the cut lists; only the copies
        // made by FillCmdPath are blocks of their own.
        if (PointsInto(path, DefaultSearchPath, sizeof(DefaultSearchPath))) continue;
        if (PointsInto(path, pEnvPath, EnvPathSize)) continue;
        PutMem(const_cast<char *>(path));
    }
    std::memcpy(DefaultSearchPath, DEFAULT_SEARCH_PATH, sizeof(DEFAULT_SEARCH_PATH));
    pEnvPath = static_cast<char *>(PutMem(pEnvPath));
    EnvPathSize = 0;
    pSearchPath = static_cast<char *>(PutMem(pSearchPath));
    flInitSysCmd = 1;
}

int FillCmdPaths(const char *directory) {
    // Each unresolved name is looked up as an entry of the directory (a link
    // counts, as in a listing), one directory opened once: reading whole
    // listings of /usr/bin and /usr/lib was most of the start-up time.
    int dir = directory ? open(directory, O_RDONLY | O_DIRECTORY) : -1;
    if (dir < 0) return 1;
    bool unresolved = false;
    for (int i = 2; ComList[i].name; ++i) {
        SysCommand &cmd = ComList[i];
        if (cmd.path) continue;
        struct stat st;
        if (*cmd.name && fstatat(dir, cmd.name, &st, AT_SYMLINK_NOFOLLOW) == 0)
            cmd.path = directory;
        else
            unresolved = true;
    }
    close(dir);
    return unresolved ? 1 : 0;
}

int FillCmdPath(int index) {
    // Entries 0 and 1 have no name: FindFile would take the directory itself.
    if (index < 2 || !InTable(index)) return 0;
    BuildSearchPath();
    if (!pSearchPath) return 0;
    SysCommand &cmd = ComList[index];
    for (char *dir = GetToken(pSearchPath, ENTRY_DELIMITERS); dir;
         dir = GetToken(nullptr, ENTRY_DELIMITERS)) {
        if (FindFile(dir, cmd.name)) {
            cmd.path = SaveStr_(dir);
            return 1;
        }
    }
    return 0;
}

namespace {

// The lazy resolution that TestCmd, GetCmd and GetCmdNoFlags share.
const char *CmdPath(int index) {
    SysCommand &cmd = ComList[index];
    if (!cmd.path && flInitSysCmd) FillCmdPath(index);
    return cmd.path;
}

}  // namespace

int TestCmd(int index) {
    if (index < 2 || !InTable(index)) return 0;
    return CmdPath(index) ? 1 : 0;
}

char *GetCmd(int index) {
    if (!InTable(index)) return nullptr;
    const char *path = CmdPath(index);
    if (!path) return nullptr;
    return SaveStr("%s/%s %s", path, ComList[index].name, ComList[index].args);
}

char *GetCmdNoFlags(int index) {
    if (!InTable(index)) return nullptr;
    const char *path = CmdPath(index);
    if (!path) return nullptr;
    return SaveStr("%s/%s", path, ComList[index].name);
}

char *ReadDir(DIR *dirHandle, char *entryBuffer) {
    struct dirent *entry = readdir(dirHandle);
    if (!entry) return nullptr;
    size_t len = strnlen(entry->d_name, 255);  // the caller's buffer holds 256
    std::memcpy(entryBuffer, entry->d_name, len);
    entryBuffer[len] = '\0';
    return entryBuffer;
}

char *GetDirFileList(const char *directory) {
    return ListDirectory(directory, nullptr, false);
}

char *SearchDirFileList(const char *directory, const char *extension) {
    return ListDirectory(directory, extension, true);
}
