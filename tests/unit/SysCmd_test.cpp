// Command table, path resolution, command lines as the shell receives them,
// and captured responses, run with the host's real commands in a temporary
// directory.
#include "SysCmd.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

std::string ReadAll(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void WriteFile(const std::string &path, const std::string &text, mode_t mode = 0644) {
    std::ofstream(path, std::ios::binary) << text;
    chmod(path.c_str(), mode);
}

std::set<std::string> Words(const char *list) {
    std::set<std::string> words;
    std::istringstream in(list ? list : "");
    for (std::string w; in >> w;) words.insert(w);
    return words;
}

std::vector<std::string> Texts(ResponseLine *list) {
    std::vector<std::string> texts;
    for (ResponseLine *r = list; r; r = r->next) texts.emplace_back(r->text);
    FreeResponseList(list);
    return texts;
}

class SysCmdTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/syscmd_test_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
        std::snprintf(name, sizeof name, "syscmdt%d", static_cast<int>(getpid()));
        my_name = name;
        logPath = std::string("/tmp/") + name + ".log";
        const char *path = getenv("PATH");
        savedPath = path ? path : "";
        ResetSysCmdList();
        flUseLog = 0;
        flSysCmdLog = 0;
    }
    void TearDown() override {
        setenv("PATH", savedPath.c_str(), 1);
        ResetSysCmdList();
        std::string rm = "rm -rf " + dir;
        std::system(rm.c_str());
        unlink(logPath.c_str());
    }
    std::string Path(const char *file) const { return dir + "/" + file; }
    // A fresh log: PutLogMsg truncates at the first message of a run only.
    void StartLog() {
        flUseLog = 1;
        flSysCmdLog = 1;
        WriteFile(logPath, "");
    }

    std::string dir;
    char name[32];
    std::string logPath;
    std::string savedPath;
};

// ---- The table and its resolution

TEST_F(SysCmdTest, DefaultDirectoriesWinOverPath) {
    WriteFile(Path("cat"), "#!/bin/sh\n", 0755);
    WriteFile(Path("volcheck"), "#!/bin/sh\n", 0755);
    setenv("PATH", dir.c_str(), 1);
    InitSysCmdList();
    EXPECT_STREQ(ComList[CMD_CAT].path, "/usr/bin");
    EXPECT_STREQ(ComList[CMD_VOLCHECK].path, dir.c_str());
    EXPECT_EQ(ComList[CMD_PIOMKPQ].path, nullptr);
    EXPECT_STREQ(getenv("SHELL"), "/usr/bin/sh ");
    EXPECT_EQ(flInitSysCmd, 0);
    EXPECT_EQ(flSysCmdLog, 0) << "logging starts only with flUseLog";
}

TEST_F(SysCmdTest, InitLogsWhenTheLogIsOn) {
    StartLog();
    flSysCmdLog = 0;
    InitSysCmdList();
    EXPECT_EQ(flSysCmdLog, 1);
    EXPECT_EQ(ReadAll(logPath), "initializing system\n");
}

TEST_F(SysCmdTest, LazyResolutionSearchesDefaultThenPath) {
    WriteFile(Path("cat"), "#!/bin/sh\n", 0755);
    WriteFile(Path("volcheck"), "#!/bin/sh\n", 0755);
    setenv("PATH", dir.c_str(), 1);
    EXPECT_EQ(FillCmdPath(CMD_CAT), 1);
    EXPECT_STREQ(ComList[CMD_CAT].path, "/usr/bin");
    EXPECT_EQ(FillCmdPath(CMD_VOLCHECK), 1);
    EXPECT_STREQ(ComList[CMD_VOLCHECK].path, dir.c_str());
    EXPECT_EQ(FillCmdPath(CMD_PIOMKPQ), 0);
    EXPECT_EQ(FillCmdPath(CMD_NONE1), 0) << "an empty name must not match the directory";
}

