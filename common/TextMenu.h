// Line-mode menus: the menu and item records that applications declare as
// static tables, and the dialogue shared by the menus and the installer.
#pragma once

#include <cstdint>

#include "Str.h"

struct MENU;
struct MENUITEM;

/// A value of an item; which member holds depends on the item's type.
union MenuValue {
    long number;  ///< choice index (9), choice set (10), integer (13); a table writes {n}
    char *text;   ///< text default (11, 12); the engine's 256-byte buffer as value
    float real;   ///< 14, written {.real = x}
    MENU *menu;   ///< sub-menu (8)
    MENU **menus; ///< sub-menus chosen by the item's conditions (8)
};

/// One line of a menu; an array of them ends with a null `text`.
struct MENUITEM {
    const char *text;  ///< label; "~x Label" gives the hot key x
    int32_t type;      ///< MENU_TEXT ... MENU_FLOAT
    int32_t state;     ///< 0 shown, 1 shown but not selectable, 2 hidden
    const char *prompt;
    char *choices;           ///< "a,b, c": comma-separated, leading blank = unavailable (writable)
    const char *choiceText;  ///< set by the engine
    MenuValue defaultValue;
    MenuValue value;
    MenuValue savedValue;
    /// Called as handler(menu, item); a text item's accepted value also calls
    /// handler(menu, nullptr) first.
    int (*handler)(MENU *menu, MENUITEM *item);
    int32_t textLength;  ///< set by the engine
    const char *format;  ///< entry format, or a sub-menu item's conditions
    intptr_t reserved1;
    int32_t choiceCount;  ///< set by the engine
    intptr_t reserved2;
    int32_t key;  ///< set by the engine: hot-key letter or running number
};

/// One screen.
struct MENU {
    const char *title;
    int32_t titleStyle;  ///< 0 flush left with ":", 1 centred, 2 right-aligned
    const char *exitPrompt;
    int (*applyHandler)(MENU *menu);
    void *reserved;
    MENU *parentMenu;
    int (*refreshHandler)(MENU *menu, const char *settingsFile, int interactive);
    MENUITEM *items;
    uint16_t flags;
};

enum : int32_t {
    MENU_TEXT = 0,
    MENU_BAR = 1,
    MENU_BLANK = 2,
    MENU_BAR_TEXT = 3,
    MENU_APPLY = 4,
    MENU_LOAD = 5,
    MENU_EXIT = 6,
    MENU_ACTION = 7,
    MENU_SUBMENU = 8,
    MENU_PICKONE = 9,
    MENU_PICKMANY = 10,
    MENU_NAME = 11,
    MENU_STRING = 12,
    MENU_INT = 13,
    MENU_FLOAT = 14,
};

enum : uint16_t {
    MENUFLAG_NOEXIT = 0x0001,
    MENUFLAG_HELP = 0x0002,
    MENUFLAG_KEEP = 0x0004,
    MENUFLAG_STOREASK = 0x0008,
    MENUFLAG_STOREEXIT = 0x0010,
    MENUFLAG_REINIT = 0x0040,
    MENUFLAG_TYPEBEFORE = 0x0080,
    MENUFLAG_COMPACT = 0x0100,
};

constexpr char MENUVAL_SAVE = 's';
constexpr char MENUVAL_CANCEL = 'c';
constexpr char MENUVAL_DEFAULT = 'd';

extern char flExitTextMenu;  ///< set by a handler: every running menu loop ends

/// Asks "<question>? [y/n] " (the question's own conversions take the further
/// arguments) until a line starting with "y" (1) or "n" (0) is typed. At end
/// of input it keeps asking: unattended runs must not reach it.
int PromptYN(const char *question, ...);
