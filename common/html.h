// HTML help laid out as fixed-width text for an 80-column line terminal: the
// page model and the characters of its text (html.cpp), and the reader that
// fills a page (htmlCore.cpp).
//
// Layout rules, which the help viewer and the help files rely on:
//  - Title: the text of <title>, else the caller's title, else empty; kept in
//    the page apart from its lines (the viewer shows it above every screen).
//  - Text is wrapped at HTML_WIDTH columns between words; blanks, tabs and line
//    ends collapse to one blank, and a line never starts or ends with one. A
//    word wider than the room on an empty line is cut across lines. One code
//    point is one column; a byte that is not valid UTF-8, and every control
//    character, shows as "?": nothing reaches the terminal that could move its
//    cursor.
//  - Blocks: <p>, <pre>, <blockquote>, <dl>, headings and the outermost list
//    stand apart by one blank line; <div>, <dt>, <dd>, <li>, <tr>, nested lists
//    and <br> start a new line. Blank lines never pile up (<br><br> gives one).
//  - Headings: <h1> is underlined with "=", <h2> with "-", <h3> to <h6> are
//    plain lines.
//  - Lists: each level indents 2 columns from the text that holds it; an item
//    starts with "* " (<ul>) or "N. " (<ol>, counting from 1) and its further
//    lines line up with its text. <blockquote> and <dd> indent 4 columns.
//    Indentation stops growing at HTML_MAX_INDENT columns.
//  - <pre>: every line as written (tabs to 8-column stops; the line end just
//    after <pre> dropped), at the current indentation; a line wider than the
//    width is cut across lines; trailing blanks go.
//  - <hr>: a line of "-". Table cells are separated by a blank.
//  - Inline markup (<b>, <i>, <em>, <strong>, <code>, unknown tags, ...) is
//    dropped and its text kept. Comments, declarations (<!DOCTYPE>), and the
//    content of <script>, <style> and <head> (but its <title>) are dropped.
//  - Entities: the named ones of HTML's Latin-1 set and &apos; &euro; &trade;
//    &hellip; &mdash; &ndash; &bull; the quotation marks, and &#NN; &#xHH;, as
//    UTF-8. &nbsp; joins words with a blank that never breaks; &shy; is dropped.
//    An unknown or malformed entity, or one naming a control character, shows
//    as written.
//  - Links: <a href="T">text</a> shows as "text[n]", n counting from 1 in
//    document order; after the text comes a blank line and a list of the
//    references, one "[n] T" each (cut across lines when wide). Up to
//    HTML_MAX_LINKS links are numbered; later ones are plain text.
//  - Anchors: <a name="x"> and id="x" on any element mark the line that holds
//    the next text, so that a link "#x" can show that line.
//  - Malformed input shows as text and never ends the program: a "<" that
//    starts no complete tag (no ">" before the end, an unterminated quote,
//    another "<" outside quotes, more than HTML_TAG_MAX bytes) is a "<" of
//    the text, and so is the "<!--" of a comment that never ends; a <title>,
//    <script>, <style> or <head> that never ends is ignored and what follows
//    it read as usual. End tags close what they match and are otherwise
//    ignored; a missing end tag leaves its element open to the end. Nesting
//    deeper than HTML_MAX_DEPTH indenting blocks stops indenting further.
#pragma once

constexpr int HTML_WIDTH = 80;
constexpr long HTML_TEXT_MAX = 16L << 20;  ///< bytes read of one text; no help is longer
constexpr int HTML_MAX_INDENT = 40;        ///< so that text always keeps half the line
constexpr int HTML_MAX_DEPTH = 32;         ///< indenting blocks open at once
constexpr int HTML_MAX_LINKS = 999;        ///< numbers of at most three digits
constexpr int HTML_TAG_MAX = 8192;         ///< bytes of one tag, attributes included
constexpr int HTML_ATTR_MAX = 2048;        ///< bytes kept of an attribute's value
constexpr int HTML_TITLE_MAX = 256;        ///< bytes kept of the title
constexpr int HTML_LINK_TEXT_MAX = 64;     ///< bytes kept of a link's text

struct HtmlLink {
    char *target;  ///< the href, entities decoded
    char *text;    ///< its text, blanks collapsed, at most HTML_LINK_TEXT_MAX bytes
    int line;      ///< the line holding its "[n]" mark
    int listLine;  ///< the line holding "[n] target" in the reference list
};

struct HtmlAnchor {
    char *name;
    int line;
};

/// A laid-out page. The counts are what the arrays hold; the rooms are the
/// builders' business.
struct HtmlPage {
    char *title;   ///< never null
    char **lines;  ///< without line ends, none wider than HTML_WIDTH columns
    int lineCount, lineRoom;
    HtmlLink *links;  ///< links[n - 1] is reference n
    int linkCount, linkRoom;
    HtmlAnchor *anchors;
    int anchorCount, anchorRoom;
};

// ---- Reading (htmlCore.cpp)

/// Lays out `length` bytes of `text` (a negative length: up to its NUL),
/// with `title` (may be null) for a page without <title>. A new page for
/// HtmlFreePage; null only when memory runs out.
HtmlPage *HtmlLayout(const char *text, long length, const char *title);

// ---- The page model (html.cpp)

/// An empty page with an empty title; null when memory runs out.
HtmlPage *HtmlNewPage();
/// Replaces the title by `length` bytes of `title`; 0 when memory runs out.
int HtmlSetTitle(HtmlPage *page, const char *title, int length);
/// Releases the page and all it holds; null is ignored. Returns null.
HtmlPage *HtmlFreePage(HtmlPage *page);
/// Appends a line of `length` bytes; 0 when memory runs out.
int HtmlAddLine(HtmlPage *page, const char *text, int length);
/// Appends a link (its line fields -1); its number, or 0 when the page holds
/// HTML_MAX_LINKS already or memory runs out.
int HtmlAddLink(HtmlPage *page, const char *target, int targetLength, const char *text,
                int textLength);
/// Records anchor `name` at `line`; 0 when memory runs out.
int HtmlAddAnchor(HtmlPage *page, const char *name, int length, int line);
/// The line of the first anchor called `name`, or -1.
int HtmlFindAnchor(const HtmlPage *page, const char *name);
/// Every line followed by "\n", in a new block (the caller's PutMem); null
/// when memory runs out.
char *HtmlPageText(const HtmlPage *page);

// ---- Characters (html.cpp)

/// The code point of the character reference at the start of `text`
/// ("&name;", "&#NN;", "&#xHH;"; `length` bytes), with its byte count in
/// *used; 0 for one that is shown as written: unknown, malformed, or naming
/// a control character other than a blank or line end.
unsigned HtmlEntity(const char *text, int length, int *used);
/// The code point at the start of `text` (`length` bytes) as a page shows
/// it, with its byte count in *used: a character reference when `references`
/// is set and one starts there, else a UTF-8 sequence. A byte that starts no
/// valid sequence, a control character other than a blank or line end, and
/// an empty text give "?".
unsigned HtmlChar(const char *text, int length, int references, int *used);
/// Writes code point `c` (at most U+10FFFF) as UTF-8 into `out`, which holds
/// 4 bytes; the byte count.
int HtmlPutChar(char *out, unsigned c);
/// Columns that `length` bytes of UTF-8 take: one per code point.
int HtmlColumns(const char *text, int length);
/// Bytes of the longest start of `text` (`length` bytes) that takes at most
/// `columns` columns without cutting a code point.
int HtmlFit(const char *text, int length, int columns);
