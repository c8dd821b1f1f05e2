// Installation site and diskette set: making a site from the material in
// the work directory, marking a medium, and the diskette drive.
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "Disks.h"
#include "setup.h"

namespace {

int Eject() {
    return SysCmd(CMD_EJECT, 0, " >> %s/Msg", pOrvelInstallDir);
}
int DisketteLoaded() {
    return SysCmd(CMD_EJECT_Q, 0, " >> %s/Msg", pOrvelInstallDir);
}

}  // namespace

int GenInstallSite() {
    if (chdir(pTmpDir) != 0) { /* the paths below are absolute */
    }
    if (!GetDirName(InstallSiteInfo, "/opt", 0)) return 0;
    // Choosing "/" gives /SGIPnzzInstall, not //SGIPnzzInstall.
    const char *separator = std::strcmp(Name, "/") == 0 ? "" : "/";
    MemPtr<char> site(SaveStr("%s%s%sInstall", Name, separator, ARCHIVE_NAME));
    CreateFile(site.get(), nullptr, "777", nullptr, nullptr);
    CopyDisksFiles(pOrvelInstallDir, site.get());
    MemPtr<char> marker(SaveStr("%s/installf.rom", site.get()));
    if (FILE *f = std::fopen(marker.get(), "wt")) {
        std::fputs("installation site", f);
        std::fclose(f);
    }
    return 0;
}

int GenInstallDisks() {
    Name[0] = '\0';
    if (chdir(pTmpDir) != 0) { /* the path below is absolute */
    }
    MemPtr<char> marker(SaveStr("%s/installf.rom", pOrvelInstallDir));
    if (FILE *f = std::fopen(marker.get(), "wt")) {
        std::fputs("diskette", f);
        std::fclose(f);
    }
    return 0;
}

void WaitForKey() {
    std::fflush(stdout);
    std::getchar();
}

int EjectDiskette() {
    while (Eject() != 0) {
        // Message 3 names a file it is never given.
        std::printf(NlsSetupStrCvt(3), "");
        WaitForKey();
    }
    return 0;
}

int TestDiskette() {
    while (DisketteLoaded() != 0) {
        std::fputs(NlsSetupStrCvt(4), stdout);
        std::fputs(NlsSetupStrCvt(5), stdout);
        WaitForKey();
    }
    return 0;
}
