// `setup menu` as an administrator uses it: the main menu's screen and keys,
// end of input, a user who is not root, installing into a chosen directory,
// declining, and making an installation site that then installs on its own.
#include "E2e.h"

namespace e2e {
namespace {

const std::string TITLE = "Install Print Driver and Utilities";

class MenuTest : public E2eTest {
  protected:
    std::string site;
    void SetUp() override {
        E2eTest::SetUp();
        if (IsSkipped()) return;
        site = Medium(DEMO_DIR, {"--site"}).string();
    }
    Outcome Menu(const std::string &input, std::vector<std::string> options = {}) {
        return Rehearse(options, {site + "/setup", "menu"}, input);
    }
};

TEST_F(MenuTest, MainMenuIsCentredNumberedAndLeftByEitherCaseOfE) {
    for (const char *exit : {"e\n", "E\n"}) {
        // A number that names nothing, and an empty line, show the menu again.
        Outcome o = Menu(std::string("9\n\n") + exit);
        ASSERT_EQ(o.status, 0) << o.out << o.err;
        std::string screen = "\f\n" + std::string((80 - TITLE.size()) / 2, ' ') + TITLE +
                             "\n\n"
                             " 1) Install Driver and Utilities \n\n"
                             " 2) Create an installation site. \n\n"
                             " e) Exit \n\n"
                             " \n\n"
                             "\nEnter a selection:  ";
        EXPECT_EQ(Count(o.out, screen), 3u) << o.out;
        EXPECT_FALSE(o.Has("/opt/Orvel/pnzz"));
        EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));  // cleaned up as after any run
    }
}

TEST_F(MenuTest, EndOfInputEndsTheRunWithStatusOne) {
    Outcome o = Menu("");
    EXPECT_EQ(o.status, 1);
    EXPECT_NE(o.err.find("setup: reading from standard input : "), std::string::npos) << o.err;
}

TEST_F(MenuTest, PromptSpeaksTheLanguageOfLangAndEnglishWithoutDatabases) {
    Outcome french = Menu("e\n", {"-e", "LANG=fr_FR"});
    ASSERT_EQ(french.status, 0) << french.err;
    EXPECT_NE(french.out.find("\nEntrez votre choix :  "), std::string::npos) << french.out;
    fs::remove_all(fs::path(site) / "db");
    fs::remove(fs::path(site) / "trans.conf");
    Outcome bare = Menu("e\n", {"-e", "LANG=fr_FR"});
    ASSERT_EQ(bare.status, 0) << bare.err;
    EXPECT_NE(bare.out.find("\nEnter a selection:  "), std::string::npos) << bare.out;
    EXPECT_EQ(bare.out.find("25_"), std::string::npos);
}

TEST_F(MenuTest, UserWhoIsNotRootIsToldSoAndTheMenuCloses) {
    // The sandbox's user must reach the program wherever the build tree lies.
    testfiles::TempDir shared("/var/tmp");
    fs::permissions(shared.path(), fs::perms(0755));
    fs::copy(site, shared / "site", fs::copy_options::recursive);
    site = (shared / "site").string();
    Outcome o = Menu("1\n", {"-u", "nobody", "--unset", "LANG"});
    EXPECT_EQ(o.status, 0) << o.err;
    EXPECT_NE(o.out.find("nobody is logged in\nYou must become root to run setup\n"),
              std::string::npos)
        << o.out;
    EXPECT_EQ(Count(o.out, TITLE), 1u);
    EXPECT_FALSE(o.Has("/opt/Orvel/pnzz"));
}

TEST_F(MenuTest, InstallsIntoTheDirectoryTypedOrDeclinesAndStays) {
    // The directory typed, then Return to take it, then yes.
    Outcome o = Menu("1\n/srv/print\n\ny\n");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_NE(o.out.find("\nEnter the new installation directory [/opt]: "), std::string::npos);
    EXPECT_TRUE(o.Has("/srv/print/Orvel/pnzz/PelnorD"));
    EXPECT_EQ(o.Link("/opt/Orvel"), "/srv/print/Orvel");
    EXPECT_EQ(Count(o.out, TITLE), 1u);  // the menu closes after the installation

    Outcome declined = Menu("1\n/srv/print\n\nn\ne\n");
    ASSERT_EQ(declined.status, 0) << declined.out << declined.err;
    EXPECT_FALSE(declined.Has("/srv/print/Orvel"));
    EXPECT_EQ(Count(declined.out, TITLE), 2u);  // back in the menu, then left
}

TEST_F(MenuTest, MakesASiteThatInstallsWithItsOwnSetup) {
    for (const std::string &base : {std::string("/export"), std::string("/")}) {
        std::string made = (base == "/" ? "" : base) + "/SGIPnzzInstall";
        Outcome o = Shell({}, "printf '2\\n" + base + "\\n\\ny\\ne\\n' | " + site + "/setup menu && " +
                                  made + "/setup");
        ASSERT_EQ(o.status, 0) << o.out << o.err;
        EXPECT_EQ(o.Mode(made), 0777);
        EXPECT_EQ(o.Text(made + "/installf.rom"), "installation site");
        for (const char *file : {"setup", "setup.hlp", "disks", "isize", "tsize", "pkg_tar.z1"})
            EXPECT_TRUE(o.Has(made + "/" + file)) << file;
        EXPECT_TRUE(o.Has("/opt/Orvel/pnzz/PelnorD")) << "installed from " << made;
    }
}

}  // namespace
}  // namespace e2e
