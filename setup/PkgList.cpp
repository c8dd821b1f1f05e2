// The package list interpreter: pkg.list carried out line by line against
// the package directory, and the configuration flags the print scripts read.
//
//   COMMAND NAME [EXTRA] [ATTRIBUTE VALUE]...
//   commands:   dir dirto t c m # v s newdir checkps (anything else is c)
//   attributes: mode bat owner group link name sed
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "PkgList.h"
#include "Scripts.h"
#include "setup.h"

namespace {

using namespace pkglist;

// One line being carried out; words come from its own cursor, so commands run
// meanwhile cannot disturb the scan.
class ListLine {
  public:
    ListLine(const char *text, const char *packageSubdir) : subdir_(packageSubdir) {
        std::snprintf(text_, sizeof text_, "%s", text);
    }

    // 0 to go on with the next line, 1 when the user chose to quit.
    int Run() {
        const char *command = Word(text_);
        return command ? RunCommand(command) : 0;
    }

  private:
    char text_[LINEBUF_SIZE];
    const char *cursor_ = nullptr;
    char word_[LINEBUF_SIZE];
    char name_[LINEBUF_SIZE];
    char extra_[LINEBUF_SIZE];
    const char *subdir_;

    const char *Word(const char *start = nullptr, const char *separators = WORD_SEPARATORS) {
        return GetTokenD(start, separators, &cursor_, word_);
    }

    // Copies the next word into `into`; false when the line has no more.
    bool WordInto(char *into) {
        const char *w = Word();
        if (!w) return false;
        std::snprintf(into, LINEBUF_SIZE, "%s", w);
        return true;
    }

    int RunCommand(const char *commandWord) {
        char command[LINEBUF_SIZE];
        std::snprintf(command, sizeof command, "%s", commandWord);
        int kind = FindToken(command, COMMANDS);
        if (kind == PL_COMMENT) return 0;
        // Every other command acts on a name; a line that stops short has nothing to act on.
        if (!WordInto(name_)) return 0;
        switch (kind) {
            case PL_DIR:
                CopyTree(AppDir);
                break;
            case PL_DIRTO:
                if (!WordInto(extra_)) return 0;
                CopyTree(extra_);
                break;
            case PL_TOUCH:
                SysCmd(CMD_TOUCH, 1, "%s/%s", AppDir, name_);
                break;
            case PL_MUST_EXIST:
            case PL_SAME_AS_M:
                if (!FindFile(AppDir, name_)) return 0;
                break;
            case PL_RELEASE:
                return RunCondition();
            case PL_NEWDIR:
                if (FindFile(AppDir, name_)) return 0;
                CreateNewDir();
                break;
            case PL_CHECKPS:
                if (QuitForRunningProcesses(name_)) return 1;
                break;
            default:  // c, and any word that is not a command
                SysCmd(CMD_CP, 1, "%s/%s/%s %s", pOrvelInstallDir, subdir_, name_, AppDir);
                break;
        }
        RunAttributes();
        return 0;
    }

    void CopyTree(const char *destination) {
        SysCmd(CMD_CP_R, 1, "%s/%s/%s %s", pOrvelInstallDir, subdir_, name_, destination);
    }

    void CreateNewDir() {
        MemPtr<char> path(SaveStr("%s/%s", AppDir, name_));
        CreateFile(path.get(), nullptr, "775", nullptr, nullptr);
    }

    // v OPERATOR RELEASE [COMMAND ...]: the truth table below is what existing
    // lists were written against; "=" and ">" never hold, ">=" always does.
    int RunCondition() {
        char release[LINEBUF_SIZE] = "";
        bool haveRelease = WordInto(release);
        struct utsname system {};
        if (uname(&system) != 0) {
            std::perror(NlsSetupStrCvt(60));
            RunAttributes();
            return 0;
        }
        int order = std::strcmp(system.release, haveRelease ? release : "");
        bool holds = false;
        switch (FindToken(name_, OPERATORS)) {
            case OP_LESS:
                holds = order < 0;
                break;
            case OP_LESS_EQUAL:
                holds = order <= 0;
                break;
            case OP_GREATER_EQUAL:
                holds = true;
                break;
            default:
                break;
        }
        if (!holds) return 0;
        const char *next = Word();
        return next ? RunCommand(next) : 0;
    }

