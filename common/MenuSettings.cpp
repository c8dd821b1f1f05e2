// Settings files: a menu's values written one line per item, with sub-menus
// as "<index>{" ... "}" blocks, and read back to replay a configuration.
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "TextMenu.h"
#include "utils.h"

namespace {

int ItemCount(const MENU &menu) {
    int n = 0;
    while (menu.items && menu.items[n].text) ++n;
    return n;
}

/// The kinds of value an item holds; a stored type may only change an item
/// into one of the same kind, so the value is never read as something else.
int ValueKind(int type) {
    switch (type) {
    case MENU_NAME:
    case MENU_STRING:
        return 1;
    case MENU_PICKONE:
    case MENU_INT:
        return 2;
    case MENU_FLOAT:
        return 3;
    default:
        return 0;
    }
}

/// The number at the start of `text` as strtol reads it (0, with `*end` at
/// `text`, when there is none); false when no int holds it, where sscanf
/// and atoi would be undefined.
bool ReadInt(const char *text, int base, long *value, char **end) {
    errno = 0;
    *value = std::strtol(text, end, base);
    return errno != ERANGE && *value >= INT_MIN && *value <= INT_MAX;
}

void SetValue(MENUITEM &item, const char *word, int storedType) {
    char *end = nullptr;
    long number = 0;
    switch (item.type) {
    case MENU_NAME:
    case MENU_STRING:
        if (item.value.text) std::snprintf(item.value.text, MENU_TEXT_SIZE, "%s", word);
        break;
    case MENU_PICKONE:
    case MENU_INT:
        if (!ReadInt(word, 10, &number, &end)) return;  // no value of the item: kept as it is
        item.value.number = number;
        break;
    case MENU_FLOAT:
        item.value.real = static_cast<float>(std::atof(word));
        break;
    default:
        return;  // several choices are not kept in settings files
    }
    if (ValueKind(storedType) == ValueKind(item.type)) item.type = storedType;
}

}  // namespace

void StoreMenu(MENU *menu) {
    if (!menu || !menu->items || !pOut) return;
    for (int i = 0; menu->items[i].text; ++i) {
        const MENUITEM &item = menu->items[i];
        switch (item.type) {
        case MENU_NAME:
        case MENU_STRING:
            std::fprintf(pOut, "%i[%s] %i %i\n", i, item.value.text ? item.value.text : "",
                         item.type, item.state);
            break;
        case MENU_PICKONE:
        case MENU_INT:
            std::fprintf(pOut, "%i[%i] %i %i\n", i, static_cast<int>(item.value.number), item.type,
                         item.state);
            break;
        case MENU_FLOAT:
            std::fprintf(pOut, "%i[%.3f] %i %i\n", i, static_cast<double>(item.value.real), item.type,
                         item.state);
            break;
        default:
            break;
        }
    }
    for (int i = 0; menu->items[i].text; ++i) {
        if (menu->items[i].type != MENU_SUBMENU) continue;
        MENU *sub = ValidateMenu(menu, i);
        if (!sub) continue;
        std::fprintf(pOut, "%i{\n", i);
        StoreMenu(sub);
        std::fprintf(pOut, "}\n");
    }
}

void LoadMenu(MENU *menu) {
    flLoadedSettings = 1;
    if (!menu || !menu->items) return;
    int count = ItemCount(*menu);
    while (GetFileLine()) {
        if (LineBuf[0] == '}') {
            MENUITEM *apply = FindTextMenuItem(menu, MENU_APPLY);
            if (apply && apply->handler) apply->handler(menu, apply);
            return;
        }
        long index = 0;
        char *end = nullptr;
        if (!ReadInt(LineBuf, 10, &index, &end) || end == LineBuf || *end == '\0') continue;
        char mark = *end;
        char word[LINEBUF_SIZE] = {};
        if (std::sscanf(end + 1, "%4095s", word) != 1) word[0] = '\0';
        size_t length = std::strlen(word);
        if (length && word[length - 1] == ']') word[length - 1] = '\0';
        // A line naming no item of this menu is somebody else's: skipped.
        if (index < 0 || index >= count) continue;
        // Only a sub-menu item holds menus: any other item's value read as
        // one would point anywhere.
        if (mark == '{' && menu->items[index].type == MENU_SUBMENU) {
            if (MENU *sub = ValidateMenu(menu, index)) {
                LoadMenu(sub);
                continue;
            }
        }
        const char *bracket = std::strchr(LineBuf, ']');
        if (!bracket || bracket[1] == '\0') continue;
        long storedType = 0;
        long state = 0;
        char *typeEnd = nullptr;
        if (!ReadInt(bracket + 1, 0, &storedType, &typeEnd) || typeEnd == bracket + 1 ||
            !ReadInt(typeEnd, 0, &state, &end) || end == typeEnd)
            continue;
        MENUITEM &item = menu->items[index];
        item.state = static_cast<int32_t>(state);
        SetValue(item, word, static_cast<int>(storedType));
    }
}
