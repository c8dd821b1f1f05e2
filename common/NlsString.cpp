// String databases: strings fetched by key, shown as their key when missing;
// menu records and templates filled from them.
#include <cstdarg>
#include <cstdint>
#include <cstring>

#include "NlsUtils.h"
#include "TextMenu.h"
#include "TextMenuString.h"
#include "utils.h"

namespace {

char NlsBuf[NLS_BUF_SIZE + 1];

/// The text found, or the key, or "Error": copied into `buffer`, or into a
/// new block when there is none.
char *Answer(char *buffer, const char *text, size_t length) {
    if (!buffer) return SaveStr_(text);
    std::memcpy(buffer, text, length);
    return buffer;
}

char *AnswerText(char *buffer, const char *text) {
    return Answer(buffer, text, std::strlen(text) + 1);
}

char *FetchWhole(DbT *database, const char *key) {
    char limited[NLS_RECORD_LIMIT + 1] = {};
    void *data = limited;
    int length = DbmTGetRecordV(database, key, &data, NLS_RECORD_LIMIT);
    if (length <= 0) return SaveStr_(key);
    // A longer record comes back in a block of its own, NUL-ended by GetMem.
    return data == limited ? SaveStr_(limited) : static_cast<char *>(data);
}

/// Fetches one menu string, cut to what a menu field holds.
char *MenuString(int number) {
    char work[NLS_MENU_STRING] = {};
    MemPtr<char> text(NlsFetchString(OpenCoreStrings(), nullptr, 0, NLS_MENU_GROUP, number));
    std::strncpy(work, text.get(), sizeof work - 1);
    return SaveStr("%s", work);
}

}  // namespace

char *NlsFetchString(DbT *database, char *buffer, int mode, ...) {
    char key[64] = {};
    const char *keyText = nullptr;
    va_list args;
    va_start(args, mode);
    if (mode == 0 || mode == 3) {
        int group = va_arg(args, int);
        int number = va_arg(args, int);
        if (database || (group && number)) {
            std::snprintf(key, sizeof key, "%d_%d", group, number);
            keyText = key;
        }
    } else if (mode == 1 || mode == 2) {
        keyText = va_arg(args, const char *);
        if (keyText && !*keyText && !database) keyText = nullptr;
    }
    va_end(args);
    if (!keyText) return AnswerText(buffer, "Error");
    if (mode == 3) return FetchWhole(database, keyText);
    int length = DbmTGetRecord(database, keyText, NlsBuf);
    if (length <= 0) return AnswerText(buffer, keyText);
    NlsBuf[length] = '\0';
    return Answer(buffer, NlsBuf, static_cast<size_t>(length));
}

char *NlsTtyMenuCvt(const char **field, int number) {
    char *text = MenuString(number);
    if (field) *field = text;
    return text;
}

void NlsTtyMenuItemCvt(MENUITEM *items, int first, int count) {
    for (int i = 0; items && i < count; ++i) items[i].text = MenuString(first + i);
}

void NlsTtyMenuItemStateCvt(MENUITEM *items, int first, int count) {
    for (int i = 0; items && i < count; ++i) items[i].choices = MenuString(first + i);
}

void NlsTtyMenuItemPromptCvt(MENUITEM *items, int first, int count) {
    for (int i = 0; items && i < count; ++i) items[i].prompt = MenuString(first + i);
}

char *NlsGuiStrCvt(const char *tmpl, int group, char *output, int size) {
    if (!output || size <= 0) return output;
    std::memset(output, 0, static_cast<size_t>(size));
    if (!tmpl) return output;
    size_t room = static_cast<size_t>(size) - 1;
    size_t used = 0;
    auto put = [&](const char *text, size_t n) {
        n = n < room - used ? n : room - used;
        std::memcpy(output + used, text, n);
        used += n;
    };
    int next = 1;
    for (const char *p = tmpl; *p; ++p) {
        if (p[0] == '%' && p[1] == 's') {
            char work[NLS_TEMPLATE_STRING] = {};
            MemPtr<char> text(NlsFetchString(OpenCoreStrings(), nullptr, 0, group, next++));
            std::strncpy(work, text.get(), sizeof work - 1);
            put(work, std::strlen(work));
            ++p;
        } else {
            put(p, 1);
        }
    }
    return output;
}

char *NlsCalcStrVal(const char *text) {
    static char value[17];
    uint32_t weighted = 0;
    uint32_t sum = 0;
    uint32_t position = 0;
    for (const char *p = text ? text : ""; *p; ++p) {
        uint32_t byte = static_cast<unsigned char>(*p);
        ++position;
        weighted += byte * position * position;
        sum += byte;
    }
    std::snprintf(value, sizeof value, "%08X%08X", weighted, sum);
    return value;
}

int Nlsfprintf(FILE *stream, DbT *database, int group, int number, ...) {
    if (!stream) return -1;
    MemPtr<char> format(NlsFetchString(database, nullptr, 0, group, number));
    va_list args;
    va_start(args, number);
    int written = std::vfprintf(stream, format.get(), args);
    va_end(args);
    return written;
}

int Nlssprintf(char *buffer, int size, DbT *database, int group, int number, ...) {
    if (!buffer || size <= 0) return -1;
    MemPtr<char> format(NlsFetchString(database, nullptr, 0, group, number));
    va_list args;
    va_start(args, number);
    int written = std::vsnprintf(buffer, static_cast<size_t>(size), format.get(), args);
    va_end(args);
    return written;
}
