// Installing from an installation site as an administrator does: the demo
// package into /opt, another base and the /opt link, an earlier installation
// found through its launcher, a user who is not root, the clean-up choices,
// running daemons, and a site whose archive is damaged.
#include <grp.h>
#include <pwd.h>

#include <cstdio>
#include <ctime>
#include <regex>
#include <set>

#include "E2e.h"
#include "Scripts.h"

namespace e2e {
namespace {

constexpr const char *APP = "/opt/Orvel/pnzz";
constexpr const char *SPOOL = "/var/spool/Orvel/pnzz";

// A queue tool that only records how it was called, next to itself.
constexpr const char *RECORDING_QUEUE_TOOL =
    "#!/bin/sh\necho \"$1\" >> `dirname $0`/pnqadmin.calls\n";

template <typename... Args>
std::string Fill(const char *tmpl, Args... args) {
    int size = std::snprintf(nullptr, 0, tmpl, args...);
    std::string text(static_cast<size_t>(size) + 1, '\0');
    std::snprintf(text.data(), text.size(), tmpl, args...);
    text.resize(static_cast<size_t>(size));
    return text;
}

int ThisYear() {
    std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    return local.tm_year + 1900;
}

// The shell line, a five-line banner 63 columns wide naming this year, two
// empty lines, then exactly `body`; executable by everyone.
void ExpectScript(const Outcome &o, const std::string &path, const std::string &body) {
    SCOPED_TRACE(path);
    EXPECT_EQ(o.Mode(path), 0755);
    std::string text = o.Text(path);
    const std::string shell = "#!/bin/sh\n";
    ASSERT_EQ(text.compare(0, shell.size(), shell), 0) << text;
    std::istringstream in(text.substr(shell.size()));
    std::string line[5];
    for (std::string &l : line) std::getline(in, l);
    const std::string rule(63, '#'), side = "#" + std::string(61, ' ') + "#";
    EXPECT_EQ(line[0], rule);
    EXPECT_EQ(line[1], side);
    EXPECT_EQ(line[2].size(), 63u);
    EXPECT_EQ(line[2].front(), '#');
    EXPECT_EQ(line[2].back(), '#');
    EXPECT_NE(line[2].find(std::to_string(ThisYear())), std::string::npos) << line[2];
    EXPECT_EQ(line[3], side);
    EXPECT_EQ(line[4], rule);
    size_t bannerEnd = shell.size() + 5 * 64;
    ASSERT_GE(text.size(), bannerEnd + 2);
    EXPECT_EQ(text.substr(bannerEnd, 2), "\n\n");
    EXPECT_EQ(text.substr(bannerEnd + 2), body);
}

std::string LinkTarget(const Outcome &o, const std::string &path) {
    std::error_code ec;
    return fs::read_symlink(o.At(path), ec).string();
}

bool IsDirectory(const Outcome &o, const std::string &path) {
    return fs::is_directory(fs::symlink_status(o.At(path)));
}

uid_t OwnerOf(const Outcome &o, const std::string &path) {
    struct stat st {};
    return lstat(o.At(path).c_str(), &st) == 0 ? st.st_uid : static_cast<uid_t>(-1);
}

gid_t GroupOf(const Outcome &o, const std::string &path) {
    struct stat st {};
    return lstat(o.At(path).c_str(), &st) == 0 ? st.st_gid : static_cast<gid_t>(-1);
}

// ---------------------------------------------------------------------------
// The demo package installed from a site into the default /opt. One run is
// shared by every test of this fixture: each looks at one part of its result.

class DemoSiteTest : public E2eTest {
  protected:
    static inline fs::path suiteScratch;
    static inline std::string site;
    static inline Outcome *demo = nullptr;

    static void TearDownTestSuite() {
        if (!suiteScratch.empty() && !::testing::UnitTest::GetInstance()->Failed())
            fs::remove_all(suiteScratch);
        delete demo;
        demo = nullptr;
    }

    // The scratch of the first test would be removed with it: the shared run
    // lives in a directory of its own.
    const Outcome &Demo() {
        if (!demo) {
            std::string tmpl = std::string(SCRATCH_DIR) + "/demo-XXXXXX";
            suiteScratch = mkdtemp(tmpl.data());
            fs::path own = scratch;
            scratch = suiteScratch;
            site = Site(DEMO_DIR).string();
            demo = new Outcome(Rehearse({}, {site + "/setup"}));
            scratch = own;
        }
        return *demo;
    }

