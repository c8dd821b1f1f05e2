// The free-space check made before anything is copied, against small file
// systems. A tmpfs mounted by the sandbox and the sandbox's root carry
// different file-system names, two directories on one tmpfs the same name.
#include <cstdio>
#include <cstdlib>
#include <random>

#include "E2e.h"

namespace e2e {
namespace {

// Larger than the 1 MiB test mounts once installed.
constexpr size_t kBlobSize = 1200 * 1024;

std::string Incompressible(size_t size) {
    std::mt19937 random(7);
    std::string data(size, '\0');
    for (char &c : data) c = static_cast<char>(random());
    return data;
}

// As the installer prints its figures.
std::string Figure(double value) {
    char text[64];
    std::snprintf(text, sizeof text, "%e", value);
    return text;
}

class FreeSpaceTest : public E2eTest {
  protected:
    fs::path site;
    double isize = 0, tsize = 0;

    void SetUp() override {
        E2eTest::SetUp();
        if (IsSkipped()) return;
        fs::path package =
            Package("pkg-src", "c blob mode 644\nc pnqadmin mode 755\n",
                    {{"blob", Incompressible(kBlobSize)}, {"pnqadmin", "#!/bin/sh\nexit 0\n"}});
        site = Site(package);
        isize = std::strtod(Slurp(site / "isize").c_str(), nullptr);
        tsize = std::strtod(Slurp(site / "tsize").c_str(), nullptr);
        ASSERT_GT(isize, 1024) << "the package must outgrow a 1 MiB install area";
        ASSERT_GT(tsize, 1024) << "the work area must outgrow a 1 MiB mount";
    }

    std::string Setup() const { return (site / "setup").string(); }

    // A stop for space ends with 0 before the medium is touched.
    static void ExpectStoppedBeforeCopying(const Outcome &o) {
        EXPECT_EQ(o.status, 0);
        EXPECT_EQ(o.err, "");
        EXPECT_FALSE(o.Has("/opt/Orvel/pnzz"));
        EXPECT_FALSE(o.Has("/small/OrvelInstall"));
        EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));
    }
};

TEST_F(FreeSpaceTest, MissingSizeFileStopsNamingIsize) {
    for (const char *missing : {"isize", "tsize"}) {
        SCOPED_TRACE(missing);
        fs::path saved = scratch / "saved";
        fs::rename(site / missing, saved);
        Outcome o = Rehearse({}, {Setup()});
        fs::rename(saved, site / missing);
        EXPECT_EQ(o.out, "Could not determine how much space needed for install, missing isize.\n");
        ExpectStoppedBeforeCopying(o);
    }
}

TEST_F(FreeSpaceTest, SmallWorkAreaStopsWithMessage49) {
    Outcome o = Rehearse({"-t", "/small:1M"}, {Setup(), "/small"});
    EXPECT_EQ(o.out,
              "There isn't enough space in /small to perform the installation activities. The "
              "temporary work area should be at least " +
                  Figure(tsize + 40) +
                  " bytes. Restart the installation procedure using a work area that has enough "
                  "space. \nie: 1. Use /new_work_area_path in place of /tmp\n    2. Run `setup "
                  "/new_work_area_path`\n");
    ExpectStoppedBeforeCopying(o);
}

TEST_F(FreeSpaceTest, SmallInstallAreaStopsWithMessage55) {
    Outcome o = Rehearse({"-t", "/opt:1M"}, {Setup(), "/var/tmp"});
    EXPECT_EQ(o.out,
              "There isn't enough space in /opt to perform the installation activities. The "
              "install area should be at least " +
                  Figure(isize + 40) +
                  " bytes. Restart the installation procedure using an install area that has "
                  "enough space. \nie: 1. Use /new_install_path in place of the default "
                  "location\n    2. Run 'setup install /new_install_path'\n");
    ExpectStoppedBeforeCopying(o);
    EXPECT_FALSE(o.Has("/var/tmp/OrvelInstall"));
}

TEST_F(FreeSpaceTest, SharedFileSystemStopsWithMessage56) {
    Outcome o = Rehearse({"-t", "/small:2M"}, {Setup(), "/small", "install", "/small/base"});
    EXPECT_EQ(o.out,
              "There isn't enough space to perform the installation activities. As you are using "
              "a working directory, /small/OrvelInstall on the same partition as the install "
              "directory you have selected, /small/base this install requires " +
                  Figure(isize + tsize + 80) +
                  " bytes free. Please re-run the install specifing a different location for a "
                  "working directory or install directory. Please see the readme if you need "
                  "help with the syntax.");
    ExpectStoppedBeforeCopying(o);
    EXPECT_FALSE(o.Has("/small/base"));
}

// On one file system both needs and both margins count together: a mount one
// page short of their sum stops, one that holds it lets the installation run.
TEST_F(FreeSpaceTest, SharedFileSystemNeedsBothSizesAndMargins) {
    const long page = 4;  // KiB: tmpfs sizes are whole pages
    long need = static_cast<long>(isize + tsize + 80);
    long shortBy = (need - 1) / page * page;
    long enough = (need + page - 1) / page * page;
    std::vector<std::string> command{Setup(), "/small", "install", "/small/base"};

    Outcome stopped = Rehearse({"-t", "/small:" + std::to_string(shortBy) + "k"}, command);
    EXPECT_NE(stopped.out.find("this install requires " + Figure(need) + " bytes"),
              std::string::npos)
        << stopped.out;
    EXPECT_FALSE(stopped.Has("/small/base"));

    Outcome ran = Rehearse({"-t", "/small:" + std::to_string(enough) + "k"}, command);
    EXPECT_EQ(ran.status, 0) << ran.err;
    EXPECT_EQ(ran.out.find("There isn't enough space"), std::string::npos) << ran.out;
    EXPECT_EQ(fs::file_size(ran.At("/small/base/Orvel/pnzz/blob")), kBlobSize);
    EXPECT_EQ(fs::read_symlink(ran.At("/opt/Orvel")), "/small/base/Orvel");
}

// What an earlier run left in the work area or in <base>/Orvel is replaced,
// so it counts as room: each mount below is 100 KiB short of the need once
// the old files are on it.
TEST_F(FreeSpaceTest, EarlierDirectoriesCountAsFreeSpace) {
    long need = static_cast<long>(isize + tsize + 80);
    long size = (need + 3) / 4 * 4;
    for (const char *earlier : {"/small/base/Orvel", "/small/OrvelInstall"}) {
        SCOPED_TRACE(earlier);
        std::string fill = std::string("mkdir -p ") + earlier + " && head -c 102400 /dev/zero > " +
                           earlier + "/old && ";
        Outcome o =
            Rehearse({"-t", "/small:" + std::to_string(size) + "k"},
                     {"/bin/sh", "-c", fill + "exec " + Setup() + " /small install /small/base"});
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_EQ(o.out.find("There isn't enough space"), std::string::npos) << o.out;
        EXPECT_EQ(fs::file_size(o.At("/small/base/Orvel/pnzz/blob")), kBlobSize);
    }
}

}  // namespace
}  // namespace e2e
