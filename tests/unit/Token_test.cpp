// Tokenizer and keyword lists: the shared cursor, line mode, escapes, the
// destructive variants, keyword lookup and sorting.
#include "Token.h"
#include "MemMgr.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

std::string Str(const char *p) {
    return p ? std::string(p) : std::string("<null>");
}

// --- GetToken and its relatives -------------------------------------------

class GetTokenTest : public ::testing::Test {
  protected:
    void SetUp() override { SetTokenBuf(nullptr); }
};

TEST_F(GetTokenTest, SkipsDelimiterRunsAndContinuesAtCursor) {
    const char *in = "  a  b";
    EXPECT_EQ(Str(GetToken(in, " ")), "a");
    EXPECT_EQ(chTokenDel, ' ');
    EXPECT_EQ(szTokenIn, in + 4);
    EXPECT_EQ(Str(GetToken(nullptr, " ")), "b");
    EXPECT_EQ(chTokenDel, ' ') << "a skipped leading delimiter is recorded";
    EXPECT_EQ(szTokenIn, in + 6);
    EXPECT_EQ(GetToken(nullptr, " "), nullptr);
    EXPECT_EQ(chTokenDel, 0);
}

TEST_F(GetTokenTest, EmptyInputsGiveNull) {
    EXPECT_EQ(GetToken("", ","), nullptr);
    EXPECT_EQ(GetToken(",,,", ","), nullptr);
    EXPECT_EQ(chTokenDel, ',');
    EXPECT_EQ(GetToken(nullptr, ","), nullptr) << "cursor at the end stays there";
}

TEST_F(GetTokenTest, NullCursorBeforeAnyInputGivesNull) {
    EXPECT_EQ(GetToken(nullptr, ","), nullptr);
    EXPECT_EQ(GetToken(TOKEN_LINEMODE, ","), nullptr);
}

TEST_F(GetTokenTest, NullDelimitersMakeOneToken) {
    EXPECT_EQ(Str(GetToken("a b,c", nullptr)), "a b,c");
}

TEST_F(GetTokenTest, EscapesResolveAndNeverDelimit) {
    EXPECT_EQ(Str(GetToken("a\\,b,c", ",")), "a,b");
    EXPECT_EQ(Str(GetToken(nullptr, ",")), "c");
    EXPECT_EQ(Str(GetToken("x\\ty", ",")), "x\ty");
    EXPECT_EQ(Str(GetToken("\\n\\r\\\\\\q", ",")), "\n\r\\q");
    EXPECT_EQ(Str(GetToken("\\ a", " ")), " a") << "an escaped delimiter starts a token";
}

TEST_F(GetTokenTest, TrailingBackslashIsDroppedWithoutOverrun) {
    std::string in = "ab\\";
    EXPECT_EQ(Str(GetToken(in.c_str(), ",")), "ab");
    EXPECT_EQ(GetTokenBufInput(), in.c_str() + 3);
    EXPECT_EQ(GetToken("\\", ","), nullptr);
}

TEST_F(GetTokenTest, LineModeRefusesTokenEndedByNewline) {
    const char *in = "a b\nc d";
    EXPECT_EQ(Str(GetToken(in, " \n")), "a");
    char *before = szTokenIn;
    EXPECT_EQ(GetToken(TOKEN_LINEMODE, " \n"), nullptr);
    EXPECT_EQ(Str(GetTokenBuf), "b") << "the token is still in the buffer";
    EXPECT_EQ(chTokenDel, '\n');
    EXPECT_EQ(szTokenIn, before) << "szTokenIn is not advanced";
    EXPECT_EQ(GetTokenBufInput(), in + 4) << "the cursor is past the newline";
    EXPECT_EQ(Str(GetToken(TOKEN_LINEMODE, " \n")), "c");
    EXPECT_EQ(Str(GetToken(TOKEN_LINEMODE, " \n")), "d") << "end of input ends a line token";
}

