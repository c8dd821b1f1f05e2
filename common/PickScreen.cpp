// The pick screen: the choices of a choice item over the whole terminal, in
// columns under a frame that carries the item's label, picked by number.
// Without a terminal, or on one too small, the line-mode chooser of
// MenuState.cpp asks instead.
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "TextMenu.h"
#include "TextMenuString.h"
#include "TtyScreen.h"
#include "utils.h"

namespace {

// Ids of the pick screen's strings (group 25).
constexpr int kPromptOne = 622;
constexpr int kPromptMany = 623;
constexpr int kTooSmall = 624;

// Below this a frame, a handful of choices and the prompt no longer fit.
constexpr int kMinCols = 40;
constexpr int kMinLines = 12;
// A larger window is drawn as this much of it: the bound keeps the grid sane
// when a terminal reports nonsense.
constexpr int kMaxSide = 1000;
constexpr int kMaxColumns = 16;
constexpr int kGap = 3;     // blanks between two columns of choices
constexpr int kIndent = 2;  // blanks between the frame and the choices, each side
// The highest choice a type-10 value can hold (the set is 32 bits wide).
constexpr int kMaxManyChoice = 31;

using Text = std::basic_string<char, std::char_traits<char>, MemAllocator<char>>;
using Texts = std::vector<Text, MemAllocator<Text>>;
using Pointers = std::vector<const char *, MemAllocator<const char *>>;

struct Size {
    int cols = 0;
    int lines = 0;
};

struct Layout {
    int rows = 0;  ///< choices to a column
    int columns = 0;
    int widths[kMaxColumns] = {};
    int promptRows = 0;
};

bool Continuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// Cells that `text` takes on the terminal: a multibyte character takes one.
int Cells(std::string_view text) {
    return static_cast<int>(
        std::count_if(text.begin(), text.end(), [](char c) { return !Continuation(c); }));
}

/// Bytes of the longest start of `text` that fits in `cells` cells.
size_t Fit(std::string_view text, int cells) {
    size_t n = 0;
    for (int used = 0; n < text.size(); ++n) {
        if (Continuation(text[n])) continue;
        if (used++ == cells) break;
    }
    return n;
}

/// `text` with control characters blanked: in the grid a newline or a zero
/// would cut a row short.
Text Printable(const char *text) {
    Text out(text ? text : "");
    for (char &c : out)
        if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F) c = ' ';
    return out;
}

Pointers PointersTo(const Texts &texts) {
    Pointers pointers;
    for (const Text &text : texts) pointers.push_back(text.c_str());
    return pointers;
}

int Side(long n) {
    return n < 1 ? 0 : static_cast<int>(std::min<long>(n, kMaxSide));
}

int EnvSide(const char *name) {
    const char *text = std::getenv(name);
    return text ? Side(std::strtol(text, nullptr, 10)) : 0;
}

/// The window itself: the screen's own size is only vt100's.
Size WindowSize(const SCREEN *screen) {
    Size size;
    winsize window{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &window) == 0)
        size = {Side(window.ws_col), Side(window.ws_row)};
    if (!size.cols) size.cols = EnvSide("COLUMNS");
    if (!size.lines) size.lines = EnvSide("LINES");
    if (!size.cols) size.cols = Side(screen->cols);
    if (!size.lines) size.lines = Side(screen->lines);
    return size;
}

/// Calls row(part) for each row of `text` broken at blanks into rows of at
/// most `width` cells (a longer word is cut); the number of rows.
template <typename Row>
int Wrap(std::string_view text, int width, Row row) {
    int rows = 0;
    while (!text.empty()) {
        size_t take = Fit(text, width);
        if (!take) break;
        bool broken = take < text.size();
        if (broken) {
            size_t blank = text.substr(0, take + 1).rfind(' ');
            if (blank != std::string_view::npos && blank > 0) take = blank;
        }
        row(text.substr(0, take));
        ++rows;
        text.remove_prefix(take);
        while (broken && !text.empty() && text.front() == ' ') text.remove_prefix(1);
    }
    return rows;
}

