// Generated scripts: shell line, banner with the current year, the filled
// template, mode 755.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include "Scripts.h"
#include "setup.h"

namespace fs = std::filesystem;

namespace {

std::string Slurp(const fs::path &p) {
    std::ifstream in(p);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

std::string Year() {
    std::time_t now = std::time(nullptr);
    return std::to_string(std::localtime(&now)->tm_year + 1900);
}

class ScriptsTest : public ::testing::Test {
  protected:
    fs::path dir;
    void SetUp() override {
        char tmpl[] = "/tmp/scripts-XXXXXX";
        dir = mkdtemp(tmpl);
        static std::string name = "scriptstest" + std::to_string(getpid());
        my_name = name.data();
        static bool resolved = false;
        if (!resolved) InitSysCmdList();
        resolved = true;
    }
    void TearDown() override { fs::remove_all(dir); }
};

TEST_F(ScriptsTest, LauncherIsShellLineBannerAndBody) {
    fs::path out = dir / "pelnorprint";
    GenSimpleScript(out.c_str(), ScriptShShell, SimpleScript, "/opt/Orvel/pnzz", "/opt/Orvel/pnzz",
                    "pelnorprint.bin");
    std::string text = Slurp(out);
    std::string border(63, '#');
    std::string expectedHead = "#!/bin/sh\n" + border + "\n#" + std::string(61, ' ') + "#\n";
    ASSERT_EQ(text.substr(0, expectedHead.size()), expectedHead);
    EXPECT_NE(text.find("Copyright (c) " + Year() + " Orvel."), std::string::npos);
    std::string body =
        "\nPelnorFileSourceDir=`pwd`\nexport PelnorFileSourceDir\n\ncd /opt/Orvel/pnzz\n"
        "exec /opt/Orvel/pnzz/pelnorprint.bin $*\n";
    std::string tail = border + "\n\n\n" + body;
    ASSERT_GE(text.size(), tail.size());
    EXPECT_EQ(text.substr(text.size() - tail.size()), tail);
    struct stat st {};
    ASSERT_EQ(stat(out.c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0755);
}

TEST_F(ScriptsTest, BannerLinesAreAllSixtyThreeColumns) {
    fs::path out = dir / "s";
    GenSimpleScript(out.c_str(), ScriptShShell, ScriptTail);
    std::istringstream lines(Slurp(out));
    std::string line;
    std::getline(lines, line);  // shell line
    for (int i = 0; i < 5; ++i) {
        ASSERT_TRUE(std::getline(lines, line));
        EXPECT_EQ(line.size(), 63u) << line;
    }
}

TEST_F(ScriptsTest, InterfaceScriptFillsEveryConversion) {
    fs::path out = dir / "OrvelPrintpnzz";
    GenSimpleScript(out.c_str(), ScriptShShell, OrvelPrintpnzzScript, "/opt/Orvel/pnzz", "pnzz",
                    "pelnorpnzz", "pelnorpnzz", "pnzz", "pnzz", "pnzz");
    std::string text = Slurp(out);
    EXPECT_NE(text.find("ToolPath=\"/opt/Orvel/pnzz\"\n"), std::string::npos);
    EXPECT_NE(
        text.find("${ToolPath}/pnrpnzztty -d$PelnorPrinter -f >pelnorpnzz.log 2>pelnorpnzz.log"),
        std::string::npos);
    EXPECT_NE(text.find("i=`expr \"(\" $i + 1 \")\" % $Copies`"), std::string::npos);
    EXPECT_EQ(text.substr(text.size() - 5), "\nesac");  // no final newline
}

TEST_F(ScriptsTest, FilterScriptNamesTheSpoolDirectory) {
    fs::path out = dir / "OrvelKVT";
    GenSimpleScript(out.c_str(), ScriptShShell, OrvelKVTScript, "/opt/Orvel/pnzz",
                    "/var/spool/Orvel/pnzz");
    std::string text = Slurp(out);
    EXPECT_NE(text.find("ToolPath=\"/opt/Orvel/pnzz\"\nCfgFlags=`cat ${ToolPath}/.pn_cfg`\n"
                        "SpoolDir=\"/var/spool/Orvel/pnzz\"\n"),
              std::string::npos);
    EXPECT_NE(text.find("    CUPS) Common Unix Printing System\n"), std::string::npos);
}

TEST_F(ScriptsTest, UnwritablePathIsSkipped) {
    EXPECT_EQ(GenSimpleScript((dir / "missing" / "x").c_str(), ScriptShShell, SimpleScript, "a",
                              "b", "c"),
              0);
    EXPECT_FALSE(fs::exists(dir / "missing"));
}

}  // namespace
