// Menu rendering on an 80-column line terminal: title, items with their
// selectors and values lined up, bars of hot-key cells, the prompt line.
#include <cstdio>
#include <cstring>

#include "SysCmd.h"
#include "TextMenu.h"
#include "TextMenuString.h"
#include "utils.h"

namespace {

void Blanks(int n) {
    for (int i = 0; i < n; ++i) std::putchar(' ');
}

void PrintTitle(const MENU &menu, int titleLength) {
    const char *title = menu.title ? menu.title : "";
    switch (menu.titleStyle) {
    case 0:
        std::printf("\f\n%s:\n\n", title);
        break;
    case 1:
        std::printf("\f\n");
        if (titleLength <= MENU_WIDTH) Blanks((MENU_WIDTH - titleLength) / 2);
        std::printf("%s\n\n", title);
        break;
    case 2:
        std::printf("\f\n");
        if (titleLength <= MENU_WIDTH) Blanks(MENU_WIDTH - titleLength);
        std::printf("%s\n\n", title);
        break;
    default:
        break;
    }
}

/// The label shown for an item: a hot-key label from its fourth character.
const char *Label(const MENUITEM &item) {
    if (item.text[0] != '~') return item.text;
    return std::strlen(item.text) >= 3 ? item.text + 3 : "";
}

void PrintChoiceSet(long set) {
    MemPtr<char> open(TextMenuString(270));
    std::printf("%s", open.get());
    if (set == 1) {
        MemPtr<char> none(TextMenuString(271));
        std::printf("%s", none.get());
    } else {
        const char *separator = "";
        for (int k = 1; k < static_cast<int>(sizeof(long) * 8); ++k)
            if (set & (1L << k)) {
                std::printf("%s%d", separator, k);
                separator = ",";
            }
    }
    std::printf("]");
}

void PrintValue(MENUITEM &item, int longest) {
    for (int column = item.textLength; column < longest; ++column) std::putchar('.');
    switch (item.type) {
    case MENU_PICKONE: {
        const char *choice =
            item.choices ? GetTokenN(item.choices, ",", static_cast<int>(item.value.number) + 1) : nullptr;
        item.choiceText = choice;
        if (!choice || choice[0] == ' ')
            std::printf(" [ ]");
        else
            std::printf(" [%i. %s]", static_cast<int>(item.value.number) + 1,
                        choice + (choice[0] == '_' ? 1 : 0));
        break;
    }
    case MENU_PICKMANY:
        PrintChoiceSet(item.value.number);
        break;
    case MENU_NAME:
    case MENU_STRING:
        std::printf(" [%s]", item.value.text ? item.value.text : "");
        break;
    case MENU_INT:
        std::printf(" [%i]", static_cast<int>(item.value.number));
        break;
    case MENU_FLOAT:
        std::printf(" [%.3f]", static_cast<double>(item.value.real));
        break;
    default:
        break;
    }
}

/// Prints the prompt line: string 510 with the hints the menu's flags allow.
void PrintPrompt(const MENU &menu) {
    bool store = menu.flags & (MENUFLAG_STOREASK | MENUFLAG_STOREEXIT);
    MemPtr<char> storeHint(store ? TextMenuString(230) : SaveStr_(""));
    MemPtr<char> helpHint((menu.flags & MENUFLAG_HELP) ? TextMenuString(231) : SaveStr_(""));
    MemPtr<char> exitHint((menu.flags & MENUFLAG_NOEXIT) ? SaveStr_("") : TextMenuString(232));
    MemPtr<char> prompt(TextMenuString(510));
    std::printf(prompt.get(), storeHint.get(), helpHint.get(), exitHint.get());
    std::fflush(stdout);
}

}  // namespace

MENUITEM *PrintMenuBarItem(MENUITEM *item, int barType, int *index, int *number) {
    int columns = item->value.number ? static_cast<int>(item->value.number) : 3;
    int width = columns > 0 ? MENU_WIDTH / columns : MENU_WIDTH;
    int column = 0;
    auto goesOn = [&](const MENUITEM *at) {
        const MENUITEM &next = at[1];
        return next.text && (barType == MENU_BAR_TEXT || next.type == MENU_TEXT);
    };
    MENUITEM *cur = item;
    while (goesOn(cur)) {
        ++cur;
        ++*index;
        bool group = (barType == MENU_BAR && cur->type == MENU_TEXT) ||
                     (barType == MENU_BAR_TEXT && cur->type == MENU_BAR_TEXT);
        if (group) {
            std::printf("\n");
            column = 0;
            // A group without a column count keeps the width it had: dividing
            // by zero has no answer.
            if (cur->value.number > 0) {
                columns = static_cast<int>(cur->value.number);
                width = MENU_WIDTH / columns;
            }
            continue;
        }
        int length = static_cast<int>(std::strlen(cur->text));
        if (column + length >= MENU_WIDTH + 1 || (column > 0 && length > width - 5)) {
            std::printf("\n");
            column = 0;
        }
        ++*number;
        if (cur->state == 2) continue;
        char cell[LINEBUF_SIZE];
        int pad = width - length - 5;
        if (cur->text[0] == '~')
            std::snprintf(cell, sizeof cell, " %c) %s%*s ", cur->text[1], Label(*cur), pad + 2, "");
        else
            std::snprintf(cell, sizeof cell, "%2i) %s%*s", cur->key, cur->text, pad > 0 ? pad : 0, "");
        if (width >= 2) {
            cell[width - 2] = ' ';
            cell[width - 1] = '\0';
        }
        std::printf("%s", cell);
        if (length > width - columns) {
            std::printf("\n");
            column = 0;
        } else {
            column += width;
        }
    }
    return cur;
}

int PrintMenu(MENU *menu, int longest, int titleLength) {
    SysCmd(CMD_CLEAR, 0, " ");
    PrintTitle(*menu, titleLength);
    int k = 0;
    int number = 0;
    for (MENUITEM *item = menu->items; item && item->text; ++item, ++k) {
        if (item->type > MENU_BAR_TEXT) ++number;
        bool lineEnd = item->state != 2;
        switch (item->type) {
        case MENU_SUBMENU:
            if (MENU *sub = ValidateMenu(menu, k))
                std::printf("%2i) %s ", item->key, sub->title ? sub->title : "");
            else
                lineEnd = false;
            break;
        case MENU_BAR:
        case MENU_BAR_TEXT:
            item = PrintMenuBarItem(item, item->type, &k, &number);
            break;
        case MENU_TEXT:
            std::printf("%s ", item->text);
            break;
        default:
            // The number shown is the key that selects the item.
            if (item->state == 1)
                std::printf("%*s  %s ", 2, " ", Label(*item));
            else if (item->state != 2 && item->text[0] == '~')
                std::printf(" %c) %s ", item->text[1], Label(*item));
            else if (item->state != 2)
                std::printf("%2i) %s ", item->key, item->text);
            break;
        }
        if (item->type > MENU_SUBMENU && item->state != 2) PrintValue(*item, longest);
        if (lineEnd) std::printf("\n%s", (menu->flags & MENUFLAG_COMPACT) ? "" : "\n");
    }
    PrintPrompt(*menu);
    return k;
}
