// The menu run loop: a numbered list printed, one line read, the line mapped
// to an item by number or hot key, and the item carried out by its type.
#include "TextMenu.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "HelpTty.h"
#include "TextMenuString.h"
#include "utils.h"

char flLoadedSettings = 0;
char *pOption = nullptr;
const char *pTtyHtmlName = nullptr;
const char *pTtyHtmlData = nullptr;
const char *pTtyHtmlTitle = nullptr;

namespace {

constexpr const char *SETTINGS_NAME_FORMAT = "/A(1,255)+-+_+/";

bool IsBlank(char c) {
    return std::isspace(static_cast<unsigned char>(c)) != 0;
}

bool HasHotKey(const MENUITEM &item) {
    return item.text && item.text[0] == '~';
}

bool InputEnded() {
    return std::feof(stdin) != 0;
}

/// Stores the menu's values into `file` ("wt"); 0 when it cannot be created.
int StoreTo(MENU *menu, const char *file) {
    pOut = OpenFile(pOut, file, "wt", 0);
    if (!pOut) return 0;
    StoreMenu(menu);
    std::fclose(pOut);
    pOut = nullptr;
    return 1;
}

/// The value typed after the selection, or asked for with the item's prompt,
/// in LineBuf; false when nothing acceptable was given.
bool ReadValue(const MENUITEM &item, const char *option) {
    if (option && *option) {
        std::memmove(LineBuf, option, std::strlen(option) + 1);  // option lies in LineBuf
    } else {
        std::printf("%s: ", item.prompt ? item.prompt : "");
        std::fflush(stdout);
        GetsLine(LineBuf, LINEBUF_SIZE);
        // End of input answers nothing; the menu then ends at its next read.
        if (InputEnded() || LineBuf[0] == '\0') return false;
    }
    return ValidateEntry(LineBuf, item.format) == 0;
}

/// A two-way choice moves to the next available choice, or to the one typed.
bool Toggle(MENU *menu, int index, const char *option) {
    MENUITEM &item = menu->items[index];
    long old = item.value.number;
    long cur = old;
    int count = item.choiceCount;
    auto available = [&](long choice) {
        const char *token =
            item.choices ? GetTokenN(item.choices, ",", static_cast<int>(choice) + 1) : nullptr;
        return token && token[0] != ' ';
    };
    bool changed = false;
    // A number past any int clamps past every choice: no choice, as an unknown one is.
    int typed =
        option && std::isdigit(static_cast<unsigned char>(*option)) ? ClampedInt(option) : 0;
    if (typed >= 1 && typed <= count) {
        cur = typed - 1;
        changed = available(cur);
    }
    for (int tries = 0; !changed && tries < count; ++tries) {
        cur = (cur + 1) % count;
        changed = available(cur);
    }
    if (!changed) return false;
    item.value.number = cur;
    item.savedValue.number = old;
    item.choiceText = GetTokenN(item.choices, ",", static_cast<int>(cur) + 1);
    ProcessStateFormat(menu, index);
    return true;
}

/// The first line of the title, which alone is centred.
int TitleLength(const char *title) {
    return title ? static_cast<int>(std::strcspn(title, "\n\r")) : 0;
}

}  // namespace

int InitMenu(MENU *menu) {
    if (!menu || !menu->items) return 0;
    int longest = 0;
    int number = 0;
    // Keys first: the choice conditions below name items by their numbers,
    // later items' included.
    for (MENUITEM *item = menu->items; item->text; ++item) {
        item->textLength = static_cast<int32_t>(std::strlen(item->text));
        if (item->textLength > longest) longest = item->textLength;
        // Hot-key items take no number, so the numbers count only the others.
        if (item->type < MENU_APPLY)
            item->key = 0;
        else if (HasHotKey(*item))
            item->key = static_cast<unsigned char>(item->text[1]);
        else
            item->key = ++number;
    }
    for (int i = 0; menu->items[i].text; ++i) {
        MENUITEM &item = menu->items[i];
        switch (item.type) {
            case MENU_PICKONE:
            case MENU_PICKMANY:
                item.choiceCount = item.choices ? GetTokenCount(item.choices, ",") : 0;
                if (item.type == MENU_PICKMANY && item.value.number == 0)
                    item.defaultValue.number = item.value.number = 1;
                if (item.type == MENU_PICKONE) item.value.number = item.defaultValue.number;
                item.savedValue.number = item.defaultValue.number;
                UpdateStateSelection(menu, i);
                ProcessStateFormat(menu, i);
                break;
            case MENU_NAME:
            case MENU_STRING:
                if (!item.value.text) item.value.text = static_cast<char *>(GetMem(MENU_TEXT_SIZE));
                if (item.value.text)
                    std::snprintf(item.value.text, MENU_TEXT_SIZE, "%s",
                                  item.defaultValue.text ? item.defaultValue.text : "");
                break;
            case MENU_INT:
                item.value.number = item.defaultValue.number;
                break;
            case MENU_FLOAT:
                item.value.real = item.defaultValue.real;
                break;
            default:
                break;
        }
    }
    return longest;
}

