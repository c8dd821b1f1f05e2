// Settings files: the input is read by LoadMenu (through pIn, as RunMenu
// opens it) into a menu holding every kind of value, a sub-menu and a
// sub-menu chosen by conditions; the values loaded are then written back
// with StoreMenu.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "FuzzSupport.h"
#include "TextMenu.h"
#include "utils.h"

namespace {

int Applied(MENU *, MENUITEM *) {
    return 0;
}

// Choice lists are written to by the engine: each run starts from these.
constexpr const char *MODES = "on,off,auto";
constexpr const char *PARTS = "a,b, c";
constexpr const char *LEVELS = "low,high";
char modes[32], parts[32], levels[32];

// clang-format off
const MENUITEM kSub[] = {
    {.text = "Depth", .type = MENU_INT, .defaultValue = {3}},
    {.text = "Label", .type = MENU_STRING, .defaultValue = {.text = const_cast<char *>("x")}},
    {.text = "Level", .type = MENU_PICKONE, .choices = levels},
    {.text = "Done", .type = MENU_APPLY, .handler = Applied},
    {}};
const MENUITEM kOther[] = {
    {.text = "Ratio", .type = MENU_FLOAT, .defaultValue = {.real = 0.5f}},
    {.text = "Done", .type = MENU_APPLY, .handler = Applied},
    {}};
const MENUITEM kMain[] = {
    {.text = "Intro", .type = MENU_TEXT},
    {.text = "Name", .type = MENU_NAME, .defaultValue = {.text = const_cast<char *>("abc")}},
    {.text = "Comment", .type = MENU_STRING},
    {.text = "Mode", .type = MENU_PICKONE, .choices = modes},
    {.text = "Parts", .type = MENU_PICKMANY, .choices = parts},
    {.text = "Size", .type = MENU_INT, .defaultValue = {7}},
    {.text = "Scale", .type = MENU_FLOAT, .defaultValue = {.real = 1.5f}},
    {.text = "More", .type = MENU_SUBMENU},
    {.text = "Either", .type = MENU_SUBMENU, .format = "3.1 3.2&!5.7 *"},
    {.text = "Hidden", .type = MENU_INT, .state = 2},
    {.text = "Apply", .type = MENU_APPLY, .handler = Applied},
    {.text = "~q Quit", .type = MENU_EXIT},
    {}};
// clang-format on

MENUITEM subItems[std::size(kSub)], otherItems[std::size(kOther)], mainItems[std::size(kMain)];
MENU mainMenu, subMenu, otherMenu;
MENU *either[3];

// The menus as an application declares them, before InitMenu.
void Declare() {
    std::strcpy(modes, MODES);
    std::strcpy(parts, PARTS);
    std::strcpy(levels, LEVELS);
    std::copy(std::begin(kSub), std::end(kSub), subItems);
    std::copy(std::begin(kOther), std::end(kOther), otherItems);
    std::copy(std::begin(kMain), std::end(kMain), mainItems);
    mainMenu = {.title = "Main", .items = mainItems};
    subMenu = {.title = "Sub", .parentMenu = &mainMenu, .items = subItems};
    otherMenu = {.title = "Other", .parentMenu = &mainMenu, .items = otherItems};
    either[0] = &subMenu;
    either[1] = &otherMenu;
    either[2] = &subMenu;
    mainItems[7].value.menu = &subMenu;
    mainItems[8].value.menus = either;
    InitMenu(&mainMenu);
    InitMenu(&subMenu);
    InitMenu(&otherMenu);
}

}  // namespace

void fuzz::SetUp() {
    fuzz::Begin("", "settingsfuzz");
}

void fuzz::OneInput(std::string_view bytes) {
    std::string path = fuzz::WriteFile("settings", bytes);
    Declare();
    if (OpenInputFile(path.c_str(), 1)) {
        LoadMenu(&mainMenu);
        CloseInputFile();
    }
    pOut = std::fopen("/dev/null", "w");
    StoreMenu(&mainMenu);
    std::fclose(pOut);
    pOut = nullptr;
    FreeMenu(&mainMenu);
    FreeMenu(&subMenu);
    FreeMenu(&otherMenu);
}
