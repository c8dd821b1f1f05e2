#include "TextMenuString.h"

#include <cstring>

#include "DbSource.h"
#include "NlsUtils.h"
#include "utils.h"

namespace {

DbT *BuiltIn = nullptr;

int StoreBuiltIn(void *context, const char *key, const unsigned char *data, int length) {
    return DbmTPutData(static_cast<DbT *>(context), key, data, length);
}

/// The English strings in memory; never looks for a file.
DbT *BuiltInStrings() {
    if (BuiltIn) return BuiltIn;
    auto *db = static_cast<DbT *>(GetMem(sizeof(DbT)));
    if (!db) return nullptr;
    db->name = SaveStr_("en_US/CoreString");
    db->mode = DBT_NOUPDATE;
    DbTClear(db);
    char error[DBSOURCE_ERROR_SIZE];
    ParseDbSource(CoreStringEnglish, CoreStringEnglishSize, StoreBuiltIn, db, error);
    return BuiltIn = db;
}

bool Usable(const DbT *db) {
    return db && db->content;
}

/// The conversion letters of a format, in order ("%%" is none).
void Conversions(const char *format, char *out, size_t size) {
    size_t n = 0;
    for (const char *p = format; *p && n + 1 < size; ++p) {
        if (*p != '%') continue;
        p += std::strspn(p + 1, "0123456789.-+ #*lhjzt") + 1;
        if (!*p) break;
        if (*p != '%') out[n++] = *p;
    }
    out[n] = '\0';
}

/// Whether `text` reads no argument that `english` does not give, in order;
/// a missing string, shown as its key, reads none.
bool ConversionsFit(const char *text, const char *english) {
    char wanted[64];
    char given[64];
    Conversions(text, wanted, sizeof wanted);
    Conversions(english, given, sizeof given);
    return std::strncmp(given, wanted, std::strlen(wanted)) == 0;
}

}  // namespace

DbT *OpenCoreStrings() {
    if (Usable(pDrvCoreDB) || (pDrvCoreDB && pDrvCoreDB == BuiltIn)) return pDrvCoreDB;
    // A handle whose file was missing (the language choice opens one when
    // trans.conf is missing) is no database to read strings from.
    if (pDrvCoreDB) DbTClose(pDrvCoreDB);
    DbT *db = NlsOpenDB("CoreString", 0);
    if (!Usable(db)) {
        DbTClose(db);
        db = DbTOpen("en_US/CoreString", 0);
    }
    if (!Usable(db)) {
        DbTClose(db);
        db = BuiltInStrings();
    }
    return pDrvCoreDB = db;
}

char *TextMenuString(int id) {
    char *text = NlsFetchString(OpenCoreStrings(), nullptr, 0, NLS_MENU_GROUP, id);
    MemPtr<char> english(NlsFetchString(BuiltInStrings(), nullptr, 0, NLS_MENU_GROUP, id));
    if (!ConversionsFit(text, english.get())) {
        PutMem(text);
        return english.release();
    }
    return text;
}