TEST_F(SysCmdTest, FillCmdPathsReportsWhatRemains) {
    EXPECT_EQ(FillCmdPaths(Path("missing").c_str()), 1);
    EXPECT_EQ(ComList[CMD_CAT].path, nullptr);
    EXPECT_EQ(FillCmdPaths(dir.c_str()), 1);
    const char *usrBin = "/usr/bin";
    EXPECT_EQ(FillCmdPaths(usrBin), 1);
    EXPECT_EQ(ComList[CMD_CP].path, usrBin) << "the directory string itself, not a copy";
}

TEST_F(SysCmdTest, CommandStringsFromTheTable) {
    EXPECT_EQ(TestCmd(CMD_NONE), 0);
    EXPECT_EQ(TestCmd(CMD_NONE1), 0);
    EXPECT_EQ(TestCmd(CMD_CP), 1);
    EXPECT_EQ(TestCmd(CMD_COUNT), 0);
    MemPtr<char> cat(GetCmd(CMD_CAT));
    EXPECT_STREQ(cat.get(), "/usr/bin/cat ");
    MemPtr<char> cp(GetCmd(CMD_CP));
    EXPECT_STREQ(cp.get(), "/usr/bin/cp -p");
    MemPtr<char> bare(GetCmdNoFlags(CMD_CP));
    EXPECT_STREQ(bare.get(), "/usr/bin/cp");
    EXPECT_EQ(GetCmdNoFlags(CMD_COUNT), nullptr);
    EXPECT_EQ(GetCmdNoFlags(1000), nullptr);
}

// ---- Directory lists

TEST_F(SysCmdTest, EmptyDirectoryListsDotEntries) {
    MemPtr<char> list(GetDirFileList(dir.c_str()));
    ASSERT_NE(list, nullptr);
    EXPECT_TRUE(std::strcmp(list.get(), " . .. ") == 0 || std::strcmp(list.get(), " .. . ") == 0)
        << list.get();
    EXPECT_EQ(GetDirFileList(Path("missing").c_str()), nullptr);
}

TEST_F(SysCmdTest, SearchKeepsExactExtensionOnly) {
    for (const char *f : {"a.sh", "b.tar.sh", "sh", "a.SH", "c.shx"}) WriteFile(Path(f), "");
    MemPtr<char> list(SearchDirFileList(dir.c_str(), "sh"));
    ASSERT_NE(list, nullptr);
    EXPECT_EQ(Words(list.get()), (std::set<std::string>{"a.sh", "b.tar.sh"}));
    EXPECT_EQ(list.get()[0], ' ');
    EXPECT_EQ(list.get()[std::strlen(list.get()) - 1], ' ');
    EXPECT_EQ(SearchDirFileList(dir.c_str(), "zip"), nullptr);
    EXPECT_EQ(SearchDirFileList(Path("missing").c_str(), "sh"), nullptr);
    MemPtr<char> all(SearchDirFileList(dir.c_str(), nullptr));
    EXPECT_EQ(Words(all.get()).size(), 7u);
}

// ---- Running commands

TEST_F(SysCmdTest, CopyLogsTheExactCommandLine) {
    StartLog();
    WriteFile(Path("src"), "payload\n");
    std::string src = Path("src"), dst = Path("dst");
    testing::internal::CaptureStdout();
    EXPECT_EQ(SysCmd(CMD_CP, 1, "%s %s", src.c_str(), dst.c_str()), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), ".");
    EXPECT_EQ(ReadAll(dst), "payload\n");
    EXPECT_EQ(ReadAll(logPath), "/usr/bin/sh -c \"/usr/bin/cp -p " + src + " " + dst + "\n");
}

TEST_F(SysCmdTest, OutputGoesToTheLogAfterItsLine) {
    StartLog();
    testing::internal::CaptureStdout();
    SysCmd(CMD_ECHO, 1, "%s", "hello");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), ".");
    EXPECT_EQ(ReadAll(logPath), "/usr/bin/sh -c \"/usr/bin/echo  hello\nhello\n");
}

