// The screen buffer over the terminal description.
#include "TtyScreen.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "MemMgr.h"

// The terminal library names a SCREEN of its own and makes every capability
// a macro ("lines", "columns" among them): both are kept off our names.
#define SCREEN TermLibScreen
#include <curses.h>
#include <term.h>
#undef SCREEN
#undef lines
#undef columns

SCREEN *pMenuScreen = nullptr;

namespace {

constexpr int kDefaultCols = 80;
constexpr int kDefaultLines = 24;
// NumberScreen's pattern is the vt100 page, whatever the grid.
constexpr int kPatternCols = 80;
constexpr int kPatternLines = 24;
// Frame, blank and " *" around the message box's text.
constexpr int kOvlBorder = 4;
// Where the cursor waits on the "* Press enter" line, a little past its text.
constexpr int kOvlPromptColumn = 15;

// Refresh's line, kept between calls; it grows only for a wider screen.
char *lineBuffer = nullptr;
long lineBufferSize = 0;

enum class Term { Unread, Ready, Missing };
Term term = Term::Unread;

/// Reads the vt100 description once: a second setupterm would leave the
/// first description behind, unreachable.
bool TermReady() {
    if (term == Term::Unread) {
        int error = 0;
        // The size comes from the description alone, not from LINES, COLUMNS
        // or the window: the pick screen asks the window itself.
        use_env(FALSE);
        term = setupterm("vt100", 1, &error) == OK ? Term::Ready : Term::Missing;
    }
    return term == Term::Ready;
}

const char *Capability(const char *name) {
    if (!TermReady()) return nullptr;
    const char *value = tigetstr(name);
    return value && value != reinterpret_cast<const char *>(-1) ? value : nullptr;
}

int Number(const char *name, int fallback) {
    int value = TermReady() ? tigetnum(name) : -1;
    return value < 1 ? fallback : value;
}

/// Characters in the grid; 0 when there is none to write to.
long GridSize(const SCREEN *screen) {
    if (!screen || !screen->buffer || screen->cols < 1 || screen->lines < 1) return 0;
    return static_cast<long>(screen->cols) * screen->lines;
}

/// Refresh's line buffer, at least `cols` characters and blank.
char *LineBuffer(int cols) {
    if (cols > lineBufferSize) {
        // GetMem keeps a byte beyond the size: room for each row's terminator.
        char *grown = static_cast<char *>(AdjustMem(lineBuffer, cols));
        if (!grown) return nullptr;
        lineBuffer = grown;
        lineBufferSize = cols;
    }
    std::memset(lineBuffer, 0, lineBufferSize);
    return lineBuffer;
}

void Repeat(const char *text, int times) {
    for (int i = 0; i < times; ++i) std::printf("%s", text);
}

}  // namespace

SCREEN *GetTermInfo(SCREEN *screen) {
    if (!screen) screen = static_cast<SCREEN *>(GetMem(SCREEN_RECORD_SIZE));
    if (!screen) return nullptr;
    screen->cols = Number("cols", kDefaultCols);
    screen->lines = Number("lines", kDefaultLines);
    if (!screen->buffer)
        screen->buffer =
            static_cast<char *>(GetMem(static_cast<long>(screen->cols) * screen->lines));
    else
        // Only the start is blanked: callers that read the terminal again
        // between two pictures keep the rest of what they drew.
        std::memset(screen->buffer, 0, 4);
    return screen;
}

void MoveCursor(SCREEN *screen, int column, int row) {
    if (const char *address = Capability("cup"))
        if (const char *move = tparm(address, row, column)) putp(move);
    SetPosition(screen, column, row);
}

void SetPosition(SCREEN *screen, int column, int row) {
    if (!screen) return;
    screen->x = column;
    screen->y = row;
}

void SetOvlInfo(SCREEN *screen, int x, int y, int width, int height) {
    if (!screen) return;
    screen->ovlX = x;
    screen->ovlY = y;
    screen->ovlWidth = width;
    screen->ovlHeight = height;
}

void FillArea(SCREEN *screen, int column, int row, int width, int height, int character) {
    long size = GridSize(screen);
    if (width < 1 || height < 1 || !size) return;
    for (long r = row; r < static_cast<long>(row) + height; ++r) {
        long begin = r * screen->cols + column;
        if (begin >= size) break;
        long end = std::min(begin + width, size);
        begin = std::max(begin, 0L);
        if (begin < end) std::memset(screen->buffer + begin, character, end - begin);
    }
}

