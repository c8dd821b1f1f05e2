// The screen buffer: grid writes and their bounds, what Refresh sends, and
// the message box as the terminal receives it (vt100 cursor addresses).
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "TestFiles.h"
#include "TtyScreen.h"

namespace {

/// vt100's cursor address of `column`, `row` counted from 0.
std::string At(int column, int row) {
    return "\x1b[" + std::to_string(row + 1) + ";" + std::to_string(column + 1) + "H";
}

/// A screen over exactly `cells`, so that the sanitizer build sees any write past it.
struct Grid {
    std::vector<char> cells;
    SCREEN screen{};
    Grid(int cols, int lines, char fill) : cells(static_cast<size_t>(cols) * lines, fill) {
        screen.cols = cols;
        screen.lines = lines;
        screen.buffer = cells.data();
    }
    std::string Text() const { return std::string(cells.begin(), cells.end()); }
};

std::string Refreshed(SCREEN *screen) {
    testing::internal::CaptureStdout();
    Refresh(screen);
    return testing::internal::GetCapturedStdout();
}

TEST(TtyScreen, SizeIsVt100sAndAnExistingGridKeepsAllButItsStart) {
    setenv("COLUMNS", "132", 1);
    setenv("LINES", "50", 1);
    SCREEN *screen = GetTermInfo(nullptr);
    ASSERT_NE(screen, nullptr);
    EXPECT_EQ(std::pair(screen->cols, screen->lines), std::pair(80, 24));
    testing::internal::CaptureStdout();
    ClearScreen(screen);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "\x1b[H\x1b[J");
    EXPECT_EQ(std::string(screen->buffer, 80 * 24), std::string(80 * 24, ' '));
    EXPECT_EQ(GetTermInfo(screen), screen);
    EXPECT_EQ(std::string(screen->buffer, 6), std::string(4, '\0') + "  ");
}

TEST(TtyScreen, WritesStayInTheGridAndRunOnAcrossRows) {
    // A 10 x 3 grid of dots; FillArea with '#' when there is no text.
    // clang-format off
    struct { const char *what; int x, y, width, height; const char *text, *grid;
             int xAfter, yAfter; } cases[] = {
        {"fill", 2, 1, 3, 2, nullptr, "..........  ..###.....  ..###.....", 0, 0},
        {"fill past a row", 8, 0, 4, 1, nullptr, "........##  ##........  ..........", 0, 0},
        {"fill past the grid", 8, 2, 5, 3, nullptr, "..........  ..........  ........##", 0, 0},
        {"fill before the grid", -2, 0, 4, 1, nullptr, "##........  ..........  ..........", 0, 0},
        {"fill nothing", 0, 0, 0, 3, nullptr, "..........  ..........  ..........", 0, 0},
        {"write", 3, 2, 0, 0, "abc", "..........  ...abc....  ..........", 3, 2},
        {"write past a row", 8, 1, 0, 0, "abcd", "........ab  cd........  ..........", 8, 1},
        {"write past the grid", 8, 3, 0, 0, "abcdef", "..........  ..........  ........ab", 8, 3},
        {"row 0", 3, 0, 0, 0, "ab", "...ab.....  ..........  ..........", 3, 1},
        {"row past the end", 3, 4, 0, 0, "ab", "...ab.....  ..........  ..........", 3, 1},
        {"column past the end", 11, 2, 0, 0, "ab", "..........  ab........  ..........", 0, 2},
        {"column at the end", 10, 2, 0, 0, "ab", "..........  ..........  ab........", 10, 2},
        {"negative column", -1, 2, 0, 0, "ab", "..........  ab........  ..........", 0, 2},
    };
    // clang-format on
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        Grid g(10, 3, '.');
        if (c.text) {
            SetPosition(&g.screen, c.x, c.y);
            WriteString(&g.screen, "%s", c.text);
        } else {
            FillArea(&g.screen, c.x, c.y, c.width, c.height, '#');
        }
        std::string expected = c.grid;
        expected.erase(std::remove(expected.begin(), expected.end(), ' '), expected.end());
        EXPECT_EQ(g.Text(), expected);
        EXPECT_EQ(std::pair(g.screen.x, g.screen.y), std::pair(c.xAfter, c.yAfter));
    }
    Grid wide(40, 20, '.');
    WriteString(&wide.screen, "%s", std::string(600, 'z').c_str());
    EXPECT_EQ(wide.Text().find('.'), 519u);
    Grid small(7, 2, '.');
    NumberScreen(&small.screen);  // a fixed 80 x 24 page
    EXPECT_EQ(small.Text(), "01234567890123");
}

TEST(TtyScreen, RefreshSendsRowsUpToANewlineOrAZeroButNeverTheLastCell) {
    SCREEN *screen = GetTermInfo(nullptr);
    NumberScreen(screen);
    std::string page;
    for (int i = 0; i < 80 * 24; ++i) page += static_cast<char>('0' + i % 10);
    EXPECT_EQ(Refreshed(screen), page.substr(0, 1919));  // the terminal would scroll
    // A 4 x 3 grid: the next row starts right after a newline.
    for (auto [grid, sent] : {std::pair<std::string, std::string>{"ab\nXcdefgh\0i", "abXcdefgh"},
                              {std::string("ab\0defghijkl", 12), "abefghijk"}}) {
        Grid g(4, 3, ' ');
        std::copy(grid.begin(), grid.end(), g.cells.begin());
        EXPECT_EQ(Refreshed(&g.screen), sent);
    }
}

TEST(TtyScreen, OverlayDrawsTheFrameRowByRow) {
    const std::string top10 = At(2, 3) + std::string(14, '*') + "\n";
    const std::string top4 = At(2, 3) + "********\n";
    // clang-format off
    struct { int width, height; const char *text; int wait; std::string sent; } cases[] = {
        {10, 2, "hello", 1,
         top10 + At(2, 4) + "* hello      *" + At(2, 5) + "* Press enter  *" + At(2, 6) +
             std::string(14, '*') + At(17, 5)},
        {10, 2, "hello", 0, top10 + At(2, 4) + "* hello      *" + At(2, 5) + std::string(14, '*')},
        // A full frame has no bottom; the cursor waits on the row below it.
        {4, 1, "abcdefghijklmnopqrst", 1,
         top4 + At(2, 4) + "* abcd *" + At(2, 5) + "* efgh *" + At(2, 6) + "* ijkl *" + At(2, 7) +
             "* mnop *" + At(17, 8)},
        // The rest of a row after its newline uses up text that is not shown.
        {4, 1, "ab\ncdefg", 0,
         top4 + At(2, 4) + "* ab   *" + At(2, 5) + "* defg *" + At(2, 6) + "*      *" + At(2, 7) +
             "********"},
    };
    // clang-format on
    testfiles::TempDir dir;
    for (const auto &c : cases) {
        SCOPED_TRACE(c.text);
        ASSERT_TRUE(testfiles::FeedStdin(dir / "keys", "\nX"));
        SCREEN *screen = GetTermInfo(nullptr);
        SetOvlInfo(screen, 2, 3, c.width, c.height);
        SetPosition(screen, 7, 9);
        testing::internal::CaptureStdout();
        Overlay(screen, c.text, c.wait);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), c.sent + At(7, 9));
        EXPECT_EQ(std::getchar(), c.wait ? 'X' : '\n');  // one key read with the wait
        EXPECT_EQ(std::pair(screen->x, screen->y), std::pair(7, 9));
    }
}

}  // namespace
