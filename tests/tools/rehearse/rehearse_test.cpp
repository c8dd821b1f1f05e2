// The rehearsal sandbox, run as its users run it: a real binary, real mounts,
// real commands inside. Needs root; skips itself otherwise.
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "TestFiles.h"

namespace {

using namespace testfiles;

struct Result {
    int status;
    std::string out, err;
    pid_t pid;
};

class RehearseTest : public ::testing::Test {
  protected:
    TempDir scratch;  // host side: outputs, diskettes, reports
    std::string tag = std::to_string(getpid());

    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "rehearse needs root";
    }
    static bool Has(std::string_view s, std::string_view part) { return s.find(part) != s.npos; }
    // A process of the real machine whose command line starts with `start`.
    static bool OnHost(const std::string &start) {
        return std::system(("pgrep -f '^" + start + "' >/dev/null").c_str()) == 0;
    }
    // Gives a loaded machine a moment to reach a state; asserts no deadline.
    static bool Eventually(auto reached) {
        for (int i = 0; i < 100 && !reached(); i++) usleep(50000);
        return reached();
    }
    // State directories left by the rehearse of process `pid`.
    static long StateDirsOf(pid_t pid) {
        std::string prefix = "rehearse." + std::to_string(pid) + ".";
        return std::ranges::count_if(fs::directory_iterator("/tmp"), [&](const auto &entry) {
            return entry.path().filename().string().starts_with(prefix);
        });
    }
    static pid_t Start(std::vector<std::string> args, fs::path out, fs::path err) {
        pid_t pid = fork();
        if (pid == 0) {
            dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 1);
            dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644), 2);
            std::vector<char *> argv{const_cast<char *>(REHEARSE_BINARY)};
            for (std::string &a : args) argv.push_back(a.data());
            argv.push_back(nullptr);
            execv(REHEARSE_BINARY, argv.data());
            _exit(99);
        }
        return pid;
    }
    static int Wait(pid_t pid) {
        int status = 0;
        waitpid(pid, &status, 0);
        return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
    }
    Result Run(const std::vector<std::string> &args) {
        pid_t pid = Start(args, scratch / "out", scratch / "err");
        return {Wait(pid), Slurp(scratch / "out"), Slurp(scratch / "err"), pid};
    }
};

// Neither the drive, the stand-ins, the tmpfs nor the machine's mounts count as changes.
TEST_F(RehearseTest, WriteToEtcStaysInsideAndIsAllThatIsReported) {
    std::string probe = "/etc/rehearse-probe-" + tag;
    Write(scratch / "d1/pkg_tar.z1", "piece\n");
    Result r = Run({"-f", scratch / "d1", "--cupsd", "--lprng", "-p", "PelnorD", "-t", "/opt/rh:1M",
                    "-C", "/etc", "--", "sh", "-c",
                    "echo err >&2; echo hi > rehearse-probe-" + tag + "; cat " + probe});
    EXPECT_EQ(r.out, "hi\n");
    // The report follows the command's own output on standard error.
    EXPECT_TRUE(r.err.starts_with("err\nrehearse: changes made by the command")) << r.err;
    EXPECT_TRUE(Has(r.err, "+ file     0644 root:root  " + probe + "\n"));
    EXPECT_TRUE(Has(r.err, "rehearse: 1 added, 0 changed, 0 removed\n"));
    EXPECT_FALSE(fs::exists(probe));
}

TEST_F(RehearseTest, ChangesAreListedWithADiffOfText) {
    fs::path dir = scratch / "etc";
    Write(dir / "inittab", "one\ntwo\nthree\n");
    fs::create_symlink("inittab", dir / "link");
    std::string d = dir.string();
    Result r = Run({"-r", scratch / "report", "-C", d, "--", "sh", "-c",
                    "sed -i s/two/TWO/ inittab; chmod 600 inittab; ln -sf gone link"});
    EXPECT_TRUE(r.err.empty() && r.status == 0) << r.err;
    std::string report = Slurp(scratch / "report");
    for (std::string line :
         {"~ file     0600 root:root  " + d + "/inittab (mode was 0644, content changed)\n",
          "~ symlink  0777 root:root  " + d + "/link -> gone (target was inittab)\n",
          "--- a" + d + "/inittab\n+++ b" + d +
              "/inittab\n@@ -1,3 +1,3 @@\n one\n-two\n+TWO\n three\n"})
        EXPECT_TRUE(Has(report, line)) << line;
    EXPECT_EQ(Slurp(dir / "inittab"), "one\ntwo\nthree\n");
    EXPECT_EQ(fs::read_symlink(dir / "link"), "inittab");
}