void WriteString(SCREEN *screen, const char *format, ...) {
    if (!screen) return;
    // Rows from 1 and columns from 0, so a column of 0 is left as it is:
    // the pick screen writes from the left edge with x = 0.
    if (screen->y > screen->lines || screen->y < 1) screen->y = 1;
    if (screen->x > screen->cols || screen->x < 1) screen->x = 0;
    char text[WRITESTRING_SIZE] = "";
    if (format) {
        va_list args;
        va_start(args, format);
        std::vsnprintf(text, sizeof text, format, args);
        va_end(args);
    }
    long size = GridSize(screen);
    if (!size) return;
    long at = static_cast<long>(screen->y - 1) * screen->cols + screen->x;
    // Not cut at the row's end: the pick screen writes its lines as one stream.
    long length = std::min(static_cast<long>(std::strlen(text)), size - at);
    if (length > 0) std::memcpy(screen->buffer + at, text, length);
}

void ClearScreen(SCREEN *screen) {
    if (const char *clearing = Capability("clear")) putp(clearing);
    if (screen) FillArea(screen, 0, 0, screen->cols, screen->lines, ' ');
}

void Refresh(SCREEN *screen) {
    long size = GridSize(screen);
    char *line = size ? LineBuffer(screen->cols) : nullptr;
    if (!line) return;
    long p = 0;
    for (int r = 0; r < screen->lines; ++r) {
        int n = 0;
        for (int c = 0; c < screen->cols && p < size; ++c) {
            char character = screen->buffer[p++];
            if (character == '\n') break;
            // Taken but never printed: the terminal would scroll after the last cell.
            if (r == screen->lines - 1 && c == screen->cols - 1) continue;
            line[n++] = character;
        }
        line[n] = '\0';
        std::printf("%s", line);
    }
    std::fflush(stdout);
}

void Overlay(SCREEN *screen, const char *text, int wait) {
    if (!screen) return;
    const int x = screen->x, y = screen->y;
    const int left = screen->ovlX, top = screen->ovlY;
    const int width = screen->ovlWidth, height = screen->ovlHeight;
    const char *p = text ? text : "";
    MoveCursor(screen, left, top);
    Repeat("*", width + kOvlBorder);
    std::printf("\n");
    bool ended = false;
    // H + 3 text rows, one more than the frame's border seems to allow: the
    // boxes already laid out count on that height.
    int row = 1;
    for (; row <= height + 3; ++row) {
        MoveCursor(screen, left, top + row);
        std::printf("* ");
        bool rowEnded = false;
        for (int cell = 0; cell < width; ++cell) {
            char c = ended ? '\0' : *p;
            if (c) ++p;
            ended = ended || !c;
            // The rest of a row after its newline still uses up the text.
            rowEnded = rowEnded || c == '\n';
            if (ended || rowEnded)
                std::printf(" ");
            else
                std::printf("%c", c);
        }
        std::printf(" *");
        if (ended) break;
    }
    const int last = ended ? row : height + 3;
    if (ended) {
        if (wait) {
            MoveCursor(screen, left, top + last + 1);
            std::printf("* Press enter");
            // Two cells wider than the frame; the boxes drawn so far look so.
            for (int i = 12; i <= width + 3; ++i) std::printf(" ");
            std::printf("*");
        }
        MoveCursor(screen, left, top + last + (wait ? 2 : 1));
        Repeat("*", width + kOvlBorder);
    }
    if (wait) {
        MoveCursor(screen, left + kOvlPromptColumn, top + last + 1);
        std::fflush(stdout);
        // End of input answers the wait as a key would.
        [[maybe_unused]] int read = std::scanf("%*c");
    }
    MoveCursor(screen, x, y);
    std::fflush(stdout);
}

void NumberScreen(SCREEN *screen) {
    long size = GridSize(screen);
    for (long at = 0; at < std::min(size, static_cast<long>(kPatternCols) * kPatternLines); ++at)
        screen->buffer[at] = static_cast<char>('0' + at % kPatternCols % 10);
}
