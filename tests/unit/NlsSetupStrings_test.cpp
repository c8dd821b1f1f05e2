#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "setupString.h"

namespace {

struct Language {
    const char *name;
    const char *const *table;
};

constexpr Language TRANSLATIONS[] = {
    {"Spanish", NLS_SPANISH}, {"Italian", NLS_ITALIAN},       {"French", NLS_FRENCH},
    {"German", NLS_GERMAN},   {"Portuguese", NLS_PORTUGUESE},
};

/// The conversion letters of a printf format in order ("%s needs %e" -> "se");
/// a "*" width counts as a conversion, "%%" is text, a dangling "%" gives "!".
std::string Conversions(const char *format) {
    std::string letters;
    for (size_t i = 0; format[i]; ++i) {
        if (format[i] != '%') continue;
        if (format[++i] == '%') continue;
        while (format[i] && std::strchr("-+ #0'123456789.*hlLjzt", format[i])) {
            if (format[i] == '*') letters += '*';
            ++i;
        }
        if (!format[i]) return letters + '!';
        letters += format[i];
    }
    return letters;
}

std::vector<std::string> Items(const std::string &list) {
    std::vector<std::string> items;
    size_t start = 0;
    for (size_t comma; (comma = list.find(',', start)) != std::string::npos; start = comma + 1)
        items.push_back(list.substr(start, comma - start));
    items.push_back(list.substr(start));
    return items;
}

std::string LeadingBlanks(const std::string &text) {
    return text.substr(0, text.find_first_not_of(" \t\n"));
}

std::string TrailingBlanks(const std::string &text) {
    size_t last = text.find_last_not_of(" \t\n");
    return last == std::string::npos ? text : text.substr(last + 1);
}

bool IsUtf8(const std::string &text) {
    for (size_t i = 0; i < text.size(); ++i) {
        auto lead = static_cast<unsigned char>(text[i]);
        size_t follow = lead < 0x80             ? 0
                        : (lead & 0xE0) == 0xC0 ? 1
                        : (lead & 0xF0) == 0xE0 ? 2
                        : (lead & 0xF8) == 0xF0 ? 3
                                                : 4;
        if (follow == 4 || i + follow >= text.size()) return false;
        for (; follow; --follow)
            if ((static_cast<unsigned char>(text[++i]) & 0xC0) != 0x80) return false;
    }
    return true;
}

std::string Where(const Language &language, int id) {
    return std::string(language.name) + " message " + std::to_string(id);
}

}  // namespace

TEST(NlsCatalogueTest, ConversionParserSeesWhatPrintfSees) {
    EXPECT_EQ(Conversions("%s is %i, 100%% and %-8.2e"), "sie");
    EXPECT_EQ(Conversions("%*d%"), "*d!");
    EXPECT_EQ(Conversions(NLS_ENGLISH[62]), "ssss");
    EXPECT_EQ(Conversions(NLS_ENGLISH[56]), "sse");
}

TEST(NlsCatalogueTest, EveryTableHoldsEveryMessage) {
    for (int id = 0; id < NLS_MESSAGES; ++id) ASSERT_NE(NLS_ENGLISH[id], nullptr) << id;
    for (const Language &language : TRANSLATIONS)
        for (int id = 0; id < NLS_MESSAGES; ++id)
            ASSERT_NE(language.table[id], nullptr) << Where(language, id);
}

TEST(NlsCatalogueTest, TranslationsKeepEnglishConversionsInOrder) {
    for (const Language &language : TRANSLATIONS)
        for (int id = 0; id < NLS_MESSAGES; ++id)
            EXPECT_EQ(Conversions(language.table[id]), Conversions(NLS_ENGLISH[id]))
                << Where(language, id) << ": " << language.table[id];
}

TEST(NlsCatalogueTest, MessageFiftySevenIsEmptyInEveryLanguage) {
    EXPECT_STREQ(NLS_ENGLISH[57], "");
    for (const Language &language : TRANSLATIONS) EXPECT_STREQ(language.table[57], "");
}

