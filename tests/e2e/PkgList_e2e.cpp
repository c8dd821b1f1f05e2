// The package list as a package author writes it: every command and attribute,
// malformed lists, and the wait for running filters, in real installations.
#include <grp.h>
#include <pwd.h>
#include <sys/utsname.h>

#include <regex>

#include "E2e.h"

namespace e2e {
namespace {

const std::string APP = "/opt/Orvel/pnzz";
constexpr size_t npos = std::string::npos;

class PkgListTest : public E2eTest {
  protected:
    // A site of a package holding `files`, the files `named` holding their
    // name, and the pkg.list `list` after a line that installs the queue tool.
    fs::path SiteOf(const std::string &list, std::initializer_list<std::string> named,
                    std::map<std::string, std::string> files = {}) {
        for (const std::string &name : named) files[name] = name + "\n";
        files["pnqadmin"] = kQueueTool;
        return Medium(Package("package", "c pnqadmin mode 755\n" + list, files), {"--site"});
    }
};

TEST_F(PkgListTest, EveryCommandAndAttributeActsAsWritten) {
    std::string list = R"(# a comment line: c readme-never
c readme
copy other
#x hashword
c tool
m tool mode 750
m absent mode 755
s tool owner daemon
t empty mode 640
dir tree owner daemon group bin
newdir tree owner root
newdir fresh mode 700
dirto forms /var/spool/Orvel/pnzz
c linked link /usr/bin/pnlinked
c prog name prog2 link /usr/bin/pnold
c conf sed 's/hello world/goodbye moon/'
c page mode 600 sed s/@PAPER@/A4/
c hello mode 755 bat pnhello
checkps pnnotrunning,pnneither link /usr/bin/pncheck
v <= @R c vle
v < @R c vlt
v < ~ c vtilde mode 600
v >= 99 c vge
v = @R c veq
v > 0 c vgt
v != 0 c vne
v >= 1 v < ~ c vchain
v >= 1 v = @R c vchainno
v >= 1
c last
)";
    struct utsname system {};
    uname(&system);
    fs::path site = SiteOf(
        std::regex_replace(list, std::regex("@R"), system.release),
        {"readme", "readme-never", "other",    "hashword", "tool",          "empty",       "linked",
         "prog",   "vle",          "vlt",      "vtilde",   "vge",           "veq",         "vgt",
         "vne",    "vchain",       "vchainno", "last",     "tree/sub/leaf", "forms/a.form"},
        {{"conf", "hello world\nkeep\n"},
         {"page", "paper @PAPER@\n"},
         {"hello", "#!/bin/sh\necho \"hello in `pwd` from $PelnorFileSourceDir with $*\"\n"}});
    // The launcher is tried as a user would, from another directory. A known
    // umask: the sed step leaves the temporary file's mode behind.
    Outcome o =
        Shell({"-q", "-C", site.string()}, "umask 022; " + (site / "setup").string() +
                                               "; s=$?; cd /var && pnhello one two; exit $s");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text(APP + "/pnqadmin.calls"), "-upgrade\n-clean\n");
    // An unknown keyword copies like c; "#" comments only as a word of its own;
    // m and s act only on files that are there; pairs after `name` act on the
    // old name; the rest of a `v` line is a line of its own.
    for (const char *name :
         {"readme", "other", "hashword", "last", "vle", "vtilde", "vge", "vchain"})
        EXPECT_TRUE(o.Has(APP + "/" + name)) << name;
    for (const char *name : {"readme-never", "prog", "vlt", "veq", "vgt", "vne", "vchainno"})
        EXPECT_FALSE(o.Has(APP + "/" + name)) << name;
    // page: copied back with cp -p, the earlier mode 600 gives way to the
    // temporary file's.
    const std::pair<const char *, int> modes[] = {
        {"tool", 0750}, {"empty", 0640}, {"fresh", 0700}, {"page", 0644}, {"vtilde", 0600}};
    for (const auto &[name, mode] : modes) EXPECT_EQ(o.Mode(APP + "/" + name), mode) << name;
    EXPECT_TRUE(S_ISDIR(o.Stat(APP + "/fresh").st_mode));
    EXPECT_EQ(o.Text(APP + "/empty"), "");  // t makes it; the package's own is not copied
    EXPECT_EQ(o.Stat(APP + "/tool").st_uid, getpwnam("daemon")->pw_uid);
    EXPECT_EQ(o.Stat(APP + "/tree/sub/leaf").st_uid, getpwnam("daemon")->pw_uid);
    EXPECT_EQ(o.Stat(APP + "/tree/sub/leaf").st_gid, getgrnam("bin")->gr_gid);
    EXPECT_EQ(o.Text("/var/spool/Orvel/pnzz/forms/a.form"), "forms/a.form\n");
    EXPECT_EQ(o.Text(APP + "/prog2"), "prog\n");
    EXPECT_EQ(o.Link("/usr/bin/pnlinked"), APP + "/linked");
    EXPECT_EQ(o.Link("/usr/bin/pnold"), APP + "/prog");
    EXPECT_EQ(o.Link("/usr/bin/pncheck"), APP + "/pnnotrunning,pnneither");
    // A leading sed takes the rest of the line, a later one a word; sed's
    // result goes to the file, never into the log.
    EXPECT_EQ(o.Text(APP + "/conf"), "goodbye moon\nkeep\n");
    EXPECT_EQ(o.Text(APP + "/page"), "paper A4\n");
    EXPECT_FALSE(o.Has("/tmp/setup.tmp"));
    std::string log = o.Text("/tmp/setup.log"), sh = "/usr/bin/sh -c \"/usr/bin/";
    for (const std::string &line :
         {sh + "cp -p /tmp/OrvelInstall/pkg/readme " + APP + "\n",
          sh + "chown  -R daemon " + APP + "/tree\n",
          sh + "mv -f " + APP + "/prog " + APP + "/prog2\n",
          sh + "sed  's/hello world/goodbye moon/' " + APP + "/conf > /tmp/setup.tmp\n",
          sh + "sed  s/@PAPER@/A4/ " + APP + "/page > /tmp/setup.tmp\n"})
        EXPECT_NE(log.find(line), npos) << line << log;
    EXPECT_EQ(log.find("goodbye moon"), log.rfind("goodbye moon"));
    EXPECT_EQ(log.find("absent"), npos);
    EXPECT_EQ(log.find(sh + "chown  -R root"), npos);  // newdir on a directory that is there
    ExpectScript(o, "/usr/bin/pnhello", Fill(SimpleScript, APP.c_str(), APP.c_str(), "hello"));
    EXPECT_NE(o.out.find("hello in " + APP + " from /var with one two\n"), npos) << o.out;
}

