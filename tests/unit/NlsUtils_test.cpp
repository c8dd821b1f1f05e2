// Language selection through trans.conf, redirects, and strings fetched from
// string databases: found, missing (shown as their key), cut to fit.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "MemMgr.h"
#include "NlsUtils.h"
#include "TestFiles.h"
#include "TextMenu.h"
#include "TextMenuString.h"

namespace {

using testfiles::Write;
namespace fs = std::filesystem;

class NlsTest : public ::testing::Test {
  protected:
    testfiles::TempDir dir;
    std::string tool = dir.path().string();

    void SetUp() override {
        pToolPath = tool.data();
        Forget();
        unsetenv("LANG");
    }
    void TearDown() override { Forget(); }

    /// A fresh run: nothing chosen, nothing opened. The handles are left
    /// open: the core one may be the built-in strings, which live for the run.
    static void Forget() {
        pNLSLang = nullptr;
        pTransTable = nullptr;
        pDrvCoreDB = nullptr;
        pPrtHelpDB = nullptr;
    }

    /// Writes a string database of `language` with the given records.
    void Strings(const std::string &language, const std::string &name,
                 std::initializer_list<std::pair<const char *, std::string>> records) {
        fs::create_directories(dir / "db" / language);
        DbT *db = DbTOpen((tool + "/db/" + language + "/" + name + ".vdb").c_str(), 0);
        for (auto &[key, text] : records)
            DbmTPutRecord(db, key, text.c_str(), static_cast<int>(text.size() + 1));
        DbTClose(db);
    }

