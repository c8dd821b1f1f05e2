// The package list as a package author writes it: every command and
// attribute carried out by a real installation inside the sandbox, the
// release conditions, malformed lists, and the wait for running filters.
#include <grp.h>
#include <pwd.h>
#include <sys/utsname.h>

#include <cstdio>
#include <ctime>

#include "E2e.h"
#include "Scripts.h"

namespace e2e {
namespace {

const std::string APP = "/opt/Orvel/pnzz";
const std::string WORK_PKG = "/tmp/OrvelInstall/pkg";

// The queue tool stand-in: records each call, so a test can tell whether the
// installer handed over to it.
const std::string PNQADMIN = "#!/bin/sh\necho \"$1\" >> `dirname $0`/pnqadmin.calls\n";

std::string Release() {
    struct utsname system {};
    uname(&system);
    return system.release;
}

// Where the installer finds a tool: its built-in directories, in order.
std::string Tool(const std::string &name) {
    for (const char *dir :
         {"/usr/bin", "/usr/ucb", "/usr/sbin", "/bin", "/sbin", "/usr/lib", "/usr/lib/print"}) {
        std::string path = std::string(dir) + "/" + name;
        if (access(path.c_str(), X_OK) == 0) return path;
    }
    return name;
}

// A command line as the log records it: the shell wrapper without its
// closing quote and without the redirections.
std::string Logged(const std::string &tool, const std::string &args, const std::string &text) {
    return Tool("sh") + " -c \"" + Tool(tool) + " " + args + " " + text;
}

bool HasLine(const std::string &log, const std::string &line) {
    std::istringstream in(log);
    for (std::string l; std::getline(in, l);)
        if (l == line) return true;
    return false;
}

size_t Count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++n;
    return n;
}

struct Owner {
    uid_t uid = static_cast<uid_t>(-1);
    gid_t gid = static_cast<gid_t>(-1);
};

Owner OwnerOf(const fs::path &path) {
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) return {};
    return {st.st_uid, st.st_gid};
}

uid_t Uid(const char *user) {
    return getpwnam(user)->pw_uid;
}
gid_t Gid(const char *group) {
    return getgrnam(group)->gr_gid;
}

class PkgListE2e : public E2eTest {
  protected:
    // A site of a package holding `files` and the pkg.list `list`, after a
    // first line that installs the recording queue tool.
    fs::path SiteOf(const std::string &list, std::map<std::string, std::string> files = {}) {
        files["pnqadmin"] = PNQADMIN;
        fs::path package = Package("package", "c pnqadmin mode 755\n" + list, files);
        return Site(package);
    }

    Outcome Install(const fs::path &site, std::vector<std::string> options = {},
                    const std::string &input = "") {
        options.insert(options.end(), {"-q", "-C", site.string()});
        return Rehearse(options, {(site / "setup").string()}, input);
    }
};

// ---- One installation that carries out every command and attribute

class CatalogueTest : public PkgListE2e {
  protected:
    static inline Outcome *catalogue = nullptr;
    static inline fs::path catalogueDir;

    static void TearDownTestSuite() {
        if (!catalogueDir.empty() &&
            ::testing::UnitTest::GetInstance()->current_test_suite()->Passed())
            fs::remove_all(catalogueDir);
    }

    // Run once for the whole fixture: each test reads its own lines' effect.
    const Outcome &Catalogue() {
        if (catalogue) return *catalogue;
        fs::path own = scratch;
        catalogueDir = scratch = own.string() + "-catalogue";
        fs::create_directories(scratch);
        std::string release = Release();
        std::string list =
            "# a comment line: c readme-never\n"
            "c readme\n"
            "copy other\n"
            "#x hashword\n"
            "c tool\n"
            "m tool mode 750\n"
            "m absent mode 755\n"
            "s tool owner daemon\n"
            "s absent2 owner daemon\n"
            "t empty mode 640\n"
            "dir tree owner daemon group bin\n"
            "newdir tree owner root\n"
            "newdir fresh mode 700\n"
            "dirto forms /var/spool/Orvel/pnzz\n"
            "c linked link /usr/bin/pnlinked\n"
            "c prog name prog2 link /usr/bin/pnold\n"
            "c conf sed 's/hello world/goodbye moon/'\n"
            "c page mode 600 sed s/@PAPER@/A4/\n"
            "c hello mode 755 bat pnhello\n"
            "checkps pnnotrunning,pnneither link /usr/bin/pncheck\n"
            "v <= " +
            release +
            " c vle\n"
            "v < " +
            release +
            " c vlt\n"
            "v < ~ c vtilde mode 600\n"
            "v >= 99 c vge\n"
            "v = " +
            release +
            " c veq\n"
            "v > 0 c vgt\n"
            "v != 0 c vne\n"
            "v >= 1 v < ~ c vchain\n"
            "v >= 1 v = " +
            release +
            " c vchainno\n"
            "v >= 1\n"
            "c last\n";
        std::map<std::string, std::string> files;
        for (const char *name :
             {"readme", "readme-never", "other", "hashword", "tool", "empty", "linked", "prog",
              "vle", "vlt", "vtilde", "vge", "veq", "vgt", "vne", "vchain", "vchainno", "last"})
            files[name] = std::string(name) + "\n";
        files["tree/top"] = "top\n";
        files["tree/sub/leaf"] = "leaf\n";
        files["forms/a.form"] = "form\n";
        files["conf"] = "hello world\nkeep\n";
        files["page"] = "paper @PAPER@\n";
        files["hello"] = "#!/bin/sh\necho \"hello in `pwd` from $PelnorFileSourceDir with $*\"\n";
        fs::path site = SiteOf(list, files);
        // The launcher is tried the way a user would, from another directory.
        // A known umask: the sed step leaves the temporary file's mode behind.
        std::string command = "umask 022; " + (site / "setup").string() +
                              "; s=$?; cd /var && /usr/bin/pnhello one two; exit $s";
        catalogue = new Outcome(Rehearse({"-q", "-C", site.string()}, {"/bin/sh", "-c", command}));
        scratch = own;
        return *catalogue;
    }

