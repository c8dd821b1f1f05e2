// The help viewer. A help text is laid out once (html.h) and shown a screen at
// a time through the menu engine: the screen's text is the title of a menu
// whose bar offers leaving, the contents, going back, the next and previous
// screen, and a numbered item for every link on the screen, so that typing a
// link's number follows it.
//
// The engine prints that menu as a scrolling list, never clearing the
// terminal; a screen is therefore exactly SCREEN_ROWS rows from the title
// line down to the prompt, padded with empty lines, so that each one fills
// the terminal by itself.
#include "HelpTty.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "Dbm.h"
#include "NlsUtils.h"
#include "TextMenu.h"
#include "TextMenuString.h"
#include "html.h"
#include "utils.h"

namespace {

// Rows of a screen besides the text: the title line; the blank line after
// the title and the one that starts the bar's key group; two rows of hot
// keys; a blank line and the prompt. The rows of link items come on top,
// at least one: the link group's line end makes one even when it is empty.
constexpr int SCREEN_ROWS = 24;
constexpr int FIXED_ROWS = 7;
constexpr int TEXT_ROWS_MAX = SCREEN_ROWS - FIXED_ROWS - 1;
// The engine lays the bar out in cells of MENU_WIDTH / columns and cuts each
// to one byte less. Labels up to 21 bytes keep three hot keys a row; link
// labels up to 19 bytes keep three links a row and are never cut inside a
// character, even behind a three-digit number.
constexpr int KEY_COLUMNS = 3;
constexpr int KEY_LABEL_MAX = 21;
constexpr int LINK_COLUMNS = 3;
constexpr int LINK_LABEL_MAX = 19;
constexpr int HISTORY_MAX = 64;
constexpr int REDIRECTS_MAX = 8;  // a redirect loop in the database ends here
constexpr long FILE_MAX = 4L << 20;
constexpr int STRING_NOT_FOUND = 705;

/// The records of the help menu; the links' items follow the last.
enum : int { BAR, KEY_GROUP, EXIT, CONTENTS, BACK, NEXT, PREVIOUS, LINK_GROUP, FIRST_LINK };

struct HotKey {
    int string;  ///< the engine's string with the label, "~<key> <label>"
    char key;    ///< used when that string has no usable key
};
constexpr HotKey kHotKeys[] = {{700, 'e'}, {701, 'c'}, {702, 'b'}, {703, '+'}, {704, '-'}};

enum class Source { Text, Database, File };

struct Place {
    Source source;
    MemPtr<char> name;  ///< page name or path; null for the caller's text
    int top;
};

bool SameName(const char *a, const char *b) {
    return a && b ? std::strcmp(a, b) == 0 : a == b;
}

/// Cuts `text` in place to at most `max` bytes without splitting a character,
/// and drops the blanks that end up last.
void CutBytes(char *text, int max) {
    int length = static_cast<int>(std::strlen(text));
    if (length > max) {
        length = max;
        while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) --length;
    }
    while (length > 0 && text[length - 1] == ' ') --length;
    text[length] = '\0';
}

/// The text of help page `name` of pPrtHelpDB, its redirects followed, with
/// the name it was found under in `found`; null when there is none.
MemPtr<char> FetchPage(const char *name, MemPtr<char> &found) {
    if (!pPrtHelpDB || !name || !*name) return nullptr;
    int length = DbmTGetRecordSize(pPrtHelpDB, name);
    if (length <= 0) return nullptr;
    MemPtr<char> text(static_cast<char *>(GetMem(NLS_BUF_SIZE + 1)));
    if (!text) return nullptr;
    NlsFetchString(pPrtHelpDB, text.get(), 1, name);
    found.reset(SaveStr_(name));
    for (int hops = 0;; ++hops) {
        // The fetch copies the record without ending it.
        text.get()[std::min(length, NLS_BUF_SIZE)] = '\0';
        if (hops == REDIRECTS_MAX) break;
        char *target = CheckForRedirect(text.get());
        if (!target) break;
        length = DbmTGetRecordSize(pPrtHelpDB, target);
        if (length <= 0) return nullptr;
        found.reset(SaveStr_(target));
    }
    return text;
}

