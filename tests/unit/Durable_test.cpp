// Replacements interrupted half-way — a write that fails (the file size limit
// stands in for a full disk or a crash) or a rename that fails — leave the
// original or the complete new file, and no scratch file behind.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <functional>
#include <set>
#include <sys/wait.h>

#include "Dbm.h"
#include "SysCmd.h"
#include "TestFiles.h"
#include "setup.h"

namespace {

using testfiles::Listing;
using testfiles::Slurp;
using testfiles::Write;
namespace fs = std::filesystem;

class DurableTest : public ::testing::Test {
  protected:
    testfiles::TempDir dir;
    std::string tool = dir.path().string();
    void SetUp() override {
        my_name = const_cast<char *>("durable_test");
        pToolPath = tool.data();
    }
    /// Runs `replace` in a child whose writes stop after `limit` bytes; its result.
    static int WithWritesCutAt(rlim_t limit, const std::function<int()> &replace) {
        pid_t child = fork();
        if (child == 0) {
            std::signal(SIGXFSZ, SIG_IGN);
            struct rlimit cut = {limit, limit};
            setrlimit(RLIMIT_FSIZE, &cut);
            _exit(replace() & 0xff);
        }
        int status = 0;
        waitpid(child, &status, 0);
        return WEXITSTATUS(status);
    }
};

TEST_F(DurableTest, FailedWriteLeavesTheOriginalOfEveryKindOfReplacement) {
    std::string big(4000, 'n');
    fs::path text = dir / "text", edited = dir / "edited.conf", script = dir / "script";
    Write(text, "old text\n");
    Write(edited, "key=old\n");
    Write(script, "#!/bin/sh\nold\n");
    ASSERT_TRUE(DbmPutRecord("strings", "k", "old", 4));
    std::string database = Slurp(dir / "db/strings.vdb");
    std::set<std::string> before = Listing(dir.path());

    EXPECT_EQ(WithWritesCutAt(100, [&] {
                  return CreateTextFile(text.c_str(), "wt", 0644, "%s", big.c_str());
              }), 0);
    EXPECT_NE(WithWritesCutAt(100, [&] {
                  return FileChange((dir / "edited").c_str(), "conf", "old", big.c_str());
              }), 0);
    EXPECT_EQ(WithWritesCutAt(100, [&] {
                  return GenSimpleScript(script.c_str(), "#!/bin/sh", "%s", big.c_str());
              }), 0);
    EXPECT_EQ(WithWritesCutAt(60, [&] {
                  return DbmPutRecord("strings", "k", big.c_str(), static_cast<int>(big.size()));
              }), 0);

    EXPECT_EQ(Slurp(text), "old text\n");
    EXPECT_EQ(Slurp(edited), "key=old\n");
    EXPECT_EQ(Slurp(script), "#!/bin/sh\nold\n");
    EXPECT_EQ(Slurp(dir / "db/strings.vdb"), database);
    EXPECT_EQ(Listing(dir.path()), before);
}

TEST_F(DurableTest, CompleteReplacementsKeepModeAndFollowLinks) {
    fs::path real = dir / "real", link = dir / "link";
    Write(real, "old\n");
    fs::create_symlink(real, link);
    ASSERT_EQ(CreateTextFile(link.c_str(), "wt", 0640, "%s", "new\n"), 1);
    EXPECT_TRUE(fs::is_symlink(link));
    EXPECT_EQ(Slurp(real), "new\n");
    EXPECT_EQ(fs::status(real).permissions(), fs::perms(0640));
    ASSERT_EQ(CreateTextFile(real.c_str(), "at", 0, "%s", "more\n"), 1);
    EXPECT_EQ(Slurp(real), "new\nmore\n");
}

TEST_F(DurableTest, FailedRenameLeavesTheTargetAndNoScratch) {
    fs::path target = dir / "busy";
    Write(target / "inside", "kept\n");  // a directory: nothing can be renamed over it
    std::set<std::string> before = Listing(dir.path());
    testing::internal::CaptureStderr();
    EXPECT_EQ(CreateTextFile(target.c_str(), "wt", 0644, "%s", "new\n"), 0);
    testing::internal::GetCapturedStderr();
    EXPECT_EQ(Slurp(target / "inside"), "kept\n");
    EXPECT_EQ(Listing(dir.path()), before);
}

}  // namespace