    std::string App(const std::string &name) const { return std::string(APP) + "/" + name; }
};

TEST_F(DemoSiteTest, PackageDirectoryHoldsTheListedFilesWithTheirModes) {
    const Outcome &o = Demo();
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_TRUE(IsDirectory(o, APP));
    EXPECT_EQ(o.Mode(APP), 0775);
    const std::map<std::string, int> modes{
        {"PelnorD", 0755},   {"PelnorDStop", 0755}, {"OvPn", 0755},    {"pnqadmin", 0755},
        {"queues.db", 0664}, {"kvt", 0755},         {"pnprint", 0755}, {"README", 0444},
        {"pnzz.conf", 0644}, {"testpage.ps", 0444}, {"doc", 0755},     {"log", 0775}};
    for (const auto &[name, mode] : modes) EXPECT_EQ(o.Mode(App(name)), mode) << name;
    EXPECT_EQ(o.Text(App("README")), Slurp(fs::path(DEMO_DIR) / "pkg" / "README"));
    EXPECT_TRUE(o.Has(App("doc/pnzz.txt")));
    // `name` renamed the settings template to its final name.
    EXPECT_FALSE(o.Has(App("pnzz.conf.in")));

    const group *lp = getgrnam("lp");
    const passwd *lpUser = getpwnam("lp");
    ASSERT_TRUE(lp && lpUser);
    EXPECT_EQ(GroupOf(o, App("PelnorD")), lp->gr_gid);
    EXPECT_EQ(OwnerOf(o, App("queues.db")), lpUser->pw_uid);
    EXPECT_EQ(OwnerOf(o, App("log")), lpUser->pw_uid);
}

TEST_F(DemoSiteTest, SedEditsReachTheInstalledFiles) {
    const Outcome &o = Demo();
    std::string conf = o.Text(App("pnzz.conf"));
    EXPECT_NE(conf.find("SpoolDir=/var/spool/Orvel/pnzz\n"), std::string::npos) << conf;
    EXPECT_NE(conf.find("Interval=5\n"), std::string::npos) << conf;
    std::string page = o.Text(App("testpage.ps"));
    EXPECT_EQ(page.find("@PAPER@"), std::string::npos);
    EXPECT_NE(page.find("A4"), std::string::npos);
}

TEST_F(DemoSiteTest, MarkersSpoolDirectoriesAndTheDefaultFlagAreCreated) {
    const Outcome &o = Demo();
    EXPECT_TRUE(o.Has(App(".PrintError")));
    EXPECT_EQ(o.Mode(App(".PrintError")), 0666);
    EXPECT_EQ(o.Text(App(".pn_cfg")), " V5 ");
    EXPECT_EQ(o.Mode(App(".pn_cfg")), 0644);
    EXPECT_EQ(o.Mode("/var/spool/Orvel"), 0775);
    EXPECT_EQ(o.Mode(SPOOL), 0775);
    EXPECT_EQ(o.Mode(std::string(SPOOL) + "/__pna_download__"), 0777);
    EXPECT_TRUE(o.Has(std::string(SPOOL) + "/forms/plain.frm"));
    EXPECT_EQ(LinkTarget(o, "/var/log/pelnorpnzz"), App("log"));
}

TEST_F(DemoSiteTest, InterfaceScriptsAreTheTemplatesFilledForThePackage) {
    const Outcome &o = Demo();
    ExpectScript(o, App("OrvelPrintpnzz"),
                 Fill(OrvelPrintpnzzScript, APP, "pnzz", "pelnorpnzz", "pelnorpnzz", "pnzz", "pnzz",
                      "pnzz"));
    ExpectScript(o, App("OrvelKVT"), Fill(OrvelKVTScript, APP, SPOOL));
    const group *lp = getgrnam("lp");
    ASSERT_TRUE(lp);
    EXPECT_EQ(GroupOf(o, App("OrvelKVT")), lp->gr_gid);  // the list's own lines reach them
}

TEST_F(DemoSiteTest, LaunchersInUsrBinChangeIntoThePackageDirectory) {
    const Outcome &o = Demo();
    ExpectScript(o, "/usr/bin/pelnorprint", Fill(SimpleScript, APP, APP, "pnprint"));
    ExpectScript(o, "/usr/bin/pelnorstat", Fill(SimpleScript, APP, APP, "pnstat"));
    EXPECT_NE(o.Text("/usr/bin/pelnorprint").find("\ncd /opt/Orvel/pnzz\n"), std::string::npos);
}

TEST_F(DemoSiteTest, QueueToolUpgradesThenCleansUp) {
    const Outcome &o = Demo();
    std::string log = o.Text(App("log/pnqadmin.log"));
    size_t upgrade = log.find("pnqadmin -upgrade: ");
    size_t clean = log.find("pnqadmin -clean: ");
    ASSERT_NE(upgrade, std::string::npos) << log;
    ASSERT_NE(clean, std::string::npos) << log;
    EXPECT_LT(upgrade, clean);
    EXPECT_EQ(LinkTarget(o, "/etc/rc2.d/SOrvelPrintD"), App("OrvelPrintD"));
}

TEST_F(DemoSiteTest, WorkCopiesAreRemovedAndTheRunEndsWithZero) {
    const Outcome &o = Demo();
    EXPECT_EQ(o.status, 0);
    EXPECT_EQ(o.err, "");
    EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));
    EXPECT_FALSE(o.Has("/tmp/setup"));
    EXPECT_FALSE(o.Has("/tmp/setup.hlp"));
    EXPECT_FALSE(o.Has("/tmp/SGIPnzz.tar.Z"));
    EXPECT_FALSE(o.Has("/tmp/setup.tmp"));
    // Only progress dots, then the newline of the clean-up.
    EXPECT_TRUE(std::regex_match(o.out, std::regex("\\.+\n"))) << o.out;
}

