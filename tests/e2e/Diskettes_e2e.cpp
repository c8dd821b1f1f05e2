// Reading the package from a diskette set through the drive, and media whose
// material is incomplete or damaged.
#include <random>

#include "E2e.h"

namespace e2e {
namespace {

// Answers for every "press enter" of a run; spare lines are never read.
const std::string kKeys(12, '\n');

// The dialogue without the progress dots, which interleave with it.
std::string Dialogue(const std::string &out) {
    std::string text;
    for (char c : out)
        if (c != '.') text += c;
    return text;
}

// Random bytes do not compress, so the archive's size follows the data's.
std::string Incompressible(size_t size) {
    std::mt19937 random(size);
    std::string data(size, '\0');
    for (char &c : data) c = static_cast<char>(random());
    return data;
}

// The queue tool records how the installer called it, so a test can tell
// that the run went through the upgrade and the final clean-up.
constexpr const char *kQueueTool =
    "#!/bin/sh\n"
    "echo \"$*\" >> \"`dirname $0`/pnqadmin.log\"\n";
constexpr const char *kPkgList = "c blob mode 644\nc pnqadmin mode 755\n";

class MediumTest : public E2eTest {
  protected:
    std::string blob;

    // A package whose compressed archive comes to `pieces` pieces of
    // diskettes of `Capacity()` bytes: the first diskette also carries the
    // installer, so its piece is the small one.
    fs::path PackageOfPieces(int pieces) {
        const double compressRatio = 1.24;  // what LZW makes of random bytes
        double archive = FirstPiece() + (pieces - 1.5) * static_cast<double>(Capacity());
        blob = Incompressible(static_cast<size_t>(archive / compressRatio));
        return Package("pkg-src", kPkgList, {{"blob", blob}, {"pnqadmin", kQueueTool}});
    }

    static long FirstPiece() { return 200 * 1024; }
    static long Capacity() { return static_cast<long>(fs::file_size(SETUP_BIN)) + FirstPiece(); }
    static std::string CapacityOption() { return std::to_string(Capacity()); }

    static int CountDiskettes(const fs::path &medium) {
        int n = 0;
        while (fs::exists(medium / ("disk" + std::to_string(n + 1)))) ++n;
        return n;
    }

    void ExpectInstalled(const Outcome &o) {
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_EQ(o.err, "");
        EXPECT_TRUE(o.Text("/opt/Orvel/pnzz/blob") == blob) << "package file damaged or missing";
        EXPECT_EQ(o.Text("/opt/Orvel/pnzz/pnqadmin.log"), "-upgrade\n-clean\n");
        EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));
    }
};

// The installer is started from the drive, as an administrator does; the
// forced eject takes the diskette out from under the running program.
constexpr const char *kDriveSetup = "/floppy/floppy0/setup";

// What a three-diskette installation says when each diskette is loaded in turn.
constexpr const char *kThreeDiskettes =
    "Reading diskette 1\n"
    "Reading diskette 2\n"
    "Please insert install diskette 2 and press enter\n"
    "Reading diskette 3\n"
    "Please insert install diskette 3 and press enter\n"
    "\n";

class DisketteSetTest : public MediumTest {
  protected:
    fs::path set;

    void SetUp() override {
        MediumTest::SetUp();
        if (IsSkipped()) return;
        set = Medium(PackageOfPieces(3), {"--diskettes", "--capacity", CapacityOption()});
        ASSERT_EQ(CountDiskettes(set), 3);
    }
    std::string Disk(int n) const { return (set / ("disk" + std::to_string(n))).string(); }
};

TEST_F(DisketteSetTest, AsksForEachDisketteInTurnAndInstalls) {
    Outcome o = Rehearse({"-f", Disk(1), "-f", Disk(2), "-f", Disk(3)}, {kDriveSetup}, kKeys);
    EXPECT_EQ(Dialogue(o.out), kThreeDiskettes);
    ExpectInstalled(o);
    // Each piece was copied from the drive into the work area.
    std::string log = o.Text("/tmp/setup.log");
    for (const char *piece : {"pkg_tar.z1", "pkg_tar.z2", "pkg_tar.z3"})
        EXPECT_NE(log.find(std::string("/floppy/floppy0/") + piece + " OrvelInstall"),
                  std::string::npos)
            << piece;
}

TEST_F(DisketteSetTest, WrongDisketteIsEjectedAndAskedForAgain) {
    Outcome o = Rehearse({"-f", Disk(1), "-f", Disk(3), "-f", Disk(2), "-f", Disk(3)},
                         {kDriveSetup}, kKeys);
    EXPECT_EQ(Dialogue(o.out),
              "Reading diskette 1\n"
              "Reading diskette 2\n"
              "Please insert install diskette 2 and press enter\n"
              "Please insert install diskette 2 and press enter\n"
              "Reading diskette 3\n"
              "Please insert install diskette 3 and press enter\n"
              "\n");
    ExpectInstalled(o);
}

