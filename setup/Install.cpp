// The installation flow: free space, collecting the material from a site or
// from diskettes, joining and unpacking the archive, and Install itself.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "Disks.h"
#include "Scripts.h"
#include "setup.h"

namespace {

constexpr const char *FLOPPY = "/floppy/floppy0";
constexpr double SIZE_MARGIN = 40;

void Say(int id) {
    std::fputs(NlsSetupStrCvt(id), stdout);
}

// First line of a size file of the medium, plus the safety margin.
bool ReadNeed(const char *name, double *need) {
    if (!GetFileContent(pToolPath, name)) return false;
    *need = std::strtod(LineBuf, nullptr) + SIZE_MARGIN;
    return true;
}

struct FreeFigure {
    char fileSystem[sizeof DiskSpace::line];
    double avail;
    MemPtr<char> measuredAt;  // nearest existing ancestor
};

// Free space where `path` will be, counting what an existing `path` holds,
// since it is replaced.
bool MeasureFree(const char *path, FreeFigure *figure) {
    int exact = 0;
    figure->measuredAt.reset(FindExistingPath(path, &exact));
    DiskSpace record{};
    if (!GetDiskSpace(figure->measuredAt.get(), &record)) return false;
    figure->avail = record.avail;
    std::sscanf(record.line, "%511s", figure->fileSystem);
    if (exact) figure->avail += DUPath(path);
    return true;
}

void StopForSpace(int id, const char *first, const char *second, double need) {
    if (second)
        std::printf(NlsSetupStrCvt(id), first, second, need);
    else
        std::printf(NlsSetupStrCvt(id), first, need);
    std::fflush(stdout);
    std::exit(0);
}

// A private copy: the tokenizer and file readers reuse LineBuf meanwhile.
MemPtr<char> CopyOfLineBuf() {
    return MemPtr<char>(SaveStr_(LineBuf));
}

void MakeWorkDirectory() {
    DeleteFile(pTmpDir, "OrvelInstall");
    mkdir(pOrvelInstallDir, 0777);
}

int InstallOrOpenMenu() {
    if (pInstallDir) return Install();
    return RunMenu(&MainMenu, nullptr, 1);
}

// DOS diskettes answer to either case, so the drive is asked by name, not by
// listing.
bool OnDiskette(const char *name) {
    return FindFile_(FLOPPY, name);
}

void ReadDiskette(int n, const DisksWords &files) {
    std::printf(NlsSetupStrCvt(64), n);
    char piece[32];
    std::snprintf(piece, sizeof piece, "pkg_tar.z%i", n);
    while (!OnDiskette(piece)) {
        EjectDiskette();
        std::printf(NlsSetupStrCvt(25), n);
        WaitForKey();
        SysCmd(CMD_VOLCHECK, 0, "%s", "");
    }
    for (std::string_view file : files)
        SysCmd(CMD_CP, 2, "/floppy/floppy0/%.*s %sInstall", static_cast<int>(file.size()),
               file.data(), COMPANY);
}

bool IsArchivePiece(std::string_view word) {
    return word.substr(0, 8) == "pkg_tar." || word.substr(0, 8) == "PKG_TAR.";
}

// Asks message 63 until a yes/no word is typed. "n" and "no" differ: kept
// so that answer files written for earlier releases behave the same.
void ConfirmOverEarlierDaemon() {
    std::printf(NlsSetupStrCvt(62), COMPANY, COMPANY, COMPANY, PRODUCT_DIR);
    char answer[512];
    for (;;) {
        Say(63);
        std::fflush(stdout);
        // Nobody to answer: leave as "no" would, with nothing changed.
        if (!std::fgets(answer, sizeof answer, stdin)) std::exit(0);
        const char *cursor = nullptr;
        char word[512];
        const char *first = GetTokenD(answer, " \t\r\n", &cursor, word);
        switch (first ? FindToken(first, ",y,yes,n,no,") : 0) {
            case 1:
            case 2:
                return;
            case 3:
                DeleteFile("/etc/rc2.d", "KOrvelPrintD");
                DeleteFile("/etc/rc2.d", "SOrvelPrintD");
                return;
            case 4:
                std::exit(0);
            default:
                break;
        }
    }
}

void Unpack() {
    DeleteFile(pOrvelInstallDir, "SGIPnzz.tar");
    SysCmd(CMD_UNCOMPRESS, 2, "%s/%s.tar.Z", pOrvelInstallDir, ARCHIVE_NAME);
    if (chdir(pOrvelInstallDir) != 0) { /* the tar below reports it */
    }
    SysCmd(CMD_TAR_X, 2, "%s/%s.tar", pOrvelInstallDir, ARCHIVE_NAME);
    DeleteFile(pOrvelInstallDir, "SGIPnzz.tar");
}

void CreatePackageDirectories() {
    char path[APPDIR_SIZE + 64];
    CreateFile(AppDir, nullptr, "775", nullptr, nullptr);
    CreateFile(AppDir, ".PrintError", "666", nullptr, nullptr);
    std::snprintf(path, sizeof path, "/var/spool/%s", COMPANY);
    CreateFile(path, nullptr, "775", nullptr, nullptr);
    std::snprintf(path, sizeof path, "/var/spool/%s/%s", COMPANY, PRODUCT_DIR);
    CreateFile(path, nullptr, "775", nullptr, nullptr);
    std::snprintf(path, sizeof path, "/var/spool/%s/%s/__pna_download__", COMPANY, PRODUCT_DIR);
    CreateFile(path, nullptr, "777", nullptr, nullptr);
    WriteConfigFlags();
}

// Keeps the package reachable under /opt/Orvel when it is installed elsewhere.
void LinkUnderOpt(const char *base) {
    if (std::strcmp(base, "/opt") == 0) return;
    int type = GetFileType("/opt/Orvel");
    CreateFile(base, nullptr, "775", nullptr, nullptr);
    if (type == 1)
        SysCmd(CMD_LN, 2, "-s %s/%s/%s %s/%s/%s", base, COMPANY, PRODUCT_DIR, "/opt", COMPANY,
               PRODUCT_DIR);
    else if (type == 0)
        SysCmd(CMD_LN, 2, "-s %s/%s %s/%s", base, COMPANY, "/opt", COMPANY);
}

void GenerateInterfaceScripts() {
    char path[APPDIR_SIZE + 64];
    std::snprintf(path, sizeof path, "%s/OrvelPrintpnzz", AppDir);
    GenSimpleScript(path, ScriptShShell, OrvelPrintpnzzScript, AppDir, PRODUCT_DIR, "pelnorpnzz",
                    "pelnorpnzz", PRODUCT_DIR, PRODUCT_DIR, PRODUCT_DIR);
    std::snprintf(path, sizeof path, "%s/%s%s", AppDir, COMPANY, "KVT");
    GenSimpleScript(path, ScriptShShell, OrvelKVTScript, AppDir, "/var/spool/Orvel/pnzz");
}

bool IsRoot() {
    MemPtr<char> user(GetUserName());
    if (user && std::strcmp(user.get(), "root") == 0) return true;
    std::printf(NlsSetupStrCvt(35), user ? user.get() : "", my_name);
    std::fflush(stdout);
    return false;
}

}  // namespace