/// The file at `path` (at most FILE_MAX bytes of it), NUL-ended, with its
/// length; null when it cannot be read.
MemPtr<char> ReadHelpFile(const char *path, long &length) {
    FilePtr file(std::fopen(path, "rb"));
    if (!file) return nullptr;
    MemPtr<char> text;
    long room = 0;
    length = 0;
    for (;;) {
        if (length == room) {
            if (room == FILE_MAX) break;
            room = room ? std::min(room * 2, FILE_MAX) : 16384;
            void *bigger = AdjustMem(text.get(), room + 1);
            if (!bigger) return nullptr;
            (void)text.release();
            text.reset(static_cast<char *>(bigger));
        }
        size_t got =
            std::fread(text.get() + length, 1, static_cast<size_t>(room - length), file.get());
        if (got == 0) break;
        length += static_cast<long>(got);
    }
    if (std::ferror(file.get())) return nullptr;
    text.get()[length] = '\0';
    return text;
}

class Viewer {
  public:
    Viewer(const char *data, const char *title) : data_(data), title_(title) {
        for (size_t k = 0; k < std::size(kHotKeys); ++k) keys_[k] = KeyLabel(kHotKeys[k]);
    }
    ~Viewer() { HtmlFreePage(page_); }
    Viewer(const Viewer &) = delete;
    Viewer &operator=(const Viewer &) = delete;

    /// Shows the help until the user leaves; false when there is none.
    bool Run(const char *name) {
        bool found = data_ ? Open(Source::Text, nullptr) : name && OpenTarget(name);
        if (!found) {
            NotFound(name ? name : "");
            return false;
        }
        start_ = {source_, name_ ? MemPtr<char>(SaveStr_(name_.get())) : nullptr, 0};
        menu_ = {
            .title = "",
            .titleStyle = 1,
            .items = items_.get(),
            .flags = MENUFLAG_NOEXIT | MENUFLAG_REINIT | MENUFLAG_TYPEBEFORE | MENUFLAG_COMPACT};
        Show();
        RunMenu(&menu_, nullptr, 1);
        return true;
    }

    // What the items do: 0 when the screen changed, 1 when it stays.

    int Follow(int n) {
        if (n < 1 || n > page_->linkCount) return 1;
        MemPtr<char> target(SaveStr_(page_->links[n - 1].target));
        char *anchor = std::strchr(target.get(), '#');
        if (anchor) *anchor++ = '\0';
        Place here = Here();
        bool elsewhere = *target.get() != '\0';
        if (elsewhere && !OpenTarget(target.get())) return NotFound(page_->links[n - 1].target);
        int line = anchor && *anchor ? HtmlFindAnchor(page_, anchor) : 0;
        if (line < 0 && !elsewhere) return NotFound(anchor);
        return Go(std::move(here), std::max(line, 0));
    }

    int Back() {
        if (history_.empty()) return 1;
        Place place = std::move(history_.back());
        history_.pop_back();
        if (!IsCurrent(place) && !Open(place.source, place.name.get()))
            return NotFound(place.name ? place.name.get() : "");
        top_ = std::clamp(place.top, 0, std::max(page_->lineCount - 1, 0));
        Show();
        return 0;
    }

    int Contents() {
        if (IsCurrent(start_) && top_ == 0) return 1;
        Place here = Here();
        if (!IsCurrent(start_) && !Open(start_.source, start_.name.get()))
            return NotFound(start_.name ? start_.name.get() : "");
        return Go(std::move(here), 0);
    }

    int Next() {
        int rows = Rows(top_);
        if (top_ + rows >= page_->lineCount) return 1;
        top_ += rows;
        // A blank line that separated two blocks separates nothing at the top.
        while (top_ + 1 < page_->lineCount && page_->lines[top_][0] == '\0') ++top_;
        Show();
        return 0;
    }

    /// The screen before: the one reaching furthest back whose rows still
    /// end where this one starts.
    int Previous() {
        if (top_ == 0) return 1;
        int first = std::max(top_ - TEXT_ROWS_MAX, 0);
        while (first + Rows(first) < top_) ++first;
        top_ = first;
        Show();
        return 0;
    }

  private:
    static MemPtr<char> KeyLabel(const HotKey &hot) {
        MemPtr<char> text(TextMenuString(hot.string));
        const char *t = text.get();
        // The engine lowers what is typed, and takes a digit for a number.
        bool usable = t[0] == '~' && t[1] > ' ' && t[1] < 0x7F && !(t[1] >= 'A' && t[1] <= 'Z') &&
                      !(t[1] >= '0' && t[1] <= '9') && t[2] == ' ' && t[3];
        MemPtr<char> label(usable ? text.release() : SaveStr("~%c %s", hot.key, t));
        CutBytes(label.get(), KEY_LABEL_MAX);
        return label;
    }

