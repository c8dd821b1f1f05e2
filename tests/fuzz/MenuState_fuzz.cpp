// State conditions: the input is a condition, as a menu table's format
// holds one, tested by TestStateCondition against a menu with an item of
// every kind that holds a value.
#include <cstdlib>

#include "FuzzSupport.h"
#include "TextMenu.h"
#include "utils.h"

namespace {

char colours[] = "red,green,blue";
char extras[] = "_a,_b, c";
char name[MENU_TEXT_SIZE] = "abc";
char empty[MENU_TEXT_SIZE] = "";

// Keys as InitMenu numbers them; the hot-key item first, so that numbers
// and places differ. The sets and numbers sit at the edges of their ranges.
// clang-format off
MENUITEM items[] = {
    {.text = "~e Exit", .type = MENU_EXIT, .key = 'e'},
    {.text = "Colour", .type = MENU_PICKONE, .choices = colours, .value = {1}, .key = 1},
    {.text = "Extras", .type = MENU_PICKMANY, .choices = extras, .value = {static_cast<long>(0x80000005UL)}, .key = 2},
    {.text = "Count", .type = MENU_INT, .value = {-999999999}, .key = 3},
    {.text = "Name", .type = MENU_STRING, .value = {.text = name}, .key = 4},
    {.text = "Note", .type = MENU_NAME, .value = {.text = empty}, .key = 5},
    {.text = "Scale", .type = MENU_FLOAT, .value = {.real = 2.5f}, .key = 6},
    {.text = "Big", .type = MENU_INT, .value = {2147483647}, .key = 7},
    {.text = "Run", .type = MENU_ACTION, .key = 8},
    {.text = "Gone", .type = MENU_STRING, .key = 9},
    {.text = nullptr}};
// clang-format on
MENU menu = {.title = "Test", .items = items};

}  // namespace

void fuzz::SetUp() {
    fuzz::Quiet();
}

void fuzz::OneInput(std::string_view bytes) {
    // A condition is a C string: a NUL ends it there.
    std::string condition(bytes);
    TestStateCondition(&menu, condition.c_str(), 3);
}
