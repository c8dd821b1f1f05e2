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

constexpr int MENU_TEXT_SIZE = 256;  ///< the value buffer of a text item
constexpr int MENU_WIDTH = 80;

extern char flExitTextMenu;    ///< set by a handler: every running menu loop ends
extern char flLoadedSettings;  ///< set once settings were loaded
extern char *pOption;          ///< the argument typed after a selection, in LineBuf
extern const char *pTtyHtmlName;   ///< help shown by "h": page name
extern const char *pTtyHtmlData;   ///< help shown by "h": the text itself
extern const char *pTtyHtmlTitle;  ///< help shown by "h": title

// ---- The run loop (TextMenu.cpp)

/// Runs a menu: interactively (0 once left), or, with `interactive` 0, loads
/// `settingsFile` and returns the apply handler's result. A settings file
/// that cannot be opened hands over to the first type-5 item's handler.
/// End of input while waiting for a selection ends the program (status 1).
int RunMenu(MENU *menu, const char *settingsFile, int interactive);
/// Fills the derived item fields; the length of the longest label.
int InitMenu(MENU *menu);
/// Releases the value buffers of text items.
void FreeMenu(MENU *menu);
/// The 1-based index of the item a typed line selects among the first
/// `count` records, 0 for none (also after "h" and "s" were handled);
/// pOption is set to the argument after the first word.
int FindSelection(MENU *menu, char *line, int count);
/// Carries out the item at 0-based `index`; whether it changed or ended something.
int ProcessSelection(MENU *menu, int index, char *option);
/// The sub-menu a type-8 item opens now, or null.
MENU *ValidateMenu(MENU *menu, int index);
/// 1 when every name item before the first hidden one is set; otherwise
/// says so, waits for Return and gives 0.
int TestNames(MENU *menu);
/// The first item of `type`, or null.
MENUITEM *FindTextMenuItem(MENU *menu, int type);

// ---- Rendering (MenuPrint.cpp)

/// Clears the screen and prints the menu and its prompt line; the number of
/// item records walked.
int PrintMenu(MENU *menu, int longest, int titleLength);
/// Prints the bar starting at `item`, advancing *index and *number over the
/// records it takes; the last record taken.
MENUITEM *PrintMenuBarItem(MENUITEM *item, int barType, int *index, int *number);

// ---- Prompts (Prompt.cpp)

/// Asks "<question>? [y/n] " (the question's own conversions take the further
/// arguments) until a line starting with "y" (1) or "n" (0) is typed. At end
/// of input it keeps asking: unattended runs must not reach it.
int PromptYN(const char *question, ...);
/// Prints the message, then "Press <Return> to continue", and waits for a line.
void PostMsg(const char *format, ...);
/// PromptUser(prompt, buffer, ...): prints `prompt` as a format whose
/// arguments are `buffer` (char *, may be null) and the rest, then reads a line
/// into `buffer` (LINEBUF_SIZE bytes) and returns it, or, without a buffer,
/// returns a new block of at most 1023 characters. End of input: an empty line.
char *PromptUser(const char *prompt, ...);

// ---- Settings files (MenuSettings.cpp)

/// Writes the menu's values and its current sub-menus to pOut.
void StoreMenu(MENU *menu);
/// Reads values from pIn up to its end or a "}" line; sets flLoadedSettings.
void LoadMenu(MENU *menu);

// ---- Entry validation and item states (MenuValidate.cpp, MenuState.cpp)

/// 0 when `text` satisfies `format` (see MenuValidate.cpp for the format
/// language); otherwise prints why and returns non-zero. A null or empty
/// format admits everything.
int ValidateEntry(const char *text, const char *format);
/// Non-zero when `condition` holds for the menu's current values. A
/// malformed condition is false. `index` is the asking item's.
int TestStateCondition(MENU *menu, const char *condition, int index);
/// Lets the user pick one choice of a type-9 item or toggle choices of a
/// type-10 item (directly from `option` when given); returns 0.
int ProcessStateValue(MENU *menu, int index, char *option);
/// Shows or hides the choices of item `index` by the conditions in its format.
void UpdateStateSelection(MENU *menu, int index);
/// After item `index` changed: brings every dependent item up to date.
void ProcessStateFormat(MENU *menu, int index);
/// Marks choice `choice` (1-based) of the item unavailable (first character " ").
void HideStateSelection(MENUITEM *item, int choice);
/// Marks it available again (a hidden choice's first character becomes "_").
void ShowStateSelection(MENUITEM *item, int choice);