    std::string Log() { return Catalogue().Text("/tmp/setup.log"); }
};

TEST_F(CatalogueTest, InstallationCompletesAndHandsOverToTheQueueTool) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text(APP + "/pnqadmin.calls"), "-upgrade\n-clean\n");
    EXPECT_EQ(o.Text(APP + "/last"), "last\n");
}

TEST_F(CatalogueTest, CopyKeepsContentAndLogsItsCommandLine) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(o.Text(APP + "/readme"), "readme\n");
    EXPECT_TRUE(HasLine(Log(), Logged("cp", "-p", WORK_PKG + "/readme " + APP))) << Log();
}

TEST_F(CatalogueTest, UnknownKeywordCopiesLikeC) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(o.Text(APP + "/other"), "other\n");
    // "#" is a comment only as a word of its own.
    EXPECT_EQ(o.Text(APP + "/hashword"), "hashword\n");
    EXPECT_FALSE(o.Has(APP + "/readme-never"));
}

TEST_F(CatalogueTest, MustExistActsOnlyOnPresentFiles) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(o.Mode(APP + "/tool"), 0750);
    EXPECT_EQ(OwnerOf(o.At(APP + "/tool")).uid, Uid("daemon"));
    EXPECT_TRUE(HasLine(Log(), Logged("chmod", "", "750 " + APP + "/tool"))) << Log();
    EXPECT_EQ(Log().find("absent"), std::string::npos);
}

TEST_F(CatalogueTest, TouchCreatesAnEmptyFile) {
    const Outcome &o = Catalogue();
    EXPECT_TRUE(o.Has(APP + "/empty"));
    EXPECT_EQ(o.Text(APP + "/empty"), "");  // the package's own "empty" is not copied
    EXPECT_EQ(o.Mode(APP + "/empty"), 0640);
}

TEST_F(CatalogueTest, TreeCopiesAreOwnedRecursively) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(o.Text(APP + "/tree/sub/leaf"), "leaf\n");
    Owner leaf = OwnerOf(o.At(APP + "/tree/sub/leaf"));
    EXPECT_EQ(leaf.uid, Uid("daemon"));
    EXPECT_EQ(leaf.gid, Gid("bin"));
    EXPECT_TRUE(HasLine(Log(), Logged("chown", "", "-R daemon " + APP + "/tree"))) << Log();
    EXPECT_EQ(o.Text("/var/spool/Orvel/pnzz/forms/a.form"), "form\n");
}

TEST_F(CatalogueTest, NewdirOnAnExistingDirectoryChangesNothing) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(OwnerOf(o.At(APP + "/tree")).uid, Uid("daemon"));
    EXPECT_FALSE(HasLine(Log(), Logged("chown", "", "-R root " + APP + "/tree"))) << Log();
    struct stat st {};
    ASSERT_EQ(lstat(o.At(APP + "/fresh").c_str(), &st), 0);
    EXPECT_TRUE(S_ISDIR(st.st_mode));
    EXPECT_EQ(o.Mode(APP + "/fresh"), 0700);
}

TEST_F(CatalogueTest, LinkPointsAtThePackageFile) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(fs::read_symlink(o.At("/usr/bin/pnlinked")), APP + "/linked");
}

TEST_F(CatalogueTest, PairsAfterNameStillActOnTheOldName) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(o.Text(APP + "/prog2"), "prog\n");
    EXPECT_FALSE(o.Has(APP + "/prog"));
    EXPECT_TRUE(HasLine(Log(), Logged("mv", "-f", APP + "/prog " + APP + "/prog2"))) << Log();
    EXPECT_EQ(fs::read_symlink(o.At("/usr/bin/pnold")), APP + "/prog");
}

