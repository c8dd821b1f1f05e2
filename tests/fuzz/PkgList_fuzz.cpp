// The package list interpreter: the input is pkg.list of the work area, and
// ProcessPkgList reads it line by line, splits the words and carries out the
// commands and attributes. No command runs (FakeExec.cpp), and the launchers
// that "bat" writes into /usr/bin go to scratch streams that are dropped.
#include <cstdio>
#include <cstdlib>

#include "FuzzSupport.h"
#include "setup.h"

namespace {

std::string installDir, appDir;

// ps output in which the processes "lpd" and "pnprint" run, so that checkps
// finds something and asks; the answer is the end of standard input.
constexpr const char *PS_OUTPUT =
    "  PID TTY          TIME CMD\n"
    "  101 ?        00:00:01 lpd\n"
    "  202 pts/0    00:00:00 pnprint\n";

}  // namespace

void fuzz::SetUp() {
    fuzz::Begin("", "pkglistfuzz");
    installDir = fuzz::FreshDir("OrvelInstall");
    appDir = fuzz::FreshDir("app");
    pOrvelInstallDir = installDir.data();
    pTmpDir = const_cast<char *>(fuzz::WorkDir().c_str());
    std::snprintf(AppDir, sizeof AppDir, "%s", appDir.c_str());
    // Names that m, s and newdir find already there.
    fuzz::WriteFile("app/present", "x");
    fuzz::WriteFile("app/log/.keep", "");
    fuzz::SetResponse(CMD_PS, PS_OUTPUT);
    Seam.replace = [](const char *) { return std::tmpfile(); };
    Seam.commit = [](FILE *stream, const char *, int) { return std::fclose(stream) == 0 ? 1 : 0; };
}

void fuzz::OneInput(std::string_view bytes) {
    fuzz::WriteFile("OrvelInstall/pkg/pkg.list", bytes);
    ProcessPkgList("pkg");
}
