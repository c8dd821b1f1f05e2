// System commands: the command table, running commands through the shell
// with logging, capturing their output, and queries about the system.
#pragma once

#include <dirent.h>

#include "utils.h"

struct SysCommand {
    const char *name;  ///< file name; empty for entries 0 and 1
    const char *args;  ///< fixed arguments placed right after the command
    const char *path;  ///< resolved directory, null until found
    int wait;          ///< seconds to sleep after a run; -1: wait for the process
};

/// Row numbers of ComList, used wherever a command is run.
enum : int {
    CMD_NONE = 0,
    CMD_NONE1 = 1,
    CMD_CANCEL = 2,
    CMD_CAT = 3,
    CMD_CHGRP = 4,
    CMD_CHMOD = 5,
    CMD_CHOWN = 6,
    CMD_CLEAR = 7,
    CMD_COMPRESS = 8,
    CMD_CP = 9,
    CMD_CP_R = 10,
    CMD_CUPSD = 11,
    CMD_ID = 12,
    CMD_ECHO = 13,
    CMD_EJECT = 14,
    CMD_EJECT_Q = 15,
    CMD_FILE = 16,
    CMD_LN = 17,
    CMD_LP = 18,
    CMD_LPC = 19,
    CMD_LPR = 20,
    CMD_LPRM = 21,
    CMD_LPSTAT = 22,
    CMD_LS = 23,
    CMD_KILL = 24,
    CMD_MV = 25,
    CMD_MKDIR = 26,
    CMD_MORE = 27,
    CMD_PING = 28,
    CMD_RM = 29,
    CMD_RM_R = 30,
    CMD_SH = 31,
    CMD_SLEEP = 32,
    CMD_TAR_C = 33,
    CMD_TAR_X = 34,
    CMD_TOUCH = 35,
    CMD_UNCOMPRESS = 36,
    CMD_WHOAMI = 37,
    CMD_ZCAT = 38,
    CMD_UNAME = 39,
    CMD_SED = 40,
    CMD_DU = 41,
    CMD_CHECKPC = 42,
    CMD_LPD = 43,
    CMD_PKGADD = 44,
    CMD_PKGINFO = 45,
    CMD_PKGRM = 46,
    CMD_ACCEPT = 47,
    CMD_DISABLE = 48,
    CMD_ENABLE = 49,
    CMD_LPADMIN = 50,
    CMD_LPFILTER = 51,
    CMD_LPSCHED = 52,
    CMD_LPSHUT = 53,
    CMD_LPSYSTEM = 54,
    CMD_PS = 55,
    CMD_BAR = 56,
    CMD_DF = 57,
    CMD_LPQ = 58,
    CMD_YPCAT = 59,
    CMD_REJECT = 60,
    CMD_PMADM = 61,
    CMD_SACADM = 62,
    CMD_VOLCHECK = 63,
    CMD_CAPTURE = 64,
    CMD_LPSET = 65,
    CMD_INSTNETPR = 66,
    CMD_PIOMKPQ = 67,
    CMD_PIOMISC_EXT = 68,
    CMD_PIOMISC_BASE = 69,
    CMD_LSALLQ = 70,
    CMD_MKQUE = 71,
    CMD_MKQUEDEV = 72,
    CMD_RMQUE = 73,
    CMD_RMQUEDEV = 74,
    CMD_PIOCHDFQ = 75,
    CMD_ENQ = 76,
    CMD_LSQUEDEV = 77,
    CMD_LSQUE = 78,
    CMD_STARTSRC = 79,
    CMD_STOPSRC = 80,
    CMD_LSSRC = 81,
    CMD_COUNT = 82
};

extern SysCommand ComList[CMD_COUNT + 1];  ///< ended by an entry with a null name
extern char flInitSysCmd;                  ///< resolve a command on first use
extern char flSysCmdLog;                   ///< print a dot and log each command line

/// Resolves the whole table (default directories, then PATH), exports SHELL.
void InitSysCmdList();
/// Forgets every resolved path and restores the default search path, so that
/// tests and measurements can resolve the table again from a clean start.
void ResetSysCmdList();
/// Gives unresolved commands found in `directory` that directory; 1 while some remain.
int FillCmdPaths(const char *directory);
/// Resolves one command through the combined search path; 1 when found.
int FillCmdPath(int index);
int TestCmd(int index);          ///< 1 when the command has a path
char *GetCmd(int index);         ///< allocated "path/name args"; null when unresolved
char *GetCmdNoFlags(int index);  ///< allocated "path/name"; null from 82 up or unresolved
char *ReadDir(DIR *dirHandle, char *entryBuffer);  ///< entryBuffer: 256 bytes
/// " . .. a b " of a directory (allocated), or null when it cannot be opened.
char *GetDirFileList(const char *directory);
/// The same keeping names whose text after the last "." is `extension` (all
/// for null); null when nothing is kept or the directory cannot be opened.
char *SearchDirFileList(const char *directory, const char *extension);

struct ResponseLine {
    ResponseLine *next;
    char *text;  ///< stored in the same allocation, right after the record
};

/// Runs command `index` with the caller's formatted arguments. Mode 0
/// discards output, 1 logs it, 2 logs and ends the program on failure.
/// Returns 0, or errno when the command failed (EINVAL, running nothing, for
/// an index outside the table). Ends the program with status 0 when the
/// command cannot be found, with status 1 on a mode 2 failure.
int SysCmd(int index, int mode, const char *format, ...) PRINTF_LIKE(3, 4);
/// Runs the formatted line as it stands, then sleeps a second; returns the
/// shell's status shifted right by 7. Ends the program on a mode 2 failure.
int SysCmdP(int mode, const char *format, ...) PRINTF_LIKE(2, 3);
/// Output lines containing `filter` (all when null/empty), or null. Ends the
/// program with status 0 when the command cannot be found.
ResponseLine *GetCmdResponse(int index, const char *filter, const char *format, ...)
    PRINTF_LIKE(3, 4);
/// The same kept lines as one allocated string, each ended by a newline.
char *GetCmdResponseStr(int index, const char *filter, const char *format, ...) PRINTF_LIKE(3, 4);
void FreeResponseList(ResponseLine *list);

struct DiskSpace {
    char line[512];  ///< the data line of df for the path
    double avail;    ///< its "available" column, 0 when unknown
};

char *GetSysPsIdList(const char *name);           ///< " 12 34 " or null
char *CheckProcTableForExecs(const char *names);  ///< "name ( ids )\n"... or null
/// Sends SIGKILL to every process of that name, waits a second; returns 0.
int KillProcessByName(const char *name);
/// " pkg1 pkg2 " of the pkginfo lines holding `filter`, or null.
char *GetSysPkgList(const char *filter);
/// Fills `record` from df; 1 when the report has an "avail..." column.
int GetDiskSpace(const char *path, DiskSpace *record);
/// 1 when `required` fits under `path` (an existing `name` there counting as
/// free); a missing path is measured on its nearest existing parent.
int AvailSpace(const char *path, const char *name, double required);
double DUPath(const char *path);  ///< first number of "du -s", 0 without output
void SysGetSubnetMask();          ///< nothing to do on this platform