void FreeMenu(MENU *menu) {
    if (!menu || !menu->items) return;
    for (MENUITEM *item = menu->items; item->text; ++item)
        if (item->type == MENU_NAME || item->type == MENU_STRING)
            item->value.text = static_cast<char *>(PutMem(item->value.text));
}

MENUITEM *FindTextMenuItem(MENU *menu, int type) {
    if (!menu || !menu->items) return nullptr;
    for (MENUITEM *item = menu->items; item->text; ++item)
        if (item->type == type) return item;
    return nullptr;
}

int FindSelection(MENU *menu, char *line, int count) {
    char *p = line;
    while (*p && IsBlank(*p)) ++p;
    while (*p && !IsBlank(*p)) ++p;
    while (*p && IsBlank(*p)) ++p;
    pOption = p;
    MENUITEM *items = menu->items;
    if (std::isdigit(static_cast<unsigned char>(line[0]))) {
        int n = ClampedInt(line);  // past any int: past every item's number
        for (int i = 0; i < count; ++i)
            if (!HasHotKey(items[i]) && items[i].state == 0 && items[i].key == n) return i + 1;
        return 0;
    }
    int c = std::tolower(static_cast<unsigned char>(line[0]));
    if (c == 'h' && (menu->flags & MENUFLAG_HELP)) {
        TtyHtmlHelp(pTtyHtmlName, pTtyHtmlData, pTtyHtmlTitle);
        return 0;
    }
    if (c == 's' && (menu->flags & MENUFLAG_STOREASK)) {
        std::printf("Enter the settings file name: ");
        std::fflush(stdout);
        GetsLine(LineBuf, LINEBUF_SIZE);
        if (InputEnded() || ValidateEntry(LineBuf, SETTINGS_NAME_FORMAT) != 0) return 0;
        StoreTo(menu, LineBuf);
        return 0;
    }
    if (c == 's' && (menu->flags & MENUFLAG_STOREEXIT)) {
        if (StoreTo(menu, ".settings")) std::exit(0);
        return 0;
    }
    // The input is lowered, the label's key is not: hot keys are lower case.
    for (int i = 0; i < count; ++i)
        if (HasHotKey(items[i]) && items[i].state == 0 && items[i].key == c) return i + 1;
    return 0;
}

MENU *ValidateMenu(MENU *menu, int index) {
    MENUITEM &item = menu->items[index];
    if (item.state != 0) return nullptr;
    if (!item.format) return item.value.menu;
    if (!item.value.menus) return nullptr;
    std::string_view conditions(item.format);
    int k = 0;
    while (!conditions.empty()) {
        size_t start = conditions.find_first_not_of(" \t");
        if (start == std::string_view::npos) break;
        conditions.remove_prefix(start);
        size_t end = conditions.find_first_of(" \t");
        MemPtr<char> condition(
            SaveStr("%.*s", static_cast<int>(conditions.substr(0, end).size()), conditions.data()));
        if (TestStateCondition(menu, condition.get(), index)) return item.value.menus[k];
        ++k;
        conditions.remove_prefix(end == std::string_view::npos ? conditions.size() : end);
    }
    return nullptr;
}

int TestNames(MENU *menu) {
    for (MENUITEM *item = menu->items; item->text && item->state != 2; ++item) {
        if (item->type != MENU_NAME || (item->value.text && item->value.text[0])) continue;
        MemPtr<char> text(TextMenuString(1011));
        std::printf("%s", text.get());
        std::fflush(stdout);
        GetsLine(LineBuf, LINEBUF_SIZE);
        return 0;
    }
    return 1;
}

