// Process queries against the host's real ps, and the free space of a path
// not made yet; df's columns are pinned down by the end-to-end free-space runs.
#include "SysCmd.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "TestFiles.h"

namespace {

class SysQueryTest : public ::testing::Test {
  protected:
    void SetUp() override { my_name = name.data(); }
    void TearDown() override {
        if (child > 0 && kill(child, SIGKILL) == 0) waitpid(child, nullptr, 0);
    }
    // A copy of sleep under a name no other process has (ps shows 15 characters).
    void StartUniqueProcess() {
        std::string copy = dir + "/" + procName;
        ASSERT_EQ(std::system(("cp /bin/sleep " + copy).c_str()), 0);
        if ((child = fork()) == 0) {
            execl(copy.c_str(), procName.c_str(), "60", static_cast<char *>(nullptr));
            _exit(127);
        }
        // ps must see the exec'd name, not the forked test program.
        std::string comm = "/proc/" + std::to_string(child) + "/comm";
        for (int i = 0; i < 200 && testfiles::Slurp(comm) != procName + "\n"; ++i) usleep(10000);
    }

    testfiles::TempDir tmp;
    std::string dir = tmp.path().string();
    std::string name = "sysqt" + std::to_string(getpid());
    std::string procName = "zq" + std::to_string(getpid() % 1000000) + "slp";
    pid_t child = -1;
};

TEST_F(SysQueryTest, ProcessQueriesMatchTheExactNameOnly) {
    StartUniqueProcess();
    std::string pid = std::to_string(child);
    MemPtr<char> ids(GetSysPsIdList(procName.c_str()));
    EXPECT_STREQ(ids.get(), (" " + pid + " ").c_str());
    EXPECT_EQ(GetSysPsIdList(procName.substr(0, procName.size() - 1).c_str()), nullptr);
    MemPtr<char> table(CheckProcTableForExecs(("zqnotrunning," + procName + ",").c_str()));
    EXPECT_STREQ(table.get(), (procName + " ( " + pid + " )\n").c_str());
    EXPECT_EQ(CheckProcTableForExecs("zqnotrunning,zqneither"), nullptr);
    EXPECT_EQ(KillProcessByName(procName.c_str()), 0);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    child = -1;
    EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST_F(SysQueryTest, MissingPathIsMeasuredOnItsNearestParent) {
    std::string deep = dir + "/not/yet/there";
    EXPECT_EQ(AvailSpace(deep.c_str(), nullptr, 1), 1);
    EXPECT_EQ(AvailSpace(deep.c_str(), nullptr, 1e18), 0);
}

}  // namespace
