// Item states: conditions over a menu's values, choices hidden and shown by
// them, and the line-mode chooser fed through standard input.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "BuiltInStrings.h"
#include "TestFiles.h"
#include "TextMenu.h"

namespace {

/// The menu as an application declares it; keys set as InitMenu numbers
/// them, the hot-key item first so that numbers and places differ.
struct TestMenu {
    char colours[32] = "red,green,blue";
    char extras[32] = "_a,_b,_c";
    char shapes[32] = "_x,_y, z";
    char name[MENU_TEXT_SIZE] = "abc";
    // clang-format off
    MENUITEM items[9] = {
        {.text = "~e Exit", .type = MENU_EXIT, .key = 'e'},
        {.text = "Colour", .type = MENU_PICKONE, .choices = colours, .value = {1},
         .savedValue = {2}, .key = 1},
        {.text = "Extras", .type = MENU_PICKMANY, .choices = extras, .value = {5},
         .savedValue = {3}, .key = 2},
        {.text = "Shape", .type = MENU_PICKONE, .choices = shapes, .value = {1},
         .format = "1.2 +2.3 *", .key = 3},
        {.text = "Count", .type = MENU_INT, .value = {5}, .key = 4},
        {.text = "Name", .type = MENU_STRING, .value = {.text = name}, .key = 5},
        {.text = "Scale", .type = MENU_FLOAT, .value = {.real = 2.5f}, .key = 6},
        {.text = "Run", .type = MENU_ACTION, .key = 7},
        {.text = nullptr}};
    // clang-format on
    MENU menu = {.title = "Test", .items = items};
};

class MenuStateTest : public ::testing::Test {
  protected:
    TestMenu m;
    testfiles::TempDir dir;
    std::string toolPath = dir.path().string();

    void SetUp() override {
        UseBuiltInStrings(toolPath);
    }
    void Answer(const std::string &text) {
        ASSERT_TRUE(testfiles::FeedStdin(dir / "answers", text));
    }
};

TEST_F(MenuStateTest, ConditionsTestItemsByTheirNumbers) {
    const std::string deep = std::string(20, '(') + "1.2" + std::string(20, ')');
    const std::string tooDeep = std::string(1000, '(') + "1.2" + std::string(1000, ')');
    const std::string manyNots = std::string(1000, '!') + "1.1";
    // Colour is green, Extras holds {b}, Count 5, Name "abc", Scale 2.5.
    // clang-format off
    const char *holding[] = {
        "1.2", "+1.2", "-1.3", "2.2", "+2.2", "-2.3", "4.5", "5.abc", "6.2.5", "6.2.50", "*",
        "1.2&4.5", "1.1|4.5", "1.2|1.1&4.6", " ( 1.2 | 1.1 ) & 4.5 ", deep.c_str()};
    const char *failing[] = {
        "1.1", "-1.2", "2.1", "2.0", "+2.3", "4.-5", "5.ab", "-5.abc", "6.3", "!*",
        "!1.2&1.1", "!(1.2&4.5)",
        // Unreadable, or about an item without a value: false, also under "!".
        "", "(1.2", "1.2)", "9.1", "!9.1", "!(1.x)", "1.2&", "&1.2", "1.2 4.5", "1", ".2", "+2.0",
        "2.32", "!7.1", "!101.1", "99999999999999999999.1", "!6.nan", "!6.", tooDeep.c_str(),
        manyNots.c_str(), nullptr};
    // clang-format on
    for (const char *c : holding) {
        SCOPED_TRACE(c);
        EXPECT_NE(TestStateCondition(&m.menu, c, 3), 0);
    }
    for (const char *c : failing) {
        SCOPED_TRACE(std::string(c ? c : "(null)").substr(0, 40));
        EXPECT_EQ(TestStateCondition(&m.menu, c, 3), 0);
    }
}

TEST_F(MenuStateTest, HideAndShowRewriteOneChoiceMarker) {
    // clang-format off
    struct { const char *before; bool hide; int choice; const char *after; } cases[] = {
        {"_a,_b,_c", true, 2, "_a, b,_c"}, {"_a, b,_c", false, 2, "_a,_b,_c"},
        {"_a,_b", true, 0, "_a,_b"}, {"_a,_b", true, 3, "_a,_b"}, {"_a,_b", true, -1, "_a,_b"},
        {"_a,,_b", true, 2, "_a,, b"}, {"_a\\,b,_c", true, 2, "_a\\,b, c"},
        {"\\_a,_b", true, 1, "\\_a,_b"}, {",,,", false, 1, ",,,"}, {"", false, 1, ""}};
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.before);
        char choices[32];
        std::snprintf(choices, sizeof choices, "%s", c.before);
        MENUITEM item = {.text = "x", .type = MENU_PICKMANY, .choices = choices};
        (c.hide ? HideStateSelection : ShowStateSelection)(&item, c.choice);
        EXPECT_STREQ(choices, c.after);
    }
    MENUITEM none = {.text = "x", .type = MENU_PICKMANY};
    HideStateSelection(&none, 1);
    ShowStateSelection(nullptr, 1);
}

