// The package list interpreter, run on real files in a temporary work
// directory and package directory with the real cp, chmod, ln, sed.
#include <sys/stat.h>
#include <sys/utsname.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
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

void Write(const fs::path &p, const std::string &text) {
    fs::create_directories(p.parent_path());
    std::ofstream(p) << text;
}

int Mode(const fs::path &p) {
    struct stat st{};
    return stat(p.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 07777) : -1;
}

std::string Release() {
    struct utsname u{};
    uname(&u);
    return u.release;
}

class PkgListTest : public ::testing::Test {
protected:
    fs::path root, work, pkg, app;
    std::string savedMyName;

    void SetUp() override {
        char tmpl[] = "/tmp/pkglist-XXXXXX";
        root = mkdtemp(tmpl);
        work = root / "OrvelInstall";
        pkg = work / "pkg";
        app = root / "Orvel" / "pnzz";
        fs::create_directories(pkg);
        fs::create_directories(app);
        static std::string workText, name;
        workText = work.string();
        name = "pkgtest" + std::to_string(getpid());
        pOrvelInstallDir = workText.data();
        std::snprintf(AppDir, sizeof AppDir, "%s", app.c_str());
        my_name = name.data();
        flUseLog = 1;
        static bool resolved = false;
        if (!resolved) InitSysCmdList();
        resolved = true;
    }

    void TearDown() override {
        fs::remove_all(root);
        fs::remove(std::string("/tmp/") + my_name + ".log");
    }

    int Run(const std::string &list) {
        Write(pkg / "pkg.list", list);
        return ProcessPkgList("pkg");
    }
};

TEST_F(PkgListTest, CopiesFileWithCAndWithUnknownKeyword) {
    Write(pkg / "readme", "r\n");
    Write(pkg / "notes", "n\n");
    fs::permissions(pkg / "notes", fs::perms(0640));
    EXPECT_EQ(Run("c readme\ncopy notes\n"), 0);
    EXPECT_EQ(Slurp(app / "readme"), "r\n");
    EXPECT_EQ(Slurp(app / "notes"), "n\n");
    EXPECT_EQ(Mode(app / "notes"), 0640);  // cp -p keeps the mode
}

TEST_F(PkgListTest, MustExistSkipsMissingFile) {
    Write(app / "bin" / "tool", "t");
    fs::permissions(app / "bin" / "tool", fs::perms(0600));
    EXPECT_EQ(Run("m bin/tool mode 755\nm bin/absent mode 755\ns bin/tool owner root\n"), 0);
    EXPECT_EQ(Mode(app / "bin" / "tool"), 0755);
    EXPECT_FALSE(fs::exists(app / "bin" / "absent"));
}

TEST_F(PkgListTest, TreesTouchAndComments) {
    Write(pkg / "filters" / "a", "a");
    Write(pkg / "filters" / "sub" / "b", "b");
    fs::path elsewhere = root / "elsewhere";
    fs::create_directories(elsewhere);
    EXPECT_EQ(Run("dir filters\n\ndirto filters " + elsewhere.string() +
                  "\nt .stamp\n# c filters\n   \n"),
              0);
    EXPECT_EQ(Slurp(app / "filters" / "sub" / "b"), "b");
    EXPECT_EQ(Slurp(elsewhere / "filters" / "a"), "a");
    EXPECT_TRUE(fs::exists(app / ".stamp"));
}

TEST_F(PkgListTest, NewDirCreatesOnlyWhenAbsent) {
    fs::create_directories(app / "spool");
    fs::permissions(app / "spool", fs::perms(0700));
    EXPECT_EQ(Run("newdir spool mode 777\nnewdir cache mode 770\n"), 0);
    EXPECT_EQ(Mode(app / "spool"), 0700);  // existing: the whole line is skipped
    EXPECT_EQ(Mode(app / "cache"), 0770);  // created 775, then the attribute
}

TEST_F(PkgListTest, LeadingSedTakesRestOfLineLaterSedOneWord) {
    Write(pkg / "conf", "a b\n");
    Write(pkg / "conf2", "a\n");
    EXPECT_EQ(Run("c conf sed 's/a b/c d/'\nc conf2 mode 600 sed s/a/z/ mode 644\n"), 0);
    EXPECT_EQ(Slurp(app / "conf"), "c d\n");
    EXPECT_EQ(Slurp(app / "conf2"), "z\n");
    EXPECT_EQ(Mode(app / "conf2"), 0644);
    EXPECT_FALSE(fs::exists(std::string("/tmp/") + my_name + ".tmp"));
}

TEST_F(PkgListTest, NameIsNotFollowedByLaterPairs) {
    Write(pkg / "prog", "p");
    fs::permissions(pkg / "prog", fs::perms(0600));
    // The chmod still names prog, which is gone: a mode-2 failure ends the run.
    EXPECT_EXIT(Run("c prog name prog2 mode 755\n"), ::testing::ExitedWithCode(1), "");
    EXPECT_EQ(Run("c prog mode 755 name prog2\n"), 0);
    EXPECT_EQ(Mode(app / "prog2"), 0755);
    EXPECT_FALSE(fs::exists(app / "prog"));
}

