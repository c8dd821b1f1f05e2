// Tokenizer and keyword lists: cursor, line mode, escapes, bounds, lookup, sorting, Gets.
#include "Token.h"
#include "MemMgr.h"
#include "TestFiles.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

class TokenTest : public ::testing::Test {
  protected:
    void SetUp() override { SetTokenBuf(nullptr); }
    static std::string Str(const char *p) { return p ? p : "<null>"; }
};

TEST_F(TokenTest, SkipsDelimiterRunsResolvesEscapesAndBoundsTokens) {
    EXPECT_EQ(GetToken(nullptr, ","), nullptr) << "no input yet";
    const char *in = "  a  b";
    EXPECT_EQ(Str(GetToken(in, " ")), "a");
    EXPECT_EQ(szTokenIn, in + 4);
    EXPECT_EQ(Str(GetToken(nullptr, " ")), "b");
    EXPECT_EQ(GetToken(nullptr, " "), nullptr);
    EXPECT_EQ(chTokenDel, 0);
    EXPECT_EQ(Str(GetToken("a\\,b,c", ",")), "a,b");
    EXPECT_EQ(Str(GetToken("\\n\\r\\\\\\q", ",")), "\n\r\\q");
    EXPECT_EQ(Str(GetToken("\\ a", " ")), " a") << "an escaped delimiter starts a token";
    EXPECT_EQ(Str(GetToken("ab\\", ",")), "ab") << "a trailing backslash is dropped";
    EXPECT_EQ(GetToken("", ","), nullptr);
    EXPECT_EQ(GetToken(",,,", ","), nullptr);
    EXPECT_EQ(Str(GetToken("a b,c", nullptr)), "a b,c");
    std::string big = std::string(GETTOKENBUF_SIZE + 100, 'x') + ",y";
    EXPECT_EQ(Str(GetToken(big.c_str(), ",")), std::string(GETTOKENBUF_SIZE - 1, 'x'));
    EXPECT_EQ(Str(GetToken(nullptr, ",")), "y") << "the cursor ends after an overlong token";
}

TEST_F(TokenTest, LineModeRefusesTokenEndedByNewline) {
    const char *in = "a b\nc d";
    EXPECT_EQ(Str(GetToken(in, " \n")), "a");
    EXPECT_EQ(GetToken(TOKEN_LINEMODE, " \n"), nullptr);
    EXPECT_EQ(Str(GetTokenBuf), "b") << "the token is still in the buffer";
    EXPECT_EQ(chTokenDel, '\n');
    EXPECT_EQ(szTokenIn, in + 2) << "szTokenIn is not advanced";
    EXPECT_EQ(GetTokenBufInput(), in + 4) << "the cursor is past the newline";
    EXPECT_EQ(Str(GetToken(TOKEN_LINEMODE, " \n")), "c");
    EXPECT_EQ(Str(GetToken(TOKEN_LINEMODE, " \n")), "d") << "end of input ends a line token";
}

TEST_F(TokenTest, GetTokenNAndGetTokenCountKeepTokenizationInProgress) {
    EXPECT_EQ(Str(GetTokenN("a b c d", " ", 3)), "c");
    EXPECT_EQ(Str(GetToken(nullptr, " ")), "d") << "the cursor is left after the n-th token";
    EXPECT_EQ(GetTokenN("a b", " ", 3), nullptr);
    std::string in = std::string(1000, 'k') + " k2";
    EXPECT_EQ(Str(GetToken(in.c_str(), " ")), std::string(1000, 'k'));
    char *tokenIn = szTokenIn, *cursor = GetTokenBufInput();
    EXPECT_EQ(GetTokenCount(("x,y,\\,z,," + std::string(3000, 'c')).c_str(), ","), 4);
    EXPECT_EQ(GetTokenCount(",,,", ","), 0);
    EXPECT_EQ(Str(GetTokenBuf), std::string(1000, 'k'));
    EXPECT_EQ(szTokenIn, tokenIn);
    EXPECT_EQ(GetTokenBufInput(), cursor);
    EXPECT_EQ(Str(GetToken(nullptr, " ")), "k2");
}

