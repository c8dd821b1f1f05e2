// The help viewer on the demo's help file at 80 x 24: each screen fills the
// terminal from the title down to the prompt; links, back, contents and the
// next screen lead where a person expects.
#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>
#include <string>
#include <vector>

#include "Tmux.h"

namespace {

const std::string kTitle = "Orvel pnzz Setup Help";
const char *kPrompt = "Enter a selection:";

std::vector<std::string> Rows(const std::string &screen) {
    std::vector<std::string> rows;
    std::istringstream lines(screen);
    for (std::string line; std::getline(lines, line);) rows.push_back(line);
    return rows;
}

class HelpviewTty : public tty::Test {};

TEST_F(HelpviewTty, ScreensFollowLinksBackContentsAndPages) {
    ASSERT_NO_FATAL_FAILURE(Start(HELPVIEW_BINARY " examples/demo/setup.hlp", SOURCE_DIR));
    const char *usage = "setup [manual] [install DIR] [menu] [no_space_check] [WORKAREA] [-v]";
    struct {  // typed (null: the first screen), the row under the title, a row of bar or text
        const char *typed, *top, *shown;
    } steps[] = {
        {nullptr, "Orvel pnzz Setup",
         " 1) Usage                 2) Free space            3) Installation site"},
        {"2", "Free space", " +) Next page             -) Previous page"},
        {"b", "Orvel pnzz Setup", "  * Usage[1]"},
        {"+", usage, " -) Previous page"},
        {"c", "Orvel pnzz Setup", "  * After the installation[5]"},
        {"b", usage, " -) Previous page"},
    };
    std::string title = std::string((80 - kTitle.size()) / 2, ' ') + kTitle;
    for (auto &step : steps) {
        SCOPED_TRACE(step.typed ? step.typed : "start");
        if (step.typed) Type(step.typed);
        ASSERT_TRUE(WaitUntil([&](const std::string &screen) {
            std::vector<std::string> rows = Rows(screen);
            return rows.size() > 1 && rows[1] == step.top && rows.back() == kPrompt;
        })) << Screen();
        std::string screen = Screen();
        std::vector<std::string> rows = Rows(screen);
        ASSERT_EQ(rows.size(), 24u);
        EXPECT_EQ(rows[0], title);
        EXPECT_NE(
            std::ranges::find(rows, " e) Exit Help             c) Contents              b) Back"),
            rows.end());
        EXPECT_NE(screen.find(step.shown), std::string::npos) << step.shown << "\n" << screen;
    }
    ASSERT_TRUE(Answer(kPrompt, "e"));
    EXPECT_EQ(WaitForExit(), 0) << Screen();
}

// The engine's "h" opens the viewer on the menu's own help; leaving it goes
// back to the menu.
TEST_F(HelpviewTty, MenusShowTheirOwnHelp) {
    ASSERT_NO_FATAL_FAILURE(Start(MENUS_BINARY, SOURCE_DIR));
    auto topRows = [&](const std::string &first, const std::string &second) {
        return WaitUntil([&](const std::string &screen) {
            std::vector<std::string> rows = Rows(screen);
            return rows.size() > 1 && rows[0].find(first) != std::string::npos && rows[1] == second;
        });
    };
    ASSERT_TRUE(Answer("exit:", "h")) << Screen();
    ASSERT_TRUE(topRows("Printer Queue Settings Help", "Printer Queue Settings")) << Screen();
    Type("3");
    ASSERT_TRUE(topRows("Printer Queue Settings Help", "Settings files")) << Screen();
    Type("e");
    ASSERT_TRUE(WaitForInput("exit:")) << Screen();
    EXPECT_NE(Screen().find(" 1) Queue name ...... []"), std::string::npos) << Screen();
}

}  // namespace