TEST_F(CatalogueTest, LeadingSedTakesTheRestOfTheLine) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(o.Text(APP + "/conf"), "goodbye moon\nkeep\n");
    // The caller's redirection of standard output is kept: sed's result goes
    // to the file, never into the log.
    EXPECT_TRUE(HasLine(
        Log(),
        Logged("sed", "", "'s/hello world/goodbye moon/' " + APP + "/conf > /tmp/setup.tmp")))
        << Log();
    EXPECT_EQ(Log().find("goodbye moon"), Log().rfind("goodbye moon"));  // only in the command line
    EXPECT_FALSE(o.Has("/tmp/setup.tmp"));
}

TEST_F(CatalogueTest, LaterSedTakesOneWord) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(o.Text(APP + "/page"), "paper A4\n");
    // Copied back with cp -p: the earlier mode 600 gives way to the
    // temporary file's; lists set the mode again on a later line.
    EXPECT_EQ(o.Mode(APP + "/page"), 0644);
    EXPECT_TRUE(
        HasLine(Log(), Logged("sed", "", "s/@PAPER@/A4/ " + APP + "/page > /tmp/setup.tmp")))
        << Log();
}

TEST_F(CatalogueTest, BatWritesAWorkingLauncher) {
    const Outcome &o = Catalogue();
    char banner[1024], body[1024];
    std::time_t now = std::time(nullptr);
    std::snprintf(banner, sizeof banner, ScriptCopyRight, std::localtime(&now)->tm_year + 1900);
    std::snprintf(body, sizeof body, SimpleScript, APP.c_str(), APP.c_str(), "hello");
    EXPECT_EQ(o.Text("/usr/bin/pnhello"), std::string(ScriptShShell) + "\n" + banner + body);
    EXPECT_EQ(o.Mode("/usr/bin/pnhello"), 0755);
    EXPECT_NE(o.out.find("hello in " + APP + " from /var with one two\n"), std::string::npos)
        << o.out;
}

TEST_F(CatalogueTest, CheckpsWithNothingRunningGoesOnWithItsAttributes) {
    const Outcome &o = Catalogue();
    EXPECT_EQ(fs::read_symlink(o.At("/usr/bin/pncheck")), APP + "/pnnotrunning,pnneither");
    EXPECT_EQ(o.out.find("The following processes are running"), std::string::npos);
}

TEST_F(CatalogueTest, ReleaseConditionsFollowTheirTruthTableAndChain) {
    const Outcome &o = Catalogue();
    EXPECT_TRUE(o.Has(APP + "/vle"));
    EXPECT_FALSE(o.Has(APP + "/vlt"));
    EXPECT_TRUE(o.Has(APP + "/vtilde"));
    EXPECT_EQ(o.Mode(APP + "/vtilde"), 0600);  // the rest of the line is a line of its own
    EXPECT_TRUE(o.Has(APP + "/vge"));          // on every release
    EXPECT_FALSE(o.Has(APP + "/veq"));         // even on this release
    EXPECT_FALSE(o.Has(APP + "/vgt"));
    EXPECT_FALSE(o.Has(APP + "/vne"));
    EXPECT_TRUE(o.Has(APP + "/vchain"));
    EXPECT_FALSE(o.Has(APP + "/vchainno"));
}

// ---- The program's name in its file names

class ProgramNameTest : public PkgListE2e {};

TEST_F(ProgramNameTest, SedWorksThroughATemporaryFileNamedAfterTheProgram) {
    fs::path site = SiteOf("c conf sed s/old/new/\n", {{"conf", "old\n"}});
    fs::create_symlink("setup", site / "inst");
    Outcome o = Rehearse({"-q", "-C", site.string()}, {(site / "inst").string()});
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text(APP + "/conf"), "new\n");
    EXPECT_TRUE(HasLine(o.Text("/tmp/inst.log"),
                        Logged("sed", "", "s/old/new/ " + APP + "/conf > /tmp/inst.tmp")))
        << o.Text("/tmp/inst.log");
    EXPECT_FALSE(o.Has("/tmp/inst.tmp"));
    EXPECT_FALSE(o.Has("/tmp/setup.tmp"));
}

// ---- Malformed lists

class BadListTest : public PkgListE2e {};

