// Command table, path resolution, command lines as the shell receives them,
// and captured responses, run with the host's real commands.
#include "SysCmd.h"

#include <gtest/gtest.h>

#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "TestFiles.h"

namespace {

using testfiles::Slurp;
using testfiles::Write;

std::vector<std::string> Texts(ResponseLine *list) {
    std::vector<std::string> texts;
    for (ResponseLine *r = list; r; r = r->next) texts.emplace_back(r->text);
    FreeResponseList(list);
    return texts;
}

class SysCmdTest : public ::testing::Test {
  protected:
    void SetUp() override {
        my_name = name.data();
        ResetSysCmdList();
        flUseLog = flSysCmdLog = 0;
    }
    void TearDown() override {
        ResetSysCmdList();
        unlink(logPath.c_str());
    }
    std::string Path(const char *file) const { return (tmp / file).string(); }
    // A fresh log: PutLogMsg truncates at the first message of a run only.
    void StartLog() {
        flUseLog = flSysCmdLog = 1;
        Write(logPath, "");
    }
    std::string Log() const { return Slurp(logPath); }

    testfiles::TempDir tmp;
    std::string dir = tmp.path().string();
    std::string name = "syscmdt" + std::to_string(getpid());
    std::string logPath = "/tmp/" + name + ".log";
};

TEST_F(SysCmdTest, DefaultDirectoriesWinOverPathAndMissingCommandsEnd) {
    for (const char *f : {"cat", "volcheck"}) {
        Write(Path(f), "#!/bin/sh\n");
        chmod(Path(f).c_str(), 0755);
    }
    std::string path = getenv("PATH") ? getenv("PATH") : "";
    setenv("PATH", dir.c_str(), 1);
    InitSysCmdList();
    EXPECT_STREQ(ComList[CMD_CAT].path, "/usr/bin");
    EXPECT_STREQ(ComList[CMD_VOLCHECK].path, dir.c_str());
    EXPECT_STREQ(getenv("SHELL"), "/usr/bin/sh ");
    EXPECT_EQ(FillCmdPath(CMD_NONE1), 0) << "an empty name must not match the directory";
    EXPECT_EXIT(SysCmd(CMD_PIOMKPQ, 1, "%s", ""), ::testing::ExitedWithCode(0),
                "^ERROR: unable to locate system command 'piomkpq'\n$");
    // Every command has the first directory, in search order, whose listing
    // names it: a dangling link counts, a name only elsewhere does not.
    symlink("/nonexistent", Path("lpadmin").c_str());
    ResetSysCmdList();
    InitSysCmdList();
    std::string order = std::string("/usr/bin:/usr/ucb:/usr/sbin:/bin:/sbin:/usr/lib:/usr/lib/print:") + dir;
    for (int i = 2; ComList[i].name; ++i) {
        std::string first;
        std::stringstream dirs(order);
        for (std::string d; first.empty() && std::getline(dirs, d, ':');)
            if (FindFile(d.c_str(), ComList[i].name)) first = d;
        EXPECT_EQ(ComList[i].path ? ComList[i].path : "", first) << ComList[i].name;
    }
    setenv("PATH", path.c_str(), 1);
}

TEST_F(SysCmdTest, DirectoryListsAreBlankSeparatedAndFiltered) {
    MemPtr<char> empty(GetDirFileList(dir.c_str()));
    ASSERT_NE(empty, nullptr);
    EXPECT_TRUE(!std::strcmp(empty.get(), " . .. ") || !std::strcmp(empty.get(), " .. . "));
    EXPECT_EQ(GetDirFileList(Path("missing").c_str()), nullptr);
    for (const char *f : {"a.sh", "b.tar.sh", "sh", "a.SH", "c.shx"}) Write(Path(f), "");
    MemPtr<char> list(SearchDirFileList(dir.c_str(), "sh"));
    std::string kept = list ? list.get() : "";
    EXPECT_TRUE(kept == " a.sh b.tar.sh " || kept == " b.tar.sh a.sh ") << kept;
    EXPECT_EQ(SearchDirFileList(dir.c_str(), "zip"), nullptr);
}

TEST_F(SysCmdTest, LogHoldsExactCommandLinesOfLoggedRunsOnly) {
    StartLog();
    Write(Path("src"), "payload\n");
    std::string src = Path("src"), dst = Path("dst");
    testing::internal::CaptureStdout();
    EXPECT_EQ(SysCmd(CMD_CP, 1, "%s %s", src.c_str(), dst.c_str()), 0);
    SysCmd(CMD_ECHO, 1, "%s", "hello");
    EXPECT_EQ(SysCmd(CMD_ECHO, 0, "%s", "mode zero"), 0);
    SysCmd(-CMD_ECHO, 1, "%s", "visible");
    EXPECT_EQ(SysCmd(-CMD_MV, 1, "%s %s", dst.c_str(), Path("moved").c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "..visible\n");
    EXPECT_EQ(Slurp(Path("moved")), "payload\n");
    EXPECT_EQ(Log(), "/usr/bin/sh -c \"/usr/bin/cp -p " + src + " " + dst +
                         "\n/usr/bin/sh -c \"/usr/bin/echo  hello\nhello\n");
}

// The package list's sed step writes to its own file and relies on this.
TEST_F(SysCmdTest, CallersOwnRedirectionKeepsStandardOutput) {
    StartLog();
    Write(Path("in"), "aaa\n");
    std::string in = Path("in"), out = Path("out");
    testing::internal::CaptureStdout();
    SysCmd(CMD_SED, 2, "s/a/b/ %s > %s", in.c_str(), out.c_str());
    EXPECT_EQ(Log(), "/usr/bin/sh -c \"/usr/bin/sed  s/a/b/ " + in + " > " + out + "\n");
    SysCmd(CMD_ECHO, 1, "%s", "both 2>/dev/null");
    SysCmd(CMD_ECHO, 1, "%s", "'a > b'");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(Slurp(out), "baa\n");
    EXPECT_NE(Log().find("\nboth\n"), std::string::npos) << Log();
    EXPECT_NE(Log().find("\na > b\n"), std::string::npos) << Log();
}

TEST_F(SysCmdTest, FailureResultIsErrnoAndOnlyModeTwoExits) {
    StartLog();
    std::string out = Path("stdout"), missing = Path("missing");
    testing::internal::CaptureStdout();
    errno = ENOENT;
    EXPECT_EQ(SysCmd(CMD_CP, 1, "%s %s", missing.c_str(), Path("x").c_str()), ENOENT);
    errno = EINTR;
    EXPECT_EQ(SysCmd(CMD_CP, 2, "%s %s", missing.c_str(), dir.c_str()), EINTR);
    testing::internal::GetCapturedStdout();
    EXPECT_NE(Log().find("WARNING_MSG: No such file or directory\n"), std::string::npos);
    EXPECT_EQ(Log().find("ERROR"), std::string::npos) << "an interrupted call never fails";
    EXPECT_EXIT((std::freopen(out.c_str(), "w", stdout), errno = ENOENT,
                 SysCmd(CMD_CP, 2, "%s %s", missing.c_str(), dir.c_str())),
                ::testing::ExitedWithCode(1), "");
    EXPECT_EQ(Slurp(out), ".ERROR: No such file or directory\n");
    EXPECT_NE(Log().find("ERROR: No such file or directory\n"), std::string::npos);
}

TEST_F(SysCmdTest, ResponsesKeepFilteredLinesEachEnded) {
    Write(Path("f"), "one\ntwo x\nthree x");
    EXPECT_EQ(Texts(GetCmdResponse(CMD_CAT, "x", "%s", Path("f").c_str())),
              (std::vector<std::string>{"two x\n", "three x"}));
    MemPtr<char> kept(GetCmdResponseStr(CMD_CAT, "x", "%s", Path("f").c_str()));
    EXPECT_STREQ(kept.get(), "two x\nthree x\n");
    EXPECT_EQ(GetCmdResponseStr(CMD_CAT, nullptr, "%s", "/dev/null"), nullptr);
    EXPECT_EQ(GetCmdResponseStr(CMD_CAT, "zzz", "%s", Path("f").c_str()), nullptr);
    // Lines longer than the read buffer arrive in pieces.
    Write(Path("long"), std::string(10000, 'y') + "\n");
    std::vector<std::string> pieces =
        Texts(GetCmdResponse(CMD_CAT, nullptr, "%s", Path("long").c_str()));
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces[0], std::string(4095, 'y'));
    EXPECT_EQ(pieces[2], std::string(10000 - 2 * 4095, 'y') + "\n");
}

}  // namespace
