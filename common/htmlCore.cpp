// The help reader: HTML scanned once from start to end, every tag and code
// point of text handed to a layout that fills the page line by line. The
// rules it follows are listed in html.h.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "MemMgr.h"
#include "html.h"

namespace {

constexpr uint32_t NBSP = 0xA0;
constexpr uint32_t SHY = 0xAD;
constexpr int TAB_STOP = 8;
constexpr int LIST_STEP = 2;
constexpr int QUOTE_STEP = 4;
constexpr size_t TAG_NAME_MAX = 12;

/// The builders answer 0 when memory runs out and the allocator throws:
/// either way the layout ends in HtmlLayout's catch.
void Must(int done) {
    if (!done) throw std::bad_alloc();
}

// ---- Characters

bool IsSpace(uint32_t c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

bool IsAlpha(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsNameChar(char c) {
    return IsAlpha(c) || (c >= '0' && c <= '9') || c == '-' || c == ':' || c == '_';
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

bool SameIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i)
        if (Lower(a[i]) != Lower(b[i])) return false;
    return true;
}

void AppendUtf8(MemString &out, uint32_t c) {
    char bytes[4];
    out.append(bytes, static_cast<size_t>(HtmlPutChar(bytes, c)));
}

size_t Utf8Size(uint32_t c) {
    char bytes[4];
    return static_cast<size_t>(HtmlPutChar(bytes, c));
}

/// The next code point of `s` (not empty) as text shows it, and its byte count.
uint32_t NextChar(std::string_view s, bool references, int *length) {
    // A reference is never longer than 16 bytes; a text may be longer than an int counts.
    int size = static_cast<int>(std::min<size_t>(s.size(), references ? 16 : 4));
    return HtmlChar(s.data(), size, references, length);
}

/// `raw` as one line of text: blanks collapsed, ends trimmed, at most `max` bytes.
MemString Clean(std::string_view raw, bool entities, size_t max) {
    MemString out;
    bool gap = false;
    for (size_t i = 0; i < raw.size();) {
        int length = 1;
        uint32_t c = NextChar(raw.substr(i), entities, &length);
        i += static_cast<size_t>(length);
        if (IsSpace(c) || c == NBSP) {
            gap = !out.empty();
            continue;
        }
        if (c == SHY) continue;
        if (out.size() + gap + Utf8Size(c) > max) break;
        if (gap) out += ' ';
        gap = false;
        AppendUtf8(out, c);
    }
    return out;
}

// ---- Tags

// clang-format off
enum class Tag : uint8_t {
    Other, A, Base, Blockquote, Body, Br, Dd, Div, Dl, Dt, H1, H2, H3, H4, H5, H6, Head, Hr, Li,
    Link, Meta, Ol, P, Pre, Script, Style, Td, Th, Title, Tr, Ul,
};
// clang-format on

struct TagName {
    const char *name;
    Tag tag;
};

constexpr TagName kTags[] = {
    {"a", Tag::A},         {"base", Tag::Base}, {"blockquote", Tag::Blockquote},
    {"body", Tag::Body},   {"br", Tag::Br},     {"dd", Tag::Dd},
    {"div", Tag::Div},     {"dl", Tag::Dl},     {"dt", Tag::Dt},
    {"h1", Tag::H1},       {"h2", Tag::H2},     {"h3", Tag::H3},
    {"h4", Tag::H4},       {"h5", Tag::H5},     {"h6", Tag::H6},
    {"head", Tag::Head},   {"hr", Tag::Hr},     {"li", Tag::Li},
    {"link", Tag::Link},   {"meta", Tag::Meta}, {"ol", Tag::Ol},
    {"p", Tag::P},         {"pre", Tag::Pre},   {"script", Tag::Script},
    {"style", Tag::Style}, {"td", Tag::Td},     {"th", Tag::Th},
    {"title", Tag::Title}, {"tr", Tag::Tr},     {"ul", Tag::Ul},
};

Tag FindTag(std::string_view name) {
    for (const TagName &known : kTags)
        if (SameIgnoringCase(name, known.name)) return known.tag;
    return Tag::Other;
}

int HeadingLevel(Tag tag) {
    return tag >= Tag::H1 && tag <= Tag::H6 ? static_cast<int>(tag) - static_cast<int>(Tag::H1) + 1
                                            : 0;
}

/// What a <head> may hold without ending it.
bool BelongsInHead(Tag tag) {
    return tag == Tag::Title || tag == Tag::Meta || tag == Tag::Link || tag == Tag::Base ||
           tag == Tag::Script || tag == Tag::Style || tag == Tag::Head;
}

struct TagToken {
    Tag tag = Tag::Other;
    bool end = false;
    MemString href, name, id;
};

// ---- Layout

/// A block that indents what it holds.
struct Block {
    Tag tag;
    int marker;   ///< a list's marker column
    int content;  ///< where the block's text lines start
    int counter;  ///< the items of an ordered list so far
};

class Layout {
  public:
    Layout(HtmlPage *page, const char *title) : page_(page) {
        MemString clean = Clean(title ? title : "", false, HTML_TITLE_MAX);
        Must(HtmlSetTitle(page_, clean.data(), static_cast<int>(clean.size())));
    }

    void Title(const MemString &title) {
        if (title.empty() || titled_) return;
        titled_ = true;
        Must(HtmlSetTitle(page_, title.data(), static_cast<int>(title.size())));
    }

    /// One code point of text.
    void Text(uint32_t c) {
        if (inHead_) return;
        if (pre_) return PreText(c);
        if (IsSpace(c)) {
            FlushWord();
            space_ = true;
            linkSpace_ = true;
            return;
        }
        if (c == SHY) return;
        if (c == NBSP) c = ' ';
        AppendUtf8(word_, c);
        ++wordColumns_;
        LinkText(c);
    }

    void Start(const TagToken &token) {
        if (inHead_ && !BelongsInHead(token.tag)) inHead_ = false;
        if (HeadingLevel(token.tag)) {
            StartHeading(HeadingLevel(token.tag));
        } else {
            StartElement(token);
        }
        if (!token.id.empty()) Anchor(token.id);
        if (token.tag == Tag::A && !token.name.empty()) Anchor(token.name);
    }

    void End(Tag tag) {
        if (HeadingLevel(tag)) return EndHeading();
        switch (tag) {
            case Tag::A:
                return CloseLink();
            case Tag::Head:
                inHead_ = false;
                return;
            case Tag::P:
                return Break(true);
            case Tag::Blockquote:
                if (Pop(tag)) Break(true);
                return;
            case Tag::Dl:
                if (!blocks_.empty() && blocks_.back().tag == Tag::Dd) blocks_.pop_back();
                return Break(true);
            case Tag::Pre:
                if (!pre_) return;
                Break(true);
                --pre_;
                return;
            case Tag::Ul:
            case Tag::Ol:
                if (Pop(tag)) Break(!InList());
                return;
            case Tag::Dd:
                if (Pop(tag)) Break(false);
                return;
            case Tag::Div:
            case Tag::Li:
            case Tag::Dt:
            case Tag::Tr:
                return Break(false);
            case Tag::Td:
            case Tag::Th:
                FlushWord();
                space_ = true;
                return;
            default:
                return;
        }
    }

    /// The open line and link, the anchors waiting for text, the references.
    void Finish() {
        CloseLink();
        EndHeading();
        Break(false);
        EndLine();
        for (const MemString &name : anchors_)
            Must(HtmlAddAnchor(page_, name.data(), static_cast<int>(name.size()),
                               std::max(0, page_->lineCount - 1)));
        anchors_.clear();
        for (int n = 1; n <= page_->linkCount; ++n) Reference(n);
    }

  private:
    void StartElement(const TagToken &token) {
        switch (token.tag) {
            case Tag::A:
                if (token.href.empty()) return;
                CloseLink();
                linkOpen_ = true;
                linkTarget_ = token.href;
                linkText_.clear();
                linkSpace_ = false;
                return;
            case Tag::Head:
                inHead_ = true;
                return;
            case Tag::Body:
                inHead_ = false;
                return;
            case Tag::P:
            case Tag::Dl:
                EndHeading();
                return Break(true);
            case Tag::Div:
            case Tag::Tr:
                EndHeading();
                return Break(false);
            case Tag::Dt:
                EndHeading();
                Break(false);
                if (!blocks_.empty() && blocks_.back().tag == Tag::Dd) blocks_.pop_back();
                return;
            case Tag::Br:
                FlushWord();
                space_ = false;
                if (lineOpen_)
                    EndLine();
                else
                    blank_ = true;
                return;
            case Tag::Hr:
                EndHeading();
                FlushWord();
                EndLine();
                StartLine(Indent());
                line_.append(static_cast<size_t>(HTML_WIDTH - Indent()), '-');
                lineText_ = true;
                EndLine();
                return;
            case Tag::Pre:
                EndHeading();
                Break(true);
                ++pre_;
                preStart_ = true;
                return;
            case Tag::Ul:
            case Tag::Ol: {
                EndHeading();
                Break(!InList());
                int marker = std::min(Indent() + LIST_STEP, HTML_MAX_INDENT);
                Push({token.tag, marker, marker + LIST_STEP, 0});
                return;
            }
            case Tag::Li:
                EndHeading();
                return Item();
            case Tag::Blockquote:
            case Tag::Dd:
                EndHeading();
                Break(token.tag == Tag::Blockquote);
                if (token.tag == Tag::Dd && !blocks_.empty() && blocks_.back().tag == Tag::Dd)
                    blocks_.pop_back();
                Push({token.tag, 0, std::min(Indent() + QUOTE_STEP, HTML_MAX_INDENT), 0});
                return;
            case Tag::Td:
            case Tag::Th:
                FlushWord();
                space_ = true;
                return;
            default:
                return;
        }
    }

    /// A list item: its marker starts a line of its own; an item outside any
    /// list gets a list of its own.
    void Item() {
        FlushWord();
        EndLine();
        auto list = std::find_if(blocks_.rbegin(), blocks_.rend(), [](const Block &b) {
            return b.tag == Tag::Ul || b.tag == Tag::Ol;
        });
        if (list != blocks_.rend()) {
            blocks_.erase(list.base(), blocks_.end());  // blocks left open in the item before
        } else {
            int marker = std::min(Indent() + LIST_STEP, HTML_MAX_INDENT);
            if (!Push({Tag::Ul, marker, marker + LIST_STEP, 0})) return;
        }
        Block &b = blocks_.back();
        char marker[16] = "* ";
        if (b.tag == Tag::Ol) {
            if (b.counter < INT_MAX) ++b.counter;
            std::snprintf(marker, sizeof marker, "%d. ", b.counter);
        }
        StartLine(b.marker);
        line_ += marker;
        lineColumns_ += static_cast<int>(std::strlen(marker));
        b.content = lineColumns_;
    }

    void StartHeading(int level) {
        EndHeading();
        Break(true);
        heading_ = level;
        headingFirst_ = lineOpen_ ? page_->lineCount : -1;
    }

    /// Ends the heading's last line and underlines the first two levels as
    /// wide as the heading's widest line.
    void EndHeading() {
        if (!heading_) return;
        FlushWord();
        EndLine();
        if (heading_ <= 2 && headingFirst_ >= 0) {
            int widest = 0;
            for (int i = headingFirst_; i < page_->lineCount; ++i) {
                const char *line = page_->lines[i];
                widest = std::max(
                    widest, HtmlColumns(line, static_cast<int>(std::strlen(line))) - Indent());
            }
            if (widest > 0) {
                MemString underline(static_cast<size_t>(Indent()), ' ');
                underline.append(static_cast<size_t>(widest), heading_ == 1 ? '=' : '-');
                Must(HtmlAddLine(page_, underline.data(), static_cast<int>(underline.size())));
            }
        }
        heading_ = 0;
        headingFirst_ = -1;
        space_ = false;
        blank_ = true;
    }

    int Indent() const { return blocks_.empty() ? 0 : blocks_.back().content; }

    bool InList() const {
        return std::any_of(blocks_.begin(), blocks_.end(),
                           [](const Block &b) { return b.tag == Tag::Ul || b.tag == Tag::Ol; });
    }

    /// Deeper blocks than the bound are not kept: their text stays at the
    /// indentation reached, and their end tags find nothing to close.
    bool Push(const Block &block) {
        if (blocks_.size() >= static_cast<size_t>(HTML_MAX_DEPTH)) return false;
        blocks_.push_back(block);
        return true;
    }

    /// Closes the innermost open `tag` and what it holds; false when none is open.
    bool Pop(Tag tag) {
        for (size_t i = blocks_.size(); i-- > 0;)
            if (blocks_[i].tag == tag) {
                blocks_.resize(i);
                return true;
            }
        return false;
    }

    /// Ends the line, and asks for a blank line before the next text. A line
    /// holding only a list item's marker stays open for the item's text.
    void Break(bool blank) {
        FlushWord();
        space_ = false;
        if (lineOpen_ && !lineText_) return;
        EndLine();
        if (blank) blank_ = true;
    }

    void StartLine(int indent) {
        EndLine();
        if (blank_ && page_->lineCount > 0 && page_->lines[page_->lineCount - 1][0] != '\0')
            Must(HtmlAddLine(page_, "", 0));
        blank_ = false;
        line_.assign(static_cast<size_t>(indent), ' ');
        lineColumns_ = indent;
        lineOpen_ = true;
        lineText_ = false;
        space_ = false;
        for (const MemString &name : anchors_)
            Must(
                HtmlAddAnchor(page_, name.data(), static_cast<int>(name.size()), page_->lineCount));
        anchors_.clear();
        if (heading_ && headingFirst_ < 0) headingFirst_ = page_->lineCount;
    }

    void EndLine() {
        if (!lineOpen_) return;
        size_t end = line_.find_last_not_of(' ');
        line_.resize(end == MemString::npos ? 0 : end + 1);
        Must(HtmlAddLine(page_, line_.data(), static_cast<int>(line_.size())));
        lineOpen_ = lineText_ = false;
    }

    /// Places the word gathered so far: after a blank when text preceded it,
    /// on the next line when it does not fit, cut across lines when no line
    /// holds it.
    void FlushWord() {
        if (word_.empty()) return;
        bool glue = glue_;
        glue_ = false;
        bool gap = lineText_ && space_ && !glue;
        if (lineText_ && lineColumns_ + gap + wordColumns_ > HTML_WIDTH) {
            EndLine();
            gap = false;
        }
        if (!lineOpen_) StartLine(Indent());
        if (gap) {
            line_ += ' ';
            ++lineColumns_;
        }
        std::string_view rest(word_.data(), word_.size());
        int restColumns = wordColumns_;
        while (lineColumns_ + restColumns > HTML_WIDTH) {
            int take = HTML_WIDTH - lineColumns_;
            size_t bytes =
                static_cast<size_t>(HtmlFit(rest.data(), static_cast<int>(rest.size()), take));
            line_.append(rest.substr(0, bytes));
            rest.remove_prefix(bytes);
            restColumns -= take;
            EndLine();
            StartLine(Indent());
        }
        line_.append(rest);
        lineColumns_ += restColumns;
        lineText_ = true;
        for (int n : wordLinks_) page_->links[n - 1].line = page_->lineCount;
        wordLinks_.clear();
        word_.clear();
        wordColumns_ = 0;
        if (!glue) space_ = false;
    }

    void PreText(uint32_t c) {
        if (c == '\r') return;
        bool first = preStart_;
        preStart_ = false;
        if (c == '\n') {
            if (first) return;  // the line end that follows <pre> is markup
            if (!lineOpen_) StartLine(Indent());
            lineText_ = true;
            return EndLine();
        }
        if (c == '\t') {
            int column = lineOpen_ ? lineColumns_ - Indent() : 0;
            for (int n = TAB_STOP - column % TAB_STOP; n > 0; --n) PreText(' ');
            return;
        }
        if (c == SHY) return;
        if (IsSpace(c) || c == NBSP) c = ' ';
        if (!lineOpen_) StartLine(Indent());
        if (lineColumns_ >= HTML_WIDTH) StartLine(Indent());
        AppendUtf8(line_, c);
        ++lineColumns_;
        lineText_ = true;
        LinkText(c);
    }

    void Anchor(const MemString &name) {
        if (lineOpen_)
            Must(
                HtmlAddAnchor(page_, name.data(), static_cast<int>(name.size()), page_->lineCount));
        else
            anchors_.push_back(name);
    }

    void LinkText(uint32_t c) {
        if (!linkOpen_) return;
        if (IsSpace(c)) {
            linkSpace_ = true;
            return;
        }
        bool gap = linkSpace_ && !linkText_.empty();
        linkSpace_ = false;
        if (linkText_.size() + gap + Utf8Size(c) > static_cast<size_t>(HTML_LINK_TEXT_MAX)) return;
        if (gap) linkText_ += ' ';
        AppendUtf8(linkText_, c);
    }

    /// Numbers the open link and puts its mark right after its text.
    void CloseLink() {
        if (!linkOpen_) return;
        linkOpen_ = false;
        int n = HtmlAddLink(page_, linkTarget_.data(), static_cast<int>(linkTarget_.size()),
                            linkText_.data(), static_cast<int>(linkText_.size()));
        if (!n) return;
        char mark[16];
        std::snprintf(mark, sizeof mark, "[%d]", n);
        if (pre_) {
            for (const char *p = mark; *p; ++p) PreText(static_cast<unsigned char>(*p));
            page_->links[n - 1].line = page_->lineCount;
            return;
        }
        // A link whose text ended in a blank has had its last word placed;
        // the mark still belongs to that word.
        if (word_.empty()) glue_ = !linkText_.empty();
        word_ += mark;
        wordColumns_ += static_cast<int>(std::strlen(mark));
        wordLinks_.push_back(n);
        if (glue_) FlushWord();
    }

    /// "[n] target", cut across lines that line up under the target.
    void Reference(int n) {
        char number[16];
        int width = std::snprintf(number, sizeof number, "[%d] ", n);
        blank_ = blank_ || n == 1;
        StartLine(0);
        page_->links[n - 1].listLine = page_->lineCount;
        line_ += number;
        lineColumns_ = width;
        std::string_view rest(page_->links[n - 1].target);
        while (!rest.empty()) {
            int take = HTML_WIDTH - lineColumns_;
            size_t bytes =
                static_cast<size_t>(HtmlFit(rest.data(), static_cast<int>(rest.size()), take));
            line_.append(rest.substr(0, bytes));
            rest.remove_prefix(bytes);
            lineText_ = true;
            if (!rest.empty()) StartLine(width);
        }
        EndLine();
    }

    HtmlPage *page_;
    bool titled_ = false;
    bool inHead_ = false;
    MemVector<Block> blocks_;
    // The line being filled.
    MemString line_;
    int lineColumns_ = 0;
    bool lineOpen_ = false;
    bool lineText_ = false;  ///< more than indentation and a marker
    bool blank_ = false;     ///< a blank line is due before the next text
    // The word being gathered.
    MemString word_;
    int wordColumns_ = 0;
    MemVector<int> wordLinks_;  ///< links whose marks the word holds
    bool space_ = false;        ///< a blank separates the word from the text before
    bool glue_ = false;         ///< the word is a mark that joins the text before
    int pre_ = 0;
    bool preStart_ = false;
    int heading_ = 0;
    int headingFirst_ = -1;
    MemVector<MemString> anchors_;  ///< waiting for the line of the next text
    bool linkOpen_ = false;
    MemString linkTarget_;
    MemString linkText_;
    bool linkSpace_ = false;
};

// ---- Reader

class Reader {
  public:
    Reader(std::string_view text, Layout &layout) : text_(text), layout_(layout) {}

    void Run() {
        while (pos_ < text_.size()) {
            if (text_[pos_] == '<' && Markup()) continue;
            int length = 1;
            layout_.Text(NextChar(text_.substr(pos_), true, &length));
            pos_ += static_cast<size_t>(length);
        }
    }

  private:
    static constexpr size_t NONE = std::string_view::npos;

    /// Consumes the comment, declaration or tag at pos_; false when none
    /// starts there and the "<" is text.
    bool Markup() {
        std::string_view rest = text_.substr(pos_);
        if (rest.substr(0, 4) == "<!--") {
            // Once "-->" was missing after some point, it is missing after
            // every later one: remembering that keeps the scan linear.
            size_t end = pos_ >= noComment_ ? NONE : text_.find("-->", pos_ + 4);
            if (end == NONE) {
                noComment_ = std::min(noComment_, pos_);
                return false;
            }
            pos_ = end + 3;
            return true;
        }
        if (rest.substr(0, 2) == "<!" || rest.substr(0, 2) == "<?") {
            size_t end = rest.substr(0, HTML_TAG_MAX).find('>');
            if (end == NONE) return false;
            pos_ += end + 1;
            return true;
        }
        TagToken token;
        size_t next = 0;
        if (!ReadTag(rest.substr(0, HTML_TAG_MAX), token, next)) return false;
        pos_ += next;
        if (token.end) {
            layout_.End(token.tag);
        } else if (token.tag == Tag::Title || token.tag == Tag::Script || token.tag == Tag::Style) {
            RawText(token.tag);
        } else if (token.tag == Tag::Head && !HeadEnds()) {
            // A head that nothing ends would hide the whole text: it is ignored.
        } else {
            layout_.Start(token);
        }
        return true;
    }

    /// The tag at the start of `s`: its token, and its byte count in `next`.
    /// A "<" outside quotes ends the attempt, so that attempts never overlap
    /// by more than a quoted value and the scan stays linear.
    bool ReadTag(std::string_view s, TagToken &token, size_t &next) {
        size_t i = 1;
        if (i < s.size() && s[i] == '/') {
            token.end = true;
            ++i;
        }
        if (i >= s.size() || !IsAlpha(s[i])) return false;
        size_t nameStart = i;
        while (i < s.size() && IsNameChar(s[i])) ++i;
        if (i - nameStart <= TAG_NAME_MAX) token.tag = FindTag(s.substr(nameStart, i - nameStart));
        auto blank = [&] { return IsSpace(static_cast<unsigned char>(s[i])); };
        for (;;) {
            while (i < s.size() && (blank() || s[i] == '/')) ++i;
            if (i >= s.size() || s[i] == '<') return false;
            if (s[i] == '>') {
                next = i + 1;
                return true;
            }
            size_t attrStart = i;
            while (i < s.size() && !blank() && s[i] != '=' && s[i] != '>' && s[i] != '/' &&
                   s[i] != '<')
                ++i;
            std::string_view attr = s.substr(attrStart, i - attrStart);
            while (i < s.size() && blank()) ++i;
            std::string_view value;
            if (i < s.size() && s[i] == '=') {
                ++i;
                while (i < s.size() && blank()) ++i;
                if (i >= s.size()) return false;
                if (s[i] == '"' || s[i] == '\'') {
                    size_t close = NextQuote(s, i);
                    if (close == NONE) return false;
                    value = s.substr(i + 1, close - i - 1);
                    i = close + 1;
                } else {
                    size_t valueStart = i;
                    while (i < s.size() && !blank() && s[i] != '>' && s[i] != '<') ++i;
                    value = s.substr(valueStart, i - valueStart);
                }
            }
            Keep(token, attr, value);
        }
    }

    /// The quote that closes the one at s[at], or NONE within `s`. The last
    /// answer is kept: attempts that start inside a long quoted value ask
    /// for the same closing quote again.
    size_t NextQuote(std::string_view s, size_t at) {
        size_t from = static_cast<size_t>(s.data() - text_.data()) + at + 1;
        int k = s[at] == '"' ? 0 : 1;
        if (from < quoteFrom_[k] || from > quoteAt_[k]) {
            quoteFrom_[k] = from;
            quoteAt_[k] = text_.find(s[at], from);
        }
        size_t found = quoteAt_[k];
        size_t end = static_cast<size_t>(s.data() - text_.data()) + s.size();
        return found == NONE || found >= end ? NONE
                                             : found - static_cast<size_t>(s.data() - text_.data());
    }

    static void Keep(TagToken &token, std::string_view attr, std::string_view value) {
        if (SameIgnoringCase(attr, "href"))
            token.href = Clean(value, true, HTML_ATTR_MAX);
        else if (SameIgnoringCase(attr, "name"))
            token.name = Clean(value, true, HTML_ATTR_MAX);
        else if (SameIgnoringCase(attr, "id"))
            token.id = Clean(value, true, HTML_ATTR_MAX);
    }

    /// The content of <title>, <script> or <style> up to its end tag: the
    /// title kept, the rest dropped. Without an end tag the start tag is
    /// ignored and what follows is read as usual.
    void RawText(Tag tag) {
        std::string_view name = tag == Tag::Title    ? "title"
                                : tag == Tag::Script ? "script"
                                                     : "style";
        size_t &missing = noEnd_[tag == Tag::Title ? 0 : tag == Tag::Script ? 1 : 2];
        size_t close = pos_ >= missing ? NONE : Find("</", name);
        if (close == NONE) {
            missing = std::min(missing, pos_);
            return;
        }
        if (tag == Tag::Title)
            layout_.Title(Clean(text_.substr(pos_, close - pos_), true, HTML_TITLE_MAX));
        size_t end = text_.find('>', close);
        pos_ = end == NONE ? text_.size() : end + 1;
    }

    /// Whether "</head" or "<body" follows.
    bool HeadEnds() {
        if (headEnd_ != NONE && headEnd_ >= pos_) return true;
        if (pos_ >= noHeadEnd_) return false;
        headEnd_ = std::min(Find("</", "head"), Find("<", "body"));
        if (headEnd_ == NONE) noHeadEnd_ = pos_;
        return headEnd_ != NONE;
    }

    /// Where `opening` and `name` (any case) start, not followed by more of
    /// a name, from pos_ on.
    size_t Find(std::string_view opening, std::string_view name) const {
        for (size_t at = text_.find(opening, pos_); at != NONE; at = text_.find(opening, at + 1)) {
            size_t after = at + opening.size() + name.size();
            if (SameIgnoringCase(text_.substr(at + opening.size(), name.size()), name) &&
                (after >= text_.size() || !IsNameChar(text_[after])))
                return at;
        }
        return NONE;
    }

    std::string_view text_;
    Layout &layout_;
    size_t pos_ = 0;
    size_t noComment_ = NONE;
    size_t noEnd_[3] = {NONE, NONE, NONE};
    size_t headEnd_ = NONE;
    size_t noHeadEnd_ = NONE;
    size_t quoteFrom_[2] = {NONE, NONE};
    size_t quoteAt_[2] = {NONE, NONE};
};

}  // namespace

HtmlPage *HtmlLayout(const char *text, long length, const char *title) {
    HtmlPage *page = HtmlNewPage();
    if (!page) return nullptr;
    size_t size = !text ? 0 : length < 0 ? std::strlen(text) : static_cast<size_t>(length);
    std::string_view source(text ? text : "", std::min(size, static_cast<size_t>(HTML_TEXT_MAX)));
    try {
        Layout layout(page, title);
        Reader(source, layout).Run();
        layout.Finish();
        return page;
    } catch (const std::bad_alloc &) {
        return HtmlFreePage(page);
    }
}
