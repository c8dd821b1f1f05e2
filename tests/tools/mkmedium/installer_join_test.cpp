#include <unistd.h>

#include "Disks.h"
#include "MediumFixture.h"
#include "Msg.h"
#include "SysCmd.h"
#include "setup.h"
#include "utils.h"

namespace {

// The installer's own reader and joiner on a DOS set: the names it takes from
// the upper-cased listing must be the files on the diskettes, and the pieces it
// picks out must join to the archive.
TEST_F(MediumTest, InstallerReadsAndJoinsADosSet) {
    ASSERT_EQ(Mkmedium("--diskettes --dos --capacity 16384 -o dos package").status, 0);
    fs::path work = top / "OrvelInstall";
    fs::create_directory(work);
    std::string tmp = top.string(), workDir = work.string(), first = (top / "dos/disk1").string();
    std::string name = "mkmedium_test_" + std::to_string(getpid());
    pTmpDir = tmp.data();
    pOrvelInstallDir = workDir.data();
    my_name = name.data();
    flUseLog = 0;

    GetDisksData(first.c_str());
    std::string listing = LineBuf;
    DisksLines lines = SplitDisksText(listing, DISKS_WORD_SEPARATORS);
    ASSERT_GE(lines.size(), 2u);
    for (size_t n = 0; n < lines.size(); ++n)
        for (std::string_view file : lines[n])
            fs::copy_file(top / "dos" / ("disk" + std::to_string(n + 1)) / file, work / file);
    GenZFile();

    fs::path joined = work / "SGIPnzz.tar.Z";
    ASSERT_TRUE(fs::exists(joined));
    EXPECT_TRUE(UnpacksToPackage({joined}));
}

}  // namespace
