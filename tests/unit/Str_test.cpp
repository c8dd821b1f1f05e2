// Paths, strings and environment: splitters, escape-aware searching,
// allocated formatting, identity queries and the tool directory, the last
// ones on real temporary directories.
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "SysCmd.h"
#include "utils.h"

namespace fs = std::filesystem;

namespace {

std::string Take(char *allocated) {
    std::string text = allocated ? allocated : "<null>";
    PutMem(allocated);
    return text;
}

std::string RunAndRead(const char *command) {
    FILE *pipe = popen(command, "r");
    char line[256] = {};
    if (pipe) {
        if (!fgets(line, sizeof line, pipe)) line[0] = '\0';
        pclose(pipe);
    }
    std::string text = line;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    return text;
}

/// A scratch directory that is also the working directory while it lives.
class TempCwd {
  public:
    TempCwd() {
        char tmpl[] = "/tmp/strtest-XXXXXX";
        root_ = fs::canonical(mkdtemp(tmpl));
        saved_ = fs::current_path();
        fs::current_path(root_);
    }
    ~TempCwd() {
        fs::current_path(saved_);
        fs::remove_all(root_);
    }
    const fs::path &root() const { return root_; }

  private:
    fs::path root_, saved_;
};

}  // namespace

// ---- Path splitters

TEST(PathSplit, StripFnGivesTheDirectoryPart) {
    EXPECT_STREQ(StripFn("a/b/c"), "a/b");
    EXPECT_STREQ(StripFn("a/b/"), "a/b");
    EXPECT_STREQ(StripFn("/file"), "/");
    EXPECT_STREQ(StripFn("/"), "/");
    EXPECT_STREQ(StripFn("file"), ".");
    EXPECT_STREQ(StripFn(""), ".");
    EXPECT_STREQ(StripFn(nullptr), ".");
}

TEST(PathSplit, StripPathGivesTheLastNonEmptyComponent) {
    EXPECT_STREQ(StripPath("a/b/c"), "c");
    EXPECT_STREQ(StripPath("a/b/c/"), "c");
    EXPECT_STREQ(StripPath("a/b/"), "b");
    EXPECT_STREQ(StripPath("/"), "/");
    EXPECT_STREQ(StripPath("name"), "name");
    EXPECT_STREQ(StripPath(nullptr), "");
}

TEST(PathSplit, StripExtSkipsLeadingDotsLikeAStrtokSplit) {
    EXPECT_STREQ(StripExt("a.b.c"), "a");
    EXPECT_STREQ(StripExt(".profile"), "profile");
    EXPECT_STREQ(StripExt("plain"), "plain");
    EXPECT_STREQ(StripExt("..."), "");
}

TEST(PathSplit, StripPathExtCutsTheLastComponentAtItsFirstDot) {
    EXPECT_STREQ(StripPathExt("/x/dir.d/file.tar.gz"), "file");
    EXPECT_STREQ(StripPathExt("dir.d/file"), "file");
    EXPECT_STREQ(StripPathExt(nullptr), "");
}

TEST(PathSplit, StripPathNameDropsOnlyTheLastExtension) {
    EXPECT_STREQ(StripPathName("/x/archive.tar.gz"), "archive.tar");
    EXPECT_STREQ(StripPathName("/x/setup"), "setup");
    EXPECT_STREQ(StripPathName("/x/.profile"), ".profile");
    EXPECT_STREQ(StripPathName("a/."), "");
    EXPECT_STREQ(StripPathName("a/.."), "");
    EXPECT_STREQ(StripPathName(nullptr), "");
}

TEST(PathSplit, EachSplitterKeepsItsOwnBuffer) {
    const char *directory = StripFn("/opt/pkg/setup");
    const char *name = StripPath("/opt/pkg/setup");
    EXPECT_STREQ(directory, "/opt/pkg");
    EXPECT_STREQ(name, "setup");
    StripFn("/other/place");
    EXPECT_STREQ(name, "setup");
}

TEST(PathSplit, OverlongPathIsCutAtTheBuffer) {
    std::string path = "/" + std::string(3 * STRIP_BUF_SIZE, 'd') + "/f";
    EXPECT_EQ(std::string(StripFn(path.c_str())).size(), size_t(STRIP_BUF_SIZE - 1));
    EXPECT_EQ(std::string(StripPath(path.substr(0, path.size() - 2).c_str())).size(),
              size_t(STRIP_BUF_SIZE - 1));
}

// ---- Small string helpers

TEST(StringScan, SkipSpaceStopsAtTheFirstNonBlank) {
    const char *text = " \t\n x y";
    EXPECT_EQ(SkipSpace(text), text + 4);
    const char *empty = "";
    EXPECT_EQ(SkipSpace(empty), empty);
    EXPECT_EQ(SkipSpace(nullptr), nullptr);
}