    std::string Language(const char *lang, const std::string &table) {
        Forget();
        if (lang)
            setenv("LANG", lang, 1);
        else
            unsetenv("LANG");
        Write(dir / "trans.conf", table);
        return GetDesiredNLSLang();
    }
};

TEST_F(NlsTest, TransFileNormalisesWordsLinesAndComments) {
    struct {
        const char *file, *table;
    } cases[] = {
        {"fr = fr_FR fr_CA x\nDefault en\n", "fr = fr_FR fr_CA x\nDefault en\n"},
        {"  a\t=\tb  c\n\n# note\nd = e f\n", "a = b c\nd = e f\n"},
        {"a = b c # why\nd = e f\n", "a = b c d = e f\n"},  // the comment joins the lines
        {"a = b c\r\nd = e f\n", "a = b c d = e f\n"},       // so does a carriage return
        {"a = b c \nd = e f\n", "a = b c d = e f\n"},        // and a trailing blank
        {"a=b c\n", "a=b c\n"},                              // "=" glued to a word stays
        {"Default en_US other\n", "Default en_US\nother\n"},
        {"a = b\vc\fd\n", "a = b c d\n"},
        {"x # no line end", "x "},
    };
    for (auto &c : cases) {
        Write(dir / "t.conf", c.file);
        MemPtr<char> table(ParseTransFile("t.conf"));
        ASSERT_NE(table, nullptr) << c.file;
        EXPECT_STREQ(table.get(), c.table) << c.file;
    }
    EXPECT_EQ(ParseTransFile("missing.conf"), nullptr);
    Write(dir / "big.conf", std::string(5000, 'w') + " " + std::string(4000, 'v') + "\n");
    EXPECT_EQ(ParseTransFile("big.conf"), nullptr);  // refused, never overflowed
}

TEST_F(NlsTest, LangChoosesTheDirectoryOfItsLine) {
    const std::string table = "fr_FR = fr_FR fr_CA end\nde_DE = de_DE de_AT\nDefault es_ES\n";
    struct {
        const char *lang;
        std::string table, chosen;
    } cases[] = {
        {"fr_CA", table, "fr_FR"},
        {"fr_FR", table, "fr_FR"},  // the first line: no line feed before it
        {"de_DE", table, "de_DE"},
        {"de_AT", table, "es_ES"},  // the last value of a line never matches
        {"xx", table, "es_ES"},
        {nullptr, table, "es_ES"},
        {nullptr, "en_US = ___LANG_NOT_SET___ x\n", "en_US"},
        {"fr", "fr_FR = a b # note\nde_DE = fr c\n", "fr_FR"},  // joined by the comment
        {"xx", "a = b c\n", "en_US"},
        {"a", "a = b c\n", "en_US"},  // a value before "=" is no value
    };
    for (auto &c : cases) EXPECT_EQ(Language(c.lang, c.table), c.chosen) << (c.lang ? c.lang : "unset");
    Language("xx", table);
    setenv("LANG", "de_DE", 1);
    EXPECT_STREQ(GetDesiredNLSLang(), "es_ES") << "chosen once for the run";
}

TEST_F(NlsTest, WithoutTransConfTheEnglishCoreStringsHoldTheTable) {
    setenv("LANG", "it_IT", 1);
    EXPECT_STREQ(GetDesiredNLSLang(), "en_US");  // no table anywhere
    Forget();
    Strings("en_US", "CoreString", {{"999_1", "en_US = en_US x\nit_IT = it_IT x\n"}});
    EXPECT_STREQ(GetDesiredNLSLang(), "it_IT");
    ASSERT_NE(pDrvCoreDB, nullptr);
}

TEST_F(NlsTest, OpenDatabaseReportsOnlyAMissingEnglishOne) {
    Write(dir / "trans.conf", "fr_FR = fr_FR x\nDefault en_US\n");
    setenv("LANG", "fr_FR", 1);
    testing::internal::CaptureStderr();
    DbT *french = NlsOpenDB("Help", 0);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    ASSERT_NE(french, nullptr);  // the caller tests its content
    EXPECT_EQ(french->content, nullptr);
    DbTClose(french);

    Forget();
    unsetenv("LANG");
    testing::internal::CaptureStderr();
    EXPECT_EQ(NlsOpenDB("Help", 0), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR:  Could not open English database:  " + tool + "/db/en_US/Help.vdb\n");
}

TEST_F(NlsTest, RedirectsNameATargetWithoutDots) {
    struct {
        const char *text, *target;
    } cases[] = {
        {"see $$intro.REDIRECT here", "intro"},
        {"$$intro.redirect", "intro"},
        {"$$in.tro.redirect", nullptr},
        {"$$intro.html", nullptr},
        {"no marker.redirect", nullptr},
    };
    for (auto &c : cases) {
        std::string text = c.text;
        char *target = FindRedirect(text.data());
        EXPECT_EQ(target ? std::string(target) : "(null)", c.target ? c.target : "(null)") << c.text;
    }
    Strings("en_US", "Help", {{"intro", "<p>Welcome</p>"}});
    pPrtHelpDB = DbTOpen((tool + "/db/en_US/Help.vdb").c_str(), 0);
    static char text[NLS_BUF_SIZE];
    std::snprintf(text, sizeof text, "$$intro.redirect");
    EXPECT_STREQ(CheckForRedirect(text), "intro");
    EXPECT_STREQ(text, "<p>Welcome</p>");
    std::snprintf(text, sizeof text, "$$%s.redirect", std::string(100, 'n').c_str());
    EXPECT_EQ(std::string(CheckForRedirect(text)), std::string(REDIRECT_NAME_SIZE - 1, 'n'));
    DbTClose(pPrtHelpDB);
}

TEST_F(NlsTest, FetchByModeShowsMissingStringsAsTheirKey) {
    std::string longText(3000, 'L');
    Strings("en_US", "S", {{"25_1", "one"}, {"word", "by key"}, {"25_9", longText}});
    DbT *db = DbTOpen((tool + "/db/en_US/S.vdb").c_str(), 0);
    auto fetch = [](char *text) {
        std::string s = text ? text : "(null)";
        PutMem(text);
        return s;
    };
    EXPECT_EQ(fetch(NlsFetchString(db, nullptr, 0, 25, 1)), "one");
    EXPECT_EQ(fetch(NlsFetchString(db, nullptr, 0, 25, 2)), "25_2");
    EXPECT_EQ(fetch(NlsFetchString(db, nullptr, 1, "word")), "by key");
    EXPECT_EQ(fetch(NlsFetchString(db, nullptr, 2, "nothing")), "nothing");
    EXPECT_EQ(fetch(NlsFetchString(db, nullptr, 3, 25, 1)), "one");
    EXPECT_EQ(fetch(NlsFetchString(db, nullptr, 3, 25, 9)), longText);  // past the 2048 offered
    EXPECT_EQ(fetch(NlsFetchString(db, nullptr, 3, 25, 3)), "25_3");
    EXPECT_EQ(fetch(NlsFetchString(nullptr, nullptr, 0, 0, 7)), "Error");
    EXPECT_EQ(fetch(NlsFetchString(nullptr, nullptr, 1, nullptr)), "Error");
    EXPECT_EQ(fetch(NlsFetchString(nullptr, nullptr, 0, 25, 1)), "25_1");

    char buffer[32];
    std::memset(buffer, 'x', sizeof buffer);
    EXPECT_EQ(NlsFetchString(db, buffer, 0, 25, 404), buffer);
    EXPECT_STREQ(buffer, "25_404");
    EXPECT_STREQ(NlsFetchString(db, buffer, 0, 25, 1), "one");
    DbTClose(db);
}

TEST_F(NlsTest, MenuTextsTemplatesAndFingerprints) {
    Write(dir / "trans.conf", "Default en_US\n");
    Strings("en_US", "CoreString",
            {{"25_1", "Colour"}, {"25_2", std::string(200, 'w')}, {"25_3", "red,green"},
             {"7_1", "alpha"}, {"7_2", "beta"}});
    MENUITEM items[3] = {};
    NlsTtyMenuItemCvt(items, 1, 2);
    EXPECT_STREQ(items[0].text, "Colour");
    EXPECT_EQ(std::string(items[1].text), std::string(NLS_MENU_STRING - 1, 'w'));
    NlsTtyMenuItemStateCvt(items, 3, 1);
    EXPECT_STREQ(items[0].choices, "red,green");
    NlsTtyMenuItemPromptCvt(items + 2, 4, 1);
    EXPECT_STREQ(items[2].prompt, "25_4");
    const char *title = nullptr;
    EXPECT_STREQ(NlsTtyMenuCvt(&title, 1), "Colour");
    EXPECT_STREQ(title, "Colour");

    char out[16];
    EXPECT_STREQ(NlsGuiStrCvt("%s and %s%%d", 7, out, sizeof out), "alpha and beta%");
    EXPECT_STREQ(NlsGuiStrCvt("plain %d", 7, out, sizeof out), "plain %d");
    EXPECT_STREQ(NlsGuiStrCvt("%s%s%s", 7, out, 8), "alphabe");

    EXPECT_STREQ(NlsCalcStrVal("A"), "0000004100000041");
    EXPECT_STREQ(NlsCalcStrVal("AB"), "0000014900000083");  // 65 + 66 * 4, 65 + 66
    EXPECT_STREQ(NlsCalcStrVal(""), "0000000000000000");

    char line[64];
    Strings("en_US", "F", {{"3_1", "%s has %d items"}});
    DbT *db = DbTOpen((tool + "/db/en_US/F.vdb").c_str(), 0);
    Nlssprintf(line, sizeof line, db, 3, 1, "menu", 4);
    EXPECT_STREQ(line, "menu has 4 items");
    DbTClose(db);
}

TEST_F(NlsTest, EngineStringsFallBackToEnglishNeverToKeys) {
    // No databases at all: the English built into the program answers, also
    // after the language choice looked for the table in a missing database.
    testing::internal::CaptureStderr();
    EXPECT_STREQ(GetDesiredNLSLang(), "en_US");
    MemPtr<char> builtIn(TextMenuString(1016));
    testing::internal::GetCapturedStderr();
    EXPECT_STREQ(builtIn.get(), "reading from standard input");

    Forget();
    Write(dir / "trans.conf", "it_IT = it_IT x\nDefault en_US\n");
    setenv("LANG", "it_IT", 1);
    Strings("en_US", "CoreString", {{"25_1016", "english file"}});
    MemPtr<char> english(TextMenuString(1016));
    EXPECT_STREQ(english.get(), "english file");  // no Italian database: the English one

    Forget();
    Strings("it_IT", "CoreString", {{"25_1018", "\nUscire da %d %s"}, {"25_1017", "\nTorna a %s"}});
    MemPtr<char> missing(TextMenuString(1016));
    EXPECT_STREQ(missing.get(), "25_1016");  // an open database shows a missing string's key
    MemPtr<char> damaged(TextMenuString(1018));
    EXPECT_STREQ(damaged.get(), "\nDo you want to exit %s");
    MemPtr<char> fine(TextMenuString(1017));
    EXPECT_STREQ(fine.get(), "\nTorna a %s");
}

}  // namespace
