// Program entry: the installer's globals, its start-up and its command line.
#include "setup.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

char *pInitTabSave = nullptr;
char *pOrvelInstallDir = nullptr;
char *pTmpDir = const_cast<char *>("/tmp");
const char *pHelpPath = ".";
const char *InstallInfo[6] = {};
const char *InstallSiteInfo[5] = {};
char *pInstallDir = nullptr;
char AppDir[APPDIR_SIZE];
char Name[NAME_SIZE];
char flMenu = 0;
char flInstalled = 0;

const char *pLp = "/usr/bin/lp";
const char *pLpr = "/usr/ucb/lpr";
const char *pInitTab = "/etc/inittab";
const char *pPrintCap = "/etc/printcap";
const char *pPrintCapN = "/etc/printcap.new";
const char *pPrintCapO = "/etc/printcap%";
const char *pPrintCapP = "/etc/printcap.pfst";
const char *pRCLocal = "/etc/rc.local";
const char *pRCLocalN = "/etc/rc.local.new";
const char *pRCLocalO = "/etc/rc.local%";

namespace {

constexpr const char *KEYWORDS = ",manual,install,menu,-v,no_space_check";
enum Keyword { KW_MANUAL = 1, KW_INSTALL, KW_MENU, KW_VERSION, KW_NO_SPACE_CHECK };

struct StartFlags {
    bool cleanUp = true;
    bool spaceCheck = true;
};

void FillInfoTexts() {
    static constexpr int install[] = {10, 11, 12, 13, 14};
    static constexpr int site[] = {10, 11, 17, 18};
    for (int i = 0; i < 5; ++i) InstallInfo[i] = NlsSetupStrCvt(install[i]);
    InstallInfo[5] = nullptr;
    for (int i = 0; i < 4; ++i) InstallSiteInfo[i] = NlsSetupStrCvt(site[i]);
    InstallSiteInfo[4] = nullptr;
}

void UseWorkArea(char *directory) {
    if (!DirectoryFits(directory)) std::exit(1);
    pTmpDir = directory;
    pOrvelInstallDir = SaveStr("%s/%sInstall", directory, COMPANY);
    if (!FindFile(directory, "")) {
        std::printf(NlsSetupStrCvt(57), directory);
        std::fflush(stdout);
        std::exit(2);
    }
}

// A later word overrides an earlier one of the same kind.
void WalkArguments(int argc, char **argv, StartFlags &flags) {
    for (int i = 1; i < argc; ++i) {
        switch (FindToken(argv[i], KEYWORDS)) {
            case KW_MANUAL:
                flags.cleanUp = false;
                break;
            case KW_INSTALL:
                if (i + 1 < argc) pInstallDir = StripToBaseName(argv[++i]);
                break;
            case KW_MENU:
                flMenu = 1;
                break;
            case KW_VERSION:
                std::fprintf(stderr, "%s %s\n", my_name, SETUP_VERSION);
                std::exit(0);
            case KW_NO_SPACE_CHECK:
                flags.spaceCheck = false;
                break;
            default:
                UseWorkArea(argv[i]);
                break;
        }
    }
}

// The medium names its kind in installf.rom (in capitals on DOS diskettes);
// without it the drive is tried.
void InstallFromMedium() {
    bool marked =
        GetFileContent(pToolPath, "installf.rom") || GetFileContent(pToolPath, "INSTALLF.ROM");
    if (marked && LineBuf[0] != 'd')
        InstallFromSite();
    else
        InstallFromDiskette();
}

}  // namespace

char *StripToBaseName(char *path) {
    if (char *p = std::strstr(path, PRODUCT_DIR)) *p = '\0';
    if (char *p = std::strstr(path, COMPANY)) *p = '\0';
    size_t len = std::strlen(path);
    if (len >= 2 && path[len - 1] == '/') path[len - 1] = '\0';
    return path;
}

int SetupMain(int argc, char **argv) {
    flUseLog = 1;
    StartFlags flags;
    pInitTabSave = SaveStr("/etc/inittab.%sSave", COMPANY);
    pOrvelInstallDir = SaveStr("/tmp/%sInstall", COMPANY);
    LineBuf[0] = '\0';
    const char *invokedAs = argc > 0 && argv[0] ? argv[0] : "setup";
    pToolPath = GetToolPath(invokedAs);
    my_name = SaveStr_(StripPath(invokedAs));
    InitSysCmdList();
    FillInfoTexts();
    WalkArguments(argc, argv, flags);
    // Refused before anything is written: a path cut short would put the
    // package somewhere nobody asked for.
    if (pInstallDir && !DirectoryFits(pInstallDir)) std::exit(1);
    if (!flMenu && !pInstallDir) {
        char *previous = LocatePreviousInstallation();
        pInstallDir = previous ? previous : const_cast<char *>("/opt");
    }
    if (pInstallDir) pInstallDir = SaveStr_(pInstallDir);
    if (!flMenu && flags.spaceCheck) FreeSpaceForInstall(pOrvelInstallDir, pInstallDir, COMPANY);
    InstallFromMedium();
    if (!TestConfigFlag(AppDir, ".StandAloneDb") && !TestConfigFlag(AppDir, ".StandAlone"))
        OrvelClean(flags.cleanUp);
    std::exit(0);
}