    void RunAttributes() {
        const char *attribute = Word();
        if (!attribute) return;
        char attr[LINEBUF_SIZE];
        std::snprintf(attr, sizeof attr, "%s", attribute);
        // A leading sed takes the rest of the line, blanks included; later
        // ones take one word. Lists rely on both forms.
        const char *value =
            Word(nullptr, std::strcmp(attr, "sed") == 0 ? REST_OF_LINE : WORD_SEPARATORS);
        while (value) {
            char val[LINEBUF_SIZE];
            std::snprintf(val, sizeof val, "%s", value);
            Apply(FindToken(attr, ATTRIBUTES), val);
            if (!(attribute = Word())) return;
            std::snprintf(attr, sizeof attr, "%s", attribute);
            value = Word();
        }
    }

    // Attributes act on <AppDir>/<NAME>; after `name` the old NAME is still
    // the one meant, so lists put `name` last.
    void Apply(int attribute, const char *value) {
        switch (attribute) {
            case AT_MODE:
                SysCmd(CMD_CHMOD, 2, "%s %s/%s", value, AppDir, name_);
                break;
            case AT_BAT: {
                MemPtr<char> launcher(SaveStr("/usr/bin/%s", value));
                GenSimpleScript(launcher.get(), ScriptShShell, SimpleScript, AppDir, AppDir, name_);
                break;
            }
            case AT_OWNER:
                SysCmd(CMD_CHOWN, 2, "-R %s %s/%s", value, AppDir, name_);
                break;
            case AT_GROUP:
                SysCmd(CMD_CHGRP, 2, "-R %s %s/%s", value, AppDir, name_);
                break;
            case AT_LINK:
                SysCmd(CMD_LN, 2, "-s %s/%s %s", AppDir, name_, value);
                break;
            case AT_NAME:
                SysCmd(CMD_MV, 2, "%s/%s %s/%s", AppDir, name_, AppDir, value);
                break;
            case AT_SED:
                SysCmd(CMD_SED, 2, "%s %s/%s > /tmp/%s.tmp", value, AppDir, name_, my_name);
                // Copied back, not moved: the file keeps its inode.
                SysCmd(CMD_CP, 0, "/tmp/%s.tmp %s/%s", my_name, AppDir, name_);
                SysCmd(CMD_RM, 0, "/tmp/%s.tmp", my_name);
                break;
            default:
                break;  // unknown attributes are passed over
        }
    }
};

void ShowRunning(const char *running) {
    std::fputs(NlsSetupStrCvt(66), stdout);
    std::printf("%s\n", running);
    for (int id = 67; id <= 70; ++id) std::fputs(NlsSetupStrCvt(id), stdout);
    std::fflush(stdout);
}

bool StillRunning(const char *processList) {
    MemPtr<char> running(CheckProcTableForExecs(processList));
    return running != nullptr;
}

}  // namespace

int QuitForRunningProcesses(const char *processList) {
    for (;;) {
        MemPtr<char> running(CheckProcTableForExecs(processList));
        if (!running) return 0;
        ShowRunning(running.get());
        int choice = std::getchar();
        int after = std::getchar();  // the newline that ends the answer
        // No one left to answer: stop rather than ask forever.
        if (choice == EOF || after == EOF) return 1;
        if (choice == '2') return 1;
        if (choice != '1') continue;
        // Seven looks five seconds apart, although the menu says 30 seconds.
        for (int look = 0; look < 7; ++look) {
            sleep(5);
            if (!StillRunning(processList)) return 0;
        }
    }
}

int ProcessPkgList(const char *packageSubdir) {
    MemPtr<char> list(SaveStr("%s/%s/pkg.list", pOrvelInstallDir, packageSubdir));
    return RunPkgList(list.get(), packageSubdir);
}

int RunPkgList(const char *listPath, const char *packageSubdir) {
    OpenInputFile(listPath, 2);
    while (GetFileLine()) {
        ListLine line(LineBuf, packageSubdir);
        if (line.Run() != 0) {
            CloseInputFile();
            return 1;
        }
    }
    CloseInputFile();
    return 0;
}

// Before Install has named the package directory there is nothing to test;
// an empty name would otherwise make FindFile look in the current directory.
int TestConfigFlag(const char *directory, const char *name) {
    return directory && *directory ? FindFile(directory, name) : 0;
}

void WriteConfigFlags() {
    // CUPS wins when both spoolers are there.
    const char *flags = SniffCUPS() ? " CUPS " : SniffLprng() ? " LPRng " : " V5 ";
    MemPtr<char> path(SaveStr("%s/.pn_cfg", AppDir));
    CreateTextFile(path.get(), "wt", 0644, "%s", flags);
}