TEST(NlsCatalogueTest, OptionListsKeepItemsAndHotKeyMarks) {
    for (int id : {40, 41, 45, 46, 47, 48, 50}) {
        std::vector<std::string> english = Items(NLS_ENGLISH[id]);
        for (const Language &language : TRANSLATIONS) {
            std::vector<std::string> items = Items(language.table[id]);
            ASSERT_EQ(items.size(), english.size()) << Where(language, id);
            for (size_t n = 0; n < items.size(); ++n) {
                ASSERT_FALSE(items[n].empty()) << Where(language, id) << " item " << n;
                EXPECT_EQ(items[n][0] == '_', english[n][0] == '_')
                    << Where(language, id) << " item " << n;
            }
        }
    }
    // The middle item of 50 holds the place of an option this build lacks.
    for (const Language &language : TRANSLATIONS)
        EXPECT_EQ(Items(language.table[50])[1].find_first_not_of(' '), std::string::npos)
            << language.name;
}

TEST(NlsCatalogueTest, TranslationsKeepTheLayoutAroundEachMessage) {
    for (const Language &language : TRANSLATIONS)
        for (int id = 0; id < NLS_MESSAGES; ++id) {
            std::string text = language.table[id], english = NLS_ENGLISH[id];
            EXPECT_EQ(LeadingBlanks(text), LeadingBlanks(english)) << Where(language, id);
            EXPECT_EQ(TrailingBlanks(text), TrailingBlanks(english)) << Where(language, id);
            EXPECT_EQ(std::count(text.begin(), text.end(), '\n'),
                      std::count(english.begin(), english.end(), '\n'))
                << Where(language, id);
        }
}

TEST(NlsCatalogueTest, HelpButtonsHaveDistinctHotKeys) {
    for (const char *const *table : {static_cast<const char *const *>(NLS_ENGLISH), NLS_SPANISH,
                                     NLS_ITALIAN, NLS_FRENCH, NLS_GERMAN, NLS_PORTUGUESE}) {
        std::set<char> keys;
        for (int id = 0; id <= 2; ++id) {
            const char *button = table[id];
            ASSERT_GE(std::strlen(button), 4u) << button;
            EXPECT_EQ(button[0], '~') << button;
            EXPECT_TRUE(std::islower(static_cast<unsigned char>(button[1]))) << button;
            EXPECT_EQ(button[2], ' ') << button;
            keys.insert(button[1]);
        }
        EXPECT_EQ(keys.size(), 3u) << table[0];
    }
}

TEST(NlsCatalogueTest, ScriptLinesStayOneQuotedShellWord) {
    for (const Language &language : TRANSLATIONS)
        for (int id : {15, 16}) {
            std::string line = language.table[id];
            ASSERT_EQ(line.rfind("\t\t\"", 0), 0u) << Where(language, id);
            ASSERT_GE(line.size(), 8u);
            EXPECT_EQ(line.substr(line.size() - 4), "\" \\\n") << Where(language, id);
            std::string words = line.substr(3, line.size() - 7);
            EXPECT_EQ(words.find_first_of("\"\\$`'%"), std::string::npos) << Where(language, id);
        }
}

TEST(NlsCatalogueTest, TranslationsAreValidUtf8AndReallyTranslated) {
    for (const Language &language : TRANSLATIONS) {
        for (int id = 0; id < NLS_MESSAGES; ++id)
            EXPECT_TRUE(IsUtf8(language.table[id])) << Where(language, id);
        for (int id : {6, 10, 34, 66})
            EXPECT_STRNE(language.table[id], NLS_ENGLISH[id]) << Where(language, id);
    }
    std::set<std::string> seen;
    for (const Language &language : TRANSLATIONS)
        EXPECT_TRUE(seen.insert(language.table[66]).second) << language.name;
}