void FreeSpaceForInstall(const char *workDir, const char *baseDir, const char *company) {
    double installNeed = 0, workNeed = 0;
    if (!ReadNeed("isize", &installNeed) || !ReadNeed("tsize", &workNeed)) {
        Say(65);
        std::fflush(stdout);
        std::exit(0);
    }
    FreeFigure work{}, install{};
    if (!MeasureFree(workDir, &work)) return;
    MemPtr<char> target(SaveStr("%s/%s", baseDir, company));
    if (!MeasureFree(target.get(), &install)) return;
    if (std::strcmp(work.fileSystem, install.fileSystem) == 0) {
        DiskSpace plain{};
        GetDiskSpace(work.measuredAt.get(), &plain);
        double total = plain.avail < install.avail || plain.avail < work.avail
                           ? (install.avail - plain.avail) + work.avail
                           : MaxD(install.avail, work.avail);
        if (total < installNeed + workNeed)
            StopForSpace(56, workDir, baseDir, installNeed + workNeed);
        return;
    }
    if (work.avail < workNeed) StopForSpace(49, pTmpDir, nullptr, workNeed);
    if (install.avail < installNeed) StopForSpace(55, baseDir, nullptr, installNeed);
}

void GetDisksData(const char *directory) {
    if (GetFileContent(directory, "disks")) return;
    if (!GetFileContent(directory, "DISKS")) ErrorMsg(2, 1, NlsSetupStrCvt(21), COMPANY);
    // A DOS diskette lists its names in capitals; the end marker stays as it is.
    char *end = std::strstr(LineBuf, "end_of_list");
    for (char *c = LineBuf; *c && c != end; ++c)
        if (*c >= 'a' && *c <= 'z') *c = static_cast<char>(*c - 'a' + 'A');
}

