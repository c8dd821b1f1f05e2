// The message tables: every translation complete and printf-compatible with the
// English text, and the language taken from LANG once per run.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "setupString.h"

namespace {

const auto TRANSLATIONS = {NLS_SPANISH, NLS_ITALIAN, NLS_FRENCH, NLS_GERMAN, NLS_PORTUGUESE};

/// printf's conversion letters in order ("%-*s %e%%%" -> "*se!"): a "*" width counts.
std::string Conversions(const char *format) {
    std::string letters;
    for (size_t i = 0; format[i]; ++i) {
        if (format[i] != '%' || format[++i] == '%') continue;
        for (; format[i] && std::strchr("-+ #0'123456789.*hlLjzt", format[i]); ++i)
            if (format[i] == '*') letters += '*';
        if (!format[i]) return letters + '!';
        letters += format[i];
    }
    return letters;
}

/// One mark per comma-separated item: "_" for a hot key, "x" for text, "!" if empty.
std::string Shape(const char *list) {
    auto mark = [](char c) { return c == '_' ? '_' : c && c != ',' ? 'x' : '!'; };
    std::string shape(1, mark(*list));
    for (const char *p = list; (p = std::strchr(p, ',')); ++p) shape += mark(p[1]);
    return shape;
}

TEST(NlsCatalogueTest, TranslationsKeepTheShapeOfTheEnglish) {
    EXPECT_EQ(Conversions(NLS_ENGLISH[49]), "se");
    for (const char *const *table : TRANSLATIONS) {
        for (int id = 0; id < NLS_MESSAGES; ++id) {
            ASSERT_NE(table[id], nullptr) << table[0] << " " << id;
            EXPECT_EQ(Conversions(table[id]), Conversions(NLS_ENGLISH[id])) << table[id];
        }
        EXPECT_STREQ(table[57], "");
        for (int id : {40, 41, 45, 46, 47, 48, 50})
            EXPECT_EQ(Shape(table[id]), Shape(NLS_ENGLISH[id])) << table[id];
    }
}

/// The table the first lookup picks under `lang` (null: LANG unset).
const char *const *ChosenFor(const char *lang) {
    lang ? setenv("LANG", lang, 1) : unsetenv("LANG");
    pCurLang = nullptr;
    NlsSetupStrCvt(10);
    return pCurLang;
}

TEST(NlsLanguageChoiceTest, OnlyListedKeysChooseATranslationAndTheFirstChoiceHolds) {
    const std::pair<const char *, const char *const *> cases[] = {
        {nullptr, NLS_ENGLISH},           {"en_US", NLS_ENGLISH},
        {"en_US.UTF-8", NLS_ENGLISH},     {"de_DE", NLS_ENGLISH},
        {"fr_FR.ISO8859-1", NLS_ENGLISH}, {"es_ES", NLS_SPANISH},
        {"it_IT", NLS_ITALIAN},           {"ge_GE", NLS_GERMAN},
        {"pr_BR", NLS_PORTUGUESE},        {"fr_FR", NLS_FRENCH}};  // last: held below
    for (auto [lang, table] : cases) EXPECT_EQ(ChosenFor(lang), table) << (lang ? lang : "unset");
    setenv("LANG", "es_ES", 1);
    EXPECT_STREQ(NlsSetupStrCvt(6), NLS_FRENCH[6]);
    EXPECT_STREQ(NlsSetupStrCvt(-1), "");
    EXPECT_STREQ(NlsSetupStrCvt(NLS_MESSAGES), "");
}

}  // namespace
