#include "Medium.h"
#include "MediumFixture.h"

namespace {

TEST_F(MediumTest, SiteHoldsTheMediumInOneDirectory) {
    Result built = Mkmedium("--site -o site package");
    ASSERT_EQ(built.status, 0) << built.err;
    fs::path site = top / "site";
    EXPECT_EQ(Listing(site), (std::set<std::string>{"disks", "installf.rom", "isize", "tsize",
                                                    "pkg_tar.z1", "setup", "setup.hlp"}));
    EXPECT_EQ(ReadFile(site / "disks"),
              "pkg_tar.z1 disks isize tsize setup setup.hlp\nend_of_list\n");
    EXPECT_EQ(ReadFile(site / "installf.rom"), "installation site");
    EXPECT_EQ(ReadFile(site / "setup"), ReadFile(package / "setup"));
    EXPECT_EQ(fs::status(site / "setup").permissions(), fs::perms(0755));

    Result checked = Mkmedium("--check site");
    EXPECT_EQ(checked.status, 0) << checked.err;
    EXPECT_TRUE(UnpacksToPackage({site / "pkg_tar.z1"}));
}

TEST_F(MediumTest, DiskettesCarryPieceNOnDisketteNWithinCapacity) {
    constexpr long kCapacity = 8192;
    ASSERT_EQ(Mkmedium("--diskettes --capacity 8192 -o set package").status, 0);
    fs::path set = top / "set";
    size_t count = Listing(set).size();
    ASSERT_GE(count, 3u);

    std::string disks = ReadFile(set / "disk1/disks");
    std::vector<fs::path> pieces;
    std::vector<std::string> diskettes;
    for (size_t n = 1; n <= count; ++n) {
        fs::path dir = set / ("disk" + std::to_string(n));
        std::string piece = "pkg_tar.z" + std::to_string(n);
        if (n > 1) {
            EXPECT_EQ(Listing(dir), std::set<std::string>{piece});
        }
        EXPECT_NE(disks.find(n == 1 ? piece + " disks" : "\n" + piece + "\n"), std::string::npos);
        long used = 0;
        for (const auto &entry : fs::directory_iterator(dir))
            used += OnDiskette(fs::file_size(entry));
        EXPECT_LE(used, kCapacity) << dir;
        pieces.push_back(dir / piece);
        diskettes.push_back("set/disk" + std::to_string(n));
    }
    EXPECT_EQ(ReadFile(set / "disk1/installf.rom"), "diskette");
    EXPECT_TRUE(disks.ends_with("\nend_of_list\n"));

    EXPECT_EQ(Mkmedium("--check set").status, 0);
    // Diskettes are known by their piece, as the installer knows them: order is free.
    std::reverse(diskettes.begin() + 1, diskettes.end());
    std::string args = "--check";
    for (const std::string &dir : diskettes) args += " " + dir;
    EXPECT_EQ(Mkmedium(args).status, 0);
    EXPECT_TRUE(UnpacksToPackage(pieces));
}

TEST_F(MediumTest, DosNamesAreUpperCaseOnDisketteAndInDisksFile) {
    ASSERT_EQ(Mkmedium("--diskettes --dos --capacity 16384 -o dos package").status, 0);
    fs::path first = top / "dos/disk1";
    EXPECT_EQ(Listing(first), (std::set<std::string>{"DISKS", "INSTALLF.ROM", "ISIZE", "TSIZE",
                                                     "PKG_TAR.Z1", "SETUP", "SETUP.HLP"}));
    std::string disks = ReadFile(first / "DISKS");
    EXPECT_TRUE(disks.starts_with("PKG_TAR.Z1 DISKS ISIZE TSIZE SETUP SETUP.HLP\nPKG_TAR.Z2\n"));
    // The installer stops at the lower-case word even in an upper-cased listing.
    EXPECT_TRUE(disks.ends_with("\nend_of_list\n"));
    EXPECT_EQ(ReadFile(first / "INSTALLF.ROM"), "diskette");

    EXPECT_EQ(Mkmedium("--check dos").status, 0);
    std::vector<fs::path> pieces;
    for (size_t n = 1; n <= Listing(top / "dos").size(); ++n)
        pieces.push_back(top / "dos" / ("disk" + std::to_string(n)) /
                         ("PKG_TAR.Z" + std::to_string(n)));
    EXPECT_TRUE(UnpacksToPackage(pieces));
}

// Replays the installer's work directory (copy the listed files, join, uncompress,
// unpack) and measures it with du at each step.
TEST_F(MediumTest, SizesCoverWhatTheInstallationUses) {
    ASSERT_EQ(Mkmedium("--diskettes --capacity 16384 -o set package").status, 0);
    fs::path work = top / "work";
    fs::create_directory(work);
    std::string copy = "cp -p";
    for (const auto &dir : fs::directory_iterator(top / "set"))
        for (const auto &file : fs::directory_iterator(dir.path()))
            copy += " '" + file.path().string() + "'";
    ASSERT_EQ(std::system((copy + " '" + work.string() + "'").c_str()), 0);
    std::string w = "cd '" + work.string() + "' && ";
    ASSERT_EQ(std::system((w + "cat pkg_tar.z* > SGIPnzz.tar.Z").c_str()), 0);
    long joined = Du(work);
    ASSERT_EQ(std::system((w + "uncompress -c SGIPnzz.tar.Z > SGIPnzz.tar").c_str()), 0);
    long uncompressing = Du(work);
    ASSERT_EQ(std::system((w + "rm SGIPnzz.tar.Z && tar xpf SGIPnzz.tar").c_str()), 0);
    long unpacked = Du(work);

    long tsize = std::atol(ReadFile(top / "set/disk1/tsize").c_str());
    long isize = std::atol(ReadFile(top / "set/disk1/isize").c_str());
    EXPECT_GE(tsize, std::max({joined, uncompressing, unpacked}));
    EXPECT_GE(isize, Du(work / "pkg"));
    EXPECT_GT(isize, 40000 / 1024);  // in KiB blocks, not bytes nor sectors
    EXPECT_LT(isize, 40000 / 256);
}

TEST(PiecePlanTest, FirstDisketteNeedsRoomForItsFilesAndOneCluster) {
    std::string why;
    const long files = 4 * kClusterSize, disks = kClusterSize;
    std::vector<long> pieces =
        PlanPieces(kPlainNames, 5000, files, files + disks + kClusterSize, &why);
    ASSERT_FALSE(pieces.empty());
    EXPECT_EQ(pieces.front(), kClusterSize);
    long total = 0;
    for (long piece : pieces) total += piece;
    EXPECT_EQ(total, 5000);
    EXPECT_TRUE(
        PlanPieces(kPlainNames, 5000, files, files + disks + kClusterSize - 1, &why).empty());
    EXPECT_NE(why.find("too small"), std::string::npos);
}

// Bad input: one line on standard error, a non-zero status, and nothing new
// beside the output: no medium, no staging tree.
class BadInputTest : public MediumTest {
  protected:
    void ExpectRefused(const std::string &args, const std::string &reason) {
        std::set<std::string> before = Listing(top);
        Result result = Mkmedium(args);
        EXPECT_NE(result.status, 0);
        EXPECT_TRUE(result.err.starts_with("mkmedium: ")) << result.err;
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
        EXPECT_EQ(Listing(top), before);
    }
};

TEST_F(BadInputTest, PackageWithoutPkgListIsRefused) {
    fs::remove(package / "pkg/pkg.list");
    ExpectRefused("-o out package", "pkg.list");
}

TEST_F(BadInputTest, CapacityTooSmallForOnePieceIsRefused) {
    ExpectRefused("--diskettes --capacity 2048 -o out package", "too small");
}

TEST_F(BadInputTest, MorePiecesThanDosNamesAllowAreRefused) {
    WriteFile(package / "pkg/bin/tool", RandomBytes(480000, 2));
    ExpectRefused("--diskettes --dos --capacity 6144 -o out package", "DOS");
}

TEST_F(BadInputTest, MissingProgramToCopyIsRefused) {
    ExpectRefused("--setup nowhere/setup -o out package", "nowhere/setup");
    ExpectRefused("--help-file nowhere.hlp -o out package", "nowhere.hlp");
}

TEST_F(BadInputTest, ExistingOutputIsLeftAlone) {
    fs::create_directory(top / "out");
    WriteFile(top / "out/keep", "mine");
    ExpectRefused("-o out package", "exists");
    EXPECT_EQ(Listing(top / "out"), std::set<std::string>{"keep"});
}

// A medium that the installer could not use fails the check with one line.
class BrokenMediumTest : public MediumTest {
  protected:
    void SetUp() override {
        MediumTest::SetUp();
        ASSERT_EQ(Mkmedium("--diskettes --capacity 16384 -o set package").status, 0);
    }
    void ExpectCheckFails(const std::string &reason) {
        Result result = Mkmedium("--check set");
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_NE(result.err.find(reason), std::string::npos) << result.err;
    }
};

TEST_F(BrokenMediumTest, MissingPieceFails) {
    fs::remove(top / "set/disk2/pkg_tar.z2");
    ExpectCheckFails("pkg_tar.z2");
}

TEST_F(BrokenMediumTest, MissingListedFileFails) {
    fs::remove(top / "set/disk1/tsize");
    ExpectCheckFails("tsize");
}

TEST_F(BrokenMediumTest, TruncatedPieceFailsToUncompress) {
    fs::resize_file(top / "set/disk2/pkg_tar.z2", 100);
    ExpectCheckFails("mkmedium: ");
}

TEST_F(BrokenMediumTest, DisksFileWithoutEndOfListFails) {
    std::string disks = ReadFile(top / "set/disk1/disks");
    WriteFile(top / "set/disk1/disks", disks.substr(0, disks.find("end_of_list")));
    ExpectCheckFails("end_of_list");
}

TEST_F(BrokenMediumTest, ArchiveWithoutPkgListFails) {
    fs::path other = top / "other";
    fs::create_directories(other / "pkg");
    WriteFile(other / "pkg/readme", "no list\n");
    std::string make =
        "cd '" + top.string() +
        "' && tar cf - -C other pkg | compress -f -c > one.Z"
        " && rm set/disk*/pkg_tar.z* && rm -r set/disk[2-9]* && mv one.Z set/disk1/pkg_tar.z1"
        " && printf 'pkg_tar.z1 disks isize tsize setup setup.hlp\\nend_of_list\\n' > "
        "set/disk1/disks";
    ASSERT_EQ(std::system(make.c_str()), 0);
    ExpectCheckFails("pkg.list");
}

}  // namespace