int InstallFromDiskette() {
    if (chdir(pTmpDir) != 0) { /* the copies below report it */
    }
    if (!(OnDiskette("disks") && OnDiskette("DISKS"))) {
        std::fputs(NlsSetupStrCvt(19), stderr);
        std::exit(1);
    }
    SysCmd(CMD_CP, 2, "%s", "/floppy/floppy0/setup.hlp .");
    MakeWorkDirectory();
    if (!GetFileContent(FLOPPY, "disks")) ErrorMsg(2, 1, "%s", NlsSetupStrCvt(24));
    MemPtr<char> disks = CopyOfLineBuf();
    DisksLines lines = SplitDisksText(disks.get(), DISKS_WORD_SEPARATORS);
    for (size_t n = 0; n < lines.size(); ++n) ReadDiskette(static_cast<int>(n + 1), lines[n]);
    EjectDiskette();
    return InstallOrOpenMenu();
}

int InstallFromSite() {
    MakeWorkDirectory();
    if (FindFile(pTmpDir, "setup")) SysCmd(CMD_RM, 0, " %s/setup", pTmpDir);
    if (FindFile(pTmpDir, "setup.hlp")) SysCmd(CMD_RM, 0, " %s/setup.hlp", pTmpDir);
    CopyDisksFiles(pToolPath, pOrvelInstallDir);
    return InstallOrOpenMenu();
}

void GenZFile() {
    Name[0] = '\0';
    if (chdir(pTmpDir) != 0) { /* the work directory is named in full below */
    }
    GetDisksData(pOrvelInstallDir);
    MemPtr<char> disks = CopyOfLineBuf();
    DeleteFile(pOrvelInstallDir, "SGIPnzz.tar.Z");
    for (const DisksWords &line : SplitDisksText(disks.get(), " \r\n")) {
        for (std::string_view word : line) {
            char name[256];
            std::snprintf(name, sizeof name, "%.*s", static_cast<int>(word.size()), word.data());
            if (!IsArchivePiece(word) || !FindFile(pOrvelInstallDir, name)) continue;
            // Not logged: the pieces may be large and the join is one step.
            SysCmd(-CMD_CAT, 2, "%s/%s >> %s/%s.tar.Z", pOrvelInstallDir, name, pOrvelInstallDir,
                   ARCHIVE_NAME);
        }
    }
}

int Install() {
    if (!IsRoot()) {
        flExitTextMenu = 1;
        return 0;
    }
    if (TestConfigFlag(AppDir, "PelnorD") || TestConfigFlag(AppDir, "PelnorDStop"))
        ConfirmOverEarlierDaemon();
    StopDemon();
    GenZFile();
    Unpack();
    if (!pInstallDir && !GetDirName(InstallInfo, "/opt", 1)) return 0;
    // The base chosen at the prompt is used for everything below, as the
    // command-line base is.
    const char *base = pInstallDir ? pInstallDir : Name;
    std::snprintf(AppDir, sizeof AppDir, "%s/%s/%s", base, COMPANY, PRODUCT_DIR);
    PreparePackageDirectory(base);
    if (ProcessPkgList("pkg") != 0) return 1;
    flInstalled = 1;
    flExitTextMenu = 1;
    std::fflush(stdout);
    MemPtr<char> upgrade(SaveStr("%s/pnqadmin -upgrade", AppDir));
    if (RunShellLine(upgrade.get()) == -1) { /* the queue tool reports its own problems */
    }
    return 0;
}