TEST_F(GetTokenTest, LineModeLooksOnlyAtTheEndingDelimiter) {
    EXPECT_EQ(Str(GetToken("a \n b c", " \n")), "a");
    EXPECT_EQ(Str(GetToken(TOKEN_LINEMODE, " \n")), "b") << "a leading newline is skipped";
    EXPECT_EQ(Str(GetToken("x\ny", "\n")), "x") << "plain string/null calls are not line mode";
    EXPECT_EQ(Str(GetToken(nullptr, "\n")), "y");
}

TEST_F(GetTokenTest, OverlongTokenIsCutButCursorEndsAfterIt) {
    std::string in(GETTOKENBUF_SIZE + 100, 'x');
    in += ",y";
    char *tok = GetToken(in.c_str(), ",");
    ASSERT_NE(tok, nullptr);
    EXPECT_EQ(std::string(tok), std::string(GETTOKENBUF_SIZE - 1, 'x'));
    EXPECT_EQ(Str(GetToken(nullptr, ",")), "y");
}

TEST_F(GetTokenTest, SetTokenBufMovesCursorAndTokenIn) {
    char in[] = "p q";
    SetTokenBuf(in + 2);
    EXPECT_EQ(szTokenIn, in + 2);
    EXPECT_EQ(GetTokenBufInput(), in + 2);
    EXPECT_EQ(Str(GetToken(nullptr, " ")), "q");
}

TEST_F(GetTokenTest, GetTokenDKeepsItsOwnCursor) {
    GetToken("s1 s2", " ");
    const char *in = "one,\\,two";
    const char *cursor = nullptr;
    char out[16];
    EXPECT_EQ(GetTokenD(in, ",", &cursor, out), out);
    EXPECT_EQ(Str(out), "one");
    EXPECT_EQ(cursor, in + 4);
    EXPECT_EQ(chTokenDel, ',');
    EXPECT_EQ(Str(GetTokenD(nullptr, ",", &cursor, out)), ",two");
    EXPECT_EQ(GetTokenD(nullptr, ",", &cursor, out), nullptr);
    EXPECT_EQ(Str(GetToken(nullptr, " ")), "s2") << "the shared cursor is untouched";
    EXPECT_EQ(GetTokenD(nullptr, ",", nullptr, out), nullptr);
}

TEST_F(GetTokenTest, GetTokenNStopsAfterNthToken) {
    EXPECT_EQ(Str(GetTokenN("a b c d", " ", 3)), "c");
    EXPECT_EQ(Str(GetToken(nullptr, " ")), "d");
    EXPECT_EQ(Str(GetTokenN("a b", " ", 0)), "a");
    EXPECT_EQ(Str(GetTokenN("a b", " ", 1)), "a");
    EXPECT_EQ(GetTokenN("a b", " ", 3), nullptr);
    EXPECT_EQ(GetTokenN("", " ", 1), nullptr);
}

TEST_F(GetTokenTest, GetTokenCountLeavesTokenizationInProgress) {
    const char *in = "k1 k2 k3";
    EXPECT_EQ(Str(GetToken(in, " ")), "k1");
    char *tokenIn = szTokenIn;
    char *cursor = GetTokenBufInput();
    EXPECT_EQ(GetTokenCount("x,y,\\,z,,", ","), 3);
    EXPECT_EQ(Str(GetTokenBuf), "k1");
    EXPECT_EQ(szTokenIn, tokenIn);
    EXPECT_EQ(GetTokenBufInput(), cursor);
    EXPECT_EQ(Str(GetToken(nullptr, " ")), "k2");
}

TEST_F(GetTokenTest, GetTokenCountRestoresLongCurrentToken) {
    std::string big(1000, 'b');
    GetToken(big.c_str(), ",");
    std::string longer(3000, 'c');
    EXPECT_EQ(GetTokenCount(longer.c_str(), ","), 1);
    EXPECT_EQ(std::string(GetTokenBuf), big);
}

