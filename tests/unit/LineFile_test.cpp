// Line files: in-place editing on real files, existence tests, the line
// readers and the whole-file queries, all inside a scratch directory.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "MemMgr.h"
#include "utils.h"

namespace {

class ScratchDir : public ::testing::Test {
  protected:
    void SetUp() override {
        my_name = const_cast<char *>("linefile_test");
        char pattern[] = "/tmp/linefile_test.XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir_ = pattern;
    }
    void TearDown() override {
        CloseInputFile();
        std::system(("rm -rf " + dir_).c_str());
    }

    std::string Path(const std::string &name) const { return dir_ + "/" + name; }
    void Write(const std::string &name, const std::string &text) const {
        std::ofstream(Path(name), std::ios::binary) << text;
    }
    std::string Read(const std::string &name) const {
        std::ifstream in(Path(name), std::ios::binary);
        std::stringstream s;
        s << in.rdbuf();
        return s.str();
    }
    bool Exists(const std::string &name) const { return access(Path(name).c_str(), F_OK) == 0; }

    std::string dir_;
};

// ---- Editing

using LineEditTest = ScratchDir;

TEST_F(LineEditTest, ChangeReplacesFirstOccurrenceAndRemovesTheCopy) {
    Write("f", "aaa\nxa\nb\n");
    EXPECT_EQ(FileChange(Path("f").c_str(), "", "a", "b"), 0);
    EXPECT_EQ(Read("f"), "baa\nxb\nb\n");
    EXPECT_FALSE(Exists("f.out"));
}

TEST_F(LineEditTest, ExtensionNamesTheEditedFile) {
    Write("f", "keep\n");
    Write("f.cfg", "old\n");
    EXPECT_EQ(FileChange(Path("f").c_str(), "cfg", "old", "new"), 0);
    EXPECT_EQ(Read("f.cfg"), "new\n");
    EXPECT_EQ(Read("f"), "keep\n");
    EXPECT_FALSE(Exists("f.cfgout"));
}

TEST_F(LineEditTest, ChangeCharReplacesEveryCodeByTheListedBytes) {
    Write("dos", "a\rb\r");
    FileChangeChar(Path("dos").c_str(), "", "13", "13,10");
    EXPECT_EQ(Read("dos"), "a\r\nb\r\n");
    Write("hex", "abca\n");
    FileChangeChar(Path("hex").c_str(), "", "0x61", "65");
    EXPECT_EQ(Read("hex"), "AbcA\n");
}

TEST_F(LineEditTest, DelRemovesTextOnlyAfterTheSkippedLines) {
    Write("f", "axb\nc\naxxb\n");
    FileDel(Path("f").c_str(), "", 1, "x");
    EXPECT_EQ(Read("f"), "axb\nc\naxb\n");
}

TEST_F(LineEditTest, DelLineKeepsTheFirstMatchingLines) {
    Write("f", "x1\ny\nx2\nx3\n");
    FileDelLine(Path("f").c_str(), "", 1, "x");
    EXPECT_EQ(Read("f"), "x1\ny\n");
}

TEST_F(LineEditTest, DelLinePairDeletesLaterStartsWithTheirNextEnd) {
    Write("f", "begin\na\nend\nbegin\nb\nend\nend\nc\n");
    FileDelLinePair(Path("f").c_str(), "", 1, "begin", "end");
    EXPECT_EQ(Read("f"), "begin\na\nend\nb\nend\nc\n");
}

TEST_F(LineEditTest, DelFormatEditsEachLineByMode) {
    struct Case {
        const char *mode, *text, *expected;
    } cases[] = {
        {"", "=", "KEYvalue\nplain\n"},  {"a", "=", "KEY=\nplain\n"}, {"b", "=", "=value\nplain\n"},
        {"c", "97", "KEY=vlue\nplin\n"}, {"l", "=", "plain\n"},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.mode);
        Write("f", "KEY=value\nplain\n");
        EXPECT_EQ(FileDelFormat(Path("f").c_str(), "", c.mode, c.text), 0);
        EXPECT_EQ(Read("f"), c.expected);
    }
}

TEST_F(LineEditTest, DelFormatWithUnknownModeEditsNothing) {
    Write("f", "KEY=value\n");
    EXPECT_EQ(FileDelFormat(Path("f").c_str(), "", "z", "="), 1);
    EXPECT_EQ(Read("f"), "KEY=value\n");
}

TEST_F(LineEditTest, InsertWritesTheTemplateBeforeEveryLine) {
    Write("plain", "a\nb\n");
    FileInsert(Path("plain").c_str(), "", "> ");
    EXPECT_EQ(Read("plain"), "> a\n> b\n");
    Write("numbered", "a\nb\n");
    FileInsert(Path("numbered").c_str(), "", "# %#0");
    EXPECT_EQ(Read("numbered"), "# 00000a\n# 00001b\n");
}

