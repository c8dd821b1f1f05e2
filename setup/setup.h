// The installer's shared state and its modules' entry points.
#pragma once

#include <climits>

#include "SysCmd.h"
#include "TextMenu.h"
#include "setupString.h"
#include "utils.h"

constexpr const char *SETUP_VERSION = "3.00.92";
constexpr const char *COMPANY = "Orvel";         ///< vendor directory under the base
constexpr const char *PRODUCT_DIR = "pnzz";      ///< package directory under the vendor's
constexpr const char *ARCHIVE_NAME = "SGIPnzz";  ///< archive and site name stem
// Any path the system takes fits: a longer one is refused, never cut.
constexpr int APPDIR_SIZE = PATH_MAX;
constexpr int NAME_SIZE = PATH_MAX;
/// What a chosen directory must leave room for: the program's own
/// subdirectories ("/Orvel/pnzz/", "/OrvelInstall/pkg/", "/SGIPnzzInstall/")
/// and a file name of the longest kind.
constexpr int DIRECTORY_ROOM = 32 + NAME_MAX;

extern char *pInitTabSave;      ///< /etc/inittab.OrvelSave
extern char *pOrvelInstallDir;  ///< private work directory, /tmp/OrvelInstall
extern char *pTmpDir;           ///< parent of the work directory
extern const char *pHelpPath;
extern const char *InstallInfo[6];      ///< messages 10-14, null-ended
extern const char *InstallSiteInfo[5];  ///< messages 10, 11, 17, 18, null-ended
extern char *pInstallDir;  ///< base under which <base>/Orvel/pnzz goes; null until chosen
extern char AppDir[APPDIR_SIZE];
extern char Name[NAME_SIZE];
extern char flMenu;
extern char flInstalled;

extern const char *pLp, *pLpr, *pInitTab, *pPrintCap, *pPrintCapN, *pPrintCapO, *pPrintCapP,
    *pRCLocal, *pRCLocalN, *pRCLocalO;

/// Cuts a path naming the package directory back to its base directory, in place.
char *StripToBaseName(char *path);

/// Program entry: start-up, the command-line words, then installation.
int SetupMain(int argc, char **argv);

// Installation flow.
/// Returns when the medium's isize/tsize fit; otherwise prints why and exits 0.
void FreeSpaceForInstall(const char *workDir, const char *baseDir, const char *company);
int InstallFromDiskette();
int InstallFromSite();
/// Loads "disks" (or "DISKS", then upper-cased) of `directory` into LineBuf;
/// ends the program when neither can be read.
void GetDisksData(const char *directory);
void GenZFile();
/// 0 installed (or refused/declined), 1 when the package list was stopped.
int Install();
/// Asks for a directory; the answer is left in Name. 1 accepted, 0 declined.
int GetDirName(const char *const *info, const char *defaultDir, int offerPrevious);
/// Base directory of an earlier installation (in Name), or null.
char *LocatePreviousInstallation();

/// What the package list finds before its first line: the package directory
/// <base>/Orvel/pnzz (AppDir) with .pn_cfg and the interface scripts, the
/// spool directories, and the link under /opt.
void PreparePackageDirectory(const char *base);

// Package list.
/// 0 when the list ran to its end, 1 when a checkps answer stopped it.
int ProcessPkgList(const char *packageSubdir);
/// ProcessPkgList on the list at `listPath`, wherever it lies; the files it
/// names are still taken from <pOrvelInstallDir>/<packageSubdir>.
int RunPkgList(const char *listPath, const char *packageSubdir);
/// 0 when none of the comma-separated programs runs (any more), 1 to quit.
int QuitForRunningProcesses(const char *processList);
int TestConfigFlag(const char *directory, const char *name);
/// Writes <AppDir>/.pn_cfg with the host's print system.
void WriteConfigFlags();

/// 1 when `directory` leaves DIRECTORY_ROOM for the package; otherwise says
/// why on standard error ("ERROR: ...") and gives 0.
int DirectoryFits(const char *directory);

// Installation site and diskettes.
int GenInstallSite();

// The setup menus.
extern MENU MainMenu;
extern MENU InstallMenu;
int GenInstallDisks();
/// Waits for one key on standard input (the dialogue is flushed first).
void WaitForKey();
int EjectDiskette();
int TestDiskette();

// Daemon and boot integration.
void StopDemon();
void AddDaemonToInitTab();
/// Writes shell line, banner and the filled template to `path`, then chmod
/// 755; returns chmod's result, 0 when the file cannot be created.
int GenSimpleScript(const char *path, const char *shellLine, const char *tmpl, ...);
void OrvelClean(int removeWorkCopies);