TEST_F(GetTokenTest, GetTokenCountOfEmptyInputs) {
    EXPECT_EQ(GetTokenCount("", ","), 0);
    EXPECT_EQ(GetTokenCount(",,,", ","), 0);
    EXPECT_EQ(GetTokenCount("a", ","), 1);
}

// --- Destructive tokenizers -------------------------------------------------

class ParseTest : public ::testing::Test {
  protected:
    void SetUp() override { SetTokenBuf(nullptr); }
};

TEST_F(ParseTest, GetTokenParseCutsInPlaceKeepingBackslashes) {
    char in[] = "::a\\:b::c";
    char *t = GetTokenParse(in, ":");
    EXPECT_EQ(t, in + 2);
    EXPECT_EQ(Str(t), "a\\:b");
    EXPECT_EQ(in[0], '\0');
    EXPECT_EQ(in[1], '\0');
    EXPECT_EQ(in[6], '\0');
    EXPECT_EQ(in[7], ':') << "scanning stops after the ending delimiter";
    EXPECT_EQ(chTokenDel, ':');
    EXPECT_EQ(szTokenIn, in + 7);
    EXPECT_EQ(Str(GetTokenParse(nullptr, ":")), "c");
    EXPECT_EQ(chTokenDel, ':');
    EXPECT_EQ(GetTokenParse(nullptr, ":"), nullptr);
    EXPECT_EQ(chTokenDel, 0);
}

TEST_F(ParseTest, GetTokenParseIgnoresLineMode) {
    char in[] = "a\nb\n";
    EXPECT_EQ(Str(GetTokenParse(in, "\n")), "a");
    EXPECT_EQ(Str(GetTokenParse(const_cast<char *>(TOKEN_LINEMODE), "\n")), "b");
    EXPECT_EQ(GetTokenParse(const_cast<char *>(TOKEN_LINEMODE), "\n"), nullptr);
}

TEST_F(ParseTest, GetTokenParseTrailingBackslashStaysInBounds) {
    char in[] = "ab\\";
    EXPECT_EQ(Str(GetTokenParse(in, ",")), "ab\\");
    EXPECT_EQ(GetTokenBufInput(), in + 3);
}

TEST_F(ParseTest, ParseStrStoresAtMostMaxWords) {
    char in[] = "a  b c";
    char *v[3] = {in, in, in};
    EXPECT_EQ(ParseStr(in, " ", v, 2), 2);
    EXPECT_EQ(Str(v[0]), "a");
    EXPECT_EQ(Str(v[1]), "b");
    EXPECT_EQ(v[2], in) << "only max entries are cleared";
    EXPECT_EQ(std::string(in + 5), "c") << "the rest is left unsplit";
}

TEST_F(ParseTest, ParseStrClearsUnusedEntriesAndKnowsNoEscapes) {
    char in[] = " x\\ y ";
    char *v[4] = {in, in, in, in};
    EXPECT_EQ(ParseStr(in, " ", v, 4), 2);
    EXPECT_EQ(Str(v[0]), "x\\");
    EXPECT_EQ(Str(v[1]), "y");
    EXPECT_EQ(v[2], nullptr);
    EXPECT_EQ(v[3], nullptr);
}

TEST_F(ParseTest, ParseStrEmptyOrNullGivesZero) {
    char *v[2] = {GetTokenBuf, GetTokenBuf};
    char empty[] = "";
    EXPECT_EQ(ParseStr(empty, " ", v, 2), 0);
    EXPECT_EQ(v[0], nullptr);
    EXPECT_EQ(ParseStr(nullptr, " ", v, 2), 0);
    char in[] = "a";
    EXPECT_EQ(ParseStr(in, " ", v, 0), 0);
    char delims[] = "   ";
    EXPECT_EQ(ParseStr(delims, " ", v, 2), 0);
}

// --- Keyword lists --------------------------------------------------------

