// Messages, the log and the whole-file operations, with the real mkdir,
// chmod, rm and mv on temporary directories.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "TestFiles.h"
#include "utils.h"

namespace fs = std::filesystem;
using ::testing::ExitedWithCode;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

namespace {

// Death tests of the log re-run this binary; the name travels in the
// environment so that the child writes the same log as the parent reads.
const std::string kName = [] {
    setenv("MSG_TEST_NAME", ("msgtest" + std::to_string(getpid())).c_str(), 0);
    return std::string(std::getenv("MSG_TEST_NAME"));
}();
const fs::path kLog = "/tmp/" + kName + ".log";

/// Names the program; its log is removed before and after.
class MsgTest : public ::testing::Test {
  protected:
    void SetUp() override {
        my_name = const_cast<char *>(kName.c_str());
        flUseLog = 0;
        fs::remove_all(kLog);
    }
    void TearDown() override { fs::remove_all(kLog); }
};

}  // namespace

TEST_F(MsgTest, LogIsCreatedOnlyWhenOnAndWritableForAll) {
    PutLogMsg("nothing %d\n", 1);
    EXPECT_FALSE(fs::exists(kLog));
    flUseLog = 1;
    PutLogMsg("%s %d\n", "first", 1);
    PutLogMsg("%s\n", "second");
    EXPECT_EQ(testfiles::Slurp(kLog), "first 1\nsecond\n");
    EXPECT_EQ(fs::status(kLog).permissions(), fs::perms(0666));
}

TEST_F(MsgTest, EachRunStartsTheLogAfreshAndAppendsWithinIt) {
    // This style re-runs the whole body in a new process, so each run starts
    // with a fresh first-message state and finds the stale text written here.
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    testfiles::Write(kLog, "stale\n");
    auto run = [](const char *first, const char *second) {
        flUseLog = 1;
        PutLogMsg("%s\n", first);
        if (second) PutLogMsg("%s\n", second);
        std::exit(0);
    };
    EXPECT_EXIT(run("one", "two"), ExitedWithCode(0), "");
    EXPECT_EQ(testfiles::Slurp(kLog), "one\ntwo\n");
    EXPECT_EXIT(run("three", nullptr), ExitedWithCode(0), "");
    EXPECT_EQ(testfiles::Slurp(kLog), "three\n");
}

TEST_F(MsgTest, ErrorMsgKindsFormatWarnOrEnd) {
    CaptureStderr();
    ErrorMsg(3, 0, "quiet %d", 3);
    ErrorMsg(0, 0, "<%s> <%s>", Line, Line);  // callers quote Line itself
    EXPECT_STREQ(Line, "<quiet 3> <quiet 3>");
    ErrorMsg(1, 9, "careful %s", "now");
    EXPECT_EQ(GetCapturedStderr(), "WARNING: careful now\n");
    EXPECT_EXIT(ErrorMsg(2, 7, "cannot %s", "go on"), ExitedWithCode(7), "^ERROR: cannot go on\n$");
    EXPECT_EXIT((errno = ENOENT, SysError("cannot read %s", "disks")), ExitedWithCode(1),
                "^\n" + kName + ": cannot read disks : No such file or directory\n$");
}

// No death tests below: a child that re-runs the binary would leave its scratch behind.
TEST_F(MsgTest, CreateFileMakesTheDirectoryAndChangesOnlyItsMode) {
    testfiles::TempDir root;
    fs::path directory = root / "new" / "sub";
    EXPECT_EQ(CreateFile(directory.c_str(), nullptr, "750", nullptr, nullptr), 0);
    EXPECT_EQ(fs::status(directory).permissions(), fs::perms(0750));
    EXPECT_EQ(fs::directory_iterator(directory), fs::directory_iterator());
}

TEST_F(MsgTest, MissingSourcesAreIgnored) {
    testfiles::TempDir root;
    DeleteFile(root.path().c_str(), "absent");
    DeleteFile(nullptr, nullptr);
    EXPECT_TRUE(fs::exists(root.path()));
    EXPECT_EQ(RenameFile(root.path().c_str(), "ghost", "new"), 0);
    EXPECT_FALSE(fs::exists(root / "new"));
    EXPECT_EQ(RenameFile(nullptr, (root / "ghost").c_str(), (root / "new2").c_str()), 0);
    EXPECT_FALSE(fs::exists(root / "new2"));
}