TEST_F(MenuStateTest, ChoicesFollowTheirConditionsAndTheValueMovesOff) {
    UpdateStateSelection(&m.menu, 3);
    EXPECT_STREQ(m.shapes, "_x, y,_z") << "green; choice 3 of extras not chosen; always";
    EXPECT_EQ(m.items[3].value.number, 0);
    EXPECT_STREQ(m.items[3].choiceText, "_x");

    m.items[1].value.number = 0;
    m.items[2].value.number = 1 | 8;
    UpdateStateSelection(&m.menu, 3);
    EXPECT_STREQ(m.shapes, " x,_y,_z");
    EXPECT_EQ(m.items[3].value.number, 1);

    m.items[3].format = "!* !* !*";
    UpdateStateSelection(&m.menu, 3);
    EXPECT_STREQ(m.shapes, " x, y, z");
    EXPECT_EQ(m.items[3].value.number, 1) << "nothing to move to";

    m.items[2].format = "* !* *";
    m.items[2].value.number = 1 | 4;
    UpdateStateSelection(&m.menu, 2);
    EXPECT_STREQ(m.extras, "_a, b,_c");
    EXPECT_EQ(m.items[2].value.number, 1) << "the emptied set";
}

TEST_F(MenuStateTest, ItemsWithoutConditionsAreLeftAlone) {
    std::strcpy(m.colours, " red,green");
    m.items[1].value.number = 0;
    UpdateStateSelection(&m.menu, 1);
    UpdateStateSelection(&m.menu, -1);
    UpdateStateSelection(&m.menu, 99);
    EXPECT_STREQ(m.colours, " red,green");
    EXPECT_EQ(m.items[1].value.number, 0);
}

TEST_F(MenuStateTest, AChangeSettlesItemsThatDependOnLaterOnes) {
    m.items[2].format = "* * 3.1";  // extras' choice 3 only with the first shape
    m.items[1].value.number = 0;
    ProcessStateValue(&m.menu, 1, const_cast<char *>("2"));
    EXPECT_STREQ(m.shapes, "_x, y,_z");
    EXPECT_EQ(m.items[3].value.number, 0);
    EXPECT_STREQ(m.extras, "_a,_b,_c") << "hidden while the shape was y, shown once it moved to x";
}

TEST_F(MenuStateTest, ChooserAppliesNumbersAndLetters) {
    // clang-format off
    // typed: the answer line when there is no option
    struct { int index; const char *option, *typed; long value, saved; } cases[] = {
        {1, "3", nullptr, 2, 1}, {1, "1 3", nullptr, 2, 1}, {1, "2", nullptr, 1, 2},
        {1, "0 9 x 99999999", nullptr, 1, 2}, {1, "c", nullptr, 2, 1}, {1, "d", nullptr, 0, 1},
        {3, "3", nullptr, 1, 0}, {3, "1", nullptr, 0, 1},
        {2, "1 3", nullptr, 15, 5}, {2, "2", nullptr, 1, 5}, {2, "1,1", nullptr, 5, 3},
        {2, "d", nullptr, 1, 5}, {2, "C", nullptr, 3, 5},
        {1, "", "3\n", 2, 1}, {1, "  ", "s\n", 1, 2}, {1, nullptr, "c\n", 2, 1},
        {1, nullptr, "d\n", 0, 1}, {1, nullptr, "", 2, 1},
        {2, nullptr, "1,3\n", 15, 5}, {2, nullptr, "2 c\n", 3, 5}, {2, nullptr, "", 3, 5}};
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(std::string(c.option ? c.option : "(null)") + " / " +
                     (c.typed ? c.typed : "-"));
        TestMenu t;
        if (c.typed) Answer(c.typed);
        testing::internal::CaptureStdout();
        EXPECT_EQ(ProcessStateValue(&t.menu, c.index, const_cast<char *>(c.option)), 0);
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(out.empty(), c.typed == nullptr) << out;
        EXPECT_EQ(t.items[c.index].value.number, c.value);
        EXPECT_EQ(t.items[c.index].savedValue.number, c.saved);
    }
    ProcessStateValue(&m.menu, 1, const_cast<char *>("3"));
    EXPECT_STREQ(m.items[1].choiceText, "blue");
}

TEST_F(MenuStateTest, ChooserListsChoicesMarkingChosenOnesAndHidingUnavailableOnes) {
    std::strcpy(m.colours, "_red, green,blue");
    m.items[1].value.number = 0;
    Answer("\n");
    testing::internal::CaptureStdout();
    ProcessStateValue(&m.menu, 1, nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "\nColour:\n* 1) red\n     green\n  3) blue\n"
              "\nEnter a choice number, s to keep, c to cancel or d for the default: ");
}

}  // namespace
