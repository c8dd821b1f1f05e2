// Messages, the log and the whole-file operations, with the real touch,
// chmod, mkdir, rm and mv on temporary directories.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "utils.h"

namespace fs = std::filesystem;
using ::testing::ExitedWithCode;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

namespace {

// Death tests of the log re-run this binary; the name travels in the
// environment so that the child writes the same log as the parent reads.
const std::string &TestName() {
    static const std::string name = [] {
        if (const char *inherited = std::getenv("MSG_TEST_NAME")) return std::string(inherited);
        std::string fresh = "msgtest" + std::to_string(getpid());
        setenv("MSG_TEST_NAME", fresh.c_str(), 1);
        return fresh;
    }();
    return name;
}

std::string Slurp(const fs::path &p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

int Mode(const fs::path &p) {
    struct stat st {};
    return stat(p.c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 07777) : -1;
}

/// Names the program and its log; the log is removed afterwards.
class LogTest : public ::testing::Test {
  protected:
    fs::path log;
    std::string name;

    void SetUp() override {
        name = TestName();
        my_name = name.data();
        log = "/tmp/" + name + ".log";
        flUseLog = 0;
    }
    void TearDown() override { fs::remove_all(log); }
};

/// A scratch directory besides.
class MsgTest : public LogTest {
  protected:
    fs::path root;

    void SetUp() override {
        LogTest::SetUp();
        char tmpl[] = "/tmp/msgtest-XXXXXX";
        root = mkdtemp(tmpl);
    }
    void TearDown() override {
        fs::remove_all(root);
        LogTest::TearDown();
    }
};

}  // namespace

// ---- The log

TEST_F(LogTest, LogOffCreatesNoFile) {
    fs::remove_all(log);
    PutLogMsg("nothing %d\n", 1);
    EXPECT_FALSE(fs::exists(log));
}

TEST_F(LogTest, MissingLogIsCreatedWritableForAll) {
    fs::remove_all(log);
    flUseLog = 1;
    PutLogMsg("%s %d\n", "first", 1);
    PutLogMsg("%s\n", "second");
    EXPECT_EQ(Slurp(log), "first 1\nsecond\n");
    EXPECT_EQ(Mode(log), 0666);
}

TEST_F(LogTest, EachRunStartsTheLogAfreshAndAppendsWithinIt) {
    // Every death test of this style re-runs the whole body in a new
    // process, so each run starts with a fresh first-message state and
    // finds the stale text written here.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    std::ofstream(log) << "stale\n";
    auto run = [](const char *first, const char *second) {
        flUseLog = 1;
        PutLogMsg("%s\n", first);
        if (second) PutLogMsg("%s\n", second);
        std::exit(0);
    };
    EXPECT_EXIT(run("one", "two"), ExitedWithCode(0), "");
    EXPECT_EQ(Slurp(log), "one\ntwo\n");
    EXPECT_EXIT(run("three", nullptr), ExitedWithCode(0), "");
    EXPECT_EQ(Slurp(log), "three\n");
}

TEST_F(LogTest, UnopenableLogIsReportedAndTheRunGoesOn) {
    fs::create_directory(log);
    flUseLog = 1;
    CaptureStderr();
    PutLogMsg("lost\n");
    PutLogMsg("lost again\n");
    std::string expected = "ERROR: couldn't open " + log.string() + "\n";
    EXPECT_EQ(GetCapturedStderr(), expected + expected);
    EXPECT_STREQ(pLogPath, "/tmp");
}

// ---- Messages

TEST_F(MsgTest, ErrorMsgKindsWarnReportOrOnlyFormat) {
    CaptureStderr();
    ErrorMsg(3, 0, "quiet %d", 3);
    EXPECT_EQ(GetCapturedStderr(), "");
    EXPECT_STREQ(Line, "quiet 3");

    CaptureStderr();
    ErrorMsg(1, 9, "careful %s", "now");
    EXPECT_EQ(GetCapturedStderr(), "WARNING: careful now\n");
    EXPECT_STREQ(Line, "careful now");

    EXPECT_EXIT(ErrorMsg(2, 7, "cannot %s", "go on"), ExitedWithCode(7), "^ERROR: cannot go on\n$");
}

TEST_F(MsgTest, ErrorMsgMayQuoteLineItself) {
    std::snprintf(Line, LINE_SIZE, "%s", "inner");
    ErrorMsg(0, 0, "<%s> <%s>", Line, Line);
    EXPECT_STREQ(Line, "<inner> <inner>");
}

TEST_F(MsgTest, SysErrorAddsTheSystemTextAndExitsWithOne) {
    auto fail = [] {
        errno = ENOENT;
        SysError("cannot read %s", "disks");
    };
    EXPECT_EXIT(fail(), ExitedWithCode(1),
                "^\n" + name + ": cannot read disks : No such file or directory\n$");
}

TEST_F(MsgTest, ErrormsgPrefixesTheProgramName) {
    CaptureStderr();
    errormsg("disk %d missing", 2);
    EXPECT_EQ(GetCapturedStderr(), name + ": disk 2 missing\n");
    my_name = nullptr;
    CaptureStderr();
    errormsg("unnamed");
    EXPECT_EQ(GetCapturedStderr(), ": unnamed\n");
}

// ---- Whole files

TEST_F(MsgTest, CreateTextFileWritesAppendsAndSetsPermissions) {
    fs::path file = root / "cfg";
    EXPECT_EQ(CreateTextFile(file.c_str(), "wt", 0640, " %s ", "V5"), 1);
    EXPECT_EQ(Mode(file), 0640);
    EXPECT_EQ(CreateTextFile(file.c_str(), "at", 0, "%d\n", 2), 1);
    EXPECT_EQ(Slurp(file), " V5 2\n");
    EXPECT_EQ(Mode(file), 0640);
}

TEST_F(MsgTest, CreateTextFileReportsAnUnopenablePath) {
    fs::path file = root / "missing" / "cfg";
    CaptureStderr();
    EXPECT_EQ(CreateTextFile(file.c_str(), "wt", 0644, "x"), 0);
    EXPECT_EQ(GetCapturedStderr(), "ERROR: couldn't open " + file.string() + "\n");
}

TEST_F(MsgTest, CreateFileMakesTheDirectoryAndChangesOnlyItsMode) {
    fs::path directory = root / "new" / "sub";
    EXPECT_EQ(CreateFile(directory.c_str(), nullptr, "750", nullptr, nullptr), 0);
    EXPECT_TRUE(fs::is_directory(directory));
    EXPECT_EQ(Mode(directory), 0750);
    EXPECT_EQ(fs::directory_iterator(directory), fs::directory_iterator());
}

TEST_F(MsgTest, CreateFileTouchesAFileWithModeOwnerAndGroup) {
    std::string uid = std::to_string(getuid()), gid = std::to_string(getgid());
    EXPECT_EQ(CreateFile(root.c_str(), "flag", "600", uid.c_str(), gid.c_str()), 0);
    struct stat st {};
    ASSERT_EQ(stat((root / "flag").c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 07777, 0600u);
    EXPECT_EQ(st.st_uid, getuid());
    EXPECT_EQ(st.st_gid, getgid());
}

TEST_F(MsgTest, CreateFileEndsTheProgramWhenMkdirFails) {
    std::ofstream(root / "plain") << "not a directory";
    fs::path directory = root / "plain" / "sub";
    EXPECT_EXIT(CreateFile(directory.c_str(), nullptr, nullptr, nullptr, nullptr),
                ExitedWithCode(1), "");
}

TEST_F(MsgTest, DeleteFileRemovesTreesAndIgnoresMissingOnes) {
    fs::create_directories(root / "tree" / "deep");
    std::ofstream(root / "tree" / "deep" / "f") << "x";
    std::ofstream(root / "single") << "x";
    DeleteFile(root.c_str(), "tree");
    EXPECT_FALSE(fs::exists(root / "tree"));
    DeleteFile(nullptr, (root / "single").c_str());
    EXPECT_FALSE(fs::exists(root / "single"));
    DeleteFile(root.c_str(), "absent");
    DeleteFile(nullptr, nullptr);
    EXPECT_TRUE(fs::exists(root));
}

TEST_F(MsgTest, DeleteFileUnderscoreSplitsAPathWithoutName) {
    fs::create_directories(root / "a" / "b");
    fs::create_directories(root / "c");
    EXPECT_EQ(DeleteFile_((root / "a" / "b").c_str(), nullptr), 0);
    EXPECT_FALSE(fs::exists(root / "a" / "b"));
    EXPECT_TRUE(fs::exists(root / "a"));
    EXPECT_EQ(DeleteFile_(root.c_str(), "c"), 0);
    EXPECT_FALSE(fs::exists(root / "c"));
    EXPECT_EQ(DeleteFile_((root / "gone").c_str(), nullptr), 0);
}

TEST_F(MsgTest, RenameFileMovesWithinADirectoryOrByFullPaths) {
    std::ofstream(root / "old") << "content";
    EXPECT_EQ(RenameFile(root.c_str(), "old", "new"), 0);
    EXPECT_FALSE(fs::exists(root / "old"));
    EXPECT_EQ(Slurp(root / "new"), "content");

    fs::create_directory(root / "elsewhere");
    std::string from = (root / "new").string(), to = (root / "elsewhere" / "moved").string();
    EXPECT_EQ(RenameFile(nullptr, from.c_str(), to.c_str()), 0);
    EXPECT_EQ(Slurp(to), "content");
}

TEST_F(MsgTest, RenameFileOfAMissingSourceRunsNothing) {
    EXPECT_EQ(RenameFile(root.c_str(), "ghost", "new"), 0);
    EXPECT_FALSE(fs::exists(root / "new"));
    std::string to = (root / "new2").string();
    EXPECT_EQ(RenameFile(nullptr, (root / "ghost").c_str(), to.c_str()), 0);
    EXPECT_FALSE(fs::exists(to));
}
