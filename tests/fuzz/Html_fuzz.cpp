// HTML help: the input is a help page, laid out by HtmlLayout. What html.h
// promises of every page is checked: lines no wider than the terminal, valid
// UTF-8 without a control character (nothing may move the cursor), links and
// anchors on lines the page has, and the anchors found by name.
#include <cstdlib>
#include <cstring>

#include "FuzzSupport.h"
#include "MemMgr.h"
#include "html.h"

namespace {

// Length of the UTF-8 sequence at `p` (at most `n` bytes), or 0 when it is
// not a valid one or encodes a control character (C0, DEL, C1).
size_t Sequence(const unsigned char *p, size_t n) {
    unsigned char c = p[0];
    if (c < 0x20 || c == 0x7f) return 0;
    if (c < 0x80) return 1;
    size_t length = c >= 0xf0 ? 4 : c >= 0xe0 ? 3 : c >= 0xc2 ? 2 : 0;
    if (length == 0 || c > 0xf4 || length > n) return 0;
    uint32_t code = c & (0x7f >> length);
    for (size_t i = 1; i < length; ++i) {
        if ((p[i] & 0xc0) != 0x80) return 0;
        code = code << 6 | (p[i] & 0x3f);
    }
    bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
    bool surrogate = code >= 0xd800 && code <= 0xdfff;
    bool c1 = code >= 0x80 && code <= 0x9f;
    return overlong || surrogate || c1 || code > 0x10ffff ? 0 : length;
}

void CheckLine(const char *line) {
    if (!line) std::abort();
    size_t n = std::strlen(line);
    const auto *bytes = reinterpret_cast<const unsigned char *>(line);
    for (size_t i = 0; i < n;) {
        size_t length = Sequence(bytes + i, n - i);
        if (length == 0) std::abort();
        i += length;
    }
    if (HtmlColumns(line, static_cast<int>(n)) > HTML_WIDTH) std::abort();
}

void CheckPage(const HtmlPage *page) {
    if (!page->title) std::abort();
    for (int i = 0; i < page->lineCount; ++i) CheckLine(page->lines[i]);
    if (page->linkCount > HTML_MAX_LINKS) std::abort();
    for (int i = 0; i < page->linkCount; ++i) {
        const HtmlLink &link = page->links[i];
        if (!link.target || !link.text) std::abort();
        if (link.line >= page->lineCount || link.listLine >= page->lineCount) std::abort();
    }
    for (int i = 0; i < page->anchorCount; ++i) {
        const HtmlAnchor &anchor = page->anchors[i];
        if (!anchor.name || anchor.line < 0 || anchor.line > page->lineCount) std::abort();
        int found = HtmlFindAnchor(page, anchor.name);
        if (found < 0 || found > page->lineCount) std::abort();
    }
    MemPtr<char> text(HtmlPageText(page));
}

}  // namespace

void fuzz::OneInput(std::string_view bytes) {
    HtmlPage *page = HtmlLayout(bytes.data(), static_cast<long>(bytes.size()), "Help");
    if (page) CheckPage(page);
    HtmlFreePage(page);
}
