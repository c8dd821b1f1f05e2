// The rehearsal sandbox, run as its users run it: a real binary, real mounts,
// real commands inside. Needs root; skips itself otherwise.
#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

struct Result {
    int status;
    std::string out, err;
    pid_t pid;
};

std::string Slurp(const fs::path &p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

int Decode(int status) {
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

bool Contains(const std::string &text, const std::string &part) {
    return text.find(part) != std::string::npos;
}

// Processes of the real machine whose command line holds `word`.
bool HostProcessWith(const std::string &word) {
    for (const auto &entry : fs::directory_iterator("/proc")) {
        std::string cmdline = Slurp(entry.path() / "cmdline");
        for (char &c : cmdline)
            if (c == '\0') c = ' ';
        if (Contains(cmdline, word) && !Contains(cmdline, "rehearse")) return true;
    }
    return false;
}

// State directories left by the rehearse of process `pid`.
int StateDirsOf(pid_t pid) {
    int count = 0;
    std::string prefix = "rehearse." + std::to_string(pid) + ".";
    for (const auto &entry : fs::directory_iterator("/tmp"))
        count += entry.path().filename().string().rfind(prefix, 0) == 0;
    return count;
}

class RehearseTest : public ::testing::Test {
  protected:
    fs::path scratch;  // host side: outputs, diskettes, reports
    std::string tag = std::to_string(getpid());

    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "rehearse needs root";
        char tmpl[] = "/tmp/rehearse-test-XXXXXX";
        scratch = mkdtemp(tmpl);
    }
    void TearDown() override {
        if (!scratch.empty()) fs::remove_all(scratch);
    }

    pid_t Start(const std::vector<std::string> &args, int out, int err) {
        pid_t pid = fork();
        if (pid == 0) {
            dup2(out, 1);
            dup2(err, 2);
            std::vector<char *> argv{const_cast<char *>(REHEARSE_BINARY)};
            for (const std::string &a : args) argv.push_back(const_cast<char *>(a.c_str()));
            argv.push_back(nullptr);
            execv(REHEARSE_BINARY, argv.data());
            _exit(99);
        }
        return pid;
    }

    Result Run(const std::vector<std::string> &args) {
        fs::path out = scratch / "out", err = scratch / "err";
        int o = open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int e = open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        pid_t pid = Start(args, o, e);
        close(o);
        close(e);
        int status = 0;
        waitpid(pid, &status, 0);
        return {Decode(status), Slurp(out), Slurp(err), pid};
    }

    fs::path Diskette(const std::string &name, const std::string &file) {
        fs::path dir = scratch / name;
        fs::create_directory(dir);
        std::ofstream(dir / file) << "piece\n";
        return dir;
    }
};

TEST_F(RehearseTest, WriteToEtcStaysInsideAndIsReported) {
    std::string probe = "/etc/rehearse-probe-" + tag;
    fs::path report = scratch / "report";
    Result r = Run({"-r", report, "--", "sh", "-c", "echo hello > " + probe + "; cat " + probe});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.out, "hello\n");
    EXPECT_FALSE(fs::exists(probe));
    EXPECT_TRUE(Contains(Slurp(report), "+ file     0644 root:root  " + probe + "\n"));
    EXPECT_EQ(r.err, "");
}

TEST_F(RehearseTest, ReportGoesToStandardErrorAfterTheCommandsOutput) {
    Result r = Run({"--", "sh", "-c", "echo out; echo err >&2; mkdir /opt/rh-" + tag});
    EXPECT_EQ(r.out, "out\n");
    EXPECT_EQ(r.err.rfind("err\nrehearse: changes made by the command", 0), 0u) << r.err;
    EXPECT_TRUE(Contains(r.err, "+ dir      0755 root:root  /opt/rh-" + tag + "\n"));
    EXPECT_TRUE(Contains(r.err, "rehearse: 1 added, 0 changed, 0 removed\n"));
    EXPECT_EQ(Run({"-q", "--", "touch", "/etc/rh-" + tag}).err, "");
}