TEST_F(BadListTest, MalformedLinesAreSkippedAndTheInstallGoesOn) {
    std::string list =
        "\n   \n\t\t\n"
        "c dos mode 600\r\n"
        "c unknownattr colour blue mode 640\n"
        "c novalue mode\n"
        "c lastpair mode 600 owner\n"
        "c " +
        std::string(600, 'a') +
        "\n"
        "c " +
        std::string(5000, 'b') +
        "\n"
        "c last\n";
    fs::path site = SiteOf(list, {{"dos", "dos\n"},
                                  {"unknownattr", "u\n"},
                                  {"novalue", "n\n"},
                                  {"lastpair", "l\n"},
                                  {"last", "last\n"}});
    fs::permissions(scratch / "package/pkg/novalue", fs::perms(0644));
    Outcome o = Install(site);
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Mode(APP + "/dos"), 0600);
    EXPECT_EQ(o.Mode(APP + "/unknownattr"), 0640);
    EXPECT_EQ(o.Mode(APP + "/novalue"), 0644);
    EXPECT_EQ(o.Mode(APP + "/lastpair"), 0600);
    EXPECT_EQ(o.Text(APP + "/last"), "last\n");
    EXPECT_EQ(o.Text(APP + "/pnqadmin.calls"), "-upgrade\n-clean\n");
}

TEST_F(BadListTest, OverlongLineIsReadInPieces) {
    // The reader takes 510 characters at a time; what follows is a line of
    // its own.
    std::string list = "# " + std::string(507, 'x') + " c tail\nc last\n";
    fs::path site = SiteOf(list, {{"tail", "tail\n"}, {"last", "last\n"}});
    Outcome o = Install(site);
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text(APP + "/tail"), "tail\n");
    EXPECT_EQ(o.Text(APP + "/last"), "last\n");
}

TEST_F(BadListTest, MissingListEndsTheRunWithAnError) {
    fs::path site = SiteOf("c readme\n", {{"readme", "readme\n"}});
    // A medium without pkg.list: the archive made again without it.
    fs::remove(scratch / "package/pkg/pkg.list");
    std::string remake = "tar -c -f - -C " + (scratch / "package").string() +
                         " pkg | compress -f -c > " + (site / "pkg_tar.z1").string();
    ASSERT_EQ(Spawn({"/bin/sh", "-c", remake}, "", nullptr, nullptr, scratch), 0);
    Outcome o = Install(site);
    EXPECT_EQ(o.status, 1) << o.out << o.err;
    EXPECT_EQ(o.err, "ERROR: can't open file, " + WORK_PKG + "/pkg.list\n");
    EXPECT_FALSE(o.Has(APP + "/pnqadmin.calls"));
    EXPECT_TRUE(o.Has(WORK_PKG + "/readme"));  // no clean-up on the way out
}

// ---- Waiting for running programs

const std::string RUNNING =
    "\nThe following processes are running.\nThe installer can not continue until these "
    "terminate:\npnfilter (";
const std::string CHOICES =
    "Would you like to:\n1.  Wait 30 seconds for these processes to terminate\n"
    "2.  Quit the installation\n\nEnter a selection:  ";

class CheckpsTest : public PkgListE2e {
  protected:
    fs::path SiteWithCheck() {
        return SiteOf("c before\ncheckps pnfilter,pnspooler\nc after\n",
                      {{"before", "b\n"}, {"after", "a\n"}});
    }
};

TEST_F(CheckpsTest, QuitStopsTheListAndSkipsTheQueueTool) {
    Outcome o = Install(SiteWithCheck(), {"-p", "pnfilter"}, "x\n2\n");
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_NE(o.out.find(RUNNING), std::string::npos) << o.out;
    EXPECT_EQ(Count(o.out, CHOICES), 2u) << o.out;  // any other answer asks again
    EXPECT_EQ(o.out.find("pnspooler"), std::string::npos);
    EXPECT_TRUE(o.Has(APP + "/before"));
    EXPECT_FALSE(o.Has(APP + "/after"));
    EXPECT_FALSE(o.Has(APP + "/pnqadmin.calls"));
}

TEST_F(CheckpsTest, NoAnswerQuits) {
    Outcome o = Install(SiteWithCheck(), {"-p", "pnfilter"});
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(Count(o.out, CHOICES), 1u) << o.out;
    EXPECT_FALSE(o.Has(APP + "/after"));
    EXPECT_FALSE(o.Has(APP + "/pnqadmin.calls"));
}

TEST_F(CheckpsTest, WaitGoesOnOnceTheProgramEnds) {
    fs::path site = SiteWithCheck();
    std::string command =
        "cp /bin/sleep /run/pnfilter && (/run/pnfilter 12 &) ; exec " + (site / "setup").string();
    Outcome o = Rehearse({"-q", "-C", site.string()}, {"/bin/sh", "-c", command}, "1\n");
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_NE(o.out.find(RUNNING), std::string::npos) << o.out;
    EXPECT_EQ(Count(o.out, CHOICES), 1u) << o.out;
    EXPECT_EQ(o.Text(APP + "/after"), "a\n");
    EXPECT_EQ(o.Text(APP + "/pnqadmin.calls"), "-upgrade\n-clean\n");
}

}  // namespace
}  // namespace e2e
