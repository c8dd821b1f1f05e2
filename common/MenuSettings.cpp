// Settings files: a menu's values written one line per item, with sub-menus
// as "<index>{" ... "}" blocks, and read back to replay a configuration.
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

void SetValue(MENUITEM &item, const char *word, int storedType) {
    switch (item.type) {
    case MENU_NAME:
    case MENU_STRING:
        if (item.value.text) std::snprintf(item.value.text, MENU_TEXT_SIZE, "%s", word);
        break;
    case MENU_PICKONE:
    case MENU_INT:
        item.value.number = std::atoi(word);
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
        int index = 0;
        char mark = 0;
        char word[LINEBUF_SIZE] = {};
        if (std::sscanf(LineBuf, "%d%c%4095s", &index, &mark, word) < 2) continue;
        size_t length = std::strlen(word);
        if (length && word[length - 1] == ']') word[length - 1] = '\0';
        // A line naming no item of this menu is somebody else's: skipped.
        if (index < 0 || index >= count) continue;
        if (mark == '{') {
            if (MENU *sub = ValidateMenu(menu, index)) {
                LoadMenu(sub);
                continue;
            }
        }
        const char *bracket = std::strchr(LineBuf, ']');
        if (!bracket || bracket[1] == '\0') continue;
        int storedType = 0;
        int state = 0;
        if (std::sscanf(bracket + 1, "%i %i", &storedType, &state) != 2) continue;
        MENUITEM &item = menu->items[index];
        item.state = state;
        SetValue(item, word, storedType);
    }
}