TEST_F(LineEditTest, InsertCounterStartsAtPercentSAndCountsFromPercentHash) {
    Write("f", "a\nb\nc\nd\n");
    // Counter 3, 4, 5, 6: the template starts at 5, numbered from 0.
    FileInsert(Path("f").c_str(), "", "%s3>%#5<");
    EXPECT_EQ(Read("f"), "a\nb\n>00000<c\n>00001<d\n");
}

TEST_F(LineEditTest, SearchInsertCountsOnlyMatchingLines) {
    Write("f", "x\ny\nx\n");
    FileSearchInsert(Path("f").c_str(), "", "[%#0]", "x");
    EXPECT_EQ(Read("f"), "[00000]x\ny\n[00001]x\n");
}

TEST_F(LineEditTest, LongLinesAreEditedPieceByPiece) {
    const size_t piece = READ_PIECE - 1;
    // "XY" straddles the end of the first piece, so neither piece holds it.
    std::string line = std::string(piece - 1, 'a') + "XY" + std::string(400, 'a') + "\n";
    Write("f", line);
    FileChange(Path("f").c_str(), "", "XY", "--");
    EXPECT_EQ(Read("f"), line);
    FileInsert(Path("f").c_str(), "", "#");
    EXPECT_EQ(Read("f"), "#" + line.substr(0, piece) + "#" + line.substr(piece));
}

TEST_F(LineEditTest, MissingFileEndsTheProgram) {
    EXPECT_EXIT(FileDelLine(Path("missing").c_str(), "", 0, "x"), ::testing::ExitedWithCode(1),
                "can't open file, .*missing");
}

// ---- Opening and existence

using LineFileTest = ScratchDir;

TEST_F(LineFileTest, OpenFileReportsByErrorMode) {
    std::string missing = Path("no/such");
    EXPECT_EXIT(OpenFile(nullptr, missing.c_str(), "rt", 2), ::testing::ExitedWithCode(1),
                "can't open file, " + missing);
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(OpenFile(nullptr, missing.c_str(), "rt", 1), nullptr);
    EXPECT_EQ(OpenFile(nullptr, missing.c_str(), "rt", 0), nullptr);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "ERROR: can't open file, " + missing + "\n");
    ::testing::internal::CaptureStdout();
    EXPECT_LT(OpenRawFile(missing.c_str(), O_RDONLY, 0), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStdout(), "ERROR: can't open file, " + missing);
    Write("f", "x");
    FilePtr f(OpenFileF(nullptr, "rt", 2, "%s/%s", dir_.c_str(), "f"));
    EXPECT_NE(f, nullptr);
}

TEST_F(LineFileTest, StreamingPairStagesAsNameOut) {
    Write("s", "old\n");
    ASSERT_NE(OpenIOFiles(Path("s").c_str(), ""), nullptr);
    EXPECT_EQ(std::string(FnOut), Path("sout"));
    std::fputs("new\n", pOut);
    EXPECT_EQ(ReplaceInputFile(), 0);
    EXPECT_EQ(Read("s"), "new\n");
    EXPECT_FALSE(Exists("sout"));
    EXPECT_EQ(pIn, nullptr);

    Write("s.cfg", "x\n");
    OpenIOFiles(Path("s").c_str(), "cfg");
    EXPECT_EQ(std::string(Fn), Path("s.cfg"));
    EXPECT_EQ(std::string(FnOut), Path("s.cfgout"));
    ReplaceInputFile();
}

TEST_F(LineFileTest, FindFileSplitsItsArguments) {
    mkdir(Path("sub").c_str(), 0755);
    Write("sub/file", "");
    EXPECT_EQ(FindFile(nullptr, "/etc/passwd"), 1);
    EXPECT_EQ(FindFile("/etc", ""), 1);  // etc in /
    EXPECT_EQ(FindFile(Path("sub").c_str(), nullptr), 1);
    EXPECT_EQ(FindFile(dir_.c_str(), "sub/file"), 1);
    EXPECT_EQ(FindFile(dir_.c_str(), "sub/"), 1);
    EXPECT_EQ(FindFile(dir_.c_str(), "sub/none"), 0);
    EXPECT_EQ(FindFile(dir_.c_str(), "fil"), 0);            // whole names only
    EXPECT_EQ(FindFile(Path("sub/file").c_str(), "x"), 0);  // not a directory
    EXPECT_EQ(FindFile(Path("gone").c_str(), "x"), 0);
    EXPECT_EQ(FindFile(nullptr, ""), 0);
    EXPECT_EQ(FindFile_(Path("sub").c_str(), "file"), 1);
    EXPECT_EQ(FindFile_(Path("sub/file").c_str(), nullptr), 1);
    EXPECT_EQ(FindFile_(dir_.c_str(), "gone"), 0);
}