TEST_F(DemoSiteTest, LogHoldsEachCommandLine) {
    const Outcome &o = Demo();
    EXPECT_EQ(o.Mode("/tmp/setup.log"), 0666);
    std::string log = o.Text("/tmp/setup.log");
    for (const std::string &line :
         {"/usr/bin/sh -c \"/usr/bin/cp -p " + site + "/pkg_tar.z1 /tmp/OrvelInstall\n",
          std::string("/usr/bin/sh -c \"/usr/bin/uncompress  /tmp/OrvelInstall/SGIPnzz.tar.Z\n"),
          std::string("/usr/bin/sh -c \"/usr/bin/tar xvfp /tmp/OrvelInstall/SGIPnzz.tar\n"),
          std::string("/usr/bin/sh -c \"/usr/bin/cp -p /tmp/OrvelInstall/pkg/PelnorD "
                      "/opt/Orvel/pnzz\n"),
          std::string("/usr/bin/sh -c \"/usr/bin/sed  -e 's|@SPOOLDIR@|/var/spool/Orvel/pnzz|' "
                      "-e 's|@INTERVAL@|5|' /opt/Orvel/pnzz/pnzz.conf > /tmp/setup.tmp\n"),
          std::string(
              "/usr/bin/sh -c \"/usr/bin/ln  -s /opt/Orvel/pnzz/log /var/log/pelnorpnzz\n")})
        EXPECT_NE(log.find(line), std::string::npos) << line;
    // tar's listing went to the log with its command.
    EXPECT_NE(log.find("\npkg/pkg.list\n"), std::string::npos);
}

// ---------------------------------------------------------------------------
// Small packages, one run per test.

class SiteInstallTest : public E2eTest {
  protected:
    // A site of a package with one file and a recording queue tool, plus `more` lines.
    std::string SmallSite(const std::string &more = "") {
        fs::path pkg = Package("small", "c readme mode 644\nc pnqadmin mode 755\n" + more,
                               {{"readme", "small package\n"}, {"pnqadmin", RECORDING_QUEUE_TOOL}});
        return Site(pkg).string();
    }

    // Runs a shell line inside the sandbox, ending with the site's setup.
    Outcome Shell(const std::vector<std::string> &options, const std::string &line) {
        return Rehearse(options, {"/bin/sh", "-c", line});
    }
};

TEST_F(SiteInstallTest, ConfigFlagNamesTheSpoolerFoundAndCupsWinsOverLprng) {
    std::string site = SmallSite();
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--lprng"}, " LPRng "}, {{"--cupsd"}, " CUPS "}, {{"--lprng", "--cupsd"}, " CUPS "}};
    for (const auto &[peers, flag] : cases) {
        Outcome o = Rehearse(peers, {site + "/setup"});
        EXPECT_EQ(o.status, 0) << o.out << o.err;
        EXPECT_EQ(o.Text("/opt/Orvel/pnzz/.pn_cfg"), flag) << peers.size();
    }
}