// The lower layer must hold the files, and /tmp is fresh inside: /var/tmp.
TEST_F(RehearseTest, ChangesAndRemovalsAreListedWithADiffOfText) {
    char tmpl[] = "/var/tmp/rehearse-test-XXXXXX";
    fs::path dir = mkdtemp(tmpl);
    std::ofstream(dir / "inittab") << "one\ntwo\nthree\n";
    std::ofstream(dir / "gone") << "x\n";
    fs::create_directory(dir / "tree");
    std::ofstream(dir / "tree" / "leaf") << "y\n";
    fs::create_symlink("inittab", dir / "link");
    std::string d = dir.string();
    Result r = Run({"--", "sh", "-c",
                    "sed -i s/two/TWO/ " + d + "/inittab; chmod 600 " + d + "/inittab; rm " + d +
                        "/gone; rm -r " + d + "/tree; ln -sf gone " + d + "/link"});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(Contains(
        r.err, "~ file     0600 root:root  " + d + "/inittab (mode was 0644, content changed)\n"));
    EXPECT_TRUE(Contains(r.err, "- file     0644 root:root  " + d + "/gone\n"));
    EXPECT_TRUE(Contains(r.err, "- dir      0755 root:root  " + d + "/tree\n"));
    EXPECT_TRUE(Contains(r.err, "- file     0644 root:root  " + d + "/tree/leaf\n"));
    EXPECT_TRUE(Contains(
        r.err, "~ symlink  0777 root:root  " + d + "/link -> gone (target was inittab)\n"));
    EXPECT_TRUE(Contains(r.err, "--- a" + d + "/inittab\n+++ b" + d +
                                    "/inittab\n@@ -1,3 +1,3 @@\n one\n-two\n+TWO\n three\n"));
    EXPECT_EQ(Slurp(dir / "inittab"), "one\ntwo\nthree\n");
    EXPECT_TRUE(fs::exists(dir / "gone") && fs::exists(dir / "tree" / "leaf"));
    fs::remove_all(dir);
}