TEST(StringScan, StripAllBackslashesKeepsTheEscapedCharacter) {
    char text[] = "a\\\\b\\c\\";
    EXPECT_EQ(StripAllBackslashes(text), text);
    EXPECT_STREQ(text, "a\\bc");
}

TEST(StringScan, StrChrStepsOverEscapes) {
    const char *text = "a\\,b,c";
    EXPECT_EQ(StrChr(text, ','), text + 4);
    const char *escapedBackslash = "\\\\,x";
    EXPECT_EQ(StrChr(escapedBackslash, ','), escapedBackslash + 2);
    EXPECT_EQ(StrChr("abc\\", 'x'), nullptr);
    EXPECT_EQ(StrChr("", 'a'), nullptr);
}

TEST(StringScan, StrNChrCountsFromOne) {
    const char *text = "a,b,c";
    EXPECT_EQ(StrNChr(text, ',', 1), text + 1);
    EXPECT_EQ(StrNChr(text, ',', 2), text + 3);
    EXPECT_EQ(StrNChr("a,b", ',', 2), nullptr);
    EXPECT_EQ(StrNChr("", ',', 1), nullptr);
    EXPECT_EQ(StrNChr(nullptr, ',', 1), nullptr);
    EXPECT_EQ(StrNChr(text, ',', 0), nullptr);
}

TEST(StringScan, StrStrAndStrCaseStr) {
    const char *text = "Hello World";
    EXPECT_EQ(StrStr(text, "World"), text + 6);
    EXPECT_EQ(StrStr(text, "WORLD"), nullptr);
    EXPECT_EQ(StrCaseStr(text, "wORLd"), text + 6);
    EXPECT_EQ(StrCaseStr(text, "worlds"), nullptr);
    EXPECT_EQ(StrStr("", ""), nullptr);
    EXPECT_EQ(StrCaseStr("", ""), nullptr);
    EXPECT_EQ(StrStr(nullptr, "a"), nullptr);
    EXPECT_EQ(StrCaseStr(text, nullptr), nullptr);
}

TEST(StringScan, StrNStrNeverGetsPastTheFirstOccurrence) {
    const char *text = "abab";
    EXPECT_EQ(StrNStr(text, "ab", 1), text);
    EXPECT_EQ(StrNStr(text, "ab", 2), text);
    EXPECT_EQ(StrNStr(text, "ab", 5), text);
    const char *tail = "xa";
    EXPECT_EQ(StrNStr(tail, "a", 1), tail + 1);
    EXPECT_EQ(StrNStr(tail, "a", 2), nullptr);
    EXPECT_EQ(StrNStr(text, "c", 1), nullptr);
    EXPECT_EQ(StrNStr("", "a", 1), nullptr);
}

// ---- Allocated strings

TEST(SavedStrings, SaveStrFormatsIntoAFreshBlock) {
    char *first = SaveStr("%s-%d", "x", 5);
    char *second = SaveStr("%s-%d", "x", 5);
    EXPECT_STREQ(first, "x-5");
    EXPECT_NE(first, second);
    PutMem(first);
    PutMem(second);
}

TEST(SavedStrings, SaveStrCutsAResultBeyondItsScratch) {
    // A 2-character format gets a scratch of 8 KiB.
    std::string big(10000, 'z');
    EXPECT_EQ(Take(SaveStr("%s", big.c_str())).size(), size_t(2 * 4096 - 1));
    std::string longFormat(5000, 'f');
    EXPECT_EQ(Take(SaveStr("%s", longFormat.c_str())), longFormat);
}

TEST(SavedStrings, SaveStrWorkBufferIs64KiB) {
    std::string big(70000, 'q');
    EXPECT_EQ(Take(SaveStr__("%s", big.c_str())).size(), size_t(0x10000 - 1));
    EXPECT_EQ(Take(SaveStr__("%d%%", 50)), "50%");
    EXPECT_EQ(SaveStr__(nullptr), nullptr);
}

TEST(SavedStrings, SaveStrCopiesPlainly) {
    EXPECT_EQ(Take(SaveStr_("100%d")), "100%d");
}

// ---- Environment and identity

TEST(Identity, GetEnvCopiesTheValue) {
    setenv("STRTEST_PLAIN", "/usr/bin:/bin", 1);
    setenv("STRTEST_PERCENT", "50%%off", 1);
    unsetenv("STRTEST_UNSET");
    EXPECT_EQ(Take(GetEnv("STRTEST_PLAIN")), "/usr/bin:/bin");
    EXPECT_EQ(Take(GetEnv("STRTEST_PERCENT")), "50%off");
    EXPECT_EQ(GetEnv("STRTEST_UNSET"), nullptr);
}

TEST(Identity, GetUserNameRunsWhoami) {
    EXPECT_EQ(Take(GetUserName()), RunAndRead("whoami"));
}

