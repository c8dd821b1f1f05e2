// Print daemon and boot integration: stopping the daemon, the generated
// scripts, the init table entry and the end-of-run clean-up.
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "Scripts.h"
#include "setup.h"

namespace {

// Kills every process of `name`; false when permission was refused.
bool KillAllNamed(const char *name) {
    MemPtr<char> ids(GetSysPsIdList(name));
    if (!ids) return true;
    const char *cursor = nullptr;
    char id[64];
    for (const char *w = GetTokenD(ids.get(), " \t\n", &cursor, id); w;
         w = GetTokenD(nullptr, " \t\n", &cursor, id)) {
        int pid = std::atoi(id);
        // 0 or less would signal our own process group or everyone.
        if (pid <= 0) continue;
        if (kill(pid, SIGKILL) != 0 && errno == EPERM) {
            std::perror(NlsSetupStrCvt(58));
            return false;
        }
        std::printf(NlsSetupStrCvt(59), id);
    }
    std::fflush(stdout);
    return true;
}

int CurrentYear() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local.tm_year + 1900;
}

}  // namespace

void StopDemon() {
    // PND is the daemon's short process name on some systems.
    if (KillAllNamed("PelnorD")) KillAllNamed("PND");
}

void AddDaemonToInitTab() {
    MemPtr<char> entry(SaveStr("\nOvPn:3:respawn:%s/OvPn\n", AppDir));
    MemPtr<char> table(GetSavedFileContent(pInitTab, nullptr));
    if (!table) return;
    // With its leading newline the entry only matches as a whole line.
    if (std::strstr(table.get(), entry.get())) return;
    // The first backup is never overwritten: it keeps the table as it was
    // before any installation.
    if (!FindFile(nullptr, pInitTabSave)) SysCmd(CMD_CP, 1, "%s %s", pInitTab, pInitTabSave);
    if (FILE *f = std::fopen(pInitTab, "at")) {
        std::fputs(entry.get() + 1, f);
        FlushToDisk(f);
        std::fclose(f);
    }
}

int GenSimpleScript(const char *path, const char *shellLine, const char *tmpl, ...) {
    char scratch[FN_SIZE + 16];
    FILE *f = OpenReplacement(path, scratch, sizeof scratch);
    if (!f) return 0;
    std::fprintf(f, "%s\n", shellLine);
    std::fprintf(f, ScriptCopyRight, CurrentYear());
    va_list args;
    va_start(args, tmpl);
    std::vfprintf(f, tmpl, args);
    va_end(args);
    if (!CommitReplacement(f, scratch, path, 0)) return 0;
    return SysCmd(CMD_CHMOD, 0, "755 %s", path);
}

void OrvelClean(int removeWorkCopies) {
    if (removeWorkCopies) {
        if (chdir(pTmpDir) != 0) { /* names below are full paths */
        }
        MemPtr<char> work(SaveStr("%sInstall", COMPANY));
        MemPtr<char> archive(SaveStr("%s.tar.Z", ARCHIVE_NAME));
        DeleteFile(pTmpDir, work.get());
        DeleteFile(pTmpDir, "setup");
        DeleteFile(pTmpDir, "setup.hlp");
        DeleteFile(pTmpDir, archive.get());
    }
    std::putchar('\n');
    std::fflush(stdout);
    // `manual` keeps the queue tool's work as well as ours.
    if (removeWorkCopies && flInstalled) {
        MemPtr<char> clean(SaveStr("%s/pnqadmin -clean", AppDir));
        if (RunShellLine(clean.get()) == -1) { /* the queue tool reports its own problems */
        }
    }
}