void PreparePackageDirectory(const char *base) {
    SysCmd(CMD_CHMOD, 0, "755 %s/Orvel", base);
    CreatePackageDirectories();
    LinkUnderOpt(base);
    GenerateInterfaceScripts();
}

int DirectoryFits(const char *directory) {
    int problem = PathFits(directory, DIRECTORY_ROOM);
    if (!problem) return 1;
    // A path of thousands of characters is shown by its two ends.
    char shown[80];
    size_t length = std::strlen(directory);
    if (length > 60)
        std::snprintf(shown, sizeof shown, "%.40s...%s", directory, directory + length - 16);
    else
        std::snprintf(shown, sizeof shown, "%s", directory);
    std::fprintf(stderr, "ERROR: ");
    std::fprintf(stderr, NlsSetupStrCvt(problem == 1 ? 71 : 72), shown,
                 problem == 1 ? PATH_MAX - 1 : NAME_MAX);
    std::fprintf(stderr, "\n");
    return 0;
}

char *LocatePreviousInstallation() {
    char launcher[64];
    std::snprintf(launcher, sizeof launcher, "/bin/%sprint", "pelnor");
    if (!FindFile(nullptr, launcher)) {
        std::snprintf(launcher, sizeof launcher, "/usr/bin/%sprint", "pelnor");
        if (!FindFile(nullptr, launcher)) return nullptr;
    }
    const char *line = FileSearch(launcher, "cd ", 0);
    if (!line) return nullptr;
    char copy[READ_PIECE + 1];
    std::snprintf(copy, sizeof copy, "%s", line);
    const char *cursor = nullptr;
    char word[READ_PIECE + 1];
    GetTokenD(copy, " \n", &cursor, word);
    const char *dir = GetTokenD(nullptr, " \n", &cursor, word);
    if (!dir) return nullptr;
    char suffix[64];
    std::snprintf(suffix, sizeof suffix, "/%s/%s", COMPANY, PRODUCT_DIR);
    if (char *cut = std::strstr(word, suffix)) *cut = '\0';
    std::snprintf(Name, sizeof Name, "%s", word);
    return Name;
}

int GetDirName(const char *const *info, const char *defaultDir, int offerPrevious) {
    std::snprintf(Name, sizeof Name, "%s", defaultDir);
    if (offerPrevious) {
        if (char *previous = LocatePreviousInstallation()) {
            std::printf(NlsSetupStrCvt(42), previous);
            if (PromptYN(NlsSetupStrCvt(7), previous)) return 1;
            if (PromptYN(NlsSetupStrCvt(20), previous)) return 1;
        }
    }
    std::putchar('\n');
    for (; info && *info; ++info) std::printf("%s\n", *info);
    char answer[LINEBUF_SIZE];
    for (;;) {
        std::printf(NlsSetupStrCvt(7), Name);
        std::fflush(stdout);
        // End of input counts as the empty answer: keep what is shown.
        if (!std::fgets(answer, sizeof answer, stdin)) break;
        bool whole = std::strchr(answer, '\n') || std::feof(stdin);
        answer[std::strcspn(answer, "\r\n")] = '\0';
        if (!whole) {
            // Longer than any path the system takes: the rest of the line is
            // dropped rather than read as the next answer.
            for (int c = std::getchar(); c != '\n' && c != EOF;) c = std::getchar();
            DirectoryFits(answer);
            continue;
        }
        if (answer[0] == '\0') break;
        if (answer[0] == '/') {
            if (DirectoryFits(answer)) std::snprintf(Name, sizeof Name, "%s", answer);
            continue;
        }
        Say(9);
        std::fflush(stdout);
        if (!std::fgets(answer, sizeof answer, stdin)) break;
    }
    return PromptYN(NlsSetupStrCvt(8), Name);
}