TEST_F(PkgListTest, LinkAttributeAndPairsWithoutValue) {
    Write(pkg / "tool", "t");
    fs::path link = root / "tool-link";
    EXPECT_EQ(Run("c tool link " + link.string() + " bogus x mode\n"), 0);
    EXPECT_EQ(fs::read_symlink(link), app / "tool");
}

TEST_F(PkgListTest, ReleaseConditionKeepsItsTruthTable) {
    for (const char *f : {"lt", "le", "eq", "gt", "ge", "chain", "odd"}) Write(pkg / f, f);
    std::string r = Release();
    EXPECT_EQ(Run("v < ~ c lt\n"            // every release sorts before "~"
                  "v <= " + r + " c le\n"   // equal counts for <=
                  "v = " + r + " c eq\n"    // = never holds
                  "v > 0 c gt\n"            // > never holds
                  "v >= ~ c ge\n"           // >= always holds
                  "v >= 1 v < ~ c chain\n"  // conditions chain
                  "v != 1 c odd\n"),
              0);
    EXPECT_TRUE(fs::exists(app / "lt"));
    EXPECT_TRUE(fs::exists(app / "le"));
    EXPECT_FALSE(fs::exists(app / "eq"));
    EXPECT_FALSE(fs::exists(app / "gt"));
    EXPECT_TRUE(fs::exists(app / "ge"));
    EXPECT_TRUE(fs::exists(app / "chain"));
    EXPECT_FALSE(fs::exists(app / "odd"));
}

TEST_F(PkgListTest, OverlongLineDoesNotDisturbTheNext) {
    Write(pkg / "after", "a");
    std::string longName(3000, 'x');
    EXPECT_EQ(Run("c " + longName + " mode 600\nc after\n"), 0);
    EXPECT_EQ(Slurp(app / "after"), "a");
}

TEST_F(PkgListTest, LogHoldsTheCommandLines) {
    Write(pkg / "readme", "r");
    Run("c readme\n");
    std::string log = Slurp(std::string("/tmp/") + my_name + ".log");
    EXPECT_NE(log.find("/cp -p " + pkg.string() + "/readme " + app.string()), std::string::npos)
        << log;
}

// checkps: a stand-in process under a unique name, answered through stdin.
class CheckPsTest : public PkgListTest {
protected:
    pid_t standIn = -1;
    std::string processName;

    void StartStandIn() {
        processName = "ckps" + std::to_string(getpid() % 100000);
        fs::path bin = root / processName;
        fs::copy_file("/bin/sleep", bin);
        standIn = fork();
        if (standIn == 0) {
            execl(bin.c_str(), processName.c_str(), "300", static_cast<char *>(nullptr));
            _exit(127);
        }
        usleep(200000);
    }

    void TearDown() override {
        if (standIn > 0) {
            kill(standIn, SIGKILL);
            waitpid(standIn, nullptr, 0);
        }
        PkgListTest::TearDown();
    }

    void Answer(const std::string &text) {
        fs::path answers = root / "answers";
        Write(answers, text);
        ASSERT_NE(std::freopen(answers.c_str(), "r", stdin), nullptr);
    }
};

TEST_F(CheckPsTest, NotRunningGoesOnWithAttributes) {
    Write(app / "x", "x");
    EXPECT_EQ(Run("checkps nosuchprocess1,nosuchprocess2\nm x mode 700\n"), 0);
    EXPECT_EQ(Mode(app / "x"), 0700);
}

TEST_F(CheckPsTest, ChoiceTwoStopsTheList) {
    StartStandIn();
    Write(pkg / "after", "a");
    Answer("2\n");
    testing::internal::CaptureStdout();
    int result = Run("checkps " + processName + "\nc after\n");
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, 1);
    EXPECT_FALSE(fs::exists(app / "after"));
    EXPECT_NE(out.find("The installer can not continue until these terminate:\n" + processName + " ( " +
                       std::to_string(standIn) + " )\n"),
              std::string::npos)
        << out;
    EXPECT_NE(out.find("2.  Quit the installation\n\nEnter a selection:  "), std::string::npos);
}

TEST_F(CheckPsTest, OtherAnswersAskAgain) {
    StartStandIn();
    Answer("x\n2\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(Run("checkps " + processName + "\n"), 1);
    std::string out = testing::internal::GetCapturedStdout();
    size_t first = out.find("Would you like to:");
    EXPECT_NE(out.find("Would you like to:", first + 1), std::string::npos);
}

TEST(StripToBaseName, CutsPackageWordsAndTrailingSlash) {
    char a[] = "/opt/Orvel/pnzz/", b[] = "/opt/Orvel", c[] = "/usr/local/Orvel/pnzz", d[] = "/data/",
         e[] = "/";
    EXPECT_STREQ(StripToBaseName(a), "/opt");
    EXPECT_STREQ(StripToBaseName(b), "/opt");
    EXPECT_STREQ(StripToBaseName(c), "/usr/local");
    EXPECT_STREQ(StripToBaseName(d), "/data");
    EXPECT_STREQ(StripToBaseName(e), "/");
}

}  // namespace
