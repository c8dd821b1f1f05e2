// The demo package in examples/demo: its programs must do what the installer
// and the generated interface scripts expect of them. (That its package list
// installs completely is shown by the end-to-end demo installation.)
// Nothing here installs: the programs run from a copy in a temporary
// directory, with the spool area and the boot-link directory moved there.
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "Scripts.h"
#include "setup.h"

namespace fs = std::filesystem;

namespace {

const fs::path kDemo =
    fs::path(__FILE__).parent_path().parent_path().parent_path() / "examples" / "demo";
const fs::path kPkg = kDemo / "pkg";

std::string Slurp(const fs::path &p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

TEST(DemoHelpFile, TagsAreBalanced) {
    std::string text = Slurp(kDemo / "setup.hlp");
    ASSERT_FALSE(text.empty());
    std::vector<std::string> open;
    for (size_t at = text.find('<'); at != std::string::npos; at = text.find('<', at + 1)) {
        size_t end = text.find('>', at);
        ASSERT_NE(end, std::string::npos);
        std::string tag = text.substr(at + 1, end - at - 1);
        tag = tag.substr(0, tag.find(' '));
        if (tag[0] != '/') {
            open.push_back(tag);
            continue;
        }
        ASSERT_FALSE(open.empty()) << tag;
        EXPECT_EQ("/" + open.back(), tag);
        open.pop_back();
    }
    EXPECT_TRUE(open.empty());
}

// The package's programs, run from a copy in a temporary directory.
class DemoPrograms : public ::testing::Test {
  protected:
    fs::path dir, pkgDir, spool, download, rcDir;

    void SetUp() override {
        char tmpl[] = "/tmp/demopkg-XXXXXX";
        dir = mkdtemp(tmpl);
        pkgDir = dir / "pnzz";
        spool = dir / "spool";
        download = spool / "__pna_download__";
        rcDir = dir / "rc2.d";
        fs::copy(kPkg, pkgDir, fs::copy_options::recursive);
        fs::create_directories(download);
        fs::create_directories(rcDir);
        // Never the real spool area or boot links.
        setenv("PelnorSpoolDir", spool.c_str(), 1);
        setenv("PelnorRcDir", rcDir.c_str(), 1);
        setenv("PelnorDInterval", "1", 1);
        static std::string name = "demopkgtest" + std::to_string(getpid());
        my_name = name.data();
    }

    void TearDown() override {
        pid_t pid = DaemonPid();
        if (pid > 0 && Slurp("/proc/" + std::to_string(pid) + "/comm") == "PelnorD\n")
            kill(pid, SIGKILL);
        fs::remove_all(dir);
    }

    int Run(const std::string &command) {
        int status =
            std::system(("cd " + dir.string() + " && " + command + " >/dev/null 2>&1").c_str());
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    pid_t DaemonPid() {
        std::ifstream in(pkgDir / "PelnorD.pid");
        pid_t pid = 0;
        in >> pid;
        return pid;
    }

    static bool Alive(pid_t pid) { return pid > 0 && kill(pid, 0) == 0; }

    // Waits (up to a minute, for loaded machines) until `done` holds.
    template <class F>
    static bool Eventually(F done) {
        for (int i = 0; i < 600; ++i) {
            if (done()) return true;
            usleep(100000);
        }
        return done();
    }

    size_t Jobs() {
        size_t n = 0;
        for (const auto &entry : fs::directory_iterator(download)) n += entry.is_regular_file();
        return n;
    }

    std::string Log(const std::string &program) { return Slurp(pkgDir / (program + ".log")); }
};

TEST_F(DemoPrograms, DaemonDetachesUnderItsOwnNameAndStopsCleanly) {
    ASSERT_EQ(Run("pnzz/PelnorD"), 0);
    pid_t pid = DaemonPid();
    ASSERT_TRUE(Alive(pid));
    // The installer's StopDemon and the watcher OvPn look for this name.
    EXPECT_EQ(Slurp("/proc/" + std::to_string(pid) + "/comm"), "PelnorD\n");
    EXPECT_EQ(getsid(pid), pid);
    EXPECT_EQ(Run("pnzz/PelnorD"), 1);  // a second daemon is refused
    EXPECT_EQ(DaemonPid(), pid);

    EXPECT_EQ(Run("pnzz/PelnorDStop"), 0);
    EXPECT_FALSE(fs::exists(pkgDir / "PelnorD.pid"));
    // Reaped by init once stopped; until then it shows as a zombie.
    EXPECT_TRUE(Eventually([&] {
        return !Alive(pid) ||
               Slurp("/proc/" + std::to_string(pid) + "/stat").find(") Z") != std::string::npos;
    }));
    EXPECT_NE(Log("PelnorD").find("stopped"), std::string::npos);
    EXPECT_EQ(Run("pnzz/PelnorDStop"), 0);  // nothing to stop is not an error
}

TEST_F(DemoPrograms, FilterSpoolsEachCopyAndDaemonPrintsThem) {
    std::ofstream(dir / "job.txt") << "hello\n";
    ASSERT_EQ(Run("pnzz/pnrpnzztty -dlaser -c2 -o duplex -i job.txt"), 0);
    EXPECT_EQ(Jobs(), 2u);
    ASSERT_EQ(Run("echo data | pnzz/kvt"), 0);
    EXPECT_EQ(Jobs(), 3u);

    ASSERT_EQ(Run("pnzz/PelnorD"), 0);
    EXPECT_TRUE(Eventually([&] { return Jobs() == 0; }));
    ASSERT_EQ(Run("pnzz/PelnorDStop"), 0);
    std::string log = Log("PelnorD");
    EXPECT_NE(log.find("printed laser."), std::string::npos);
    EXPECT_NE(log.find("(6 bytes)"), std::string::npos);
    EXPECT_NE(log.find("printed kvt."), std::string::npos);
}

TEST_F(DemoPrograms, TransferNeverFailsSinceItsCallerRetriesForEver) {
    fs::remove_all(spool);
    EXPECT_EQ(Run("pnzz/kvt /etc/hostname"), 0);
    EXPECT_NE(Log("kvt").find("dropped"), std::string::npos);
}

TEST_F(DemoPrograms, QueueToolRecordsWhatEachOptionDid) {
    ASSERT_EQ(Run("pnzz/pnqadmin -add laser"), 0);
    EXPECT_EQ(Run("pnzz/pnqadmin -add laser"), 1);
    ASSERT_EQ(Run("pnzz/pnqadmin -upgrade"), 0);
    EXPECT_TRUE(fs::is_directory(spool / "laser"));
    EXPECT_EQ(fs::read_symlink(rcDir / "SOrvelPrintD"), pkgDir / "OrvelPrintD");
    EXPECT_EQ(fs::read_symlink(rcDir / "KOrvelPrintD"), pkgDir / "OrvelPrintD");
    EXPECT_EQ(Run("pnzz/pnqadmin -upgrade"), 0);  // again, over its own links

    std::ofstream(pkgDir / "PelnorD.pid") << "999999\n";  // a daemon long gone
    ASSERT_EQ(Run("pnzz/pnqadmin -clean"), 0);
    EXPECT_FALSE(fs::exists(pkgDir / "PelnorD.pid"));
    ASSERT_EQ(Run("pnzz/pnqadmin -clean"), 0);
    EXPECT_EQ(Run("pnzz/pnqadmin -bogus"), 2);

    std::string log = Log("pnqadmin");
    for (const char *line :
         {"pnqadmin -add: added queue laser", "pnqadmin -upgrade: upgraded queue laser",
          "pnqadmin -upgrade: linked", "pnqadmin -clean: removed stale PelnorD.pid (999999)",
          "pnqadmin -clean: nothing to clean", "pnqadmin -bogus: unknown option"})
        EXPECT_NE(log.find(line), std::string::npos) << line;
}

TEST_F(DemoPrograms, BootScriptStartsAndStopsTheDaemon) {
    ASSERT_EQ(Run("pnzz/pnqadmin -upgrade"), 0);
    ASSERT_EQ(Run("rc2.d/SOrvelPrintD start"), 0);
    EXPECT_TRUE(Eventually([&] { return Alive(DaemonPid()); }));
    ASSERT_EQ(Run("rc2.d/KOrvelPrintD stop"), 0);
    EXPECT_FALSE(fs::exists(pkgDir / "PelnorD.pid"));
}

TEST_F(DemoPrograms, LauncherTakesRelativeNamesFromTheCallersDirectory) {
    fs::create_directory(dir / "home");
    std::ofstream(dir / "home" / "letter.txt") << "Dear\n";
    // As /usr/bin/pelnorprint runs it: from the package directory.
    EXPECT_EQ(Run("cd pnzz && PelnorFileSourceDir=" + (dir / "home").string() +
                  " ./pnprint -d laser letter.txt"),
              0);
    EXPECT_EQ(Jobs(), 1u);
    EXPECT_EQ(
        Run("cd pnzz && PelnorFileSourceDir=" + (dir / "home").string() + " ./pnprint missing.txt"),
        1);
    EXPECT_EQ(Run("pnzz/pnprint"), 2);
}

// The interface scripts the installer writes hand jobs to the package's filters.
TEST_F(DemoPrograms, InterfaceScriptsReachTheFilters) {
    static bool resolved = false;
    if (!resolved) InitSysCmdList();
    resolved = true;
    std::ofstream(pkgDir / ".pn_cfg") << " V5 ";
    std::string p = pkgDir.string();
    GenSimpleScript((pkgDir / "OrvelPrintpnzz").c_str(), ScriptShShell, OrvelPrintpnzzScript,
                    p.c_str(), "pnzz", "pelnorpnzz", "pelnorpnzz", "pnzz", "pnzz", "pnzz");
    GenSimpleScript((pkgDir / "OrvelKVT").c_str(), ScriptShShell, OrvelKVTScript, p.c_str(),
                    spool.c_str());
    std::ofstream(dir / "job.txt") << "page\n";
    // The V5 spooler runs the interface under the printer's name.
    fs::create_symlink(pkgDir / "OrvelPrintpnzz", dir / "laser");

    ASSERT_EQ(Run("./laser 17 alice title 1 '' " + (dir / "job.txt").string()), 0);
    ASSERT_EQ(Run("pnzz/OrvelKVT 18 alice title 1 '' " + (dir / "job.txt").string()), 0);
    EXPECT_EQ(Jobs(), 2u);
    EXPECT_NE(Log("pnrpnzztty").find("printer laser: " + (dir / "job.txt").string()),
              std::string::npos);
    EXPECT_NE(Log("kvt").find("sent " + (dir / "job.txt").string()), std::string::npos);
}

}  // namespace
