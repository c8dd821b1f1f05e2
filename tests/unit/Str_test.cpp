// Paths, strings and environment: splitters, escape-aware searching,
// allocated formatting and the tool directory on real temporary directories.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "SysCmd.h"
#include "TestFiles.h"
#include "utils.h"

namespace fs = std::filesystem;

namespace {

std::string Take(char *allocated) {
    std::string text = allocated ? allocated : "<null>";
    PutMem(allocated);
    return text;
}

/// A scratch directory that is also the working directory while it lives.
struct TempCwd {
    testfiles::TempDir dir;
    fs::path saved = fs::current_path();
    fs::path root = fs::canonical(dir.path());
    TempCwd() { fs::current_path(root); }
    ~TempCwd() { fs::current_path(saved); }
};

}  // namespace

TEST(PathSplit, SplittersHandleEdgesAndCutAtTheBuffer) {
    EXPECT_STREQ(StripFn("/file"), "/");
    EXPECT_STREQ(StripFn("file"), ".");
    EXPECT_STREQ(StripFn(nullptr), ".");
    EXPECT_STREQ(StripPath("a/b/"), "b");
    EXPECT_STREQ(StripPath(nullptr), "");
    EXPECT_STREQ(StripExt(".profile"), "profile");
    std::string path = "/" + std::string(3 * STRIP_BUF_SIZE, 'd') + "/f";
    EXPECT_EQ(std::string(StripFn(path.c_str())).size(), size_t(STRIP_BUF_SIZE - 1));
}

TEST(StringScan, SearchesStepOverEscapesAndCountFromOne) {
    const char *text = "a\\,b,c", *escaped = "\\\\,x", *list = "a,b,c", *tail = "xa";
    EXPECT_EQ(StrChr(text, ','), text + 4);
    EXPECT_EQ(StrChr(escaped, ','), escaped + 2);
    EXPECT_EQ(StrChr("abc\\", 'x'), nullptr);
    EXPECT_EQ(StrNChr(list, ',', 2), list + 3);
    EXPECT_EQ(StrNChr("a,b", ',', 2), nullptr);
    EXPECT_EQ(StrNChr(list, ',', 0), nullptr);
    EXPECT_EQ(StrNChr(nullptr, ',', 1), nullptr);
    // StrNStr never gets past the first occurrence.
    EXPECT_EQ(StrNStr(list + 1, ",", 2), list + 1);
    EXPECT_EQ(StrNStr(tail, "a", 1), tail + 1);
    EXPECT_EQ(StrNStr(tail, "a", 2), nullptr);
}

TEST(AllocatedStrings, SaveStrCutsAtItsScratchAndGetEnvCollapsesPercents) {
    EXPECT_EQ(Take(SaveStr("%s-%d", "x", 5)), "x-5");
    // A 2-character format gets a scratch of 8 KiB; the work buffer is 64 KiB.
    EXPECT_EQ(Take(SaveStr("%s", std::string(10000, 'z').c_str())).size(), size_t(2 * 4096 - 1));
    EXPECT_EQ(Take(SaveStr__("%s", std::string(70000, 'q').c_str())).size(), size_t(0xFFFF));
    EXPECT_EQ(Take(SaveStr_("100%d")), "100%d");
    setenv("STRTEST_PERCENT", "50%%off", 1);
    EXPECT_EQ(Take(GetEnv("STRTEST_PERCENT")), "50%off");
    EXPECT_EQ(GetEnv("STRTEST_UNSET"), nullptr);
}

TEST(Numbers, CvtFloatFormatConvertsBetweenInchesCentimetresAndPoints) {
    EXPECT_DOUBLE_EQ(CvtFloatFormat(1, 0, 2), 72);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(72, 2, 1), 2.54);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(2.54, 1, 0), 1);
    EXPECT_DOUBLE_EQ(CvtFloatFormat(3, 0, 7), 3);
}

TEST(Directories, ToolPathAndExistingPathResolveAgainstTheWorkingDirectory) {
    EXPECT_EQ(Take(GetToolPath("/floppy/floppy0/setup")), "/floppy/floppy0");
    TempCwd cwd;
    fs::create_directories(cwd.root / "x" / "sub");
    const std::string root = cwd.root.string();
    EXPECT_EQ(Take(GetToolPath("./setup")), root);
    EXPECT_EQ(Take(GetToolPath("./x/setup")), root);  // "./" ignores the subdirectory
    EXPECT_EQ(Take(GetToolPath("x/sub/setup")), root + "/x/sub");
    int exact = 7;
    EXPECT_EQ(Take(FindExistingPath((root + "/x/b/c").c_str(), &exact)), root + "/x");
    EXPECT_EQ(exact, 7);
    EXPECT_EQ(Take(FindExistingPath((root + "/x").c_str(), &exact)), root + "/x");
    EXPECT_EQ(exact, 1);
    EXPECT_EQ(Take(FindExistingPath("/no-such-dir-for-strtest/x", &exact)), "/");
    EXPECT_EQ(Take(FindExistingPath("nothing/here", &exact)), ".");
    fs::current_path(cwd.root / "x");
    EXPECT_EQ(Take(GetToolPath("../sub/setup")), root + "/sub");
}