TEST(FindTokenTest, IndexIsPositionInList) {
    const char *yn = ",y,yes,n,no,";
    EXPECT_EQ(FindToken("y", yn), 1);
    EXPECT_EQ(FindToken("yes", yn), 2);
    EXPECT_EQ(FindToken("n", yn), 3);
    EXPECT_EQ(FindToken("no", yn), 4);
    EXPECT_EQ(FindToken("maybe", yn), 0);
    EXPECT_EQ(FindToken("ye", yn), 0) << "prefixes are not words";
    EXPECT_EQ(FindToken("es", yn), 0);
    EXPECT_EQ(FindToken("/html", ",html,head,body,/html,"), 4);
    EXPECT_EQ(FindToken("b", "|a|b|"), 2);
}

TEST(FindTokenTest, CaseSensitivityIsTheOnlyDifference) {
    const char *yn = ",y,yes,n,no,";
    EXPECT_EQ(FindToken("No", yn), 0);
    EXPECT_EQ(FindTokenC("No", yn), 4);
    EXPECT_EQ(FindTokenC("YES", yn), 2);
    EXPECT_EQ(FindTokenC("YE", yn), 0);
    EXPECT_EQ(FindTokenC("maybe", yn), 0);
}

TEST(FindTokenTest, LastWordWithoutTrailingDelimiter) {
    EXPECT_EQ(FindToken("b", ",a,b"), 2);
    EXPECT_EQ(FindTokenC("B", ",a,b"), 2);
    EXPECT_EQ(FindToken("b", ",a,bc"), 0);
    EXPECT_EQ(FindTokenC("b", ",a,bc"), 0);
}

TEST(FindTokenTest, EmptyWordMatchesEmptySlotOrTrailingEnd) {
    EXPECT_EQ(FindToken("", ",a,,b,"), 2);
    EXPECT_EQ(FindTokenC("", ",a,,b,"), 2);
    EXPECT_EQ(FindToken("", ",a,b,"), 3) << "the text after the last delimiter is empty";
    EXPECT_EQ(FindTokenC("", ",a,b,"), 3);
    EXPECT_EQ(FindToken("", ",a,b"), 0);
}

TEST(FindTokenTest, NullAndEmptyGiveZero) {
    EXPECT_EQ(FindToken(nullptr, ",a,"), 0);
    EXPECT_EQ(FindToken("a", nullptr), 0);
    EXPECT_EQ(FindToken("a", ""), 0);
    EXPECT_EQ(FindToken("", ""), 0);
    EXPECT_EQ(FindTokenC(nullptr, ",a,"), 0);
    EXPECT_EQ(FindTokenC("a", nullptr), 0);
    EXPECT_EQ(FindTokenC("", ""), 0);
}

TEST(FindTokenTest, WordsLongerThanPatternBufferStillMatch) {
    std::string word(FINDTOKEN_PATTERN + 200, 'w');
    std::string list = ",a," + word + ",";
    EXPECT_EQ(FindToken(word.c_str(), list.c_str()), 2);
    std::string upper(word.size(), 'W');
    EXPECT_EQ(FindTokenC(upper.c_str(), list.c_str()), 2);
    std::string shorter(word.size() - 1, 'w');
    EXPECT_EQ(FindToken(shorter.c_str(), list.c_str()), 0);
    EXPECT_EQ(FindTokenC(shorter.c_str(), list.c_str()), 0);
}

// --- SortTokens -------------------------------------------------------------

class SortTokensTest : public ::testing::Test {
  protected:
    std::string Sort(std::string list, char delimiter, int ignoreCase) {
        std::vector<char> buf(list.begin(), list.end());
        buf.push_back('\0');
        buf.push_back('#');  // guard: the sort must not write past the terminator
        SortTokens(buf.data(), delimiter, ignoreCase);
        EXPECT_EQ(buf[list.size()], '\0');
        EXPECT_EQ(buf.back(), '#');
        return std::string(buf.data());
    }
    void TearDown() override { EXPECT_EQ(pMemB, nullptr) << "the working copy leaked"; }
};

