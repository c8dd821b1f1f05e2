// Line files: in-place editing on real files, existence tests, the line
// readers and the whole-file queries, all inside a scratch directory.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "MemMgr.h"
#include "TestFiles.h"
#include "utils.h"

namespace fs = std::filesystem;
using ::testing::ExitedWithCode;
using ::testing::internal::CaptureStderr;
using ::testing::internal::GetCapturedStderr;

class LineFileTest : public ::testing::Test {
  protected:
    testfiles::TempDir dir;
    const std::string f = (dir / "f").string();

    void SetUp() override { my_name = const_cast<char *>("linefile_test"); }
    void TearDown() override {
        CloseInputFile();
        flInputFilterState = 0;
    }
    /// Writes `text` to f and gives its name, for the editing calls.
    const char *F(const std::string &text) {
        testfiles::Write(f, text);
        return f.c_str();
    }
    std::string Read() const { return testfiles::Slurp(f); }
    void Open(const std::string &text, bool filter) {
        flInputFilterState = filter;
        ASSERT_EQ(OpenInputFile(F(text), 1), 1);
    }
};

TEST_F(LineFileTest, ChangesEditInPlaceAndRemoveTheCopy) {
    testfiles::Write(f + ".cfg", "old\n");
    EXPECT_EQ(FileChange(F("aaa\nxa\nb\n"), "", "a", "b"), 0);
    EXPECT_EQ(Read(), "baa\nxb\nb\n");
    EXPECT_FALSE(fs::exists(f + ".out"));
    EXPECT_EQ(FileChange(f.c_str(), "cfg", "old", "new"), 0);
    EXPECT_EQ(testfiles::Slurp(f + ".cfg"), "new\n");
    EXPECT_FALSE(fs::exists(f + ".cfgout"));
    FileChangeChar(F("a\rb\r"), "", "13", "13,10");
    EXPECT_EQ(Read(), "a\r\nb\r\n");
    FileChangeChar(F("abca\n"), "", "0x61", "65");
    EXPECT_EQ(Read(), "AbcA\n");
}

TEST_F(LineFileTest, DeletionsSpareTheFirstMatches) {
    FileDel(F("axb\nc\naxxb\n"), "", 1, "x");
    EXPECT_EQ(Read(), "axb\nc\naxb\n");
    FileDelLine(F("x1\ny\nx2\nx3\n"), "", 1, "x");
    EXPECT_EQ(Read(), "x1\ny\n");
    FileDelLinePair(F("begin\na\nend\nbegin\nb\nend\nend\nc\n"), "", 1, "begin", "end");
    EXPECT_EQ(Read(), "begin\na\nend\nb\nend\nc\n");
}

TEST_F(LineFileTest, DelFormatEditsEachLineByModeAndAnUnknownModeNothing) {
    const std::tuple<const char *, const char *, const char *, int> cases[] = {
        {"", "=", "KEYvalue\nplain\n", 0}, {"a", "=", "KEY=\nplain\n", 0},
        {"b", "=", "=value\nplain\n", 0},  {"c", "97", "KEY=vlue\nplin\n", 0},
        {"l", "=", "plain\n", 0},          {"z", "=", "KEY=value\nplain\n", 1}};
    for (auto [mode, text, expected, result] : cases) {
        EXPECT_EQ(FileDelFormat(F("KEY=value\nplain\n"), "", mode, text), result) << mode;
        EXPECT_EQ(Read(), expected) << mode;
    }
}

TEST_F(LineFileTest, InsertTemplatesStartAtPercentSAndCountFromPercentHash) {
    FileInsert(F("a\nb\n"), "", "# %#0");
    EXPECT_EQ(Read(), "# 00000a\n# 00001b\n");
    FileInsert(F("a\nb\nc\nd\n"), "", "%s3>%#5<");  // counter 3..6: from 5, numbered from 0
    EXPECT_EQ(Read(), "a\nb\n>00000<c\n>00001<d\n");
    FileSearchInsert(F("x\ny\nx\n"), "", "[%#0]", "x");
    EXPECT_EQ(Read(), "[00000]x\ny\n[00001]x\n");
}

TEST_F(LineFileTest, LongLinesAreEditedPieceByPiece) {
    const size_t piece = READ_PIECE - 1;
    // "XY" straddles the end of the first piece, so neither piece holds it.
    std::string line = std::string(piece - 1, 'a') + "XY" + std::string(400, 'a') + "\n";
    FileChange(F(line), "", "XY", "--");
    EXPECT_EQ(Read(), line);
    FileInsert(f.c_str(), "", "#");
    EXPECT_EQ(Read(), "#" + line.substr(0, piece) + "#" + line.substr(piece));
}