TEST_F(DisketteSetTest, StuckDriveIsRetriedUntilTheEjectSucceeds) {
    Outcome o = Rehearse({"--eject-fail", "2", "-f", Disk(1), "-f", Disk(2), "-f", Disk(3)},
                         {kDriveSetup}, kKeys);
    // Message 3 is shown with an empty name and no newline, once per failure.
    EXPECT_EQ(Dialogue(o.out),
              "Reading diskette 1\n"
              "Reading diskette 2\n"
              "ERROR: couldn't open ERROR: couldn't open "
              "Please insert install diskette 2 and press enter\n"
              "Reading diskette 3\n"
              "Please insert install diskette 3 and press enter\n"
              "\n");
    ExpectInstalled(o);
}

TEST_F(DisketteSetTest, EmptyDriveOrNoDriveStopsWithStatusOne) {
    for (std::vector<std::string> drive :
         {std::vector<std::string>{"--floppy-empty"}, std::vector<std::string>{}}) {
        SCOPED_TRACE(drive.empty() ? "no drive" : "empty drive");
        Outcome o = Rehearse(drive, {Disk(1) + "/setup"}, kKeys);
        EXPECT_EQ(o.status, 1);
        EXPECT_EQ(o.err, "ERROR: can't locate install diskette 0\n");
        EXPECT_EQ(Dialogue(o.out), "");
        EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));
        EXPECT_FALSE(o.Has("/opt/Orvel"));
    }
}

class DosDisketteSetTest : public DisketteSetTest {
  protected:
    void SetUp() override {
        MediumTest::SetUp();
        if (IsSkipped()) return;
        set = Medium(PackageOfPieces(3), {"--diskettes", "--dos", "--capacity", CapacityOption()});
        ASSERT_EQ(CountDiskettes(set), 3);
    }
};

// The drive answers to the lower-case names the installer asks for.
TEST_F(DosDisketteSetTest, UpperCaseNamesInstallThroughTheDrive) {
    Outcome o =
        Rehearse({"-f", Disk(1), "-f", Disk(2), "-f", Disk(3)}, {"/floppy/floppy0/SETUP"}, kKeys);
    EXPECT_EQ(Dialogue(o.out), kThreeDiskettes);
    ExpectInstalled(o);
    EXPECT_NE(o.Text("/tmp/SETUP.log").find("/floppy/floppy0/PKG_TAR.Z3 OrvelInstall"),
              std::string::npos);
}

// A site whose archive is cut in two pieces, to be damaged by each test.
class DamagedSiteTest : public MediumTest {
  protected:
    fs::path site;

    void SetUp() override {
        MediumTest::SetUp();
        if (IsSkipped()) return;
        site = Medium(PackageOfPieces(2), {"--site", "--capacity", CapacityOption()});
        ASSERT_TRUE(fs::exists(site / "pkg_tar.z2"));
        ASSERT_FALSE(fs::exists(site / "pkg_tar.z3"));
    }
    Outcome Install() { return Rehearse({}, {(site / "setup").string()}, kKeys); }
};

TEST_F(DamagedSiteTest, DisksFileWithoutEndMarkerIsReadToItsEnd) {
    std::string disks = Slurp(site / "disks");
    size_t marker = disks.find("end_of_list");
    ASSERT_NE(marker, std::string::npos);
    Write(site / "disks", disks.substr(0, marker));
    ExpectInstalled(Install());
}

// The copy of a listed file is a step that must succeed: the run ends at the
// missing piece with the system's error text, before anything is unpacked.
TEST_F(DamagedSiteTest, MissingPieceEndsTheRunBeforeUnpacking) {
    fs::remove(site / "pkg_tar.z2");
    Outcome o = Install();
    EXPECT_EQ(o.status, 1);
    std::string out = Dialogue(o.out);
    ASSERT_FALSE(out.empty());
    EXPECT_EQ(out.rfind("ERROR: ", 0), 0u) << out;
    EXPECT_EQ(out.back(), '\n');
    EXPECT_NE(o.Text("/tmp/setup.log").find("/pkg_tar.z2 /tmp/OrvelInstall"), std::string::npos);
    EXPECT_TRUE(o.Has("/tmp/OrvelInstall/pkg_tar.z1"));
    EXPECT_FALSE(o.Has("/tmp/OrvelInstall/pkg"));
    EXPECT_FALSE(o.Has("/opt/Orvel"));
}

TEST_F(DamagedSiteTest, SiteWithoutDisksFileStopsWithStatusOne) {
    fs::remove(site / "disks");
    Outcome o = Install();
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.err, "ERROR: can't open file, OrvelInstall/disks\n");
    EXPECT_FALSE(o.Has("/opt/Orvel"));
}

}  // namespace
}  // namespace e2e