TEST_F(SortTokensTest, WordSortsBeforeItsExtensions) {
    EXPECT_EQ(Sort(",b,ab,a,", ',', 0), ",a,ab,b,");
}

TEST_F(SortTokensTest, CaseSensitiveOrderPutsUpperCaseFirst) {
    EXPECT_EQ(Sort(",b,A,a,B,", ',', 0), ",A,B,a,b,");
}

TEST_F(SortTokensTest, IgnoringCaseKeepsFirstOfEqualWords) {
    EXPECT_EQ(Sort(",b,A,a,B,", ',', 1), ",A,a,b,B,");
    EXPECT_EQ(Sort(",B,b,", ',', 1), ",B,b,");
}

TEST_F(SortTokensTest, LeadingDelimitersStayAndEmptyWordsSortFirst) {
    EXPECT_EQ(Sort(",,c,b,", ',', 0), ",,b,c,");
    EXPECT_EQ(Sort(" c  a ", ' ', 0), "  a c ");
}

TEST_F(SortTokensTest, LastWordWithoutDelimiterGetsOneInsideTheList) {
    EXPECT_EQ(Sort("a,b", ',', 0), "a,b");
    EXPECT_EQ(Sort("b,a", ',', 0), "a,b");
    EXPECT_EQ(Sort("c,b,a", ',', 0), "a,b,c");
}

TEST_F(SortTokensTest, DegenerateListsAreLeftAlone) {
    SortTokens(nullptr, ',', 0);
    EXPECT_EQ(Sort("", ',', 0), "");
    EXPECT_EQ(Sort(",,,", ',', 0), ",,,");
    EXPECT_EQ(Sort("zyx", '\0', 0), "zyx");
}

// --- Gets -------------------------------------------------------------------

class GetsTest : public ::testing::Test {
  protected:
    void Feed(const std::string &text) {
        char path[] = "/tmp/gets_testXXXXXX";
        int fd = mkstemp(path);
        ASSERT_GE(fd, 0);
        ASSERT_EQ(write(fd, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        close(fd);
        ASSERT_NE(std::freopen(path, "r", stdin), nullptr);
        unlink(path);
    }
};

TEST_F(GetsTest, ReadsLinesWithoutNewline) {
    Feed("hello\n\nworld\n");
    char buf[32];
    EXPECT_EQ(Gets(buf, sizeof buf), buf);
    EXPECT_EQ(Str(buf), "hello");
    EXPECT_EQ(Str(Gets(buf, sizeof buf)), "");
    EXPECT_EQ(Str(Gets(buf, sizeof buf)), "world");
}

TEST_F(GetsTest, LongLineIsSplitAtSize) {
    Feed("abcdef\n");
    char buf[8] = "#######";
    EXPECT_EQ(Str(Gets(buf, 4)), "abc");
    EXPECT_EQ(buf[4], '#');
    EXPECT_EQ(Str(Gets(buf, 4)), "def");
}

TEST_F(GetsTest, EndOfInputFillsWithFF) {
    Feed("");
    char buf[8] = "#######";
    Gets(buf, 5);
    EXPECT_EQ(std::string(buf), std::string(4, '\xFF'));
    EXPECT_EQ(buf[5], '#');
}

TEST_F(GetsTest, SizeOneReadsNothingAndSizeZeroWritesNothing) {
    Feed("x\n");
    char buf[4] = "###";
    EXPECT_EQ(Str(Gets(buf, 1)), "");
    buf[0] = '#';
    Gets(buf, 0);
    EXPECT_EQ(buf[0], '#');
    EXPECT_EQ(Str(Gets(buf, 4)), "x") << "the line was not consumed";
    EXPECT_EQ(Gets(nullptr, 4), nullptr);
}

}  // namespace
