// `setup menu` on an 80 x 24 terminal, as root inside the rehearsal sandbox:
// the administrator makes an installation site from the menu and leaves.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>

#include "TestFiles.h"
#include "Tmux.h"

namespace {

namespace fs = std::filesystem;
using tty::LineWith;

const std::string kTitle = "Install Print Driver and Utilities";

TEST(SetupTty, MakesASiteFromTheMenuAndLeaves) {
    if (!tty::TmuxAvailable()) GTEST_SKIP() << "tmux is not installed; the terminal tests need it";
    if (geteuid() != 0) GTEST_SKIP() << "the sandbox needs root";
    testfiles::TempDir dir;
    std::string site = (dir / "site").string();
    std::string make = std::string(MKMEDIUM_BIN) + " --site --setup " + SETUP_BIN +
                       " --help-file " + DEMO_DIR "/setup.hlp -o " + site + " " + DEMO_DIR +
                       " >/dev/null";
    ASSERT_EQ(std::system(make.c_str()), 0);
    tty::Session tty(std::string("LANG=en_US exec ") + REHEARSE_BIN + " -q -k " +
                         (dir / "kept").string() + " -- " + site + "/setup menu",
                     dir.path().string());
    ASSERT_TRUE(tty.Started());

    ASSERT_TRUE(tty.WaitForInput("Enter a selection:")) << tty.Screen();
    std::string screen = tty.Screen();
    EXPECT_EQ(LineWith(screen, kTitle), std::string((80 - kTitle.size()) / 2, ' ') + kTitle);
    for (const char *shown : {" 1) Install Driver and Utilities", " 2) Create an installation site.",
                              " e) Exit"})
        EXPECT_NE(screen.find(shown), std::string::npos) << shown << "\n" << screen;

    tty.Type("2");
    ASSERT_TRUE(tty.WaitForInput("Enter the new installation directory [/opt]:")) << tty.Screen();
    tty.Type("/export");
    ASSERT_TRUE(tty.WaitForInput("Enter the new installation directory [/export]:")) << tty.Screen();
    tty.Type("");
    ASSERT_TRUE(tty.WaitForInput("Do you want to use /export? [y/n]")) << tty.Screen();
    tty.Type("y");
    ASSERT_TRUE(tty.WaitForInput("Enter a selection:")) << tty.Screen();
    tty.Type("E");
    std::optional<int> status = tty.WaitForExit();
    ASSERT_TRUE(status.has_value()) << tty.Screen();
    EXPECT_EQ(*status, 0);
    EXPECT_EQ(testfiles::Slurp(dir / "kept/export/SGIPnzzInstall/installf.rom"), "installation site");
}

}  // namespace
