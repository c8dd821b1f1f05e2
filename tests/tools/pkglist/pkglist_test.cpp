// pkglist on lists written to show each warning, and on the demo list.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestFiles.h"

namespace {

using namespace testfiles;

class PkglistTest : public ::testing::Test {
  protected:
    TempDir top, aside;
    std::string out, err;

    // The list goes to <top>/pkg/pkg.list with empty files `held` beside it.
    std::string List(const std::string &text, const std::vector<std::string> &held = {}) {
        for (const std::string &name : held) Write(top / "pkg" / name, "x\n");
        Write(top / "pkg/pkg.list", text);
        return (top / "pkg/pkg.list").string();
    }
    int Pkglist(const std::string &args) {
        return testfiles::Run(PKGLIST_BINARY " " + args, aside.path(), out, err);
    }
};

struct LintCase {
    std::string list;
    std::vector<std::string> held;
    std::string warnings;  // what follows "LIST:" on each line
};

TEST_F(PkglistTest, LintWarnsWhereAListSurprisesItsAuthor) {
    const LintCase cases[] = {
        {"# only a comment\nc a mode 755\n\n", {"a"}, ""},
        {"c prog name prog2 mode 755\n",
         {"prog"},
         "1: warning: mode after name acts on the old name prog, not on prog2\n"},
        {"copy readme\n",
         {"readme"},
         "1: warning: unknown command 'copy' is carried out as c: copies readme\n"},
        {"c missing\n",
         {},
         "1: warning: missing is not in the package (PKG/missing): the copy fails\n"},
        {"m bin/tool mode 755\nc bin\ns bin mode 1\n",
         {"bin"},
         "1: warning: m bin/tool: no earlier line puts bin/tool in the package directory; where "
         "it is missing the rest of the line is skipped\n"},
        {"m OrvelKVT mode 755\n", {}, ""},  // made by the installer before the list
        {"c conf sed s/a b/c d/ mode 644\nc conf mode 644 sed s/a/b/\n",
         {"conf"},
         "1: warning: sed as the first attribute takes the rest of the line as its script: "
         "'s/a b/c d/ mode 644'\n"},
        {"c a mode\nc a colour red\n",
         {"a"},
         "1: warning: 'mode' without a value is ignored\n"
         "2: warning: unknown attribute 'colour' is passed over\n"},
        {"v < 6.5 c a\nv = 6.5 c a\nv >= 99 v > 1 c a\nv ~ 1 c a\n",
         {"a"},
         "1: warning: v < 6.5 holds when the running release sorts before \"6.5\" as text, not "
         "as a number (6.10 sorts before 6.5)\n"
         "2: warning: v = 6.5 never holds, whatever the release: the rest of the line never runs\n"
         "3: warning: v >= 99 always holds, whatever the release\n"
         "3: warning: v > 1 never holds, whatever the release: the rest of the line never runs\n"
         "4: warning: v with operator '~' never holds: the rest of the line never runs\n"},
        {"dirto forms /var/spool/x mode 755\ndirto forms\n",
         {"forms"},
         "1: warning: attributes after dirto act on the package directory's forms, not on the "
         "copy in /var/spool/x\n"
         "2: warning: dirto forms without a destination does nothing\n"},
        // Read as "c a X" (506 x) and "X" (94 x): two lines, both short of a word.
        {"c a " + std::string(600, 'x') + "\nt b\n",
         {"a"},
         "1: warning: '" + std::string(506, 'x') +
             "' without a value is ignored\n"
             "1: warning: line longer than 510 characters: the rest is read as a line of its own\n"
             "1: warning: '" +
             std::string(94, 'x') + "' without a name does nothing\n"},
    };
    for (const LintCase &c : cases) {
        SCOPED_TRACE(c.list);
        fs::remove_all(top / "pkg");
        std::string list = List(c.list, c.held);
        int status = Pkglist("lint " + list);
        std::string expected;
        for (std::string rest = c.warnings; !rest.empty();) {
            size_t end = rest.find('\n') + 1;
            std::string line = rest.substr(0, end);
            if (size_t p = line.find("PKG"); p != std::string::npos)
                line.replace(p, 3, (top / "pkg").string());
            expected += list + ":" + line;
            rest.erase(0, end);
        }
        EXPECT_EQ(out, expected);
        EXPECT_EQ(status, c.warnings.empty() ? 0 : 1) << err;
    }
}

TEST_F(PkglistTest, UsageAndUnreadableListsAreRefused) {
    for (const char *args : {"", "plan", "lint a b", "check x", "plan --base", "plan --root / x"}) {
        SCOPED_TRACE(args);
        EXPECT_EQ(Pkglist(args), 2);
        EXPECT_NE(err.find("usage: pkglist plan"), std::string::npos);
    }
    EXPECT_EQ(Pkglist("lint " + (top / "none").string()), 2);
    EXPECT_NE(err.find("pkglist: cannot read "), std::string::npos) << err;
}

// The plan follows the list as the interpreter does, changing nothing: a
// file copied on one line is there for `m` on the next, a renamed one is not.
TEST_F(PkglistTest, PlanShowsEachLinesCommandsInOrderAndChangesNothing) {
    TempDir base;
    std::string list = List(
        "m later mode 1\n"
        "c prog name prog2 mode 755\n"
        "m prog mode 2\n"
        "m prog2 owner lp\n"
        "newdir log\n"
        "checkps a,b\n"
        "c x bat launch\n",
        {"prog"});
    ASSERT_EQ(Pkglist("plan --base " + base.path().string() + " --work /w " + list), 0) << err;
    std::string app = base.path().string() + "/Orvel/pnzz";
    // clang-format off
    const char *expected[] = {
        ":2: c prog name prog2 mode 755\n", "/cp -p /w/pkg/prog PKG ", "/mv -f PKG/prog PKG/prog2 ",
        "/chmod  755 PKG/prog 1>>/tmp/setup.log", ":4: m prog2 owner lp\n", "/chown  -R lp PKG/prog2 ",
        ":5: newdir log\n", "/mkdir -p PKG/log ", "/chmod  775 PKG/log ", ":6: checkps a,b\n", "  read: ",
        ":7: c x bat launch\n", "  write /usr/bin/launch\n", "  | exec PKG/x $*\n",
        "/chmod  755 /usr/bin/launch 1>/dev/null"};
    // clang-format on
    size_t at = 0;
    for (std::string piece : expected) {
        for (size_t p; (p = piece.find("PKG")) != std::string::npos;) piece.replace(p, 3, app);
        size_t found = out.find(piece, at);
        ASSERT_NE(found, std::string::npos) << piece << " after " << at << " in\n" << out;
        at = found + piece.size();
    }
    EXPECT_EQ(out.find(":1:"), std::string::npos) << "nothing holds `later`";
    EXPECT_EQ(out.find(":3:"), std::string::npos) << "prog was renamed";
    EXPECT_TRUE(fs::is_empty(base.path()));
    EXPECT_FALSE(fs::exists("/usr/bin/launch"));
}

TEST_F(PkglistTest, DemoListPlansEveryLineThatActs) {
    std::string demo = SOURCE_DIR "/examples/demo/pkg/pkg.list";
    ASSERT_EQ(Pkglist("plan " + demo), 0) << err;
    for (const char *line : {":14:", ":21:", ":28:", ":37:", ":38:", ":44:", ":45:", ":49:"})
        EXPECT_NE(out.find(demo + line), std::string::npos) << line;
    EXPECT_NE(out.find("/sed  -e 's|@SPOOLDIR@|/var/spool/Orvel/pnzz|' -e 's|@INTERVAL@|5|' "
                       "/opt/Orvel/pnzz/pnzz.conf > /tmp/setup.tmp"),
              std::string::npos);
    EXPECT_EQ(Pkglist("lint " + demo), 1);
    EXPECT_NE(out.find(demo + ":43: warning: unknown command 'copy'"), std::string::npos) << out;
}

}  // namespace