TEST_F(SiteInstallTest, OtherBaseIsLinkedAsOptOrvelWhenNothingIsThere) {
    std::string site = SmallSite();
    Outcome o = Shell({}, "rm -rf /opt/Orvel && exec " + site + "/setup install /usr/local");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text("/usr/local/Orvel/pnzz/readme"), "small package\n");
    EXPECT_EQ(LinkTarget(o, "/opt/Orvel"), "/usr/local/Orvel");
    EXPECT_EQ(o.Text("/usr/local/Orvel/pnzz/pnqadmin.calls"), "-upgrade\n-clean\n");
}

TEST_F(SiteInstallTest, OtherBaseIsLinkedAsOptOrvelPnzzWhenOptOrvelIsADirectory) {
    std::string site = SmallSite();
    Outcome o = Shell({}, "mkdir -p /opt/Orvel && exec " + site + "/setup install /usr/local");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_TRUE(o.Has("/usr/local/Orvel/pnzz/readme"));
    EXPECT_TRUE(IsDirectory(o, "/opt/Orvel"));
    EXPECT_EQ(LinkTarget(o, "/opt/Orvel/pnzz"), "/usr/local/Orvel/pnzz");
}

TEST_F(SiteInstallTest, OtherBaseGetsNoLinkOverAPlainOptOrvelFile) {
    std::string site = SmallSite();
    Outcome o = Shell({}, "mkdir -p /opt && echo mine > /opt/Orvel && exec " + site +
                              "/setup install /usr/local/Orvel/pnzz/");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_TRUE(o.Has("/usr/local/Orvel/pnzz/readme"));  // the package path named the base
    EXPECT_TRUE(fs::is_regular_file(fs::symlink_status(o.At("/opt/Orvel"))));
    EXPECT_EQ(o.Text("/opt/Orvel"), "mine\n");
    EXPECT_EQ(o.report.find("/opt/Orvel/pnzz"), std::string::npos) << o.report;
}

TEST_F(SiteInstallTest, EarlierLauncherChoosesTheBase) {
    std::string site = SmallSite();
    Outcome o = Shell({},
                      "printf '#!/bin/sh\\ncd /srv/base/Orvel/pnzz\\nexec ./pnprint\\n' "
                      "> /usr/bin/pelnorprint && exec " +
                          site + "/setup");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text("/srv/base/Orvel/pnzz/readme"), "small package\n");
    EXPECT_EQ(o.Text("/srv/base/Orvel/pnzz/pnqadmin.calls"), "-upgrade\n-clean\n");
    EXPECT_FALSE(IsDirectory(o, "/opt/Orvel/pnzz"));
}

TEST_F(SiteInstallTest, NonRootUserIsToldToBecomeRootInItsLanguage) {
    // The sandbox's user must reach the program and the site, wherever the
    // build tree lies: the site is copied to a directory anyone can enter.
    std::string tmpl = "/var/tmp/setup-e2e-XXXXXX";
    fs::path shared = mkdtemp(tmpl.data());
    fs::permissions(shared, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                                fs::perms::others_read | fs::perms::others_exec);
    fs::copy(SmallSite(), shared / "site", fs::copy_options::recursive);
    std::string site = (shared / "site").string();
    struct RemoveOnExit {
        fs::path dir;
        ~RemoveOnExit() { fs::remove_all(dir); }
    } cleanup{shared};
    const std::string english = "nobody is logged in\nYou must become root to run setup\n";
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--unset", "LANG"}, english},
        {{"-e", "LANG=en_US"}, english},
        {{"-e", "LANG=en_US.UTF-8"}, english},
        {{"-e", "LANG=fr_FR"}, "nobody est connecté\nVous devez être root pour exécuter setup\n"}};
    for (const auto &[lang, message] : cases) {
        std::vector<std::string> options{"-u", "nobody"};
        options.insert(options.end(), lang.begin(), lang.end());
        Outcome o = Rehearse(options, {site + "/setup"});
        SCOPED_TRACE(lang.back());
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_NE(o.out.find(message), std::string::npos) << o.out;
        EXPECT_FALSE(o.Has("/opt/Orvel"));
        EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));  // the copying was done, then cleaned up
        EXPECT_NE(o.Text("/tmp/setup.log").find("/pkg_tar.z1 /tmp/OrvelInstall\n"),
                  std::string::npos);
    }
}