TEST(Identity, SetVarContentReversesOnlyWhenTheLowByteIsSet) {
    uint32_t source = 0x11223344, target = 0;
    SetVarContent(&target, &source, 4, 1);
    EXPECT_EQ(target, 0x44332211u);
    SetVarContent(&target, &source, 4, 0x100);
    EXPECT_EQ(target, source);
    target = 7;
    SetVarContent(&target, &source, 0, 1);
    EXPECT_EQ(target, 7u);
}

// ---- Numbers

TEST(Numbers, CvtFloatFormatConvertsLengths) {
    EXPECT_DOUBLE_EQ(CvtFloatFormat(1, 0, 2), 72);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(2.54, 1, 0), 1);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(1, 0, 1), 2.54);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(144, 2, 0), 2);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(72, 2, 1), 2.54);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(2.54, 1, 2), 72);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(3, 1, 1), 3);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(3, 0, 7), 3);
}

// ---- Directories on a real file system

TEST(ToolPath, AbsolutePathGivesItsDirectory) {
    EXPECT_EQ(Take(GetToolPath("/floppy/floppy0/setup")), "/floppy/floppy0");
}

TEST(ToolPath, RelativePathsResolveAgainstTheWorkingDirectory) {
    TempCwd cwd;
    fs::create_directories(cwd.root() / "x" / "sub");
    const std::string root = cwd.root().string();
    EXPECT_EQ(Take(GetToolPath("setup")), root);
    EXPECT_EQ(Take(GetToolPath("./setup")), root);
    EXPECT_EQ(Take(GetToolPath("x/setup")), root + "/x");
    EXPECT_EQ(Take(GetToolPath("x/sub/setup")), root + "/x/sub");
    EXPECT_EQ(fs::canonical(Take(GetToolPath("../setup"))), cwd.root().parent_path());
    fs::current_path(cwd.root() / "x");
    EXPECT_EQ(Take(GetToolPath("../sub/setup")), root + "/sub");
}

TEST(ToolPath, DotSlashPrefixIgnoresTheSubdirectory) {
    TempCwd cwd;
    EXPECT_EQ(Take(GetToolPath("./x/setup")), cwd.root().string());
}

TEST(ExistingPath, FindsTheDeepestExistingAncestor) {
    TempCwd cwd;
    fs::create_directories(cwd.root() / "a");
    int exact = 7;
    std::string missing = (cwd.root() / "a" / "b" / "c").string();
    EXPECT_EQ(Take(FindExistingPath(missing.c_str(), &exact)), (cwd.root() / "a").string());
    EXPECT_EQ(exact, 7);

    std::string present = (cwd.root() / "a").string();
    exact = 0;
    EXPECT_EQ(Take(FindExistingPath(present.c_str(), &exact)), present);
    EXPECT_EQ(exact, 1);
}

TEST(ExistingPath, StopsAtTheRootAndAtTheWorkingDirectory) {
    TempCwd cwd;
    int exact = 0;
    EXPECT_EQ(Take(FindExistingPath("/no-such-dir-for-strtest/x", &exact)), "/");
    EXPECT_EQ(Take(FindExistingPath("nothing/here", &exact)), ".");
    EXPECT_EQ(exact, 0);
}

// ---- Print system detection through stand-in commands

class PrintSystemTest : public ::testing::Test {
  protected:
    TempCwd cwd;
    const char *savedPath = nullptr;
    char savedInit = 0;

    void SetUp() override {
        savedPath = ComList[CMD_LPD].path;
        savedInit = flInitSysCmd;
        flInitSysCmd = 0;
    }
    void TearDown() override {
        ComList[CMD_LPD].path = savedPath;
        flInitSysCmd = savedInit;
    }
    /// An lpd that answers on standard error, as the real one does.
    void FakeLpd(const std::string &answer) {
        fs::path script = cwd.root() / "lpd";
        std::ofstream(script) << "#!/bin/sh\necho '" << answer << "' >&2\n";
        fs::permissions(script, fs::perms::owner_all);
        static std::string directory;
        directory = cwd.root().string();
        ComList[CMD_LPD].path = directory.c_str();
    }
};

TEST_F(PrintSystemTest, LprngIsRecognisedFromTheVersionLine) {
    FakeLpd("lpd (LPRng-3.8.28)");
    EXPECT_EQ(SniffLprng(), 1);
}

TEST_F(PrintSystemTest, OtherLpdIsNotLprng) {
    FakeLpd("lpd: unknown option -V");
    EXPECT_EQ(SniffLprng(), 0);
}

TEST_F(PrintSystemTest, MissingLpdIsNotLprng) {
    ComList[CMD_LPD].path = nullptr;
    EXPECT_EQ(SniffLprng(), 0);
}
