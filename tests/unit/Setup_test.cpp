// Installer pieces that work on plain files: the base-directory rule, the
// disks file, markers, generated scripts, and making an installation site.
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "Disks.h"
#include "Scripts.h"
#include "TestFiles.h"
#include "setup.h"

namespace {

using testfiles::Write;
namespace fs = std::filesystem;

class SetupTest : public ::testing::Test {
  protected:
    testfiles::TempDir dir;
    std::string dirText = dir.path().string(), work = (dir / "OrvelInstall").string();
    std::string name = "setuptest" + std::to_string(getpid());

    void SetUp() override {
        my_name = name.data();
        pTmpDir = dirText.data();
        pOrvelInstallDir = work.data();
    }
    void TearDown() override { fs::remove("/tmp/" + name + ".log"); }

    void Answer(const std::string &text) {
        ASSERT_TRUE(testfiles::FeedStdin(dir / "answers", text));
    }
};

TEST(StripToBaseName, CutsPackageWordsAndOneTrailingSlash) {
    char a[] = "/opt/Orvel/pnzz/", b[] = "/usr/local/Orvel/pnzz", c[] = "/data/", d[] = "/";
    EXPECT_STREQ(StripToBaseName(a), "/opt");
    EXPECT_STREQ(StripToBaseName(b), "/usr/local");
    EXPECT_STREQ(StripToBaseName(c), "/data");
    EXPECT_STREQ(StripToBaseName(d), "/");
}

TEST(SplitDisksText, LinesWordsAndTheEndMarker) {
    auto joined = [](std::string_view text, std::string_view separators) {
        std::string out;
        for (const DisksWords &line : SplitDisksText(text, separators)) {
            for (std::string_view w : line) out += std::string(w) + " ";
            out += "|";
        }
        return out;
    };
    EXPECT_EQ(joined("a b\r\n\r\nc\rend_of_list\nd\n", DISKS_WORD_SEPARATORS), "a b |c |");
    EXPECT_EQ(joined("a b end_of_list c\nd\n", DISKS_WORD_SEPARATORS), "a b |");
    EXPECT_EQ(joined("a\nb", DISKS_WORD_SEPARATORS), "a |b |");  // no marker: to the end
    EXPECT_EQ(joined("a\tb c\n", " \r\n"), "a\tb c |");          // the joiner's separators
}

TEST_F(SetupTest, DisksFileFromDosIsUpperCasedUpToTheMarker) {
    Write(dir / "DISKS", "pkg_tar.z1 disks\nend_of_list\nlater\n");
    GetDisksData(dirText.c_str());
    EXPECT_STREQ(LineBuf, "PKG_TAR.Z1 DISKS\nend_of_list\nlater\n");
    Write(dir / "disks", "pkg_tar.z1 Disks\n");
    GetDisksData(dirText.c_str());
    EXPECT_STREQ(LineBuf, "pkg_tar.z1 Disks\n");
    fs::path empty = dir / "empty";
    fs::create_directory(empty);
    EXPECT_EXIT(GetDisksData(empty.c_str()), ::testing::ExitedWithCode(1),
                "^ERROR: can't open file, OrvelInstall/disks\n$");
}

TEST_F(SetupTest, MarkerIsLookedForOnlyInANamedPackageDirectory) {
    Write(dir / ".StandAlone", "");
    fs::path saved = fs::current_path();
    fs::current_path(dir.path());
    EXPECT_EQ(TestConfigFlag("", ".StandAlone"), 0);
    EXPECT_EQ(TestConfigFlag(dirText.c_str(), ".StandAlone"), 1);
    fs::current_path(saved);
}

TEST_F(SetupTest, ScriptInAMissingDirectoryIsRefused) {
    EXPECT_EQ(
        GenSimpleScript((dir / "no" / "x").c_str(), ScriptShShell, SimpleScript, "a", "b", "c"), 0);
}

// What the site holds is the end-to-end tests' business; here, the questions.
TEST_F(SetupTest, SiteIsMadeOnlyWhereTheAnswerSaysYes) {
    Write(fs::path(work) / "disks", "pkg_tar.z1\nend_of_list\n");
    Write(fs::path(work) / "pkg_tar.z1", "");
    fs::path chosen = dir / "export";
    Answer(chosen.string() + "\nnot a path\n\n\nn\n" + chosen.string() + "\n\ny\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(GenInstallSite(), 0);  // declined after message 9
    EXPECT_FALSE(fs::exists(chosen));
    EXPECT_EQ(GenInstallSite(), 0);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("Do you want to return to Setup Menu"), std::string::npos) << out;
    EXPECT_NE(out.find("Do you want to use " + chosen.string() + "? [y/n] "), std::string::npos);
    EXPECT_TRUE(fs::exists(chosen / "SGIPnzzInstall/pkg_tar.z1"));
}

}  // namespace