TEST(GenNameTest, CapitalisesEachRunOfLettersAndDigits) {
    EXPECT_STREQ(GenName("hello world-2x"), "HelloWorld2x");
    EXPECT_STREQ(GenName(" 12 MIXED case"), "MixedCase");
    EXPECT_STREQ(GenName("123 -"), "");
    EXPECT_STREQ(GenName(nullptr), "");
    EXPECT_EQ(std::strlen(GenName(std::string(2000, 'a').c_str())), size_t(GENNAME_SIZE - 1));
}

// ---- GetLine

class GetLineTest : public ScratchDir {
  protected:
    void Open(const std::string &text, bool filter) {
        Write("in", text);
        flInputFilterState = filter;
        ASSERT_TRUE(OpenInputFile(Path("in").c_str(), 1));
    }
    void TearDown() override {
        flInputFilterState = 0;
        ScratchDir::TearDown();
    }
};

TEST_F(GetLineTest, WithoutFilterReturnsPiecesAsRead) {
    Open(std::string(600, 'a') + "\n// c\n", false);
    EXPECT_EQ(GetLine(), 1);
    EXPECT_EQ(std::strlen(Line), size_t(READ_PIECE - 1));
    EXPECT_EQ(GetLine(), 1);
    EXPECT_EQ(std::string(Line), std::string(90, 'a') + "\n");
    EXPECT_EQ(GetLine(), 1);
    EXPECT_STREQ(Line, "// c\n");
    EXPECT_EQ(GetLine(), 0);
}

TEST_F(GetLineTest, FilterRemovesCommentsOnOneLine) {
    Open("  code // note\n\na /* b */ c\r\n", true);
    EXPECT_EQ(GetLine(), 1);
    EXPECT_STREQ(Line, "code ");
    EXPECT_EQ(GetLine(), 1);
    EXPECT_STREQ(Line, "");
    EXPECT_EQ(GetLine(), 1);
    EXPECT_STREQ(Line, "a  c");
    EXPECT_EQ(GetLine(), 0);
}

TEST_F(GetLineTest, BlockCommentAcrossLinesIsSkippedWhole) {
    Open("x /* one\ntwo\nthree */ y\nnext\n", true);
    EXPECT_EQ(GetLine(), 3);
    EXPECT_STREQ(Line, "x y");
    EXPECT_EQ(GetLine(), 1);
    EXPECT_STREQ(Line, "next");
}

TEST_F(GetLineTest, UnclosedBlockCommentEndsTheFile) {
    Open("x /* open\nmore\n", true);
    EXPECT_EQ(GetLine(), 0);
}

TEST_F(GetLineTest, LineVariantsReReadByPositionAndNumber) {
    Open("first\nsecond\nthird\n", false);
    GetLine();
    GetLine();
    long second = InPos;
    EXPECT_EQ(second, 6);
    GetLine();
    EXPECT_EQ(GetLinePos(second), 1);
    EXPECT_STREQ(Line, "second\n");
    EXPECT_EQ(GetLineN(3), 1);
    EXPECT_STREQ(Line, "third\n");
    EXPECT_EQ(GetLineN(4), 0);
    char buffer[16];
    long at = -1;
    std::fseek(pIn, 6, SEEK_SET);
    EXPECT_EQ(fgetsp(buffer, sizeof buffer, pIn, &at), buffer);
    EXPECT_EQ(at, 6);
    EXPECT_STREQ(buffer, "second\n");
}

// ---- The input-file reader

using InputFileTest = ScratchDir;

TEST_F(InputFileTest, GetFileLineJoinsBackslashNewlineLines) {
    Write("in", "a \\\nb \\\nc\nd\n");
    ASSERT_EQ(OpenInputFile(Path("in").c_str(), 2), 1);
    EXPECT_EQ(FileStatus, 0);
    EXPECT_EQ(GetFileLine(), 1);
    EXPECT_STREQ(LineBuf, "a \\\nb \\\nc\n");
    EXPECT_EQ(LineLen, 8);
    EXPECT_EQ(GetFileLine(), 1);
    EXPECT_STREQ(LineBuf, "d\n");
    EXPECT_EQ(LineLen, 0);
    EXPECT_EQ(GetFileLine(), 0);
    EXPECT_EQ(FileStatus, 1);
    EXPECT_EQ(pIn, nullptr);
}