/// One entry a choice: "(*)  2) Legal" marks the current choice (9), "[x]
/// 2) Staple" each chosen one (10). A choice no number can pick shows
/// neither mark nor number.
Texts Entries(const MENUITEM *item, long value) {
    Texts entries;
    bool many = item->type == MENU_PICKMANY;
    // Choices as the engine counts them everywhere: the tokenizer's commas.
    MemPtr<char> token(
        static_cast<char *>(GetMem(static_cast<long>(std::strlen(item->choices)) + 1)));
    if (!token) throw std::bad_alloc();
    const char *cursor = item->choices;
    int n = 0;
    for (const char *t = GetTokenD(item->choices, ",", &cursor, token.get()); t;
         t = GetTokenD(nullptr, ",", &cursor, token.get())) {
        ++n;
        bool available = t[0] != ' ' && (!many || n <= kMaxManyChoice);
        bool marked = many ? n <= kMaxManyChoice && (static_cast<unsigned long>(value) >> n & 1)
                           : value == n - 1;
        const char *mark = many ? (marked ? "[x]" : "[ ]") : (marked ? "(*)" : "( )");
        char prefix[32];
        std::snprintf(prefix, sizeof prefix, "%s %2d) ", mark, n);
        Text entry = available ? Text(prefix) : Text(std::strlen(prefix), ' ');
        entry += Printable(t + (t[0] == ' ' || t[0] == '_'));
        entries.push_back(std::move(entry));
    }
    return entries;
}

/// How `entries` and `prompt` share a terminal of `size`; false when they do
/// not fit.
bool Plan(const Pointers &entries, std::string_view prompt, Size size, Layout &layout) {
    if (size.cols < kMinCols || size.lines < kMinLines) return false;
    // The prompt keeps the last column free for the cursor.
    layout.promptRows = std::max(1, Wrap(prompt, size.cols - 1, [](std::string_view) {}));
    // Frame lines, and a blank line inside each of them.
    int room = size.lines - layout.promptRows - 4;
    int count = static_cast<int>(entries.size());
    if (room < 1) return false;
    layout.rows = std::clamp(count, 1, room);
    int columns = (count + layout.rows - 1) / layout.rows;
    if (columns > 0) layout.rows = (count + columns - 1) / columns;
    layout.columns =
        GetColumnWidths(entries.data(), count, layout.rows, layout.widths, kMaxColumns);
    if (layout.columns < 0) return false;
    int width = 2 * kIndent + kGap * std::max(layout.columns - 1, 0);
    for (int c = 0; c < layout.columns; ++c) width += layout.widths[c];
    return width <= size.cols - 2;
}

/// Clears the terminal and draws the frame with the entries, then the
/// prompt below it, leaving the cursor after the prompt.
void Draw(SCREEN *screen, const char *title, const Texts &entries, const Layout &layout,
          std::string_view prompt) {
    ClearScreen(screen);
    int count = static_cast<int>(entries.size());
    Texts lines(std::max(screen->lines - layout.promptRows - 2, 0));
    for (int r = 0; r < layout.rows && r + 1 < static_cast<int>(lines.size()); ++r) {
        Text &line = lines[r + 1];
        line.assign(kIndent, ' ');
        for (int c = 0, k = r; c < layout.columns && k < count; ++c, k += layout.rows) {
            line += entries[k];
            if (k + layout.rows < count)
                line.append(layout.widths[c] - Cells(entries[k]) + kGap, ' ');
        }
    }
    Pointers text = PointersTo(lines);
    WriteScreenFrame(screen, title, text.data(), static_cast<int>(text.size()));
    Refresh(screen);
    // Straight to the terminal, so that the cursor waits right after it.
    int row = screen->lines - layout.promptRows;
    Wrap(prompt, screen->cols - 1, [&](std::string_view part) {
        MoveCursor(screen, 0, row++);
        std::fwrite(part.data(), 1, part.size(), stdout);
    });
    std::fflush(stdout);
}

/// Whether a word of `line` is the letter `letter`, in either case.
bool HasWord(std::string_view line, char letter) {
    while (!line.empty()) {
        size_t start = line.find_first_not_of(" \t,");
        if (start == std::string_view::npos) break;
        line.remove_prefix(start);
        std::string_view word = line.substr(0, line.find_first_of(" \t,"));
        line.remove_prefix(word.size());
        if (word.size() == 1 && (word[0] | 0x20) == letter) return true;
    }
    return false;
}

/// The picture as one stream of lines from the grid's start. Refresh sends
/// rows back to back, so a line of multibyte characters, which takes more
/// bytes than cells, pushes the next line along instead of leaving a gap.
struct Stream {
    SCREEN *screen;
    long at = 0;

    long Size() const { return static_cast<long>(screen->cols) * screen->lines; }
    void Put(std::string_view bytes) {
        // WriteString takes 519 characters a call.
        for (long step; !bytes.empty() && at < Size(); at += step) {
            step = std::min<long>(static_cast<long>(bytes.size()), WRITESTRING_SIZE - 1);
            SetPosition(screen, static_cast<int>(at % screen->cols),
                        static_cast<int>(at / screen->cols) + 1);
            WriteString(screen, "%.*s", static_cast<int>(step), bytes.data());
            bytes.remove_prefix(step);
        }
    }
    void Fill(int count, char c) {
        if (count < 1) return;
        if (at < Size())
            FillArea(screen, static_cast<int>(at % screen->cols),
                     static_cast<int>(at / screen->cols), count, 1, c);
        at += count;
    }
};