// Mounts made for one test, in a mount namespace of the test's own: they
// never show on the machine, and go with the test's process at the latest.
class MountedTest : public RehearseTest {
  protected:
    std::vector<fs::path> mounted;
    void SetUp() override {
        RehearseTest::SetUp();
        if (IsSkipped()) return;
        ASSERT_TRUE(unshare(CLONE_NEWNS) == 0 &&
                    mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0);
    }
    void TearDown() override {
        for (auto it = mounted.rbegin(); it != mounted.rend(); ++it)
            umount2(it->c_str(), MNT_DETACH);
    }
    void Mount(const char *type, const fs::path &at, const std::string &data) {
        fs::create_directories(at);
        ASSERT_EQ(mount(type, at.c_str(), type, 0, data.c_str()), 0) << at;
        mounted.push_back(at);
    }
    /// An overlay at `at` over `lower`, its upper and work directories on a
    /// tmpfs at `dir` (an upper layer cannot lie on an overlay, as /tmp may).
    void Overlay(const fs::path &at, const fs::path &lower, const fs::path &dir) {
        Mount("tmpfs", dir, "mode=0755");
        fs::create_directories(dir / "upper");
        fs::create_directories(dir / "work");
        Mount("overlay", at,
              "lowerdir=" + lower.string() + ",upperdir=" + (dir / "upper").string() +
                  ",workdir=" + (dir / "work").string());
    }
};

