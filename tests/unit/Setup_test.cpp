// Installer helpers that need no system: the base-directory rule and the
// reading of a medium's disks file.
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

#include "Disks.h"
#include "setup.h"

namespace fs = std::filesystem;

namespace {

TEST(StripToBaseName, CutsPackageWordsAndOneTrailingSlash) {
    char a[] = "/opt/Orvel/pnzz/", b[] = "/opt/Orvel", c[] = "/usr/local/Orvel/pnzz",
         d[] = "/data/", e[] = "/";
    EXPECT_STREQ(StripToBaseName(a), "/opt");
    EXPECT_STREQ(StripToBaseName(b), "/opt");
    EXPECT_STREQ(StripToBaseName(c), "/usr/local");
    EXPECT_STREQ(StripToBaseName(d), "/data");
    EXPECT_STREQ(StripToBaseName(e), "/");
}

std::string Joined(const DisksLines &lines) {
    std::string out;
    for (const DisksWords &line : lines) {
        for (std::string_view w : line) out += std::string(w) + " ";
        out += "|";
    }
    return out;
}

TEST(SplitDisksText, LinesEndAtEitherLineBreakAndNeverComeOutEmpty) {
    EXPECT_EQ(Joined(SplitDisksText("pkg_tar.z1 disks\r\n\r\npkg_tar.z2\rend_of_list\n",
                                    DISKS_WORD_SEPARATORS)),
              "pkg_tar.z1 disks |pkg_tar.z2 |");
}

TEST(SplitDisksText, EndMarkerAsAWordEndsTheList) {
    EXPECT_EQ(Joined(SplitDisksText("a b end_of_list c\nd\n", DISKS_WORD_SEPARATORS)), "a b |");
    EXPECT_EQ(Joined(SplitDisksText("a\nb", DISKS_WORD_SEPARATORS)), "a |b |");  // no marker
}

TEST(SplitDisksText, TabSeparatesOnlyWhenAskedTo) {
    EXPECT_EQ(Joined(SplitDisksText("a\tb c\n", DISKS_WORD_SEPARATORS)), "a b c |");
    EXPECT_EQ(Joined(SplitDisksText("a\tb c\n", " \r\n")), "a\tb c |");
}

class DisksFileTest : public ::testing::Test {
  protected:
    fs::path dir;
    void SetUp() override {
        char tmpl[] = "/tmp/disksfile-XXXXXX";
        dir = mkdtemp(tmpl);
    }
    void TearDown() override { fs::remove_all(dir); }
};

TEST_F(DisksFileTest, DosListingIsUpperCasedUpToTheEndMarker) {
    std::ofstream(dir / "DISKS") << "pkg_tar.z1 disks\nend_of_list\nlater words\n";
    GetDisksData(dir.c_str());
    EXPECT_STREQ(LineBuf, "PKG_TAR.Z1 DISKS\nend_of_list\nlater words\n");
}

TEST_F(DisksFileTest, LowerCaseFileIsTakenAsItIs) {
    std::ofstream(dir / "disks") << "pkg_tar.z1 Disks\nend_of_list\n";
    GetDisksData(dir.c_str());
    EXPECT_STREQ(LineBuf, "pkg_tar.z1 Disks\nend_of_list\n");
}

TEST_F(DisksFileTest, MissingFileEndsTheRun) {
    EXPECT_EXIT(GetDisksData(dir.c_str()), ::testing::ExitedWithCode(1),
                "^ERROR: can't open file, OrvelInstall/disks\n$");
}

TEST_F(DisksFileTest, MarkerIsLookedForOnlyInANamedPackageDirectory) {
    std::ofstream(dir / ".StandAlone") << "";
    fs::path saved = fs::current_path();
    fs::current_path(dir);
    EXPECT_EQ(TestConfigFlag("", ".StandAlone"), 0);  // no package directory yet
    EXPECT_EQ(TestConfigFlag(dir.c_str(), ".StandAlone"), 1);
    EXPECT_EQ(TestConfigFlag(dir.c_str(), ".StandAloneDb"), 0);
    fs::current_path(saved);
}

}  // namespace
