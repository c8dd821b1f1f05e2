// The laid-out help page: its title, lines, links and anchors, in arrays that
// grow by doubling, each block from the memory manager; and the characters
// of its text: UTF-8 sequences and character references.
#include "html.h"

#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "MemMgr.h"

namespace {

constexpr size_t ENTITY_MAX = 10;  // "&#x10FFFF;" is the longest reference read
constexpr unsigned UNSHOWN = '?';

/// A copy of `length` bytes, NUL-ended (GetMem zeroes); null when memory runs out.
char *Copy(const char *text, int length) {
    auto *copy = static_cast<char *>(GetMem(length + 1L));
    if (copy && length > 0) std::memcpy(copy, text, static_cast<size_t>(length));
    return copy;
}

/// Makes room for one more element; false when memory runs out.
template <typename T>
bool Grow(T *&array, int count, int &room) {
    if (count < room) return true;
    if (room > INT_MAX / 2) return false;
    int bigger = room ? room * 2 : 16;
    void *moved = AdjustMem(array, static_cast<long>(bigger) * static_cast<long>(sizeof(T)));
    if (!moved) return false;
    array = static_cast<T *>(moved);
    room = bigger;
    return true;
}

bool IsContinuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

/// HTML's Latin-1 entities, U+00A0 to U+00FF in order.
constexpr const char *kLatin1[96] = {
    "nbsp",   "iexcl",  "cent",   "pound",  "curren", "yen",    "brvbar", "sect",   "uml",
    "copy",   "ordf",   "laquo",  "not",    "shy",    "reg",    "macr",   "deg",    "plusmn",
    "sup2",   "sup3",   "acute",  "micro",  "para",   "middot", "cedil",  "sup1",   "ordm",
    "raquo",  "frac14", "frac12", "frac34", "iquest", "Agrave", "Aacute", "Acirc",  "Atilde",
    "Auml",   "Aring",  "AElig",  "Ccedil", "Egrave", "Eacute", "Ecirc",  "Euml",   "Igrave",
    "Iacute", "Icirc",  "Iuml",   "ETH",    "Ntilde", "Ograve", "Oacute", "Ocirc",  "Otilde",
    "Ouml",   "times",  "Oslash", "Ugrave", "Uacute", "Ucirc",  "Uuml",   "Yacute", "THORN",
    "szlig",  "agrave", "aacute", "acirc",  "atilde", "auml",   "aring",  "aelig",  "ccedil",
    "egrave", "eacute", "ecirc",  "euml",   "igrave", "iacute", "icirc",  "iuml",   "eth",
    "ntilde", "ograve", "oacute", "ocirc",  "otilde", "ouml",   "divide", "oslash", "ugrave",
    "uacute", "ucirc",  "uuml",   "yacute", "thorn",  "yuml",
};

struct NamedEntity {
    const char *name;
    uint32_t code;
};

constexpr NamedEntity kNamed[] = {
    {"amp", '&'},       {"lt", '<'},        {"gt", '>'},       {"quot", '"'},
    {"apos", '\''},     {"OElig", 0x152},   {"oelig", 0x153},  {"Scaron", 0x160},
    {"scaron", 0x161},  {"Yuml", 0x178},    {"ndash", 0x2013}, {"mdash", 0x2014},
    {"lsquo", 0x2018},  {"rsquo", 0x2019},  {"sbquo", 0x201A}, {"ldquo", 0x201C},
    {"rdquo", 0x201D},  {"bdquo", 0x201E},  {"bull", 0x2022},  {"hellip", 0x2026},
    {"lsaquo", 0x2039}, {"rsaquo", 0x203A}, {"euro", 0x20AC},  {"trade", 0x2122},
};

uint32_t NamedCode(std::string_view name) {
    for (const NamedEntity &entity : kNamed)
        if (name == entity.name) return entity.code;
    for (uint32_t i = 0; i < 96; ++i)
        if (name == kLatin1[i]) return 0xA0 + i;
    return 0;
}

int DigitValue(char c, bool hex) {
    if (c >= '0' && c <= '9') return c - '0';
    if (hex && c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (hex && c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

/// Blanks and line ends may be written as references; other controls may not.
bool Unshowable(uint32_t c) {
    bool blank = c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
    return c == 0 || (c >= 0xD800 && c <= 0xDFFF) ||
           ((c < 0x20 || (c >= 0x7F && c < 0xA0)) && !blank);
}

}  // namespace

HtmlPage *HtmlNewPage() {
    auto *page = static_cast<HtmlPage *>(GetMem(sizeof(HtmlPage)));
    if (!page) return nullptr;
    page->title = Copy("", 0);
    return page->title ? page : HtmlFreePage(page);
}

int HtmlSetTitle(HtmlPage *page, const char *title, int length) {
    char *copy = Copy(title, length);
    if (!copy) return 0;
    PutMem(page->title);
    page->title = copy;
    return 1;
}

HtmlPage *HtmlFreePage(HtmlPage *page) {
    if (!page) return nullptr;
    for (int i = 0; i < page->lineCount; ++i) PutMem(page->lines[i]);
    for (int i = 0; i < page->linkCount; ++i) {
        PutMem(page->links[i].target);
        PutMem(page->links[i].text);
    }
    for (int i = 0; i < page->anchorCount; ++i) PutMem(page->anchors[i].name);
    PutMem(page->lines);
    PutMem(page->links);
    PutMem(page->anchors);
    PutMem(page->title);
    return static_cast<HtmlPage *>(PutMem(page));
}

int HtmlAddLine(HtmlPage *page, const char *text, int length) {
    if (!Grow(page->lines, page->lineCount, page->lineRoom)) return 0;
    char *line = Copy(text, length);
    if (!line) return 0;
    page->lines[page->lineCount++] = line;
    return 1;
}

int HtmlAddLink(HtmlPage *page, const char *target, int targetLength, const char *text,
                int textLength) {
    if (page->linkCount >= HTML_MAX_LINKS || !Grow(page->links, page->linkCount, page->linkRoom))
        return 0;
    HtmlLink link = {Copy(target, targetLength), Copy(text, textLength), -1, -1};
    if (!link.target || !link.text) {
        PutMem(link.target);
        PutMem(link.text);
        return 0;
    }
    page->links[page->linkCount] = link;
    return ++page->linkCount;
}

int HtmlAddAnchor(HtmlPage *page, const char *name, int length, int line) {
    if (!Grow(page->anchors, page->anchorCount, page->anchorRoom)) return 0;
    char *copy = Copy(name, length);
    if (!copy) return 0;
    page->anchors[page->anchorCount++] = {copy, line};
    return 1;
}

int HtmlFindAnchor(const HtmlPage *page, const char *name) {
    if (!page || !name) return -1;
    for (int i = 0; i < page->anchorCount; ++i)
        if (std::strcmp(page->anchors[i].name, name) == 0) return page->anchors[i].line;
    return -1;
}

char *HtmlPageText(const HtmlPage *page) {
    long size = 0;
    for (int i = 0; i < page->lineCount; ++i)
        size += static_cast<long>(std::strlen(page->lines[i])) + 1;
    auto *text = static_cast<char *>(GetMem(size + 1));
    if (!text) return nullptr;
    char *end = text;
    for (int i = 0; i < page->lineCount; ++i) {
        size_t length = std::strlen(page->lines[i]);
        std::memcpy(end, page->lines[i], length);
        end += length;
        *end++ = '\n';
    }
    return text;
}

int HtmlColumns(const char *text, int length) {
    int columns = 0;
    for (int i = 0; i < length; ++i) columns += !IsContinuation(text[i]);
    return columns;
}

int HtmlFit(const char *text, int length, int columns) {
    int i = 0;
    for (int taken = 0; i < length; ++i) {
        if (IsContinuation(text[i])) continue;
        if (taken++ == columns) break;
    }
    return i;
}

unsigned HtmlEntity(const char *text, int length, int *used) {
    std::string_view s(text, length > 0 ? static_cast<size_t>(length) : 0);
    size_t end = s.substr(0, ENTITY_MAX + 1).find(';');
    if (s.empty() || s[0] != '&' || end == std::string_view::npos || end < 2) return 0;
    std::string_view body = s.substr(1, end - 1);
    uint32_t code = 0;
    if (body[0] == '#') {
        bool hex = body.size() > 1 && (body[1] == 'x' || body[1] == 'X');
        std::string_view digits = body.substr(hex ? 2 : 1);
        if (digits.empty()) return 0;
        for (char c : digits) {
            int value = DigitValue(c, hex);
            if (value < 0) return 0;
            code = code * (hex ? 16 : 10) + static_cast<uint32_t>(value);
            if (code > 0x10FFFF) return 0;
        }
    } else {
        code = NamedCode(body);
    }
    if (Unshowable(code)) return 0;
    *used = static_cast<int>(end + 1);
    return code;
}

unsigned HtmlChar(const char *text, int length, int references, int *used) {
    *used = 1;
    if (length <= 0) return UNSHOWN;
    if (references && text[0] == '&') {
        if (unsigned code = HtmlEntity(text, length, used)) return code;
    }
    auto b = static_cast<unsigned char>(text[0]);
    int n = b < 0x80                 ? 1
            : b >= 0xC2 && b <= 0xDF ? 2
            : b >= 0xE0 && b <= 0xEF ? 3
            : b >= 0xF0 && b <= 0xF4 ? 4
                                     : 0;
    if (n == 0 || n > length) return UNSHOWN;
    uint32_t c = n == 1 ? b : b & (0x7F >> n);
    for (int i = 1; i < n; ++i) {
        auto next = static_cast<unsigned char>(text[i]);
        if ((next & 0xC0) != 0x80) return UNSHOWN;
        c = c << 6 | (next & 0x3F);
    }
    constexpr uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (c < least[n] || c > 0x10FFFF || (c >= 0xD800 && c <= 0xDFFF)) return UNSHOWN;
    *used = n;
    return Unshowable(c) ? UNSHOWN : c;
}

int HtmlPutChar(char *out, unsigned c) {
    if (c < 0x80) {
        out[0] = static_cast<char>(c);
        return 1;
    }
    int n = c < 0x800 ? 2 : c < 0x10000 ? 3 : 4;
    for (int i = n - 1; i > 0; --i, c >>= 6) out[i] = static_cast<char>(0x80 | (c & 0x3F));
    out[0] = static_cast<char>((0xF00 >> n) | c);
    return n;
}
