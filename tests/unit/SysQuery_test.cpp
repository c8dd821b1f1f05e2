// Process, disk-space and size queries against the host's real ps, df and du,
// with stand-in commands where a report format must be controlled.
#include "SysCmd.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace {

void WriteFile(const std::string &path, const std::string &text, mode_t mode = 0644) {
    std::ofstream(path, std::ios::binary) << text;
    chmod(path.c_str(), mode);
}

std::vector<std::string> Split(const std::string &line) {
    std::istringstream in(line);
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

// The data line of df for `path`, read independently of the code under test.
std::vector<std::string> DfLine(const std::string &path) {
    std::string command = "df " + path;
    FILE *pipe = popen(command.c_str(), "r");
    char header[4096], data[4096] = "";
    if (std::fgets(header, sizeof header, pipe)) std::fgets(data, sizeof data, pipe);
    pclose(pipe);
    return Split(data);
}

class SysQueryTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/sysquery_test_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        std::snprintf(name, sizeof name, "sysqt%d", static_cast<int>(getpid()));
        my_name = name;
        flUseLog = 0;
        flSysCmdLog = 0;
        ResetSysCmdList();
    }
    void TearDown() override {
        if (child > 0) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
        ResetSysCmdList();
        std::system(("rm -rf " + dir).c_str());
    }
    std::string Path(const char *file) const { return dir + "/" + file; }

    // A copy of sleep under a name no other process has (ps shows 15 characters).
    void StartUniqueProcess() {
        std::snprintf(procName, sizeof procName, "zq%dslp", static_cast<int>(getpid()) % 1000000);
        std::string copy = Path(procName);
        ASSERT_EQ(std::system(("cp /bin/sleep " + copy).c_str()), 0);
        child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            execl(copy.c_str(), procName, "60", static_cast<char *>(nullptr));
            _exit(127);
        }
        // ps must see the exec'd name, not the forked test program.
        for (int i = 0; i < 200 && !RunsUnderItsName(); ++i) usleep(10000);
        ASSERT_TRUE(RunsUnderItsName());
    }
    bool RunsUnderItsName() const {
        std::ifstream comm("/proc/" + std::to_string(child) + "/comm");
        std::string text;
        std::getline(comm, text);
        return text == procName;
    }

    // A stand-in for a table command: `script` becomes <dir>/<command's name>.
    void FakeCommand(int index, const std::string &script) {
        std::string fake = dir + "/fake";
        mkdir(fake.c_str(), 0755);
        WriteFile(fake + "/" + ComList[index].name, "#!/bin/sh\n" + script, 0755);
        fakeDir = fake;
        ComList[index].path = fakeDir.c_str();
    }

    std::string dir;
    std::string fakeDir;
    char name[32];
    char procName[16];
    pid_t child = -1;
};

TEST_F(SysQueryTest, PsIdListMatchesTheExactNameOnly) {
    StartUniqueProcess();
    MemPtr<char> ids(GetSysPsIdList(procName));
    ASSERT_NE(ids, nullptr);
    EXPECT_EQ(std::string(ids.get()), " " + std::to_string(child) + " ");
    std::string part(procName, std::strlen(procName) - 1);
    EXPECT_EQ(GetSysPsIdList(part.c_str()), nullptr) << "a name that only contains the query";
}

TEST_F(SysQueryTest, ProcTableListsOnlyRunningNames) {
    StartUniqueProcess();
    std::string names = std::string("zqnotrunning,") + procName + ",";
    MemPtr<char> table(CheckProcTableForExecs(names.c_str()));
    ASSERT_NE(table, nullptr);
    EXPECT_EQ(std::string(table.get()),
              std::string(procName) + " ( " + std::to_string(child) + " )\n");
    EXPECT_EQ(CheckProcTableForExecs("zqnotrunning,zqneither"), nullptr);
}

TEST_F(SysQueryTest, KillByNameSendsSignalNine) {
    StartUniqueProcess();
    EXPECT_EQ(KillProcessByName(procName), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    child = -1;
    ASSERT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGKILL);
}