int ProcessSelection(MENU *menu, int index, char *option) {
    MENUITEM &item = menu->items[index];
    bool changed = false;
    switch (item.type) {
        case MENU_APPLY:
            if (!TestNames(menu)) return 0;
            [[fallthrough]];
        case MENU_LOAD:
        case MENU_EXIT:
        case MENU_ACTION:
            // The handler says 0 for done; without one the item simply happens.
            return !item.handler || item.handler(menu, &item) == 0;
        case MENU_SUBMENU:
            if (MENU *sub = ValidateMenu(menu, index)) RunMenu(sub, nullptr, 1);
            if (menu->refreshHandler) menu->refreshHandler(menu, nullptr, 1);
            return 0;
        case MENU_PICKONE:
            if (item.choiceCount >= 3) return ProcessStateValue(menu, index, option);
            changed = Toggle(menu, index, option);
            break;
        case MENU_PICKMANY:
            return ProcessStateValue(menu, index, option);
        case MENU_NAME:
        case MENU_STRING:
            if (!ReadValue(item, option)) return 0;
            if (item.value.text) std::snprintf(item.value.text, MENU_TEXT_SIZE, "%s", LineBuf);
            // Text handlers hear of the new value twice, first without the item:
            // handlers written for both calls rely on it.
            if (item.handler) item.handler(menu, nullptr);
            changed = true;
            break;
        case MENU_INT:
            if (!ReadValue(item, option)) return 0;
            item.value.number = ClampedInt(LineBuf);
            changed = true;
            break;
        case MENU_FLOAT:
            if (!ReadValue(item, option)) return 0;
            item.value.real = static_cast<float>(std::atof(LineBuf));
            changed = true;
            break;
        default:
            return 0;
    }
    if (changed && item.handler) item.handler(menu, &item);
    return changed;
}

int RunMenu(MENU *menu, const char *settingsFile, int interactive) {
    if (!menu) return 0;
    if (menu->refreshHandler) menu->refreshHandler(menu, settingsFile, interactive);
    if (flExitTextMenu) return 0;
    int longest = InitMenu(menu);
    if (settingsFile) {
        if (!OpenInputFile(settingsFile, 1)) {
            MENUITEM *load = FindTextMenuItem(menu, MENU_LOAD);
            if (!load) return 0;
            return load->handler ? load->handler(menu, load) : 1;
        }
        LoadMenu(menu);
        CloseInputFile();
    }
    if (!interactive) return menu->applyHandler ? menu->applyHandler(menu) : 0;

    int titleLength = TitleLength(menu->title);
    bool changed = false;
    for (;;) {
        int count = PrintMenu(menu, longest, titleLength);
        GetsLine(LineBuf, LINEBUF_SIZE);
        if (InputEnded()) {
            MemPtr<char> text(TextMenuString(1016));
            SysError("%s", text.get());
        }
        if (LineBuf[0] != '\0' || (menu->flags & MENUFLAG_NOEXIT)) {
            int selected = FindSelection(menu, LineBuf, count);
            if (!selected) continue;
            MENUITEM &item = menu->items[selected - 1];
            int type = item.type;
            bool result = ProcessSelection(menu, selected - 1, pOption) != 0;
            if (!(menu->flags & MENUFLAG_TYPEBEFORE)) type = item.type;
            if (flExitTextMenu) break;
            if (result && (type == MENU_APPLY || type == MENU_LOAD || type == MENU_EXIT)) break;
            if (result && type == MENU_ACTION && (menu->flags & MENUFLAG_REINIT)) {
                longest = InitMenu(menu);
                continue;
            }
            if (!changed) changed = result;
            continue;
        }
        // Leaving. Without a question the values are applied on every
        // Return, even when the user then stays: menus built on that rely on it.
        if (!menu->exitPrompt) {
            if (menu->applyHandler) menu->applyHandler(menu);
        } else if (changed && PromptYN(menu->exitPrompt)) {
            if (!TestNames(menu)) continue;
            if (menu->applyHandler) menu->applyHandler(menu);
            FreeMenu(menu);
            return 0;
        }
        bool leave;
        if (menu->parentMenu) {
            MemPtr<char> question(TextMenuString(1017));
            leave =
                PromptYN(question.get(), menu->parentMenu->title ? menu->parentMenu->title : "");
        } else {
            MemPtr<char> question(TextMenuString(1018));
            leave = PromptYN(question.get(), my_name ? my_name : "");
        }
        if (leave) {
            FreeMenu(menu);
            if (!menu->parentMenu) {
                std::printf("\n");
                std::fflush(stdout);
            }
            return 0;
        }
        if (menu->refreshHandler) menu->refreshHandler(menu, nullptr, 1);
    }
    if (!(menu->flags & MENUFLAG_KEEP)) FreeMenu(menu);
    return 0;
}
