// Making an installation site from the material in the work directory, and
// marking a medium, in a temporary directory with the real cp, mkdir, chmod.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "setup.h"

namespace fs = std::filesystem;

namespace {

std::string Slurp(const fs::path &p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

class MediaTest : public ::testing::Test {
  protected:
    fs::path root, work;
    std::string rootText, workText, name;

    void SetUp() override {
        char tmpl[] = "/tmp/media-XXXXXX";
        root = mkdtemp(tmpl);
        work = root / "OrvelInstall";
        fs::create_directories(work);
        std::ofstream(work / "disks") << "pkg_tar.z1 disks setup\npkg_tar.z2\nend_of_list\n";
        for (const char *f : {"pkg_tar.z1", "pkg_tar.z2", "setup"}) std::ofstream(work / f) << f;
        rootText = root.string();
        workText = work.string();
        name = "mediatest" + std::to_string(getpid());
        pTmpDir = rootText.data();
        pOrvelInstallDir = workText.data();
        my_name = name.data();
        static bool resolved = false;
        if (!resolved) InitSysCmdList();
        resolved = true;
    }
    void TearDown() override {
        fs::remove_all(root);
        fs::remove("/tmp/" + name + ".log");
    }

    void Answer(const std::string &text) {
        fs::path answers = root / "answers";
        std::ofstream(answers) << text;
        ASSERT_NE(std::freopen(answers.c_str(), "r", stdin), nullptr);
    }
};

TEST_F(MediaTest, SiteReceivesEveryListedFileAndItsMarker) {
    fs::path chosen = root / "export";
    Answer(chosen.string() + "\n\ny\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(GenInstallSite(), 0);
    std::string out = testing::internal::GetCapturedStdout();
    fs::path site = chosen / "SGIPnzzInstall";
    EXPECT_NE(out.find("Do you want to use " + chosen.string() + "? [y/n] "), std::string::npos)
        << out;
    for (const char *f : {"pkg_tar.z1", "pkg_tar.z2", "setup"}) EXPECT_EQ(Slurp(site / f), f);
    EXPECT_EQ(Slurp(site / "disks"), Slurp(work / "disks"));
    EXPECT_EQ(Slurp(site / "installf.rom"), "installation site");  // no newline
    struct stat st {};
    ASSERT_EQ(stat(site.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0777);
}

TEST_F(MediaTest, DeclinedDirectoryMakesNoSite) {
    fs::path chosen = root / "export";
    Answer(chosen.string() + "\nnot a path\n\n\nn\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(GenInstallSite(), 0);
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("Do you want to return to Setup Menu"), std::string::npos) << out;
    EXPECT_FALSE(fs::exists(chosen));
}

TEST_F(MediaTest, DisketteMarkerSaysDiskette) {
    EXPECT_EQ(GenInstallDisks(), 0);
    EXPECT_EQ(Slurp(work / "installf.rom"), "diskette");
    EXPECT_STREQ(Name, "");
}

}  // namespace