TEST_F(SysQueryTest, DiskSpaceReadsTheAvailableColumn) {
    DiskSpace space;
    ASSERT_EQ(GetDiskSpace(dir.c_str(), &space), 1);
    std::vector<std::string> mine = Split(space.line);
    std::vector<std::string> reference = DfLine(dir);
    ASSERT_EQ(mine.size(), 6u) << space.line;
    ASSERT_EQ(reference.size(), 6u);
    EXPECT_EQ(mine[0], reference[0]);
    EXPECT_EQ(mine[5], reference[5]);
    EXPECT_EQ(space.avail, std::strtod(mine[3].c_str(), nullptr));
    // Other programs write meanwhile: the two readings agree only roughly.
    double other = std::strtod(reference[3].c_str(), nullptr);
    EXPECT_NEAR(space.avail, other, other * 0.05 + 1024);
    EXPECT_EQ(space.line[std::strlen(space.line) - 1], '\n');
}

TEST_F(SysQueryTest, AvailColumnIsFoundByName) {
    FakeCommand(CMD_DF,
                "echo 'Filesystem Type blocks use avail %use Mounted on'\n"
                "echo '/dev/root xfs 1000 400 600 40% /'\n");
    DiskSpace space;
    ASSERT_EQ(GetDiskSpace("/", &space), 1);
    EXPECT_EQ(space.avail, 600);
    EXPECT_STREQ(space.line, "/dev/root xfs 1000 400 600 40% /\n");
}

TEST_F(SysQueryTest, DiskSpaceWithoutReportIsZero) {
    FakeCommand(CMD_DF, "exit 1\n");
    DiskSpace space;
    space.avail = 7;
    EXPECT_EQ(GetDiskSpace("/", &space), 0);
    EXPECT_EQ(space.avail, 0);
    FakeCommand(CMD_DF, "echo 'Filesystem blocks used free'\necho 'x 1 2 3'\n");
    EXPECT_EQ(GetDiskSpace("/", &space), 0) << "no column named avail";
}

TEST_F(SysQueryTest, OverlongReportLinesStayInBounds) {
    FakeCommand(CMD_DF, "echo 'Filesystem Available'\nprintf 'dev 12 %09000d\\n' 0\n");
    DiskSpace space;
    ASSERT_EQ(GetDiskSpace("/", &space), 1);
    EXPECT_EQ(space.avail, 12);
    EXPECT_EQ(std::strlen(space.line), sizeof space.line - 1);
}

TEST_F(SysQueryTest, MissingPathIsMeasuredOnItsNearestParent) {
    FakeCommand(CMD_DF,
                "[ -e \"$1\" ] || exit 1\n"
                "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
                "echo '/dev/x 5000 4000 1000 80% /'\n");
    std::string deep = Path("not/yet/there");
    EXPECT_EQ(AvailSpace(deep.c_str(), nullptr, 1000), 1);
    EXPECT_EQ(AvailSpace(deep.c_str(), nullptr, 1001), 0);
}

TEST_F(SysQueryTest, ReinstallCountsTheExistingDirectoryAsFree) {
    FakeCommand(CMD_DF,
                "echo 'Filesystem 1K-blocks Used Available Use% Mounted on'\n"
                "echo '/dev/x 5000 4000 1000 80% /'\n");
    std::string pkg = Path("pkg");
    mkdir(pkg.c_str(), 0755);
    WriteFile(pkg + "/data", std::string(256 * 1024, 'd'));
    double used = DUPath(pkg.c_str());
    EXPECT_GE(used, 256);
    EXPECT_EQ(AvailSpace(dir.c_str(), "pkg", 1000 + used), 1);
    EXPECT_EQ(AvailSpace(dir.c_str(), "pkg", 1000 + used + 1), 0);
    EXPECT_EQ(AvailSpace(dir.c_str(), "other", 1000 + used), 0);
}

TEST_F(SysQueryTest, SizeOfSilentDuIsZero) {
    FakeCommand(CMD_DU, "exit 1\n");
    EXPECT_EQ(DUPath(dir.c_str()), 0);
}

TEST_F(SysQueryTest, PackageListTakesTheSecondColumn) {
    FakeCommand(CMD_PKGINFO,
                "echo 'system      SUNWcsr   Core Root'\n"
                "echo 'application ORVpnzz   Printer driver'\n");
    MemPtr<char> all(GetSysPkgList(nullptr));
    EXPECT_STREQ(all.get(), " SUNWcsr ORVpnzz ");
    MemPtr<char> some(GetSysPkgList("ORV"));
    EXPECT_STREQ(some.get(), " ORVpnzz ");
    EXPECT_EQ(GetSysPkgList("nothing"), nullptr);
}

}  // namespace
