// Installing from a site: the demo package into /opt, other bases, a user who
// is not root, the clean-up choices, running daemons, a damaged archive.
#include <grp.h>
#include <pwd.h>

#include "E2e.h"

namespace e2e {
namespace {

const std::string APP = "/opt/Orvel/pnzz";
const std::string SPOOL = "/var/spool/Orvel/pnzz";

class SiteInstallTest : public E2eTest {
  protected:
    // A site of a package with one file and the recording queue tool, plus `more` lines.
    std::string SmallSite(const std::string &more = "", const std::string &name = "small") {
        fs::path pkg = Package(name, "c readme mode 644\nc pnqadmin mode 755\n" + more,
                               {{"readme", "small package\n"}, {"pnqadmin", kQueueTool}});
        return Medium(pkg, {"--site"}, name + "-site").string();
    }
};

TEST_F(SiteInstallTest, DemoPackageFillsOptAndCleansUpAfterItself) {
    std::string site = Medium(DEMO_DIR, {"--site"}).string();
    Outcome o = Rehearse({}, {site + "/setup"});
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.err, "");
    EXPECT_TRUE(std::regex_match(o.out, std::regex("\\.+\n"))) << o.out;  // progress dots only
    EXPECT_EQ(o.Mode(APP), 0775);
    const std::pair<const char *, int> modes[] = {
        {"PelnorD", 0755}, {"queues.db", 0664},   {"README", 0444}, {"pnzz.conf", 0644},
        {"log", 0775},     {".PrintError", 0666}, {".pn_cfg", 0644}};
    for (const auto &[name, mode] : modes) EXPECT_EQ(o.Mode(APP + "/" + name), mode) << name;
    EXPECT_EQ(o.Mode("/var/spool/Orvel"), 0775);
    EXPECT_EQ(o.Mode(SPOOL), 0775);
    EXPECT_EQ(o.Mode(SPOOL + "/__pna_download__"), 0777);
    EXPECT_FALSE(o.Has(APP + "/pnzz.conf.in"));  // renamed by `name`
    EXPECT_EQ(o.Stat(APP + "/PelnorD").st_gid, getgrnam("lp")->gr_gid);
    EXPECT_EQ(o.Stat(APP + "/queues.db").st_uid, getpwnam("lp")->pw_uid);
    EXPECT_TRUE(std::regex_search(o.Text(APP + "/pnzz.conf"),
                                  std::regex("\nSpoolDir=" + SPOOL + "\n[\\s\\S]*\nInterval=5\n")));
    EXPECT_EQ(o.Text(APP + "/.pn_cfg"), " V5 ");
    EXPECT_EQ(o.Link("/var/log/pelnorpnzz"), APP + "/log");
    ExpectScript(o, APP + "/OrvelPrintpnzz",
                 Fill(OrvelPrintpnzzScript, APP.c_str(), "pnzz", "pelnorpnzz", "pelnorpnzz", "pnzz",
                      "pnzz", "pnzz"));
    ExpectScript(o, APP + "/OrvelKVT", Fill(OrvelKVTScript, APP.c_str(), SPOOL.c_str()));
    EXPECT_EQ(o.Mode("/usr/bin/pelnorprint"), 0755);  // its text is the launcher template's
    std::regex upgradeThenClean("pnqadmin -upgrade: [\\s\\S]*pnqadmin -clean: ");
    EXPECT_TRUE(std::regex_search(o.Text(APP + "/log/pnqadmin.log"), upgradeThenClean));
    for (const char *gone : {"/tmp/OrvelInstall", "/tmp/setup", "/tmp/setup.hlp", "/tmp/setup.tmp"})
        EXPECT_FALSE(o.Has(gone)) << gone;
    EXPECT_EQ(o.Mode("/tmp/setup.log"), 0666);
    // Each command's output goes to the log.
    EXPECT_NE(o.Text("/tmp/setup.log").find("\npkg/pkg.list\n"), std::string::npos);
}

TEST_F(SiteInstallTest, ConfigFlagNamesTheSpoolerFoundAndCupsWinsOverLprng) {
    std::string site = SmallSite();
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"--lprng"}, " LPRng "}, {{"--cupsd"}, " CUPS "}, {{"--lprng", "--cupsd"}, " CUPS "}};
    for (const auto &[peers, flag] : cases) {
        Outcome o = Rehearse(peers, {site + "/setup"});
        EXPECT_EQ(o.status, 0) << o.out << o.err;
        EXPECT_EQ(o.Text(APP + "/.pn_cfg"), flag) << peers.size();
    }
}

