// The installer's shared state and its modules' entry points.
#pragma once

#include "SysCmd.h"
#include "setupString.h"
#include "utils.h"

constexpr const char *SETUP_VERSION = "3.00.92";
constexpr const char *COMPANY = "Orvel";        ///< vendor directory under the base
constexpr const char *PRODUCT_DIR = "pnzz";     ///< package directory under the vendor's
constexpr const char *ARCHIVE_NAME = "SGIPnzz"; ///< archive and site name stem
constexpr int APPDIR_SIZE = 1024;
constexpr int NAME_SIZE = 1024;

extern char *pInitTabSave;      ///< /etc/inittab.OrvelSave
extern char *pOrvelInstallDir;  ///< private work directory, /tmp/OrvelInstall
extern char *pTmpDir;           ///< parent of the work directory
extern const char *pHelpPath;
extern const char *InstallInfo[6];      ///< messages 10-14, null-ended
extern const char *InstallSiteInfo[5];  ///< messages 10, 11, 17, 18, null-ended
extern char *pInstallDir;       ///< base under which <base>/Orvel/pnzz goes; null until chosen
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