// A file, a program, a change, an addition and a removal in the real /tmp and
// where the machine has mounted a file system (at a name mountinfo escapes):
// copy-on-write as on the root, or read-only where the machine has it so or no
// overlay can lie over it (a third overlay is one too many).
TEST_F(MountedTest, MountedFileSystemsShowAndTheirChangesStayInside) {
    auto fill = [](const fs::path &dir) {
        Write(dir / "f", "old\n");
        Write(dir / "gone", "x\n");
        Write(dir / "prog", "#!/bin/sh\necho ran\n");
        fs::permissions(dir / "prog", fs::perms::owner_all, fs::perm_options::add);
    };
    const fs::path tmp = scratch / "tmp", tmpfs = scratch / "a tmpfs", ro = scratch / "ro",
                   layers = scratch / "layers";
    // Kept on an overlay, as in a container: it cannot hold the marks of removals.
    fs::create_directories(scratch / "keep-lower");
    Overlay(scratch / "keep", scratch / "keep-lower", scratch / "keep-layers");
    for (const fs::path &dir : {tmpfs, ro, layers}) Mount("tmpfs", dir, "mode=0755");
    for (const fs::path &dir : {tmp, tmpfs, ro, layers / "low"}) fill(dir);
    ASSERT_EQ(mount(nullptr, ro.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
    Overlay(layers / "one", layers / "low", layers / "1");
    Overlay(layers / "two", layers / "one", layers / "2");
    struct Case {
        fs::path dir;
        bool writable, named;
    } const cases[] = {{tmp, true, false},
                       {tmpfs, true, false},
                       {ro, false, false},
                       {layers / "two", false, true}};
    for (const Case &c : cases) {
        std::string d = c.dir.string();
        SCOPED_TRACE(d);
        fs::path kept = scratch / "keep" / std::to_string(&c - cases);
        Result r = Run({"-k", kept, "-r", scratch / "report", "-C", d, "--", "sh", "-c",
                        "./prog && cat f && echo new > f && echo add > added && rm gone && "
                        "echo wrote"});
        std::string report = Slurp(scratch / "report");
        EXPECT_EQ(r.out, c.writable ? "ran\nold\nwrote\n" : "ran\nold\n") << r.err;
        EXPECT_EQ(Has(report, "rehearse: no changes\n"), !c.writable) << report;
        EXPECT_EQ(Has(report, "no overlay could lie over it: " + d + " (overlay)\n"), c.named);
        if (c.writable) {
            EXPECT_EQ(r.status, 0);
            EXPECT_EQ(r.err, "");
            for (std::string line :
                 {"~ file     0644 root:root  " + d + "/f (content changed)\n",
                  "+ file     0644 root:root  " + d + "/added\n",
                  "- file     0644 root:root  " + d + "/gone\n", std::string("-old\n+new\n")})
                EXPECT_TRUE(Has(report, line)) << line << report;
            EXPECT_EQ(Slurp(kept / c.dir.relative_path() / "added"), "add\n");
        }
        EXPECT_EQ(Slurp(c.dir / "f"), "old\n");
        EXPECT_TRUE(fs::exists(c.dir / "gone") && !fs::exists(c.dir / "added"));
    }
}

// Each case is the expected status, then the arguments: a command that cannot
// be run exits 127, as in a shell; anything else unusable 125.
TEST_F(RehearseTest, UnusableSetupIsRefusedWithOneLine) {
    std::string s = scratch.path().string();
    for (std::string args : std::vector<std::string>{
             "125 -f " + s + "/none true", "125 -k " + s + " true", "125 -t /opt/x:lots true",
             "125 -u no-such-user-rh true", "125 -i " + s + "/none true", "125 -C /no/such true",
             "125 -q", "127 -q -- no-such-command-rh"}) {
        std::istringstream words(args);
        int status = 0;
        words >> status;
        Result r = Run({std::istream_iterator<std::string>(words), {}});
        EXPECT_EQ(r.status, status) << args;
        EXPECT_TRUE(r.err.starts_with("rehearse: ")) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_EQ(StateDirsOf(r.pid), 0);
    }
}

// The drive presents a diskette read-only, each top-level name in either case,
// both as a FAT file system and, on a machine without the FAT tools (mkfs.vfat
// lives in /usr/sbin), as the copy it falls back to.
TEST_F(RehearseTest, DriveSwapsDiskettesOnEjectThenVolcheck) {
    Write(scratch / "one/pkg_tar.z1", "piece\n");
    Write(scratch / "one/db/fr_FR/CoreString.vdb", "vdb\n");
    Write(scratch / "two/PKG_TAR.Z2", "piece\n");
    std::string path = std::getenv("PATH");
    for (std::string search : {path, std::string("/usr/bin:/bin")}) {
        SCOPED_TRACE(search);
        setenv("PATH", search.c_str(), 1);
        Result r =
            Run({"-q", "-f", scratch / "one", "-f", scratch / "two", "--", "sh", "-c",
                 "f=/floppy/floppy0; l() { ls $f | tr a-z A-Z | sort -u; }; l; "
                 "cat $f/PKG_TAR.Z1 $f/db/fr_FR/CoreString.vdb; touch $f/x 2>/dev/null; "
                 "echo touch $?; eject -q >> /tmp/Msg; echo loaded $?; eject -f >> /tmp/Msg; "
                 "echo ejected $?; eject -q; echo loaded $?; l; volcheck; l; "
                 "cat $f/pkg_tar.z2"});
        EXPECT_EQ(r.out,
                  "DB\nPKG_TAR.Z1\npiece\nvdb\ntouch 1\nloaded 0\nejected 0\nloaded 1\n"
                  "PKG_TAR.Z2\npiece\n");
    }
    setenv("PATH", path.c_str(), 1);
    EXPECT_FALSE(fs::exists(scratch / "one/x"));
}

// As a DOS file system does, at any depth and to any user.
TEST_F(RehearseTest, DosDisketteAnswersToAnyCaseOfAName) {
    if (std::system("{ command -v fusefat && command -v mkfs.vfat && command -v mcopy && "
                    "test -c /dev/fuse; } >/dev/null") != 0)
        GTEST_SKIP() << "no FAT tools (fusefat, mkfs.vfat, mcopy) or no /dev/fuse: the drive "
                        "answers only to all-lower and all-upper case names";
    Write(scratch / "dos/DB/FR_FR/CORESTRING.VDB", "vdb\n");
    Write(scratch / "dos/TRANS.CONF", "conf\n");
    Result r = Run({"-q", "-u", "nobody", "-f", scratch / "dos", "--", "cat",
                    "/floppy/floppy0/db/fr_FR/CoreString.vdb", "/floppy/floppy0/trans.conf"});
    EXPECT_EQ(r.out, "vdb\nconf\n") << r.err;
}

// While one rehearsal hangs, another beside it sees neither its stand-in nor its
// command; interrupted, it kills what ignores the signal and leaves nothing behind.
TEST_F(RehearseTest, StandInsShowInsideOnlyAndAHangIsCleanedUp) {
    std::string name = "RhTest" + tag.substr(0, 8), sleep = "sleep 1000." + tag;
    std::string mounts = Slurp("/proc/self/mountinfo");
    pid_t pid = Start({"-q", "-p", name, "--", "sh", "-c", "trap '' INT TERM; exec " + sleep},
                      "/dev/null", "/dev/null");
    ASSERT_TRUE(Eventually([&] { return OnHost(sleep) && OnHost(name); }));
    EXPECT_FALSE(Has(Run({"-q", "--", "ps", "-e"}).out, name));
    kill(pid, SIGINT);
    EXPECT_EQ(Wait(pid), 137);  // it ignored the interrupt, so it was killed
    EXPECT_FALSE(OnHost(sleep) || OnHost(name));
    EXPECT_EQ(Slurp("/proc/self/mountinfo"), mounts);
    EXPECT_EQ(StateDirsOf(pid), 0);
}

}  // namespace
