// The help viewer on the demo's help file at 80 x 24: each screen fills the
// terminal from the title down to the prompt; links, back, contents and the
// next screen lead where a person expects.
#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
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

class HelpviewTty : public ::testing::Test {
  protected:
    std::unique_ptr<tty::Session> tty;

    void SetUp() override {
        if (!tty::TmuxAvailable())
            GTEST_SKIP() << "tmux is not installed; the terminal tests need it";
        // English whatever the caller's language: the texts below are English.
        tty = std::make_unique<tty::Session>(
            std::string("LANG=en_US exec ") + HELPVIEW_BINARY + " examples/demo/setup.hlp",
            SOURCE_DIR);
        ASSERT_TRUE(tty->Started());
    }
};

TEST_F(HelpviewTty, ScreensFollowLinksBackContentsAndPages) {
    struct {
        const char *typed;  ///< null: the first screen
        const char *top;    ///< the row under the title
        const char *shown;  ///< a row of the bar or the text
    } steps[] = {
        {nullptr, "Orvel pnzz Setup",
         " 1) Usage                 2) Free space            3) Installation site"},
        {"2", "Free space", " +) Next page             -) Previous page"},
        {"b", "Orvel pnzz Setup", "  * Usage[1]"},
        {"+", "setup [manual] [install DIR] [menu] [no_space_check] [WORKAREA] [-v]",
         " -) Previous page"},
        {"c", "Orvel pnzz Setup", "  * After the installation[5]"},
        {"b", "setup [manual] [install DIR] [menu] [no_space_check] [WORKAREA] [-v]",
         " -) Previous page"},
    };
    std::string title = std::string((80 - kTitle.size()) / 2, ' ') + kTitle;
    for (auto &step : steps) {
        if (step.typed) tty->Type(step.typed);
        ASSERT_TRUE(tty->WaitUntil([&](const std::string &screen) {
            std::vector<std::string> rows = Rows(screen);
            return rows.size() > 1 && rows[1] == step.top && rows.back() == kPrompt;
        })) << (step.typed ? step.typed : "start")
            << "\n"
            << tty->Screen();
        std::vector<std::string> rows = Rows(tty->Screen());
        ASSERT_EQ(rows.size(), 24u);
        EXPECT_EQ(rows[0], title);
        EXPECT_NE(std::find(rows.begin(), rows.end(),
                            " e) Exit Help             c) Contents              b) Back"),
                  rows.end());
        EXPECT_NE(tty->Screen().find(step.shown), std::string::npos) << step.shown << "\n"
                                                                     << tty->Screen();
    }
    ASSERT_TRUE(tty->WaitForInput(kPrompt));
    tty->Type("e");
    EXPECT_EQ(tty->WaitForExit(), 0) << tty->Screen();
}

// The engine's "h" opens the viewer on the menu's own help; leaving it goes
// back to the menu.
TEST(HelpTty, MenusShowTheirOwnHelp) {
    if (!tty::TmuxAvailable()) GTEST_SKIP() << "tmux is not installed; the terminal tests need it";
    tty::Session tty(std::string("LANG=en_US exec ") + MENUS_BINARY, SOURCE_DIR);
    ASSERT_TRUE(tty.Started());
    auto topRows = [&](const std::string &first, const std::string &second) {
        return tty.WaitUntil([&](const std::string &screen) {
            std::vector<std::string> rows = Rows(screen);
            return rows.size() > 1 && rows[0].find(first) != std::string::npos && rows[1] == second;
        });
    };
    ASSERT_TRUE(tty.WaitForInput("exit:")) << tty.Screen();
    tty.Type("h");
    ASSERT_TRUE(topRows("Printer Queue Settings Help", "Printer Queue Settings")) << tty.Screen();
    tty.Type("3");
    ASSERT_TRUE(topRows("Printer Queue Settings Help", "Settings files")) << tty.Screen();
    tty.Type("e");
    ASSERT_TRUE(tty.WaitForInput("exit:")) << tty.Screen();
    EXPECT_NE(tty.Screen().find(" 1) Queue name ...... []"), std::string::npos) << tty.Screen();
}

}  // namespace