/// The grid sized to the window for the screen's life, released after it.
struct WindowGrid {
    SCREEN *screen;
    bool Fit(Size size) {
        char *grid = static_cast<char *>(
            AdjustMem(screen->buffer, static_cast<long>(size.cols) * size.lines));
        if (!grid) return false;
        screen->buffer = grid;
        screen->cols = size.cols;
        screen->lines = size.lines;
        return true;
    }
    ~WindowGrid() { screen->buffer = static_cast<char *>(PutMem(screen->buffer)); }
};

/// The item's value is the picture's while the screen is up.
struct ValueKept {
    MENUITEM *item;
    long value;
    ~ValueKept() { item->value.number = value; }
};

int Pick(MENUITEM *item, const char *title, long (*answer)(MENUITEM *, const char *), long *value) {
    SCREEN *screen = pMenuScreen = GetTermInfo(pMenuScreen);
    if (!screen) return 0;
    WindowGrid grid{screen};
    Size size = WindowSize(screen);
    MemPtr<char> promptText(TextMenuString(item->type == MENU_PICKONE ? kPromptOne : kPromptMany));
    Text prompt = Printable(promptText.get());
    ValueKept kept{item, item->value.number};
    Layout layout;
    if (!Plan(PointersTo(Entries(item, kept.value)), prompt, size, layout)) {
        MemPtr<char> message(TextMenuString(kTooSmall));
        std::printf("\n");
        if (message) std::printf(message.get(), size.cols, size.lines);
        std::printf("\n");
        std::fflush(stdout);
        return 0;
    }
    if (!grid.Fit(size)) return 0;
    for (;;) {
        Draw(screen, title, Entries(item, item->value.number), layout, prompt);
        GetsLine(LineBuf, LINEBUF_SIZE);
        if (std::feof(stdin) || HasWord(LineBuf, MENUVAL_CANCEL)) {
            item->value.number = kept.value;
            break;
        }
        item->value.number = answer(item, LineBuf);
        if (HasWord(LineBuf, MENUVAL_SAVE)) break;
    }
    *value = item->value.number;
    // The line-mode menu that follows starts on a clean terminal.
    ClearScreen(screen);
    std::fflush(stdout);
    return 1;
}

}  // namespace

int GetColumnWidths(const char *const *entries, int count, int rows, int *widths, int maxColumns) {
    if (!entries || !widths || count < 1 || rows < 1) return 0;
    int columns = (count + rows - 1) / rows;
    if (columns > maxColumns) return -1;
    std::fill(widths, widths + columns, 0);
    for (int k = 0; k < count; ++k)
        widths[k / rows] = std::max(widths[k / rows], Cells(entries[k]));
    return columns;
}

int WriteScreenFrame(SCREEN *screen, const char *title, const char *const *text, int count) {
    if (!screen || !screen->buffer || screen->cols < 2 || screen->lines < 1) return 0;
    const int inner = screen->cols - 2;
    Stream out{screen};
    Text name = Printable(title);
    // Room for a dash and a blank each side of the title.
    std::string_view shown(name.data(), Fit(name, std::max(inner - 4, 0)));
    int taken = shown.empty() ? 0 : Cells(shown) + 2;
    int left = (inner - taken) / 2;
    out.Fill(1, '+');
    out.Fill(left, '-');
    if (!shown.empty()) {
        out.Fill(1, ' ');
        out.Put(shown);
        out.Fill(1, ' ');
    }
    out.Fill(inner - left - taken, '-');
    out.Fill(1, '+');
    for (int i = 0; i < count; ++i) {
        std::string_view line = text && text[i] ? text[i] : "";
        line = line.substr(0, Fit(line, inner));
        out.Fill(1, '|');
        out.Put(line);
        out.Fill(inner - Cells(line), ' ');
        out.Fill(1, '|');
    }
    out.Fill(1, '+');
    out.Fill(inner, '-');
    out.Fill(1, '+');
    return count + 2;
}

int PrintPickOneManyScreen(MENU *menu, int index, const char *title,
                           long (*answer)(MENUITEM *item, const char *line), long *value) {
    if (!menu || !menu->items || index < 0 || !answer || !value) return 0;
    for (int i = 0; i < index; ++i)
        if (!menu->items[i].text) return 0;
    MENUITEM *item = &menu->items[index];
    if (!item->text || (item->type != MENU_PICKONE && item->type != MENU_PICKMANY) ||
        !item->choices)
        return 0;
    // Escape sequences in a file or a pipe help nobody: only the line-mode
    // chooser serves scripts and logs.
    if (!isatty(STDOUT_FILENO)) return 0;
    try {
        return Pick(item, title, answer, value);
    } catch (const std::bad_alloc &) {
        return 0;
    }
}