TEST_F(RehearseTest, SandboxPlumbingIsNotReported) {
    fs::path disk = Diskette("d1", "pkg_tar.z1");
    Result r =
        Run({"-f", disk, "--cupsd", "--lprng", "-p", "PelnorD", "-t", "/opt/rh:1M", "--", "true"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(r.err, "rehearse: no changes\n");
}

TEST_F(RehearseTest, FreshTmpHidesTheRealOne) {
    Result r = Run({"-q", "--", "test", "-e", scratch.string()});
    EXPECT_EQ(r.status, 1);
}

TEST_F(RehearseTest, ExitStatusIsTheCommands) {
    EXPECT_EQ(Run({"-q", "--", "sh", "-c", "exit 3"}).status, 3);
    EXPECT_EQ(Run({"-q", "--", "sh", "-c", "kill -9 $$"}).status, 137);
    Result missing = Run({"-q", "--", "no-such-command-" + tag});
    EXPECT_EQ(missing.status, 127);
    EXPECT_EQ(missing.err.rfind("rehearse: cannot run no-such-command-", 0), 0u);
}

TEST_F(RehearseTest, UserOptionRunsWithoutRoot) {
    Result r = Run({"-u", "nobody", "--", "sh", "-c", "id -u; touch /etc/rh-" + tag});
    EXPECT_EQ(r.out, "65534\n");
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(Contains(r.err, "rehearse: no changes\n"));
}

TEST_F(RehearseTest, SmallTmpfsShowsItsSizeInDf) {
    Result r = Run({"-q", "-t", "/opt/rh-small:2M", "--", "df", "-k", "/opt/rh-small"});
    ASSERT_EQ(r.status, 0);
    std::istringstream lines(r.out);
    std::string header, fsName;
    long blocks = 0, used = 0, avail = 0;
    std::getline(lines, header);
    lines >> fsName >> blocks >> used >> avail;
    EXPECT_EQ(blocks, 2048);
    EXPECT_GE(avail, 2000);
    EXPECT_LE(avail, 2048);
}

TEST_F(RehearseTest, EnvironmentAndStandardInput) {
    std::ofstream(scratch / "in") << "fed\n";
    Result r = Run({"-q", "-i", scratch / "in", "-e", "FOO=bar", "--unset", "HOME", "-C", "/etc",
                    "--", "sh", "-c", "cat; echo \"$FOO ${HOME-unset}\"; pwd"});
    EXPECT_EQ(r.out, "fed\nbar unset\n/etc\n");
}

TEST_F(RehearseTest, KeepCopiesTheChangesWithoutStandIns) {
    fs::path keep = scratch / "keep";
    Result r = Run({"-q", "-k", keep, "--lprng", "-t", "/opt/rh:1M", "--", "sh", "-c",
                    "echo 1 > /etc/rh-keep; echo 2 > /tmp/left; echo 3 > /opt/rh/small"});
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(Slurp(keep / "etc/rh-keep"), "1\n");
    EXPECT_EQ(Slurp(keep / "tmp/left"), "2\n");
    EXPECT_EQ(Slurp(keep / "opt/rh/small"), "3\n");
    EXPECT_FALSE(fs::exists(keep / "usr"));
}

TEST_F(RehearseTest, UnusableSetupIsRefusedWithOneLine) {
    fs::create_directory(scratch / "exists");
    const std::vector<std::vector<std::string>> bad = {
        {"-f", (scratch / "no-diskette").string(), "true"},
        {"-k", (scratch / "exists").string(), "true"},
        {"-t", "/opt/x:lots", "true"},
        {"-u", "no-such-user-rh", "true"},
        {"-i", (scratch / "no-input").string(), "true"},
        {"-C", "/no/such/dir", "true"},
        {"-q"},
    };
    for (const auto &args : bad) {
        Result r = Run(args);
        EXPECT_EQ(r.status, 125) << args[0];
        EXPECT_EQ(r.err.rfind("rehearse: ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(StateDirsOf(r.pid), 0);
    }
}

TEST_F(RehearseTest, UnprivilegedCallerIsRefused) {
    pid_t pid = fork();
    if (pid == 0) {
        int null = open("/dev/null", O_WRONLY);
        dup2(null, 2);
        if (setgid(65534) != 0 || setuid(65534) != 0) _exit(98);
        execl(REHEARSE_BINARY, "rehearse", "true", nullptr);
        _exit(99);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (Decode(status) == 99) GTEST_SKIP() << "the build tree is not readable by nobody";
    EXPECT_EQ(Decode(status), 125);
}

class DriveTest : public RehearseTest {};

TEST_F(DriveTest, EjectThenVolcheckSwapsDiskettes) {
    fs::path one = Diskette("one", "pkg_tar.z1"), two = Diskette("two", "pkg_tar.z2");
    Result r = Run({"-q", "-f", one, "-f", two, "--", "sh", "-c",
                    "ls /floppy/floppy0; eject -f >> /tmp/Msg; echo ejected $?; "
                    "ls /floppy/floppy0; volcheck; ls /floppy/floppy0"});
    // Each file shows under its own name and its other-case alias.
    EXPECT_EQ(r.out, "PKG_TAR.Z1\npkg_tar.z1\nejected 0\nPKG_TAR.Z2\npkg_tar.z2\n");
}

TEST_F(DriveTest, DisketteAnswersToEitherCaseLikeADosFileSystem) {
    fs::path one = Diskette("one", "DISKS");
    Result r = Run({"-q", "-f", one, "--", "sh", "-c",
                    "cat /floppy/floppy0/disks /floppy/floppy0/DISKS | wc -c"});
    EXPECT_EQ(r.out, std::to_string(2 * fs::file_size(one / "DISKS")) + "\n");
}

TEST_F(DriveTest, EjectQueryTellsLoadedFromEmpty) {
    fs::path one = Diskette("one", "pkg_tar.z1");
    std::string script = "eject -q >> /tmp/Msg; echo $?; eject -f; eject -q; echo $?";
    EXPECT_EQ(Run({"-q", "-f", one, "--", "sh", "-c", script}).out, "0\n1\n");
    Result empty = Run({"-q", "--floppy-empty", "-f", one, "--", "sh", "-c",
                        "eject -q; echo $?; volcheck; eject -q; echo $?; ls /floppy/floppy0"});
    EXPECT_EQ(empty.out, "1\n0\nPKG_TAR.Z1\npkg_tar.z1\n");
}

TEST_F(DriveTest, StuckDriveFailsEjectTheGivenNumberOfTimes) {
    fs::path one = Diskette("one", "pkg_tar.z1");
    Result r = Run({"-q", "-f", one, "--eject-fail", "2", "--", "sh", "-c",
                    "for i in 1 2 3; do eject -f; echo $?; done"});
    EXPECT_EQ(r.out, "1\n1\n0\n");
}

TEST_F(DriveTest, DisketteIsReadOnlyAndWorksForOrdinaryUsers) {
    fs::path one = Diskette("one", "pkg_tar.z1");
    Result r = Run({"-q", "-u", "nobody", "-f", one, "--", "sh", "-c",
                    "touch /floppy/floppy0/x; echo $?; eject -f; echo $?"});
    EXPECT_EQ(r.out, "1\n0\n");
    EXPECT_FALSE(fs::exists(one / "x"));
}

TEST_F(DriveTest, PrintSystemPeersAnswerTheInstallersProbes) {
    Result r = Run({"-q", "--cupsd", "--lprng", "--", "sh", "-c",
                    "lpd -V 2>&1 | grep -c LPRng; test -x /usr/sbin/cupsd && echo cupsd"});
    EXPECT_EQ(r.out, "1\ncupsd\n");
}

class ProcessTest : public RehearseTest {};

TEST_F(ProcessTest, StandInsShowInPsInsideOnly) {
    std::string name = "RhTest" + tag.substr(0, 8);
    Result r = Run({"-q", "-p", name, "-p", "PND", "--", "ps", "-e"});
    EXPECT_TRUE(Contains(r.out, " " + name + "\n"));
    EXPECT_TRUE(Contains(r.out, " PND\n"));

    // A rehearsal running beside it has its own process table.
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    int null = open("/dev/null", O_WRONLY);
    pid_t first =
        Start({"-q", "-p", name, "--", "sh", "-c", "echo ready; exec sleep 60"}, pipe[1], null);
    close(pipe[1]);
    char ready[8] = {};
    ASSERT_GT(read(pipe[0], ready, sizeof ready), 0);
    Result beside = Run({"-q", "--", "ps", "-e"});
    EXPECT_FALSE(Contains(beside.out, name));
    kill(first, SIGTERM);
    int status = 0;
    waitpid(first, &status, 0);
    close(pipe[0]);
    close(null);
    EXPECT_FALSE(HostProcessWith(name));
}

TEST_F(ProcessTest, HangingCommandIsInterruptedAndEverythingCleanedUp) {
    std::string before = Slurp("/proc/self/mountinfo");
    std::string marker = "1000." + tag;  // a sleep of ours, findable on the host
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    int null = open("/dev/null", O_WRONLY);
    pid_t pid = Start({"-q", "-p", "PelnorD", "--", "sh", "-c",
                       "trap '' INT TERM; echo ready; exec sleep " + marker},
                      pipe[1], null);
    close(pipe[1]);
    char ready[8] = {};
    ASSERT_GT(read(pipe[0], ready, sizeof ready), 0);
    // "ready" comes just before the exec: give a loaded machine a moment.
    for (int i = 0; i < 100 && !HostProcessWith("sleep " + marker); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_TRUE(HostProcessWith("sleep " + marker));
    kill(pid, SIGINT);
    int status = 0;
    waitpid(pid, &status, 0);
    close(pipe[0]);
    close(null);
    EXPECT_EQ(Decode(status), 137);  // it ignored the interrupt, so it was killed
    EXPECT_FALSE(HostProcessWith("sleep " + marker));
    EXPECT_EQ(Slurp("/proc/self/mountinfo"), before);
    EXPECT_EQ(StateDirsOf(pid), 0);
}

TEST_F(ProcessTest, KilledRehearseTakesItsCommandAlongAndIsSweptNextTime) {
    std::string marker = "1000.9" + tag;
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    pid_t pid = Start({"-q", "--", "sh", "-c", "echo ready; exec sleep " + marker}, pipe[1], 2);
    close(pipe[1]);
    char ready[8] = {};
    ASSERT_GT(read(pipe[0], ready, sizeof ready), 0);
    close(pipe[0]);
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
    // The kernel ends the orphaned rehearsal; give it a moment, not a deadline.
    for (int i = 0; i < 100 && HostProcessWith("sleep " + marker); i++)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    EXPECT_FALSE(HostProcessWith("sleep " + marker));
    // Whether the empty state directory is still there depends on whether a
    // rehearsal running alongside swept it already; after ours it is gone.
    Run({"-q", "true"});
    EXPECT_EQ(StateDirsOf(pid), 0);
}

}  // namespace
