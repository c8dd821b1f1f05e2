// The screen buffer: a grid of characters drawn in memory and sent to the
// terminal in one pass, a framed message box drawn straight on the terminal,
// and the pick screen of choice items that is drawn with them.
//
// Cursor movement and clearing come from the terminal description, which is
// always vt100's whatever TERM says: every terminal the engine meets speaks
// it. Rows of WriteString count from 1, everything else counts from 0.
#pragma once

#include <cstdint>

#include "Str.h"

struct MENU;
struct MENUITEM;

/// One screen. `buffer` holds cols x lines characters, row after row,
/// without terminators.
struct SCREEN {
    int32_t cols;
    int32_t lines;
    int32_t x;  ///< column of the next WriteString, from 0
    int32_t y;  ///< row of the next WriteString, from 1
    int32_t ovlX;
    int32_t ovlY;
    int32_t ovlWidth;
    int32_t ovlHeight;
    char *buffer;
};

constexpr int SCREEN_RECORD_SIZE = 72;  ///< the block GetTermInfo takes for a record
static_assert(sizeof(SCREEN) <= SCREEN_RECORD_SIZE);
constexpr int WRITESTRING_SIZE = 520;  ///< WriteString's text is cut to one less

/// The engine's screen, made by the pick screen on first use; its grid lives
/// only while a pick screen is up.
extern SCREEN *pMenuScreen;

/// `screen`, or a new record when null (null when memory runs out), set to
/// the vt100 size (80 x 24 when the description cannot be read). A screen
/// without a grid gets a blank one; an existing grid only has its first four
/// characters zeroed.
SCREEN *GetTermInfo(SCREEN *screen);
/// Moves the terminal's cursor to `column`, `row` (from 0) and records them in x, y.
void MoveCursor(SCREEN *screen, int column, int row);
/// Records x, y for the next WriteString; the terminal is not touched.
void SetPosition(SCREEN *screen, int column, int row);
/// Records the message box's place and text area for Overlay.
void SetOvlInfo(SCREEN *screen, int x, int y, int width, int height);
/// Writes `width` copies of `character` from index row x cols + column, on
/// each of `height` rows; a run past a row's end goes on into the next row,
/// and nothing is written outside the grid.
void FillArea(SCREEN *screen, int column, int row, int width, int height, int character);
/// Formats (cut to 519 characters) into the grid at x, y without a
/// terminator, running on into the following rows up to the grid's end. A
/// y outside 1..lines becomes 1, an x outside 1..cols becomes 0 (0 stays 0);
/// x, y are not advanced.
void WriteString(SCREEN *screen, const char *format, ...) PRINTF_LIKE(2, 3);
/// Clears the terminal and fills the grid with blanks.
void ClearScreen(SCREEN *screen);
/// Prints the grid from the cursor on: each row up to a newline or a zero
/// character in it, without line ends, and never the last cell, so that the
/// terminal does not scroll.
void Refresh(SCREEN *screen);
/// Draws `text` in a frame of asterisks at the SetOvlInfo place, a newline
/// ending a text row; with `wait`, adds a "Press enter" line and reads one
/// character. The cursor returns to x, y.
void Overlay(SCREEN *screen, const char *text, int wait);
/// Fills the first 24 rows of 80 characters with "0123456789" repeated,
/// whatever the screen's size (stopping at the grid's end): a test pattern.
void NumberScreen(SCREEN *screen);

// ---- The pick screen (PickScreen.cpp)

/// The cell widths of the columns that `count` entries take when laid out
/// top to bottom, `rows` to a column, into widths[]; the number of columns,
/// or -1 when that would be more than `maxColumns`.
int GetColumnWidths(const char *const *entries, int count, int rows, int *widths, int maxColumns);
/// Writes a frame as wide as the screen around `count` text lines, `title`
/// centred in its top line, from the grid's start. Each line is padded to
/// the frame by the cells it shows, so a line holding multibyte characters
/// still ends at it. Returns the rows taken (count + 2).
int WriteScreenFrame(SCREEN *screen, const char *title, const char *const *text, int count);
/// Shows the choices of item `index` (type 9 or 10) over the whole terminal
/// under `title`: a number picks (9) or switches (10) a choice, "s" keeps the
/// pick, "c" or end of input goes back to the value it opened with, "d" to
/// the default. Each answer line goes through `answer(item, line)` with the
/// item holding the value shown so far. Returns 1 with the pick in *value
/// (the item itself is left as it was), or 0 when the choices must be asked
/// line by line: no terminal on standard output, or one too small, which it
/// says first.
int PrintPickOneManyScreen(MENU *menu, int index, const char *title,
                           long (*answer)(MENUITEM *item, const char *line), long *value);