TEST_F(SysCmdTest, ModeZeroDiscardsOutputAndWritesNoLogLine) {
    StartLog();
    testing::internal::CaptureStdout();
    EXPECT_EQ(SysCmd(CMD_ECHO, 0, "%s", "hello"), 0);
    SysCmd(0, 0, "%s", "echo hi");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(ReadAll(logPath), "");
}

TEST_F(SysCmdTest, NegativeIndexNeitherLogsNorRedirects) {
    StartLog();
    testing::internal::CaptureStdout();
    SysCmd(-CMD_ECHO, 1, "%s", "visible");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "visible\n");
    EXPECT_EQ(ReadAll(logPath), "");
    WriteFile(Path("a"), "x");
    EXPECT_EQ(SysCmd(-CMD_MV, 1, "%s %s", Path("a").c_str(), Path("b").c_str()), 0);
    EXPECT_EQ(ReadAll(Path("b")), "x");
}

TEST_F(SysCmdTest, RowZeroRunsTheTextAsTheWholeLine) {
    StartLog();
    std::string out = Path("out");
    testing::internal::CaptureStdout();
    SysCmd(CMD_NONE, 1, "echo hi > %s", out.c_str());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(ReadAll(out), "hi\n");
    EXPECT_EQ(ReadAll(logPath), "") << "row 0 is never logged";
}

TEST_F(SysCmdTest, CallersOwnRedirectionKeepsStandardOutput) {
    StartLog();
    WriteFile(Path("in"), "aaa\n");
    std::string in = Path("in"), out = Path("out");
    testing::internal::CaptureStdout();
    SysCmd(CMD_SED, 2, "s/a/b/ %s > %s", in.c_str(), out.c_str());
    SysCmd(CMD_ECHO, 0, "quiet > %s", Path("q").c_str());
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(ReadAll(out), "baa\n");
    EXPECT_EQ(ReadAll(Path("q")), "quiet\n");
    EXPECT_EQ(ReadAll(logPath), "/usr/bin/sh -c \"/usr/bin/sed  s/a/b/ " + in + " > " + out + "\n");
}

TEST_F(SysCmdTest, StandardErrorRedirectionIsNotStandardOutput) {
    StartLog();
    testing::internal::CaptureStdout();
    SysCmd(CMD_ECHO, 1, "%s", "both 2>/dev/null");
    SysCmd(CMD_ECHO, 1, "%s", "'a > b'");
    testing::internal::GetCapturedStdout();
    std::string log = ReadAll(logPath);
    EXPECT_NE(log.find("\nboth\n"), std::string::npos) << log;
    EXPECT_NE(log.find("\na > b\n"), std::string::npos) << log;
}

TEST_F(SysCmdTest, ModeOneFailureIsLoggedAsWarning) {
    StartLog();
    std::string missing = Path("missing");
    testing::internal::CaptureStdout();
    errno = ENOENT;
    int result = SysCmd(CMD_CP, 1, "%s %s", missing.c_str(), Path("x").c_str());
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(result, ENOENT) << "the result is errno, not the exit status";
    EXPECT_NE(ReadAll(logPath).find("WARNING_MSG: No such file or directory\n"), std::string::npos);
}

TEST_F(SysCmdTest, InterruptedCallIsNeverAFailure) {
    StartLog();
    testing::internal::CaptureStdout();
    errno = EINTR;
    EXPECT_EQ(SysCmd(CMD_CP, 2, "%s %s", Path("missing").c_str(), dir.c_str()), EINTR);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(ReadAll(logPath).find("ERROR"), std::string::npos);
}

TEST_F(SysCmdTest, ModeTwoFailureExitsWithErrorText) {
    std::string out = Path("stdout");
    std::string missing = Path("missing");
    EXPECT_EXIT(
        {
            std::freopen(out.c_str(), "w", stdout);
            StartLog();
            errno = ENOENT;
            SysCmd(CMD_CP, 2, "%s %s", missing.c_str(), dir.c_str());
        },
        ::testing::ExitedWithCode(1), "");
    EXPECT_EQ(ReadAll(out), ".ERROR: No such file or directory\n");
    EXPECT_NE(ReadAll(logPath).find("ERROR: No such file or directory\n"), std::string::npos);
}