TEST_F(PkgListTest, MalformedLinesAreSkippedAndTheInstallGoesOn) {
    // The reader takes 510 characters at a time; what follows is a line of its own.
    std::string list =
        "\n   \n\t\t\nc dos mode 600\r\nc unknownattr colour blue mode 640\n"
        "c novalue mode\nc lastpair mode 600 owner\nc " +
        std::string(600, 'a') + "\nc " + std::string(5000, 'b') + "\n# " + std::string(507, 'x') +
        " c tail\nc last\n";
    fs::path site = SiteOf(list, {"dos", "unknownattr", "novalue", "lastpair", "tail", "last"});
    fs::permissions(scratch / "package/pkg/novalue", fs::perms(0644));
    Outcome o = Rehearse({"-q", "-C", site.string()}, {(site / "setup").string()});
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    const std::pair<const char *, int> modes[] = {
        {"dos", 0600}, {"unknownattr", 0640}, {"novalue", 0644}, {"lastpair", 0600}};
    for (const auto &[name, mode] : modes) EXPECT_EQ(o.Mode(APP + "/" + name), mode) << name;
    EXPECT_TRUE(o.Has(APP + "/tail") && o.Has(APP + "/last"));
    EXPECT_EQ(o.Text(APP + "/pnqadmin.calls"), "-upgrade\n-clean\n");
}

// Waiting for running programs: any answer but 1 or 2 asks again.
TEST_F(PkgListTest, CheckpsWaitsForTheProgramOrStopsTheList) {
    const std::string running =
        "\nThe following processes are running.\nThe installer can not continue until these "
        "terminate:\npnfilter (";
    const std::string choices =
        "Would you like to:\n1.  Wait 30 seconds for these processes to terminate\n"
        "2.  Quit the installation\n\nEnter a selection:  ";
    fs::path site = SiteOf("c before\ncheckps pnfilter,pnspooler\nc after\n", {"before", "after"});
    Outcome o = Rehearse({"-q", "-C", site.string(), "-p", "pnfilter"}, {(site / "setup").string()},
                         "x\n2\n");
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_NE(o.out.find(running), npos) << o.out;
    EXPECT_EQ(Count(o.out, choices), 2u) << o.out;
    EXPECT_EQ(o.out.find("pnspooler"), npos);
    EXPECT_TRUE(o.Has(APP + "/before"));
    EXPECT_FALSE(o.Has(APP + "/after"));
    EXPECT_FALSE(o.Has(APP + "/pnqadmin.calls"));
    o = Shell(
        {"-q", "-C", site.string()},
        "cp /bin/sleep /run/pnfilter && (/run/pnfilter 12 &) ; exec " + (site / "setup").string(),
        "1\n");
    EXPECT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(Count(o.out, choices), 1u) << o.out;
    EXPECT_EQ(o.Text(APP + "/after"), "after\n");
    EXPECT_EQ(o.Text(APP + "/pnqadmin.calls"), "-upgrade\n-clean\n");
}

}  // namespace
}  // namespace e2e