TEST_F(InputFileTest, LongLinesAndTextLines) {
    Write("in", std::string(600, 'b') + "\r\n");
    ASSERT_EQ(OpenInputFileF(2, "%s/%s", dir_.c_str(), "in"), 1);
    EXPECT_EQ(GetFileTextLine(), 1);
    EXPECT_EQ(std::strlen(LineBuf), size_t(READ_PIECE - 1));
    EXPECT_EQ(GetFileTextLine(), 1);
    EXPECT_EQ(std::string(LineBuf), std::string(90, 'b'));
}

TEST_F(InputFileTest, MissingFileIsReportedByKind) {
    std::string missing = Path("missing");
    std::strcpy(LineBuf, "stale");
    ::testing::internal::CaptureStderr();
    EXPECT_EQ(OpenInputFile(missing.c_str(), 1), 0);
    EXPECT_EQ(::testing::internal::GetCapturedStderr(),
              "WARNING: can't open file, " + missing + "\n");
    EXPECT_EQ(FileStatus, 2);
    EXPECT_STREQ(LineBuf, "");
    EXPECT_STREQ(InputFileName, missing.c_str());
    EXPECT_EQ(GetFileLine(), 0);
    EXPECT_EXIT(OpenInputFile(missing.c_str(), 2), ::testing::ExitedWithCode(1),
                "ERROR: can't open file, " + missing);
}

// ---- Whole files and queries

using FileQueryTest = ScratchDir;

TEST_F(FileQueryTest, SavedContentBySize) {
    Write("zero", "");
    Write("one", "\n");
    Write("two", "ab");
    EXPECT_EQ(GetSavedFileContent(dir_.c_str(), "zero"), nullptr);
    EXPECT_EQ(SavedFileSize, 0);
    MemPtr<char> one(GetSavedFileContent(dir_.c_str(), "one"));
    ASSERT_NE(one, nullptr);
    EXPECT_STREQ(one.get(), "");
    EXPECT_EQ(SavedFileSize, 1);
    MemPtr<char> two(GetSavedFileContent(Path("two").c_str(), nullptr));
    ASSERT_NE(two, nullptr);
    EXPECT_STREQ(two.get(), "ab");
    EXPECT_EQ(GetSavedFileContent(dir_.c_str(), "missing"), nullptr);
}

TEST_F(FileQueryTest, ContentStopsShortOfLineBufEnd) {
    Write("big", std::string(5000, 'c'));
    EXPECT_EQ(GetFileContent(dir_.c_str(), "big"), 1);
    EXPECT_EQ(std::strlen(LineBuf), size_t(LINEBUF_SIZE - 1));
    EXPECT_EQ(GetFileContent(Path("big").c_str(), nullptr), 1);
    EXPECT_EQ(GetFileContent(dir_.c_str(), "missing"), 0);
}

TEST_F(FileQueryTest, ContentRTerminatesInLineBufNotInTheBuffer) {
    Write("f", "abc");
    std::memset(LineBuf, 'x', 8);
    char buffer[8];
    std::memset(buffer, 'y', sizeof buffer);
    EXPECT_EQ(GetFileContentR(dir_.c_str(), "f", buffer, sizeof buffer), 1);
    EXPECT_EQ(std::string(buffer, 4), "abcy");
    EXPECT_EQ(LineBuf[3], '\0');
    EXPECT_EQ(LineBuf[2], 'x');
}

TEST_F(FileQueryTest, SizeTypeAndTime) {
    Write("f", "12345");
    mkdir(Path("d").c_str(), 0755);
    symlink(Path("f").c_str(), Path("l").c_str());
    EXPECT_EQ(GetFileSize(Path("f").c_str()), 5);
    EXPECT_EQ(GetFileSize(Path("missing").c_str()), 0);
    EXPECT_EQ(GetFileType(Path("d").c_str()), 1);
    EXPECT_EQ(GetFileType(Path("l").c_str()), 2);
    EXPECT_EQ(GetFileType(Path("f").c_str()), 3);
    EXPECT_EQ(GetFileType(Path("missing").c_str()), 0);
    EXPECT_GT(GetFileTime(Path("f").c_str()), 0);
    EXPECT_EQ(GetFileTime(Path("missing").c_str()), 0);
}

TEST_F(FileQueryTest, FileSearchFindsTheFirstMatchingLine) {
    Write("f", "#!/bin/sh\ncd /base/x\ncd /other\n");
    EXPECT_STREQ(FileSearch(Path("f").c_str(), "cd ", 0), "cd /base/x\n");
    EXPECT_STREQ(FileSearch(Path("f").c_str(), nullptr, 0), "#!/bin/sh\n");
    EXPECT_EQ(FileSearch(Path("f").c_str(), "absent", 0), nullptr);
    EXPECT_EQ(FileSearch(Path("missing").c_str(), "cd ", 0), nullptr);
}

}  // namespace
