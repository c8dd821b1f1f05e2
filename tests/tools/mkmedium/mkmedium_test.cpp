// The medium builder run as its users run it, on a package in a temporary
// directory; each medium it makes is checked and unpacked as the installer would.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <numeric>
#include <set>

#include "Medium.h"
#include "TestFiles.h"

namespace {

using namespace testfiles;

// Replays the installer's work directory in `$1`: copy what the disks file lists (every
// file of the medium but those read in place), join the pieces (the other arguments)
// with cat, the host's uncompress, tar; du at its fullest and of the tree, which must
// come back byte for byte (links as links, modes kept).
constexpr const char *kReplay =
    R"(w=$1 && shift && rm -rf "$w" && mkdir "$w" && for p; do find "${p%/*}" -maxdepth 1 \
    -type f ! -iname installf.rom ! -iname trans.conf -exec cp -p -t "$w" {} +; done &&
    cat "$@" > "$w/SGIPnzz.tar.Z" && cd "$w" &&
    uncompress -c SGIPnzz.tar.Z > SGIPnzz.tar && du -s . && rm SGIPnzz.tar.Z &&
    tar xpf SGIPnzz.tar && du -s . && du -s pkg && test -x pkg/bin/tool &&
    diff -r --no-dereference ../package/pkg pkg >&2 && echo same)";

// A package with several kinds of entries, a stand-in installer, its help file,
// translation settings and string databases.
constexpr const char *kPackage =
    R"(mkdir -p package/pkg/bin package/pkg/doc package/pkg/spool/empty &&
    cd package && printf 'dir bin\nc doc/readme mode 644\n' > pkg/pkg.list &&
    head -c 40000 /dev/urandom > pkg/bin/tool && seq -f 'line %g' 0 2999 > pkg/doc/readme &&
    : > pkg/doc/empty && ln -s doc/readme pkg/readme && echo '<html>help</html>' > setup.hlp &&
    printf '#!/bin/sh\necho installing\n' > setup && chmod 755 setup pkg/bin/tool &&
    mkdir -p db/fr_FR db/en_US && echo fr > db/fr_FR/CoreString.vdb &&
    echo en > db/en_US/CoreString.vdb && echo 'fr_FR fr_FR' > trans.conf)";

// The translations the installer reads beside itself, as `names` spell them.
void ExpectTranslations(const fs::path &dir, const MediumNames &names) {
    SCOPED_TRACE(dir);
    EXPECT_EQ(Slurp(dir / names.transConf), "fr_FR fr_FR\n");
    EXPECT_EQ(Slurp(dir / names.db / MediumName(names, "fr_FR/CoreString.vdb")), "fr\n");
    EXPECT_EQ(Slurp(dir / names.db / MediumName(names, "en_US/CoreString.vdb")), "en\n");
}

class MediumTest : public ::testing::Test {
  protected:
    TempDir top, aside;  // aside: what the commands print, apart from what they make
    std::string out, err;
    void SetUp() override { ASSERT_EQ(Sh(kPackage), 0) << err; }
    // Runs `command` in the top directory; returns its exit status, keeps its output.
    int Sh(const std::string &command) {
        return testfiles::Run("cd " + top.path().string() + " && (" + command + ")", aside.path(),
                              out, err);
    }
    int Mkmedium(const std::string &args) { return Sh(MKMEDIUM_BINARY " " + args); }
    // The replay of `pieces` (relative to the top directory) must fit the sizes in `first`.
    void ExpectUnpacksWithinItsSizes(const std::string &pieces, const fs::path &first,
                                     const MediumNames &names) {
        ASSERT_EQ(Sh("sh -c '" + std::string(kReplay) + "' sh work " + pieces), 0) << err;
        long uncompressing = 0, unpacked = 0, tree = 0;
        char same[8] = "";
        sscanf(out.c_str(), "%ld %*s %ld %*s %ld %*s %7s", &uncompressing, &unpacked, &tree, same);
        EXPECT_STREQ(same, "same");
        EXPECT_GE(std::stol(Slurp(first / names.tsize)), std::max(uncompressing, unpacked));
        long isize = std::stol(Slurp(first / names.isize));
        EXPECT_GE(isize, tree);
        EXPECT_LT(isize, 2 * tree);  // KiB, not bytes nor sectors
    }
    void ExpectRefused(const std::string &args, const std::string &reason) {
        std::set<std::string> before = Listing(top.path());
        EXPECT_NE(Mkmedium(args), 0);
        EXPECT_TRUE(err.starts_with("mkmedium: ")) << err;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        EXPECT_NE(err.find(reason), std::string::npos) << err;
        EXPECT_EQ(Listing(top.path()), before);  // no medium, no staging tree
    }
};

TEST_F(MediumTest, SiteHoldsTheMediumInOneDirectory) {
    ASSERT_EQ(Mkmedium("--site -o site package"), 0) << err;
    EXPECT_EQ(Mkmedium("--check site"), 0) << err;
    ExpectUnpacksWithinItsSizes("site/pkg_tar.z1", top / "site", kPlainNames);
}

TEST_F(MediumTest, DiskettesCarryPieceNOnDisketteNWithinCapacity) {
    for (const MediumNames *names : {&kPlainNames, &kDosNames}) {
        SCOPED_TRACE(names->disks);
        fs::remove_all(top / "set");
        std::string dos = names == &kDosNames ? "--dos " : "";
        ASSERT_EQ(Mkmedium("--diskettes --capacity 10240 " + dos + "-o set package"), 0) << err;
        size_t count = Listing(top / "set").size();
        ASSERT_GE(count, 3u);
        std::string disks = Slurp(top / "set/disk1" / names->disks);
        std::string pieces, reversed;  // the installer takes diskettes in any order
        for (size_t n = 1; n <= count; ++n) {
            fs::path dir = top / "set" / ("disk" + std::to_string(n));
            std::string piece = PieceName(*names, n);
            if (n > 1) {
                EXPECT_EQ(Listing(dir),
                          (std::set<std::string>{piece, names->transConf, names->db}));
            }
            ExpectTranslations(dir, *names);
            EXPECT_NE(disks.find(n == 1 ? piece + " " : "\n" + piece + "\n"), std::string::npos);
            long used = 0;  // a small subdirectory takes one cluster
            for (const auto &entry : fs::recursive_directory_iterator(dir))
                used += entry.is_directory() ? kClusterSize : OnDiskette(entry.file_size());
            EXPECT_LE(used, 10240) << dir;
            pieces += " set/disk" + std::to_string(n) + "/" + piece;
            if (n > 1) reversed = " set/disk" + std::to_string(n) + reversed;
        }
        // The installer stops at the lower-case word even in an upper-cased listing.
        EXPECT_TRUE(disks.ends_with("\nend_of_list\n")) << disks;
        EXPECT_EQ(Mkmedium("--check set"), 0) << err;
        EXPECT_EQ(Mkmedium("--check set/disk1" + reversed), 0) << err;
        ExpectUnpacksWithinItsSizes(pieces, top / "set/disk1", *names);
    }
}

TEST(PiecePlanTest, DiskettesNeedRoomForTheirFilesAndOneCluster) {
    std::string why;
    const long every = 2 * kClusterSize, first = 4 * kClusterSize, disks = kClusterSize;
    const long room = every + first + disks + kClusterSize;
    std::vector<long> pieces = PlanPieces(kPlainNames, 5000, first, every, room, &why);
    ASSERT_FALSE(pieces.empty());
    EXPECT_EQ(pieces.front(), kClusterSize);
    EXPECT_EQ(pieces[1], room - every);
    EXPECT_EQ(std::accumulate(pieces.begin(), pieces.end(), 0L), 5000);
    EXPECT_TRUE(PlanPieces(kPlainNames, 5000, first, every, room - 1, &why).empty());
    EXPECT_NE(why.find("the first diskette needs"), std::string::npos) << why;
    EXPECT_TRUE(PlanPieces(kPlainNames, 5000, 0, every, every, &why).empty());
    EXPECT_NE(why.find("every diskette needs"), std::string::npos) << why;
}

TEST_F(MediumTest, BadInputIsRefusedWithOneLineAndNothingHalfWritten) {
    ExpectRefused("--diskettes --capacity 2048 -o out package", "too small");
    ExpectRefused("--setup nowhere/setup -o out package", "nowhere/setup");
    Sh("mkdir bare && cp package/setup bare/");
    ExpectRefused("--setup bare/setup -o out package", "bare/trans.conf");
    Sh("cp package/trans.conf bare/");
    ExpectRefused("--setup bare/setup -o out package", "bare/db");
    Write(top / "mine/keep", "");
    ExpectRefused("-o mine package", "exists");
    EXPECT_EQ(Listing(top / "mine"), std::set<std::string>{"keep"});
    Sh("head -c 480000 /dev/urandom > package/pkg/bin/tool");
    ExpectRefused("--diskettes --dos --capacity 8192 -o out package", "DOS");  // over 99 pieces
    fs::remove(top / "package/pkg/pkg.list");
    ExpectRefused("-o out package", "pkg.list");
}

TEST_F(MediumTest, BrokenMediumFailsTheCheck) {
    const std::pair<const char *, const char *> damages[] = {
        {"rm set/disk2/pkg_tar.z2", "pkg_tar.z2"},
        {"truncate -s 100 set/disk2/pkg_tar.z2", "mkmedium: "},
        {"sed -i /end_of_list/d set/disk1/disks", "end_of_list"},
        {"rm -r set/disk2/db", "db/ missing"},
        {"rm set/disk1/trans.conf", "trans.conf missing"},
        {"rm -r set/disk[2-9]* && sed -i '2,$c end_of_list' set/disk1/disks && "
         "tar cf - -C package pkg/doc | compress -c > set/disk1/pkg_tar.z1",
         "pkg.list"}};
    for (const auto &[damage, reason] : damages) {
        fs::remove_all(top / "set");
        ASSERT_EQ(Mkmedium("--diskettes --capacity 16384 -o set package"), 0) << err;
        ASSERT_EQ(Sh(damage), 0);
        EXPECT_EQ(Mkmedium("--check set"), 1) << damage;
        EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
        EXPECT_NE(err.find(reason), std::string::npos) << err;
    }
}

}  // namespace