    /// Loads a text as the current page, at its top; false (and nothing
    /// changed) when there is none.
    bool Open(Source source, const char *name) {
        MemPtr<char> text;
        MemPtr<char> found;
        long length = -1;
        const char *body = data_;
        if (source == Source::Database) {
            text = FetchPage(name, found);
            body = text.get();
        } else if (source == Source::File) {
            text = ReadHelpFile(name, length);
            found.reset(SaveStr_(name));
            body = text.get();
        }
        if (!body) return false;
        HtmlPage *page = HtmlLayout(body, length, title_);
        if (!page || !MakeItems(page)) {
            HtmlFreePage(page);
            return false;
        }
        HtmlFreePage(page_);
        page_ = page;
        source_ = source;
        name_ = std::move(found);
        top_ = 0;
        return true;
    }

    /// Where a target without its "#anchor" leads: a page of the help
    /// database, else a file, named from beside the current file.
    bool OpenTarget(const char *target) {
        if (pPrtHelpDB && DbmTGetRecordSize(pPrtHelpDB, target) > 0)
            return Open(Source::Database, target);
        if (target[0] == '/' || source_ != Source::File) return Open(Source::File, target);
        MemPtr<char> path(SaveStr("%s/%s", StripFn(name_.get()), target));
        return Open(Source::File, path.get());
    }

    /// Items for `page`'s links, hidden until a screen shows their links.
    /// A smaller array is not released: the menu loop may still hold a record
    /// of it while the item that changed the page returns.
    bool MakeItems(const HtmlPage *page) {
        int needed = FIRST_LINK + page->linkCount + 1;
        if (needed > itemRoom_) {
            MemPtr<MENUITEM> items(
                static_cast<MENUITEM *>(GetMem(static_cast<long>(sizeof(MENUITEM)) * needed)));
            if (!items) return false;
            FixedItems(items.get());
            if (items_) retired_.push_back(std::move(items_));
            items_ = std::move(items);
            itemRoom_ = needed;
            menu_.items = items_.get();
        }
        MemVector<MemPtr<char>> labels;
        for (int n = 1; n <= page->linkCount; ++n) {
            const HtmlLink &link = page->links[n - 1];
            const char *text = link.text[0] ? link.text : link.target;
            text += std::strspn(text, "~");  // a label starting with "~" would be a hot key
            labels.emplace_back(SaveStr_(*text ? text : "#"));
            CutBytes(labels.back().get(), LINK_LABEL_MAX);
            items_.get()[FIRST_LINK + n - 1] = {
                .text = "", .type = MENU_ACTION, .state = 2, .handler = FollowItem};
        }
        items_.get()[FIRST_LINK + page->linkCount] = {};
        labels_ = std::move(labels);
        return true;
    }

    void FixedItems(MENUITEM *items) {
        items[BAR] = {.text = "", .type = MENU_BAR_TEXT, .value = {KEY_COLUMNS}};
        items[KEY_GROUP] = {.text = "", .type = MENU_BAR_TEXT, .value = {KEY_COLUMNS}};
        items[EXIT] = {.text = keys_[0].get(), .type = MENU_EXIT};
        items[CONTENTS] = {.text = keys_[1].get(), .type = MENU_ACTION, .handler = ContentsItem};
        items[BACK] = {.text = keys_[2].get(), .type = MENU_ACTION, .handler = BackItem};
        items[NEXT] = {.text = keys_[3].get(), .type = MENU_ACTION, .handler = NextItem};
        items[PREVIOUS] = {.text = keys_[4].get(), .type = MENU_ACTION, .handler = PreviousItem};
        items[LINK_GROUP] = {.text = "", .type = MENU_BAR_TEXT, .value = {LINK_COLUMNS}};
    }

    Place Here() const {
        return {source_, name_ ? MemPtr<char>(SaveStr_(name_.get())) : nullptr, top_};
    }

    bool IsCurrent(const Place &place) const {
        return place.source == source_ && SameName(place.name.get(), name_.get());
    }

    /// Moves to `line` of the current page, remembering `from` for "back".
    int Go(Place from, int line) {
        if (history_.size() == static_cast<size_t>(HISTORY_MAX)) history_.erase(history_.begin());
        history_.push_back(std::move(from));
        top_ = line;
        Show();
        return 0;
    }