TEST_F(TokenTest, DestructiveScansCutInPlaceKeepingBackslashes) {
    char in[] = "::a\\:b::c\\";
    EXPECT_EQ(GetTokenParse(in, ":"), in + 2);
    EXPECT_EQ(std::string(in, 8), std::string("\0\0a\\:b\0:", 8)) << "stops after the delimiter";
    EXPECT_EQ(szTokenIn, in + 7);
    EXPECT_EQ(Str(GetTokenParse(nullptr, ":")), "c\\");
    EXPECT_EQ(GetTokenBufInput(), in + 10) << "the scan stays inside the string";
    EXPECT_EQ(GetTokenParse(nullptr, ":"), nullptr);
    char words[] = " a\\ b c";
    char *v[4] = {in, in, in, in};
    EXPECT_EQ(ParseStr(words, " ", v, 2), 2) << "at most max words";
    EXPECT_EQ(Str(v[0]), "a\\");
    EXPECT_EQ(Str(v[1]), "b");
    EXPECT_EQ(v[2], in) << "only max entries are touched";
    EXPECT_EQ(std::string(words + 6), "c") << "the rest is left unsplit";
    char spaces[] = "   ";
    EXPECT_EQ(ParseStr(spaces, " ", v, 4), 0);
    EXPECT_EQ(v[3], nullptr);
    EXPECT_EQ(ParseStr(nullptr, " ", v, 2), 0);
}

TEST_F(TokenTest, FindTokenMatchesWholeWordsByPosition) {
    const char *yn = ",y,yes,n,no,";
    struct {
        const char *word, *list;
        int exact, anyCase;
    } cases[] = {{"yes", yn, 2, 2},    {"ye", yn, 0, 0},    {"No", yn, 0, 4},
                 {"b", ",a,b", 2, 2},  {"B", ",a,b", 0, 2}, {"b", ",a,bc", 0, 0},
                 {"", ",a,,b,", 2, 2}, {nullptr, yn, 0, 0}, {"a", nullptr, 0, 0},
                 {"a", "", 0, 0}};
    for (const auto &c : cases) {
        EXPECT_EQ(FindToken(c.word, c.list), c.exact) << Str(c.word) << " in " << Str(c.list);
        EXPECT_EQ(FindTokenC(c.word, c.list), c.anyCase) << Str(c.word) << " in " << Str(c.list);
    }
    std::string word(FINDTOKEN_PATTERN + 200, 'w'), list = ",a," + word + ",";
    EXPECT_EQ(FindToken(word.c_str(), list.c_str()), 2) << "longer than the pattern buffer";
    EXPECT_EQ(FindToken(word.substr(1).c_str(), list.c_str()), 0);
}

TEST_F(TokenTest, SortTokensSortsWordsInPlaceWithoutWritingPastTheList) {
    auto sort = [](std::string list, int ignoreCase) {
        std::vector<char> buf(list.c_str(), list.c_str() + list.size() + 1);
        buf.push_back('#');
        SortTokens(buf.data(), ',', ignoreCase);
        EXPECT_EQ(buf.back(), '#') << list;
        return std::string(buf.data());
    };
    EXPECT_EQ(sort(",b,ab,a,", 0), ",a,ab,b,") << "a word sorts before its extensions";
    EXPECT_EQ(sort(",b,A,a,B,", 0), ",A,B,a,b,");
    EXPECT_EQ(sort(",b,A,a,B,", 1), ",A,a,b,B,") << "equal words keep their order";
    EXPECT_EQ(sort("c,b,a", 0), "a,b,c");
    EXPECT_EQ(sort(",,c,b,", 0), ",,b,c,");
    EXPECT_EQ(sort("", 0), "");
    SortTokens(nullptr, ',', 0);
    EXPECT_EQ(pMemB, nullptr) << "the working copy leaked";
}

TEST_F(TokenTest, GetsSplitsLongLinesAndFillsWithFFAtEnd) {
    testfiles::TempDir dir;
    ASSERT_TRUE(testfiles::FeedStdin(dir / "in", "abcdef\nx\n"));
    char buf[8] = "#######";
    EXPECT_EQ(Gets(buf, 4), buf);
    EXPECT_EQ(std::string(buf, 5), std::string("abc\0#", 5));
    EXPECT_EQ(Str(Gets(buf, 8)), "def");
    EXPECT_EQ(Str(Gets(buf, 1)), "") << "size 1 reads nothing";
    EXPECT_EQ(Str(Gets(buf, 8)), "x");
    std::memset(buf, '#', 7);
    Gets(buf, 5);
    EXPECT_EQ(std::string(buf, 6), std::string(4, '\xFF') + std::string("\0#", 2));
    EXPECT_EQ(Gets(nullptr, 4), nullptr);
}

}  // namespace