TEST(NlsCatalogueTest, EnglishTextsAreTheShippedOnes) {
    EXPECT_STREQ(NLS_ENGLISH[15], "\t\t\"wrong number of arguments to interface program\" \\\n");
    EXPECT_STREQ(NLS_ENGLISH[35], "%s is logged in\nYou must become root to run %s\n");
    EXPECT_STREQ(NLS_ENGLISH[39],
                 "                  offset_files size total will be used to "
                 "reduce disk1 file. \n");
    EXPECT_STREQ(NLS_ENGLISH[49],
                 "There isn't enough space in %s to perform the installation activities. The "
                 "temporary work area should be at least %e bytes. Restart the installation "
                 "procedure using a work area that has enough space. \nie: 1. Use "
                 "/new_work_area_path in place of /tmp\n    2. Run `setup /new_work_area_path`\n");
    EXPECT_STREQ(NLS_ENGLISH[50], "_none,    ,_TTY");
    EXPECT_STREQ(NLS_ENGLISH[54],
                 "The following packages must be removed to insure proper installation:\n %s\nDo "
                 "want to continue with the upgrade");
    EXPECT_STREQ(NLS_ENGLISH[60], "failed ts get version");
    EXPECT_STREQ(NLS_ENGLISH[70], "\nEnter a selection:  ");
}

class NlsLanguageChoiceTest : public ::testing::Test {
  protected:
    void SetUp() override {
        if (const char *lang = std::getenv("LANG")) saved_ = lang;
        pCurLang = nullptr;
    }
    void TearDown() override {
        if (saved_)
            setenv("LANG", saved_->c_str(), 1);
        else
            unsetenv("LANG");
        pCurLang = nullptr;
    }

    /// The table the first lookup picks under `lang` (null: LANG unset).
    static const char *const *ChosenFor(const char *lang) {
        if (lang)
            setenv("LANG", lang, 1);
        else
            unsetenv("LANG");
        pCurLang = nullptr;
        const char *text = NlsSetupStrCvt(10);
        EXPECT_EQ(text, pCurLang ? pCurLang[10] : nullptr) << (lang ? lang : "(unset)");
        return pCurLang;
    }

  private:
    std::optional<std::string> saved_;
};

TEST_F(NlsLanguageChoiceTest, ListedKeysChooseTheirLanguage) {
    EXPECT_EQ(ChosenFor("en_US"), NLS_ENGLISH);
    EXPECT_EQ(ChosenFor("es_ES"), NLS_SPANISH);
    EXPECT_EQ(ChosenFor("it_IT"), NLS_ITALIAN);
    EXPECT_EQ(ChosenFor("fr_FR"), NLS_FRENCH);
    EXPECT_EQ(ChosenFor("ge_GE"), NLS_GERMAN);
    EXPECT_EQ(ChosenFor("pr_BR"), NLS_PORTUGUESE);
}

TEST_F(NlsLanguageChoiceTest, AnythingElseIsEnglish) {
    for (const char *lang : {static_cast<const char *>(nullptr), "", "POSIX", "C", "en_US.UTF-8",
                             "fr_FR.ISO8859-1", "de_DE", "pt_BR", "FR_FR", "fr", "_FR"})
        EXPECT_EQ(ChosenFor(lang), NLS_ENGLISH) << (lang ? lang : "(unset)");
}

TEST_F(NlsLanguageChoiceTest, FirstChoiceHoldsForTheRestOfTheRun) {
    ChosenFor("fr_FR");
    setenv("LANG", "es_ES", 1);
    EXPECT_STREQ(NlsSetupStrCvt(6), NLS_FRENCH[6]);
    unsetenv("LANG");
    EXPECT_STREQ(NlsSetupStrCvt(6), NLS_FRENCH[6]);
    EXPECT_EQ(pCurLang, NLS_FRENCH);
}

TEST_F(NlsLanguageChoiceTest, IdsOutsideTheCatalogueReadEmpty) {
    ChosenFor("it_IT");
    EXPECT_STREQ(NlsSetupStrCvt(-1), "");
    EXPECT_STREQ(NlsSetupStrCvt(NLS_MESSAGES), "");
    EXPECT_STREQ(NlsSetupStrCvt(70), NLS_ITALIAN[70]);
    EXPECT_STREQ(NlsSetupStrCvt(0), NLS_ITALIAN[0]);
}
