// The package list interpreter: the input is pkg.list of the work area, and
// ProcessPkgList reads it line by line, splits the words and carries out the
// commands and attributes. No command runs (FakeExec.cpp); the launchers that "bat" writes into /usr/bin are kept by
// the wrapper below instead of written.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "FuzzSupport.h"
#include "setup.h"

namespace {

std::string installDir, appDir;
int launchers = 0;

// ps output in which the processes "lpd" and "pnprint" run, so that checkps
// finds something and asks; the answer is the end of standard input.
constexpr const char *PS_OUTPUT =
    "  PID TTY          TIME CMD\n"
    "  101 ?        00:00:01 lpd\n"
    "  202 pts/0    00:00:00 pnprint\n";

}  // namespace

// Linked with --wrap for GenSimpleScript: its path comes from the list.
extern "C" int __wrap__Z15GenSimpleScriptPKcS0_S0_z(const char *, const char *, const char *, ...) {
    ++launchers;
    return 0;
}

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::Quiet();
    static std::string tool = fuzz::WorkDir();
    pToolPath = tool.data();
    my_name = const_cast<char *>("pkglistfuzz");
    installDir = fuzz::FreshDir("OrvelInstall");
    appDir = fuzz::FreshDir("app");
    pOrvelInstallDir = installDir.data();
    pTmpDir = const_cast<char *>(fuzz::WorkDir().c_str());
    std::snprintf(AppDir, sizeof AppDir, "%s", appDir.c_str());
    // Names that m, s and newdir find already there.
    fuzz::WriteFile("app/present", "x");
    fuzz::WriteFile("app/log/.keep", "");
    fuzz::SetResponse(CMD_PS, PS_OUTPUT);
    // The wrapper must stand in for the real writer, or a list could write
    // anywhere: refuse to run without it.
    std::string probe = fuzz::WorkDir() + "/no-such-dir/probe";
    GenSimpleScript(probe.c_str(), "", "");
    if (launchers != 1) {
        std::fprintf(stderr, "fuzz: GenSimpleScript is not wrapped; check the link options\n");
        std::abort();
    }
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input;
    fuzz::WriteFile("OrvelInstall/pkg/pkg.list", fuzz::Bytes(data, size));
    ProcessPkgList("pkg");
    return 0;
}
