// The size files of a medium: the input holds isize, then a NUL, then
// tsize, and FreeSpaceForInstall reads both and weighs them against df and
// du (answered by the fake command layer). The file systems report no limit
// ("inf" available), so that no size read can stop the program: the harness
// tests the reading, and stopping for space is the unit tests' business.

#include "FuzzSupport.h"
#include "setup.h"

namespace {

std::string work, base;

constexpr const char *DF_OUTPUT =
    "Filesystem     1K-blocks     Used Available Use% Mounted on\n"
    "/dev/fuzz      100000000        0       inf   0% /\n";

}  // namespace

void fuzz::SetUp() {
    fuzz::Begin("medium", "sizefuzz");
    work = fuzz::FreshDir("tmp/OrvelInstall");
    base = fuzz::FreshDir("opt");
    pTmpDir = const_cast<char *>(fuzz::WorkDir().c_str());
    fuzz::SetResponse(CMD_DF, DF_OUTPUT);
    fuzz::SetResponse(CMD_DU, "12\t.\n");
}

void fuzz::OneInput(std::string_view rest) {
    std::string_view isize = fuzz::Cut(rest, '\0');
    fuzz::WriteFile("medium/isize", isize);
    fuzz::WriteFile("medium/tsize", rest);
    FreeSpaceForInstall(work.c_str(), base.c_str(), COMPANY);
}
