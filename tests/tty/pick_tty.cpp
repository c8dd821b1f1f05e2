// The pick screen of the example program `menus`: "Paper size" picks one of
// four choices, "Options" switches any of three; on a terminal too small the
// numbered lines ask instead.
#include <gtest/gtest.h>

#include "TestFiles.h"
#include "Tmux.h"

namespace {

const char *kAtMenu = "exit:";  // the menu prompt wraps at narrow widths
const char *kAtPick = "restores the default:";

class PickTty : public tty::Test {
  protected:
    testfiles::TempDir dir;
    void Start(int columns, int rows) {
        tty::Test::Start(MENUS_BINARY, dir.path().string(), columns, rows);
        ASSERT_TRUE(WaitForInput(kAtMenu)) << Screen();
    }
};

TEST_F(PickTty, NumbersPickOrSwitchAndLettersKeepCancelOrRestore) {
    ASSERT_NO_FATAL_FAILURE(Start(80, 24));
    const std::string dashes(33, '-');
    struct {
        const char *typed, *prompt;
        std::string shown;
    } steps[] = {
        {"6", kAtPick, "+" + dashes + " Paper size " + dashes + "+\n|"},
        {"3", kAtPick, "|  (*)  3) A4" + std::string(66, ' ') + "|"},
        {"c", kAtMenu, "Paper size ...... [1. Letter]"},
        {"6", kAtPick, "(*)  1) Letter"},
        {"4", kAtPick, "(*)  4) A5"},
        {"d", kAtPick, "(*)  1) Letter"},
        {"2", kAtPick, "(*)  2) Legal"},
        {"s", kAtMenu, "Paper size ...... [2. Legal]"},
        {"7", kAtPick, "+" + std::string(78, '-') + "+\nNumber to switch on or off;"},
        {"1 3", kAtPick, "[x]  3) Banner page"},
        {"s", kAtMenu, "Options ......... [1,3]"},
        {"7", kAtPick, "[x]  1) Duplex"},
        {"d", kAtPick, "[ ]  1) Duplex"},
        {"s", kAtMenu, "Options ......... [none]"},
    };
    for (const auto &step : steps) {
        Type(step.typed);
        EXPECT_TRUE(WaitFor(step.shown)) << step.typed << "\n" << Screen();
        ASSERT_TRUE(WaitForInput(step.prompt)) << step.typed << "\n" << Screen();
    }
}

TEST_F(PickTty, TooSmallATerminalSaysSoAndAsksLineByLine) {
    ASSERT_NO_FATAL_FAILURE(Start(38, 12));
    Type("6");
    ASSERT_TRUE(WaitForInput("default:")) << Screen();
    std::string screen = Screen();
    for (const char *shown : {"The terminal (38x12) is too small", "\n* 1) Letter\n", "\n  4) A5\n",
                              "Enter a choice number"})
        EXPECT_NE(screen.find(shown), std::string::npos) << shown << "\n" << screen;
    EXPECT_EQ(screen.find("(*)"), std::string::npos) << screen;
    Type("3");
    EXPECT_TRUE(WaitForInput(kAtMenu)) << Screen();
}

}  // namespace