    int NotFound(const char *what) {
        MemPtr<char> format(TextMenuString(STRING_NOT_FOUND));
        PostMsg(format.get(), what);
        return 1;
    }

    bool Shows(const HtmlLink &link, int top, int rows) const {
        auto within = [&](int line) { return line >= top && line < top + rows; };
        return within(link.line) || within(link.listLine);
    }

    /// The text rows of the screen starting at `top`: as many as leave room
    /// for the rows of its links' items.
    int Rows(int top) const {
        for (int rows = TEXT_ROWS_MAX; rows > 1; --rows) {
            int links = 0;
            for (int n = 0; n < page_->linkCount; ++n) links += Shows(page_->links[n], top, rows);
            int linkRows = std::max(1, (links + LINK_COLUMNS - 1) / LINK_COLUMNS);
            if (rows + linkRows <= SCREEN_ROWS - FIXED_ROWS) return rows;
        }
        return 1;
    }

    /// Makes the menu show the screen at top_.
    void Show() {
        int rows = Rows(top_);
        screen_ = TitleLine();
        for (int i = top_; i < top_ + rows; ++i) {
            screen_ += '\n';
            if (i < page_->lineCount) screen_ += page_->lines[i];
        }
        menu_.title = screen_.c_str();
        MENUITEM *items = items_.get();
        for (int n = 1; n <= page_->linkCount; ++n) {
            bool shown = Shows(page_->links[n - 1], top_, rows);
            items[FIRST_LINK + n - 1].state = shown ? 0 : 2;
            items[FIRST_LINK + n - 1].text = shown ? labels_[n - 1].get() : "";
        }
        items[NEXT].state = top_ + rows < page_->lineCount ? 0 : 2;
        items[PREVIOUS].state = top_ > 0 ? 0 : 2;
    }

    /// The page title centred in a line of exactly MENU_WIDTH columns: the
    /// engine centres a title by its first line, and one that fills the
    /// width is printed as it is.
    MemString TitleLine() const {
        const char *title = page_->title;
        int bytes = HtmlFit(title, static_cast<int>(std::strlen(title)), MENU_WIDTH);
        int columns = HtmlColumns(title, bytes);
        int before = (MENU_WIDTH - columns) / 2;
        MemString line(static_cast<size_t>(before), ' ');
        line.append(title, static_cast<size_t>(bytes));
        line.append(static_cast<size_t>(MENU_WIDTH - columns - before), ' ');
        return line;
    }

    static int ContentsItem(MENU *, MENUITEM *);
    static int BackItem(MENU *, MENUITEM *);
    static int NextItem(MENU *, MENUITEM *);
    static int PreviousItem(MENU *, MENUITEM *);
    static int FollowItem(MENU *menu, MENUITEM *item);

    const char *data_;
    const char *title_;
    MemPtr<char> keys_[std::size(kHotKeys)];
    // The current page.
    Source source_ = Source::Text;
    MemPtr<char> name_;
    HtmlPage *page_ = nullptr;
    int top_ = 0;
    MemVector<MemPtr<char>> labels_;  ///< of its links' items
    Place start_ = {Source::Text, nullptr, 0};
    MemVector<Place> history_;
    // The menu.
    MemString screen_;
    MemPtr<MENUITEM> items_;
    int itemRoom_ = 0;
    MemVector<MemPtr<MENUITEM>> retired_;
    MENU menu_ = {};
};

/// The viewer whose menu runs; the item handlers reach it through this.
Viewer *active = nullptr;

int Viewer::ContentsItem(MENU *, MENUITEM *) {
    return active->Contents();
}
int Viewer::BackItem(MENU *, MENUITEM *) {
    return active->Back();
}
int Viewer::NextItem(MENU *, MENUITEM *) {
    return active->Next();
}
int Viewer::PreviousItem(MENU *, MENUITEM *) {
    return active->Previous();
}
int Viewer::FollowItem(MENU *menu, MENUITEM *item) {
    return active->Follow(static_cast<int>(item - menu->items) - FIRST_LINK + 1);
}

}  // namespace

int TtyHtmlHelp(const char *name, const char *data, const char *title) {
    Viewer viewer(data, title);
    Viewer *outer = std::exchange(active, &viewer);
    bool shown = viewer.Run(name);
    active = outer;
    return shown ? 0 : 1;
}