TEST_F(SiteInstallTest, OtherBaseIsLinkedFromOptOrvelByWhatIsThere) {
    std::string setup = SmallSite() + "/setup install /usr/local";
    Outcome o = Shell({}, "rm -rf /opt/Orvel && exec " + setup);
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text("/usr/local/Orvel/pnzz/readme"), "small package\n");
    EXPECT_EQ(o.Link("/opt/Orvel"), "/usr/local/Orvel");
    o = Shell({}, "mkdir -p /opt/Orvel && exec " + setup);
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_TRUE(S_ISDIR(o.Stat("/opt/Orvel").st_mode));
    EXPECT_EQ(o.Link("/opt/Orvel/pnzz"), "/usr/local/Orvel/pnzz");
    // The package path names the base as well.
    o = Shell({}, "mkdir -p /opt && echo mine > /opt/Orvel && exec " + setup + "/Orvel/pnzz/");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_TRUE(o.Has("/usr/local/Orvel/pnzz/readme"));
    EXPECT_EQ(o.Text("/opt/Orvel"), "mine\n");
    EXPECT_EQ(o.report.find("/opt/Orvel/pnzz"), std::string::npos) << o.report;
}

TEST_F(SiteInstallTest, EarlierLauncherChoosesTheBase) {
    Outcome o = Shell({},
                      "printf '#!/bin/sh\\ncd /srv/base/Orvel/pnzz\\nexec ./pnprint\\n' "
                      "> /usr/bin/pelnorprint && exec " +
                          SmallSite() + "/setup");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(o.Text("/srv/base/Orvel/pnzz/pnqadmin.calls"), "-upgrade\n-clean\n");
    EXPECT_FALSE(S_ISDIR(o.Stat(APP).st_mode));
}

TEST_F(SiteInstallTest, NonRootUserIsToldToBecomeRootInItsLanguage) {
    // The sandbox's user must reach the site wherever the build tree lies.
    testfiles::TempDir shared("/var/tmp");
    fs::permissions(shared.path(), fs::perms(0755));
    fs::copy(SmallSite(), shared / "site", fs::copy_options::recursive);
    for (const std::string lang : {"", "en_US", "en_US.UTF-8", "fr_FR"}) {
        SCOPED_TRACE(lang);
        Outcome o =
            Rehearse(lang.empty() ? std::vector<std::string>{"-u", "nobody", "--unset", "LANG"}
                                  : std::vector<std::string>{"-u", "nobody", "-e", "LANG=" + lang},
                     {(shared / "site/setup").string()});
        std::string message =
            lang == "fr_FR" ? "nobody est connecté\nVous devez être root pour exécuter setup\n"
                            : "nobody is logged in\nYou must become root to run setup\n";
        EXPECT_EQ(o.status, 0) << o.err;
        EXPECT_NE(o.out.find(message), std::string::npos) << o.out;
        EXPECT_FALSE(o.Has("/opt/Orvel"));
        EXPECT_FALSE(o.Has("/tmp/OrvelInstall"));  // the copying was done, then cleaned up
        EXPECT_NE(o.Text("/tmp/setup.log").find("/pkg_tar.z1 /tmp/OrvelInstall\n"),
                  std::string::npos);
    }
}

