// The demo package in examples/demo: its package list must be one that the
// interpreter carries out completely on a Debian host, and its programs must
// do what the installer and the generated interface scripts expect of them.
// Nothing here installs: the programs run from a copy in a temporary
// directory, with the spool area and the boot-link directory moved there.
#include <grp.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
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

// Words as the interpreter splits a line: blanks, carriage returns and
// newlines separate, tabs do not.
std::vector<std::string> Words(const std::string &line) {
    std::vector<std::string> words;
    std::string word;
    for (char c : line + " ") {
        if (c == ' ' || c == '\r' || c == '\n') {
            if (!word.empty()) words.push_back(word);
            word.clear();
        } else {
            word += c;
        }
    }
    return words;
}

struct Attribute {
    std::string name, value;
};

// One line of pkg.list, with `v` conditions taken off its front.
struct Entry {
    int lineNo = 0;
    std::string command, name, extra;
    std::vector<Attribute> attributes;
    bool conditional = false;
};

const std::set<std::string> kCommands = {"dir", "dirto", "t", "c",      "m",
                                         "#",   "v",     "s", "newdir", "checkps"};
const std::set<std::string> kAttributes = {"mode", "bat", "owner", "group", "link", "name", "sed"};

Entry ParseLine(const std::string &line, int lineNo) {
    Entry e;
    e.lineNo = lineNo;
    std::vector<std::string> w = Words(line);
    size_t i = 0;
    auto next = [&]() { return i < w.size() ? w[i++] : std::string(); };
    e.command = next();
    e.name = next();
    while (e.command == "v") {  // "v OP RELEASE COMMAND NAME ..."
        e.conditional = true;
        next();
        e.command = next();
        e.name = next();
    }
    if (e.command == "dirto") e.extra = next();
    if (e.command == "#") return e;
    while (i + 1 < w.size()) {
        Attribute a{w[i], w[i + 1]};
        if (a.name == "sed" && e.attributes.empty()) {  // the rest of the line
            size_t at = line.find(" sed ") + 5;
            a.value = line.substr(at);
            e.attributes.push_back(a);
            break;
        }
        e.attributes.push_back(a);
        i += 2;
    }
    return e;
}

std::vector<Entry> ReadList() {
    std::ifstream in(kPkg / "pkg.list");
    if (!in) ADD_FAILURE() << "cannot read " << kPkg / "pkg.list";
    std::vector<Entry> entries;
    std::string line;
    for (int n = 1; std::getline(in, line); ++n)
        if (!Words(line).empty()) entries.push_back(ParseLine(line, n));
    return entries;
}

bool IsCopy(const std::string &command) {
    return command == "c" || !kCommands.count(command);
}

TEST(DemoPackageList, HasNoTabsAndCommentsAreWordsOfTheirOwn) {
    std::ifstream in(kPkg / "pkg.list");
    ASSERT_TRUE(in) << kPkg / "pkg.list";
    std::string line;
    for (int n = 1; std::getline(in, line); ++n) {
        EXPECT_EQ(line.find('\t'), std::string::npos) << "line " << n;
        std::vector<std::string> w = Words(line);
        // "#word" is not a comment: it would copy the next word.
        if (!w.empty() && w[0][0] == '#') {
            EXPECT_EQ(w[0], "#") << "line " << n;
        }
    }
}

TEST(DemoPackageList, UsesMostCommandsAndEveryAttribute) {
    std::set<std::string> commands, attributes;
    int unknownKeywords = 0;
    for (const Entry &e : ReadList()) {
        commands.insert(kCommands.count(e.command) ? e.command : "c");
        unknownKeywords += !kCommands.count(e.command);
        if (e.conditional) commands.insert("v");
        for (const Attribute &a : e.attributes) attributes.insert(a.name);
    }
    EXPECT_EQ(commands, kCommands);
    EXPECT_EQ(attributes, kAttributes);
    EXPECT_EQ(unknownKeywords, 1);  // the one line that shows an unknown word copies
}

TEST(DemoPackageList, EveryCopySourceIsInThePackage) {
    for (const Entry &e : ReadList()) {
        if (IsCopy(e.command)) {
            EXPECT_TRUE(fs::is_regular_file(kPkg / e.name))
                << "line " << e.lineNo << ": " << e.name;
            // cp puts pkg/a/b at AppDir/b, but the attributes would act on AppDir/a/b.
            EXPECT_EQ(e.name.find('/'), std::string::npos) << "line " << e.lineNo;
        }
        if (e.command == "dir" || e.command == "dirto") {
            EXPECT_TRUE(fs::is_directory(kPkg / e.name)) << "line " << e.lineNo << ": " << e.name;
        }
    }
}

// A failing attribute command ends the installation, so each must succeed.
TEST(DemoPackageList, EveryAttributeActsOnAFileThatIsThere) {
    // Made by the installer before the list runs.
    std::set<std::string> present = {"OrvelPrintpnzz", "OrvelKVT", ".pn_cfg", ".PrintError"};
    for (const Entry &e : ReadList()) {
        if (e.command == "#" || e.command == "checkps") continue;
        if (IsCopy(e.command) || e.command == "dir" || e.command == "t" || e.command == "newdir")
            present.insert(e.name);
        if (e.command == "m" || e.command == "s") {  // silently skipped when absent
            EXPECT_TRUE(present.count(e.name)) << "line " << e.lineNo << ": " << e.name;
        }
        if (e.command == "dirto") {
            EXPECT_TRUE(e.attributes.empty())
                << "line " << e.lineNo << ": acts on AppDir/" << e.name;
            continue;
        }
        if (!e.attributes.empty()) {
            EXPECT_TRUE(present.count(e.name)) << "line " << e.lineNo << ": " << e.name;
        }
        for (const Attribute &a : e.attributes) {
            EXPECT_TRUE(kAttributes.count(a.name)) << "line " << e.lineNo << ": " << a.name;
            if (a.name == "owner") {
                EXPECT_NE(getpwnam(a.value.c_str()), nullptr) << a.value;
            }
            if (a.name == "group") {
                EXPECT_NE(getgrnam(a.value.c_str()), nullptr) << a.value;
            }
            if (a.name == "mode") {
                EXPECT_EQ(a.value.find_first_not_of("01234567"), std::string::npos) << a.value;
            }
        }
        // The rename is not followed: later pairs would act on a file that is gone.
        for (size_t i = 0; i + 1 < e.attributes.size(); ++i)
            EXPECT_NE(e.attributes[i].name, "name")
                << "line " << e.lineNo << ": name must come last";
        if (!e.attributes.empty() && e.attributes.back().name == "name")
            present.insert(e.attributes.back().value);
    }
}

TEST(DemoPackageList, LaunchersStartExecutablesOfThePackage) {
    std::set<std::string> launchers;
    for (const Entry &e : ReadList())
        for (const Attribute &a : e.attributes)
            if (a.name == "bat") {
                EXPECT_TRUE(launchers.insert(a.value).second) << a.value;
                EXPECT_EQ(access((kPkg / e.name).c_str(), X_OK), 0) << e.name;
            }
    // LocatePreviousInstallation finds an earlier installation through this one.
    EXPECT_TRUE(launchers.count("pelnorprint"));
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
