// Language selection: LANG looked up in the translation table, and the
// string databases of the chosen language opened; redirect markers in texts.
#include "NlsUtils.h"

#include <strings.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "utils.h"

char *pNLSLang = nullptr;
char *pTransTable = nullptr;
DbT *pDrvCoreDB = nullptr;
DbT *pPrtHelpDB = nullptr;
DbT *pPrtCoreDB = nullptr;

namespace {

constexpr const char *FALLBACK_LANG = "en_US";

bool EndsWord(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\v' || c == '\f';
}

/// The normalised table under construction; refuses to grow past its size
/// rather than cut a word in half.
class TableText {
public:
    bool Append(std::string_view a, std::string_view b) {
        if (used_ + a.size() + b.size() >= TRANS_TABLE_SIZE) return fits_ = false;
        std::memcpy(text_ + used_, a.data(), a.size());
        std::memcpy(text_ + used_ + a.size(), b.data(), b.size());
        used_ += a.size() + b.size();
        return true;
    }
    bool fits() const { return fits_; }
    const char *text() const { return text_; }

private:
    char text_[TRANS_TABLE_SIZE] = {};
    size_t used_ = 0;
    bool fits_ = true;
};

char *ChooseFromTable(const char *table, const char *needle) {
    // The directory named on the "Default" line, if any.
    MemPtr<char> fallback;
    if (const char *p = std::strstr(table, "Default"); p && p[7] != '\n') {
        if (const char *q = std::strchr(p, ' ')) {
            while (*q == ' ' || *q == '\t') ++q;
            if (*q != '\n' && *q != '\r')
                if (char *token = GetToken(q, " \t\r\n")) fallback.reset(SaveStr_(token));
        }
    }
    const char *match = std::strstr(table, needle);
    if (!match) return SaveStr_(fallback ? fallback.get() : FALLBACK_LANG);
    const char *equals = match;
    while (equals > table && *equals != '=') --equals;
    if (*equals != '=') return SaveStr_(FALLBACK_LANG);
    const char *lineStart = equals;
    while (lineStart > table && *lineStart != '\n') --lineStart;
    const char *from = *lineStart == '\n' ? lineStart + 1 : table;
    char *token = GetToken(from, " =");
    return SaveStr_(token ? token : FALLBACK_LANG);
}

}  // namespace

char *ParseTransFile(const char *name) {
    MemPtr<char> content(GetSavedFileContent(pToolPath, name));
    if (!content) return nullptr;
    std::string_view text(content.get(), strnlen(content.get(), static_cast<size_t>(SavedFileSize)));
    TableText table;
    std::string_view previous;
    size_t i = 0;
    while (i < text.size() && table.fits()) {
        char c = text[i];
        if (EndsWord(c)) {
            ++i;  // vertical tabs and form feeds too, or the scan would stand still
        } else if (c == '#') {
            size_t end = text.find_first_of("\r\n", i);
            if (end == std::string_view::npos) break;
            i = end;
        } else if (c == '=') {
            table.Append("=", " ");
            ++i;
        } else {
            size_t end = i;
            while (end < text.size() && !EndsWord(text[end])) ++end;
            std::string_view word = text.substr(i, end - i);
            // Only a word ended by a line feed closes its line: a line ending
            // in "\r\n" or in blanks runs into the next, as tables have always read.
            bool closesLine = (end < text.size() && text[end] == '\n') || previous == "Default";
            table.Append(word, closesLine ? "\n" : " ");
            previous = word;
            i = end;
        }
    }
    return table.fits() ? SaveStr_(table.text()) : nullptr;
}

char *GetDesiredNLSLang() {
    if (pNLSLang) return pNLSLang;
    const char *lang = std::getenv("LANG");
    MemPtr<char> needle(SaveStr(" %s ", lang ? lang : "___LANG_NOT_SET___"));
    if (!pTransTable) pTransTable = ParseTransFile("trans.conf");
    if (!pTransTable) {
        if (!pDrvCoreDB) pDrvCoreDB = DbTOpen("en_US/CoreString", 0);
        char *table = pDrvCoreDB && pDrvCoreDB->content ? NlsFetchString(pDrvCoreDB, nullptr, 0, 999, 1)
                                                        : nullptr;
        if (!table || std::strcmp(table, "Error") == 0) {
            PutMem(table);
            pNLSLang = SaveStr_(FALLBACK_LANG);
            return pNLSLang;
        }
        pTransTable = table;
    }
    pNLSLang = ChooseFromTable(pTransTable, needle.get());
    return pNLSLang;
}

DbT *NlsOpenDB(const char *name, unsigned mode) {
    if (!name) return nullptr;
    MemPtr<char> language(SaveStr_(GetDesiredNLSLang()));
    MemPtr<char> path(SaveStr("%s/db/%s/%s.vdb", pToolPath ? pToolPath : ".", language.get(), name));
    DbT *db = DbTOpen(path.get(), mode);
    if ((!db || !db->content) && std::strncmp(language.get(), FALLBACK_LANG, 5) == 0) {
        std::fprintf(stderr, "ERROR:  Could not open English database:  %s\n", path.get());
        DbTClose(db);
        return nullptr;
    }
    return db;
}

char *FindRedirect(char *text) {
    if (!text) return nullptr;
    char *marker = std::strstr(text, "$$");
    if (!marker) return nullptr;
    char *dot = std::strchr(marker + 2, '.');
    if (!dot || strncasecmp(dot, ".redirect", 9) != 0) return nullptr;
    *dot = '\0';
    return marker + 2;
}

char *CheckForRedirect(char *text) {
    static char name[REDIRECT_NAME_SIZE];
    char *target = FindRedirect(text);
    if (!target) return nullptr;
    std::memset(name, 0, sizeof name);
    // A longer name is cut: it could name no help page of ours anyway.
    std::strncpy(name, target, sizeof name - 1);
    NlsFetchString(pPrtHelpDB, text, 1, name);
    return name;
}
