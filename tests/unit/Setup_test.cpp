// Installer pieces that work on plain files: the base-directory rule, the
// disks file, markers, generated scripts, and making an installation site.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <string>

#include "Disks.h"
#include "Scripts.h"
#include "TestFiles.h"
#include "setup.h"

namespace {

using testfiles::Slurp;
using testfiles::Write;
namespace fs = std::filesystem;

int Mode(const fs::path &p) {
    struct stat st {};
    return stat(p.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 0777) : -1;
}

class SetupTest : public ::testing::Test {
  protected:
    testfiles::TempDir dir;
    std::string dirText = dir.path().string(), work = (dir / "OrvelInstall").string();
    std::string name = "setuptest" + std::to_string(getpid());

    void SetUp() override {
        my_name = name.data();
        pTmpDir = dirText.data();
        pOrvelInstallDir = work.data();
        static bool resolved = false;
        if (!resolved) InitSysCmdList();
        resolved = true;
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

TEST_F(SetupTest, ScriptIsShellLineBannerAndFilledBody) {
    fs::path out = dir / "pelnorprint";
    GenSimpleScript(out.c_str(), ScriptShShell, SimpleScript, "/opt/Orvel/pnzz", "/opt/Orvel/pnzz",
                    "pelnorprint.bin");
    std::string text = Slurp(out), border(63, '#');
    std::time_t now = std::time(nullptr);
    std::string year = std::to_string(std::localtime(&now)->tm_year + 1900);
    EXPECT_EQ(text.substr(0, 10), "#!/bin/sh\n");
    EXPECT_EQ(text.find("\n#  Copyright (c) " + year + " Orvel."),
              10 + 2 * 64 - 1u);  // the middle line
    for (size_t line = 10, n = 0; n < 5; ++n, line += 64)
        EXPECT_EQ(text.find('\n', line), line + 63);
    EXPECT_EQ(text.substr(10 + 5 * 64),
              "\n\n\nPelnorFileSourceDir=`pwd`\nexport PelnorFileSourceDir\n\ncd /opt/Orvel/pnzz\n"
              "exec /opt/Orvel/pnzz/pelnorprint.bin $*\n");
    EXPECT_EQ(Mode(out), 0755);
    EXPECT_EQ(
        GenSimpleScript((dir / "no" / "x").c_str(), ScriptShShell, SimpleScript, "a", "b", "c"), 0);
}

TEST_F(SetupTest, InterfaceScriptsKeepTheirOddTexts) {
    fs::path out = dir / "OrvelPrintpnzz";
    GenSimpleScript(out.c_str(), ScriptShShell, OrvelPrintpnzzScript, "/opt/Orvel/pnzz", "pnzz",
                    "pelnorpnzz", "pelnorpnzz", "pnzz", "pnzz", "pnzz");
    std::string text = Slurp(out);
    EXPECT_NE(text.find("/pnrpnzztty -d$PelnorPrinter -f >pelnorpnzz.log 2>pelnorpnzz.log"),
              std::string::npos);
    EXPECT_NE(text.find("i=`expr \"(\" $i + 1 \")\" % $Copies`"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 5), "\nesac");  // no final newline
    GenSimpleScript(out.c_str(), ScriptShShell, OrvelKVTScript, "/opt/Orvel/pnzz", "/var/spool/x");
    EXPECT_NE(Slurp(out).find("SpoolDir=\"/var/spool/x\"\n"), std::string::npos);
    EXPECT_NE(Slurp(out).find("    CUPS) Common Unix Printing System\n"), std::string::npos);
}

TEST_F(SetupTest, SiteReceivesEveryListedFileAndItsMarker) {
    Write(fs::path(work) / "disks", "pkg_tar.z1 disks setup\npkg_tar.z2\nend_of_list\n");
    for (const char *f : {"pkg_tar.z1", "pkg_tar.z2", "setup"}) Write(fs::path(work) / f, f);
    fs::path chosen = dir / "export", site = chosen / "SGIPnzzInstall";
    Answer(chosen.string() + "\nnot a path\n\n\nn\n" + chosen.string() + "\n\ny\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(GenInstallSite(), 0);  // declined after message 9
    EXPECT_FALSE(fs::exists(chosen));
    EXPECT_EQ(GenInstallSite(), 0);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("Do you want to return to Setup Menu"), std::string::npos) << out;
    EXPECT_NE(out.find("Do you want to use " + chosen.string() + "? [y/n] "), std::string::npos);
    for (const char *f : {"pkg_tar.z1", "pkg_tar.z2", "setup"}) EXPECT_EQ(Slurp(site / f), f);
    EXPECT_EQ(Slurp(site / "installf.rom"), "installation site");  // no newline
    EXPECT_EQ(Mode(site), 0777);
    EXPECT_EQ(GenInstallDisks(), 0);
    EXPECT_EQ(Slurp(fs::path(work) / "installf.rom"), "diskette");
}

}  // namespace
