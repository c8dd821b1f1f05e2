// The package read from a diskette set through the drive, and damaged media.
#include "E2e.h"

namespace e2e {
namespace {

// Answers for every "press enter" of a run; spare lines are never read.
const std::string kKeys(12, '\n');

// Diskettes loaded 1, 3, 2, 3: the one out of turn is ejected and asked for again.
const std::string kOutOfTurn =
    "Reading diskette 1\nReading diskette 2\nPlease insert install diskette 2 and press enter\n"
    "Please insert install diskette 2 and press enter\nReading diskette 3\n"
    "Please insert install diskette 3 and press enter\n\n";

// The dialogue without the progress dots, which interleave with it.
std::string Dialogue(std::string out) {
    std::erase(out, '.');
    return out;
}

class MediumTest : public E2eTest {
  protected:
    std::string blob;
    // A medium whose compressed archive comes to `pieces` pieces: the first
    // diskette also carries the installer, so its piece is the small one; every
    // diskette carries the translations.
    fs::path MediumOfPieces(int pieces, std::vector<std::string> options,
                            const std::string &name = "medium") {
        const long first = 200 * 1024;
        const long capacity = ShippedSetupBytes() + first + TranslationsOnDiskette();
        const double compressRatio = 1.24;  // what LZW makes of random bytes
        blob = Incompressible(
            static_cast<size_t>((first + (pieces - 1.5) * capacity) / compressRatio));
        fs::path pkg = Package("pkg-src", "c blob mode 644\nc pnqadmin mode 755\n",
                               {{"blob", blob}, {"pnqadmin", kQueueTool}});
        options.insert(options.end(), {"--capacity", std::to_string(capacity)});
        return Medium(pkg, options, name);
    }
    // The drive's diskettes in the order the administrator loads them.
    static std::vector<std::string> Drive(const fs::path &set) {
        auto disk = [&](int n) { return (set / ("disk" + std::to_string(n))).string(); };
        return {"-f", disk(1), "-f", disk(3), "-f", disk(2), "-f", disk(3)};
    }
    void ExpectInstalled(const Outcome &o) {
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_EQ(o.err, "");
        EXPECT_TRUE(o.Text("/opt/Orvel/pnzz/blob") == blob) << "package file damaged or missing";
        EXPECT_EQ(o.Text("/opt/Orvel/pnzz/pnqadmin.calls"), "-upgrade\n-clean\n");
        EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));
    }
};

// Started from the drive as an administrator does: the forced eject takes the
// diskette out from under the running program.
TEST_F(MediumTest, DisketteSetIsReadInTurnWithEitherCaseAndNeedsADiskette) {
    fs::path set = MediumOfPieces(3, {"--diskettes"});
    Outcome o = Rehearse(Drive(set), {"/floppy/floppy0/setup"}, kKeys);
    EXPECT_EQ(Dialogue(o.out), kOutOfTurn);
    ExpectInstalled(o);
    EXPECT_EQ(Count(o.Text("/tmp/setup.log"), "/floppy/floppy0/pkg_tar.z"), 3u);
    for (std::vector<std::string> drive : {std::vector<std::string>{"--floppy-empty"}, {}}) {
        SCOPED_TRACE(drive.empty() ? "no drive" : "empty drive");
        o = Rehearse(drive, {(set / "disk1/setup").string()}, kKeys);
        EXPECT_EQ(o.status, 1);
        EXPECT_EQ(o.err, "ERROR: can't locate install diskette 0\n");
        EXPECT_EQ(Dialogue(o.out), "");
        EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));
        EXPECT_FALSE(o.Has("/opt/Orvel"));
    }
    // DOS upper-case names: the drive answers to the lower-case names asked for.
    set = MediumOfPieces(3, {"--diskettes", "--dos"}, "dos");
    o = Rehearse(Drive(set), {"/floppy/floppy0/SETUP"}, kKeys);
    EXPECT_EQ(Dialogue(o.out), kOutOfTurn);
    ExpectInstalled(o);
    EXPECT_NE(o.Text("/tmp/SETUP.log").find("/floppy/floppy0/PKG_TAR.Z3 OrvelInstall"),
              std::string::npos);
}

// Each damage adds to the last: a disks file without its end marker is read to
// its end; a missing piece ends the run before unpacking; no disks file, no medium.
TEST_F(MediumTest, DamagedSiteIsReadAsFarAsItGoes) {
    fs::path site = MediumOfPieces(2, {"--site"});
    std::string disks = Slurp(site / "disks");
    ASSERT_NE(disks.find("end_of_list"), std::string::npos);
    Write(site / "disks", disks.erase(disks.find("end_of_list")));
    ExpectInstalled(Rehearse({}, {(site / "setup").string()}));
    fs::remove(site / "pkg_tar.z2");
    Outcome o = Rehearse({}, {(site / "setup").string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_TRUE(std::regex_match(Dialogue(o.out), std::regex("ERROR: [\\s\\S]+\n"))) << o.out;
    EXPECT_NE(o.Text("/tmp/setup.log").find("/pkg_tar.z2 /tmp/OrvelInstall"), std::string::npos);
    EXPECT_TRUE(o.Has("/tmp/OrvelInstall/pkg_tar.z1"));
    EXPECT_FALSE(o.Has("/tmp/OrvelInstall/pkg"));
    EXPECT_FALSE(o.Has("/opt/Orvel"));
    fs::remove(site / "disks");
    o = Rehearse({}, {(site / "setup").string()});
    EXPECT_EQ(o.status, 1);
    EXPECT_EQ(o.err, "ERROR: can't open file, OrvelInstall/disks\n");
    EXPECT_FALSE(o.Has("/opt/Orvel"));
}

}  // namespace
}  // namespace e2e