TEST_F(LineFileTest, UnopenableFilesAreReportedByErrorMode) {
    const std::string missing = (dir / "no/such").string();
    const std::string message = "can't open file, " + missing;
    EXPECT_EXIT(OpenFile(nullptr, missing.c_str(), "rt", 2), ExitedWithCode(1), message);
    EXPECT_EXIT(FileDelLine(missing.c_str(), "", 0, "x"), ExitedWithCode(1), message);
    CaptureStderr();
    EXPECT_EQ(OpenFile(nullptr, missing.c_str(), "rt", 1), nullptr);
    EXPECT_EQ(OpenFile(nullptr, missing.c_str(), "rt", 0), nullptr);
    EXPECT_EQ(OpenInputFile(missing.c_str(), 1), 0);
    EXPECT_EQ(GetCapturedStderr(), "ERROR: " + message + "\nWARNING: " + message + "\n");
    EXPECT_EQ(FileStatus, 2);
}

TEST_F(LineFileTest, FindFileSplitsItsArguments) {
    testfiles::Write(dir / "sub/file", "");
    const char *root = dir.path().c_str();
    EXPECT_EQ(FindFile(nullptr, "/etc/passwd"), 1);
    EXPECT_EQ(FindFile("/etc", ""), 1);  // etc in /
    EXPECT_EQ(FindFile((dir / "sub").c_str(), nullptr), 1);
    EXPECT_EQ(FindFile(root, "sub/file"), 1);
    EXPECT_EQ(FindFile(root, "sub/none"), 0);
    EXPECT_EQ(FindFile(root, "fil"), 0);                      // whole names only
    EXPECT_EQ(FindFile((dir / "sub/file").c_str(), "x"), 0);  // not a directory
    EXPECT_EQ(FindFile((dir / "gone").c_str(), "x"), 0);      // cannot be read
    EXPECT_EQ(FindFile(nullptr, ""), 0);
    // Found by name or in the listing, the answers agree: a dangling link is
    // an entry, and a name that is a blank-separated piece of one is found.
    testfiles::Write(dir / "x y", "");
    fs::create_symlink(dir / "none", dir / "dangling");
    EXPECT_EQ(FindFile(root, "dangling") + FindFile(root, "x") + FindFile(root, "x y"), 3);
}

TEST_F(LineFileTest, GetLineReadsPiecesAndItsFilterRemovesComments) {
    Open(std::string(600, 'a') + "\n// c\n", false);
    EXPECT_EQ(GetLine(), 1);
    EXPECT_EQ(std::strlen(Line), size_t(READ_PIECE - 1));
    EXPECT_EQ(GetLine(), 1);
    EXPECT_EQ(std::string(Line), std::string(90, 'a') + "\n");
    EXPECT_EQ(GetLine(), 1);
    EXPECT_STREQ(Line, "// c\n");
    Open("  code // note\na /* b */ c\r\nx /* one\ntwo\nthree */ y\nz /* open\n", true);
    EXPECT_EQ(GetLine(), 1);
    EXPECT_STREQ(Line, "code ");
    EXPECT_EQ(GetLine(), 1);
    EXPECT_STREQ(Line, "a  c");
    EXPECT_EQ(GetLine(), 3);  // the physical lines the comment covered
    EXPECT_STREQ(Line, "x y");
    EXPECT_EQ(GetLine(), 0);  // an unclosed comment ends the file
}

TEST_F(LineFileTest, GetFileLineJoinsBackslashNewlineLines) {
    Open("a \\\nb \\\nc\nd\n", false);
    EXPECT_EQ(GetFileLine(), 1);
    EXPECT_STREQ(LineBuf, "a \\\nb \\\nc\n");
    EXPECT_EQ(LineLen, 8);
    EXPECT_EQ(GetFileLine(), 1);
    EXPECT_STREQ(LineBuf, "d\n");
    EXPECT_EQ(GetFileLine(), 0);
    EXPECT_EQ(FileStatus, 1);
}

TEST_F(LineFileTest, SavedContentIsNullWhenEmptyAndEmptyForOneByte) {
    for (auto [text, expected] : {std::tuple{"", "<null>"}, {"x", ""}, {"ab", "ab"}}) {
        F(text);
        MemPtr<char> content(GetSavedFileContent(dir.path().c_str(), "f"));
        EXPECT_STREQ(content ? content.get() : "<null>", expected);
        EXPECT_EQ(SavedFileSize, long(std::strlen(text)));
    }
    MemPtr<char> whole(GetSavedFileContent(f.c_str(), nullptr));
    EXPECT_STREQ(whole.get(), "ab");
}

TEST_F(LineFileTest, ContentStopsShortOfLineBufAndContentRTerminatesInLineBuf) {
    EXPECT_EQ(GetFileContent(F(std::string(5000, 'c')), nullptr), 1);
    EXPECT_EQ(std::strlen(LineBuf), size_t(LINEBUF_SIZE - 1));
    std::memset(LineBuf, 'x', 8);
    char buffer[] = "yyyyyyy";
    F("abc");
    EXPECT_EQ(GetFileContentR(dir.path().c_str(), "f", buffer, sizeof buffer), 1);
    EXPECT_EQ(std::string(buffer, 4), "abcy");
    EXPECT_EQ(LineBuf[3], '\0');
    EXPECT_EQ(LineBuf[2], 'x');
}