TEST_F(SysCmdTest, MissingCommandEndsWithStatusZero) {
    std::string emptyPath = dir;
    EXPECT_EXIT(
        {
            setenv("PATH", emptyPath.c_str(), 1);
            SysCmd(CMD_PIOMKPQ, 1, "%s", "");
        },
        ::testing::ExitedWithCode(0), "^ERROR: unable to locate system command 'piomkpq'\n$");
    EXPECT_EXIT(
        {
            setenv("PATH", emptyPath.c_str(), 1);
            GetCmdResponse(CMD_LSQUE, nullptr, "%s", "");
        },
        ::testing::ExitedWithCode(0), "^ERROR: unable to locate system command 'lsque'\n$");
}

TEST_F(SysCmdTest, FreeFormLineReportsShiftedStatus) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    int result = SysCmdP(1, "%s", "exit 1");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "exit 1\n");
    // 256 >> 7 is 2, which perror shows as "No such file or directory".
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "ERROR: No such file or directory\n");
    EXPECT_EQ(result, 2);
}

TEST_F(SysCmdTest, FreeFormLineModeTwoExits) {
    EXPECT_EXIT(
        {
            std::freopen("/dev/null", "w", stdout);
            SysCmdP(2, "%s", "exit 1");
        },
        ::testing::ExitedWithCode(1),
        "^ERROR: unable to locate system command '%s'\n: No such file or directory\n$");
}

// ---- Responses

TEST_F(SysCmdTest, ResponseKeepsFilteredLinesWithNewlines) {
    for (const char *f : {"ax", "b", "x1"}) WriteFile(Path(f), "");
    EXPECT_EQ(Texts(GetCmdResponse(CMD_LS, "x", "%s", dir.c_str())),
              (std::vector<std::string>{"ax\n", "x1\n"}));
    EXPECT_EQ(Texts(GetCmdResponse(CMD_LS, "", "%s", dir.c_str())).size(), 3u);
    EXPECT_EQ(Texts(GetCmdResponse(CMD_LS, nullptr, "%s", dir.c_str())).size(), 3u);
}

TEST_F(SysCmdTest, ResponseOfSilentCommandIsNull) {
    WriteFile(Path("empty"), "");
    EXPECT_EQ(GetCmdResponse(CMD_CAT, nullptr, "%s", Path("empty").c_str()), nullptr);
    EXPECT_EQ(GetCmdResponseStr(CMD_CAT, nullptr, "%s", Path("empty").c_str()), nullptr);
    WriteFile(Path("f"), "abc\n");
    EXPECT_EQ(GetCmdResponseStr(CMD_CAT, "zzz", "%s", Path("f").c_str()), nullptr);
}

TEST_F(SysCmdTest, ResponseStringEndsEveryLine) {
    WriteFile(Path("f"), "one\ntwo x\nthree x");
    MemPtr<char> all(GetCmdResponseStr(CMD_CAT, nullptr, "%s", Path("f").c_str()));
    EXPECT_STREQ(all.get(), "one\ntwo x\nthree x\n");
    MemPtr<char> kept(GetCmdResponseStr(CMD_CAT, "x", "%s", Path("f").c_str()));
    EXPECT_STREQ(kept.get(), "two x\nthree x\n");
}

TEST_F(SysCmdTest, LongLinesArriveInPieces) {
    WriteFile(Path("long"), std::string(10000, 'y') + "\n");
    std::vector<std::string> pieces =
        Texts(GetCmdResponse(CMD_CAT, nullptr, "%s", Path("long").c_str()));
    ASSERT_EQ(pieces.size(), 3u);
    EXPECT_EQ(pieces[0], std::string(4095, 'y'));
    EXPECT_EQ(pieces[2], std::string(10000 - 2 * 4095, 'y') + "\n");
    MemPtr<char> all(GetCmdResponseStr(CMD_CAT, nullptr, "%s", Path("long").c_str()));
    EXPECT_EQ(std::strlen(all.get()), 10000u + 3u);
}

}  // namespace