TEST_F(SiteInstallTest, ManualKeepsTheWorkDirectoryAndSkipsTheQueueToolCleanUp) {
    std::string site = SmallSite();
    Outcome o = Rehearse({}, {site + "/setup", "manual"});
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_TRUE(o.Has("/opt/Orvel/pnzz/readme"));
    EXPECT_TRUE(o.Has("/tmp/OrvelInstall/pkg/pkg.list"));
    EXPECT_EQ(o.Text("/opt/Orvel/pnzz/pnqadmin.calls"), "-upgrade\n");
}

TEST_F(SiteInstallTest, StandAloneMarkersSuppressTheCleanUp) {
    for (const std::string marker : {".StandAlone", ".StandAloneDb"}) {
        SCOPED_TRACE(marker);
        fs::path pkg = Package("marked" + marker, "c pnqadmin mode 755\nt " + marker + "\n",
                               {{"pnqadmin", RECORDING_QUEUE_TOOL}});
        Outcome o = Rehearse({}, {Medium(pkg, {"--site"}, "site" + marker).string() + "/setup"});
        EXPECT_EQ(o.status, 0) << o.out << o.err;
        EXPECT_TRUE(o.Has("/opt/Orvel/pnzz/" + marker));
        EXPECT_TRUE(o.Has("/tmp/OrvelInstall/pkg/pkg.list"));
        EXPECT_EQ(o.Text("/opt/Orvel/pnzz/pnqadmin.calls"), "-upgrade\n");
    }
}

// Daemon processes that run (not zombies waiting to be reaped) in a ps listing.
int RunningDaemons(const std::string &listing) {
    std::istringstream ps(listing);
    int running = 0;
    for (std::string stat, comm; ps >> stat >> comm;)
        if ((comm == "PelnorD" || comm == "PND") && stat[0] != 'Z') ++running;
    return running;
}

TEST_F(SiteInstallTest, EveryRunningDaemonIsKilledAndReported) {
    std::string site = SmallSite();
    Outcome o = Shell({"-p", "PelnorD", "-p", "PelnorD", "-p", "PND"},
                      "ps -e -o stat=,comm= > /tmp/before.ps; " + site +
                          "/setup; s=$?; ps -e -o stat=,comm= > /tmp/after.ps; exit $s");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    std::regex killed("killed PelnorD ([0-9]+)\n");
    std::set<std::string> pids;
    for (auto m = std::sregex_iterator(o.out.begin(), o.out.end(), killed);
         m != std::sregex_iterator(); ++m)
        pids.insert((*m)[1]);
    EXPECT_EQ(pids.size(), 3u) << o.out;  // the short name PND is reported alike
    EXPECT_EQ(RunningDaemons(o.Text("/tmp/before.ps")), 3);
    EXPECT_EQ(RunningDaemons(o.Text("/tmp/after.ps")), 0);
    EXPECT_TRUE(o.Has("/opt/Orvel/pnzz/readme"));
}

TEST_F(SiteInstallTest, DamagedArchiveEndsWithAnErrorAndStatusOne) {
    std::string site = SmallSite();
    std::string garbage(4096, '\0');
    for (size_t i = 0; i < garbage.size(); ++i) garbage[i] = static_cast<char>(i * 7 + 13);
    Write(fs::path(site) / "pkg_tar.z1", garbage);
    // A hang would be cut off here and show as 124.
    Outcome o = Rehearse({}, {"/usr/bin/timeout", "60", site + "/setup"});
    EXPECT_EQ(o.status, 1) << o.out << o.err;
    EXPECT_TRUE(std::regex_search(o.out, std::regex("\\.ERROR: [^\n]+\n$"))) << o.out;
    EXPECT_FALSE(o.Has("/opt/Orvel"));
    EXPECT_FALSE(o.Has("/usr/bin/pelnorprint"));
    EXPECT_NE(o.Text("/tmp/setup.log").find("\nERROR: "), std::string::npos);
}

}  // namespace
}  // namespace e2e
