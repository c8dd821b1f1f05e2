// The example program `menus` on an 80 x 24 terminal: what a person sees
// after typing, from the first screen to the stored settings replayed.
#include <gtest/gtest.h>

#include <cstdlib>

#include "TestFiles.h"
#include "Tmux.h"

namespace {

using tty::LineWith;

const std::string kMenus = "LANG=en_US " MENUS_BINARY;
const std::string kTitle = "Printer Queue Settings";
const char *kAtMenu = "exit:";  // how both menus' prompt lines end (the main one wraps)

class MenusTty : public tty::Test {
  protected:
    testfiles::TempDir dir;
    void SetUp() override {
        tty::Test::SetUp();
        if (!IsSkipped()) Start(MENUS_BINARY, dir.path().string());
    }
};

TEST_F(MenusTty, FirstScreenHasCentredTitleNumbersAndHotKeysAndELeaves) {
    ASSERT_TRUE(WaitForInput(kAtMenu)) << Screen();
    std::string screen = Screen();
    EXPECT_EQ(LineWith(screen, kTitle), std::string((80 - kTitle.size()) / 2, ' ') + kTitle);
    for (const char *shown :
         {" 1) Queue name ...... []", " 3) Copies .......... [1]", " 7) Options ......... [none]",
          " 8) Attached by ..... [1. Network]", " 9) Network Connection", "10) Show settings",
          " a) Apply", " l) Load settings", " e) Exit",
          "Enter a selection or s for store settings in a file or h for help or <Return> to\n "
          "exit:"})
        EXPECT_NE(screen.find(shown), std::string::npos) << shown << "\n" << screen;
    ASSERT_TRUE(Answer(kAtMenu, "e"));
    EXPECT_EQ(WaitForExit(), 0) << Screen();
}

TEST_F(MenusTty, TypedValuesAndChoicesShowInTheList) {
    struct {  // a question is asked when the typed line holds no value
        const char *typed, *question, *answer, *label, *shown;
    } steps[] = {
        {"1 office", nullptr, nullptr, "Queue name", "[office]"},
        {"2", "Description (no blanks):", "2nd-floor", "Description", "[2nd-floor]"},
        {"3 4", nullptr, nullptr, "Copies", "[4]"},
        {"4 0.5", nullptr, nullptr, "Margin", "[0.500]"},
        {"5", nullptr, nullptr, "Orientation", "[2. Landscape]"},
        {"5", nullptr, nullptr, "Orientation", "[1. Portrait]"},
        {"6", "default:", "3 s", "Paper size", "[3. A4]"},
        {"7 1", nullptr, nullptr, "Options", "[1]"},
        {"7", "default:", "3 s", "Options", "[1,3]"},
        {"7 1", nullptr, nullptr, "Options", "[3]"},
    };
    for (auto &step : steps) {
        ASSERT_TRUE(Answer(kAtMenu, step.typed)) << Screen();
        if (step.question) {
            ASSERT_TRUE(Answer(step.question, step.answer)) << step.typed << "\n" << Screen();
        }
        EXPECT_TRUE(Shows(step.label, step.shown)) << step.typed << "\n" << Screen();
    }
}

TEST_F(MenusTty, EntryFormatsRejectValuesSayingWhyAndKeepTheOldOnes) {
    struct {
        const char *typed, *why, *label, *kept;
    } cases[] = {
        {"3 500", "Enter a whole number from 1 to 99", "Copies", "[1]"},
        {"3 two", "Enter a whole number from 1 to 99", "Copies", "[1]"},
        {"1 my queue", "Only letters and digits are allowed, and these characters: - _",
         "Queue name", "[]"},
        {"4 2.5", "Enter a number from 0 to 2", "Margin", "[0.250]"},
        {"2 a/b", "Only letters and digits are allowed, and these characters: - _ .", "Description",
         "[]"},
    };
    for (auto &c : cases) {
        ASSERT_TRUE(Answer(kAtMenu, c.typed));
        ASSERT_TRUE(WaitForInput(kAtMenu)) << Screen();
        std::string screen = Screen();
        SCOPED_TRACE(std::string(c.typed) + "\n" + screen);
        // Just above the menu drawn again: the menu is short enough to leave it in sight.
        EXPECT_NE(screen.find(std::string(c.why) + "\n"), std::string::npos);
        EXPECT_NE(LineWith(screen, c.label).find(c.kept), std::string::npos);
    }
}

TEST_F(MenusTty, ConditionsChooseTheSubMenuAndLeavingItAsksFirst) {
    ASSERT_TRUE(Answer(kAtMenu, "9"));
    ASSERT_TRUE(WaitFor(" 1) Host")) << Screen();
    EXPECT_EQ(LineWith(Screen(), "Network Connection"),
              std::string(31, ' ') + "Network Connection");
    ASSERT_TRUE(Answer(kAtMenu, "1 printsrv"));
    ASSERT_TRUE(Answer(kAtMenu, ""));
    ASSERT_TRUE(Answer("Do you want to return to Printer Queue Settings menu? [y/n]", "y"))
        << Screen();

    ASSERT_TRUE(Answer(kAtMenu, "8"));  // attached by a local port: condition "8.2"
    ASSERT_TRUE(Shows("Attached by", "[2. Local port]")) << Screen();
    ASSERT_TRUE(WaitForInput(kAtMenu));
    std::string screen = Screen();
    std::string menu = screen.substr(screen.rfind(kTitle));
    EXPECT_NE(menu.find(" 9) Local Port\n"), std::string::npos) << menu;
    EXPECT_EQ(menu.find("Network Connection"), std::string::npos) << menu;
    ASSERT_TRUE(Answer(kAtMenu, "9"));
    ASSERT_TRUE(Shows("Device", "[/dev/usb/lp0]")) << Screen();
    for (const char *line : {"d", "8", "9"}) ASSERT_TRUE(Answer(kAtMenu, line));
    EXPECT_TRUE(Shows("Host", "[printsrv]")) << Screen();  // kept from the first visit
}

TEST_F(MenusTty, StoredSettingsReplayWithoutAUser) {
    for (const char *line : {"1 office", "3 2", "6 3", "9", "1 printsrv", "3 3", "d", "s"})
        ASSERT_TRUE(Answer(kAtMenu, line)) << Screen();
    ASSERT_TRUE(Answer("Enter the settings file name:", "office-a4")) << Screen();
    ASSERT_TRUE(Answer(kAtMenu, "a"));
    ASSERT_EQ(WaitForExit(), 0) << Screen();
    std::string screen = Screen();

    FILE *replay = popen((kMenus + " --apply " + (dir / "office-a4").string()).c_str(), "r");
    char line[256];
    std::string lines;
    while (std::fgets(line, sizeof line, replay)) {
        lines += line;
        EXPECT_NE(screen.find(line), std::string::npos) << line << "\n" << screen;
    }
    EXPECT_EQ(pclose(replay), 0);
    EXPECT_NE(lines.find("Queue name       office\n"), std::string::npos) << lines;
    EXPECT_NE(lines.find("Protocol         IPP\n"), std::string::npos) << lines;
    // The load item decides about settings that cannot be read: a failed run.
    EXPECT_EQ(WEXITSTATUS(std::system(
                  (kMenus + " --apply " + (dir / "none").string() + " 2>/dev/null").c_str())),
              1);
}

}  // namespace