TEST_F(SiteInstallTest, ManualAndStandAloneMarkersKeepTheWorkDirectory) {
    for (const std::string marker : {"manual", ".StandAlone", ".StandAloneDb"}) {
        SCOPED_TRACE(marker);
        bool manual = marker == "manual";
        std::string site = SmallSite(manual ? "" : "t " + marker + "\n", marker);
        Outcome o = Shell({}, site + "/setup" + (manual ? " manual" : ""));
        EXPECT_EQ(o.status, 0) << o.out << o.err;
        EXPECT_TRUE(o.Has(APP + "/readme"));
        EXPECT_TRUE(o.Has("/tmp/OrvelInstall/pkg/pkg.list"));
        EXPECT_EQ(o.Text(APP + "/pnqadmin.calls"), "-upgrade\n");
    }
}

TEST_F(SiteInstallTest, EveryRunningDaemonIsKilledAndReported) {
    // Daemons still running, zombies waiting to be reaped aside, before and after.
    std::string count = "ps -e -o stat=,comm= | grep -cE '^[^Z].* (PelnorD|PND)$' >> /tmp/ps; ";
    Outcome o = Shell({"-p", "PelnorD", "-p", "PelnorD", "-p", "PND"},
                      count + SmallSite() + "/setup; s=$?; " + count + "exit $s");
    ASSERT_EQ(o.status, 0) << o.out << o.err;
    EXPECT_EQ(Count(o.out, "killed PelnorD "), 3u) << o.out;  // PND is reported alike
    EXPECT_EQ(o.Text("/tmp/ps"), "3\n0\n");
}

TEST_F(SiteInstallTest, DamagedArchiveEndsWithAnErrorAndStatusOne) {
    std::string site = SmallSite();
    Write(fs::path(site) / "pkg_tar.z1", Incompressible(4096));
    // A hang would be cut off here and show as 124.
    Outcome o = Rehearse({}, {"/usr/bin/timeout", "60", site + "/setup"});
    EXPECT_EQ(o.status, 1) << o.out << o.err;
    EXPECT_TRUE(std::regex_search(o.out, std::regex("\\.ERROR: [^\n]+\n$"))) << o.out;
    EXPECT_FALSE(o.Has("/opt/Orvel"));
}

/// An absolute directory of about `length` characters, in names of 99.
std::string LongDirectory(size_t length) {
    std::string dir = "/srv";
    while (dir.size() < length) dir += "/" + std::string(99, 'd');
    return dir;
}

TEST_F(SiteInstallTest, LongInstallationDirectoriesInstallWholeOrAreRefusedFirst) {
    std::string site = SmallSite();
    std::string base = LongDirectory(2000);
    Outcome o = Rehearse({}, {site + "/setup", "install", base});
    ASSERT_EQ(o.status, 0) << o.err;
    EXPECT_EQ(o.Text(base + "/Orvel/pnzz/readme"), "small package\n");
    EXPECT_EQ(o.Text(base + "/Orvel/pnzz/pnqadmin.calls"), "-upgrade\n-clean\n");

    const std::pair<std::string, const char *> refused[] = {
        {LongDirectory(3900), "is too long"},
        {"/srv/" + std::string(300, 'n'), "is longer than the 255 characters"}};
    for (const auto &[tooLong, why] : refused) {
        Outcome no = Rehearse({}, {site + "/setup", "install", tooLong});
        EXPECT_EQ(no.status, 1);
        EXPECT_TRUE(no.err.starts_with("ERROR: ")) << no.err;
        EXPECT_NE(no.err.find(why), std::string::npos) << no.err;
        EXPECT_FALSE(no.Has("/tmp/OrvelInstall"));
        EXPECT_FALSE(no.Has("/srv"));
        EXPECT_EQ(no.Text("/tmp/setup.log").find(" -c "), std::string::npos);  // no command ran
    }
}

}  // namespace
}  // namespace e2e
