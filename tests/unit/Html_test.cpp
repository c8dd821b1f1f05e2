// HTML help laid out for an 80-column terminal: a page byte for byte,
// entities, malformed input shown as text, and the viewer's way from a
// database page through a redirect to a file and back.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "Dbm.h"
#include "HelpTty.h"
#include "MemMgr.h"
#include "NlsUtils.h"
#include "SysCmd.h"
#include "TestFiles.h"
#include "html.h"
#include "utils.h"

namespace {

namespace fs = std::filesystem;

struct Laid {
    std::string title, text;
    HtmlPage *page;
    explicit Laid(const std::string &html, const char *title = nullptr)
        : page(HtmlLayout(html.data(), static_cast<long>(html.size()), title)) {
        MemPtr<char> all(HtmlPageText(page));
        this->title = page->title;
        text = all.get();
    }
    ~Laid() { HtmlFreePage(page); }
};

int Widest(const std::string &text) {
    int widest = 0;
    for (size_t at = 0, end; at < text.size(); at = end + 1) {
        end = text.find('\n', at);
        widest = std::max(widest, HtmlColumns(text.data() + at, static_cast<int>(end - at)));
    }
    return widest;
}

TEST(HtmlLayout, SamplePageIsLaidOutByteForByte) {
    Laid laid(R"(<html><head><title>Sample &amp; Test</title><style>h1 { color: red }</style></head>
<body>
<!-- not shown -->
<h1 id="top">First heading</h1>
<p>A paragraph long enough to be wrapped: it goes on and on, well past the
eighty columns of the terminal, so <b>that</b> the <i>second</i> line starts
after the last word that fits.<br>After a break.</p>
<h2>Lists</h2>
<ol><li>one<li>two
<ul><li>nested, and long enough to wrap under its own text rather than under the marker</ul>
<li>three</ol>
<h3>Code</h3>
<pre>
if (a &lt; b)
	x  =  1;
</pre>
<p>See <a href="#top">the top</a>, <a href="other.html#part">another page</a> and
<a name="end">the end</a>.</p>
</body></html>)",
              "unused");
    EXPECT_EQ(laid.title, "Sample & Test");
    EXPECT_EQ(laid.text, R"(First heading
=============

A paragraph long enough to be wrapped: it goes on and on, well past the eighty
columns of the terminal, so that the second line starts after the last word that
fits.
After a break.

Lists
-----

  1. one
  2. two
       * nested, and long enough to wrap under its own text rather than under
         the marker
  3. three

Code

if (a < b)
        x  =  1;

See the top[1], another page[2] and the end.

[1] #top
[2] other.html#part
)");
    HtmlPage *page = laid.page;
    ASSERT_EQ(page->linkCount, 2);
    EXPECT_STREQ(page->links[1].target, "other.html#part");
    EXPECT_STREQ(page->links[1].text, "another page");
    EXPECT_EQ(page->links[1].line, 22);
    EXPECT_EQ(page->links[1].listLine, 25);
    EXPECT_EQ(HtmlFindAnchor(page, "top"), 0);
    EXPECT_EQ(HtmlFindAnchor(page, "end"), 22);
    EXPECT_EQ(HtmlFindAnchor(page, "nowhere"), -1);
    EXPECT_EQ(Laid("<p>text</p>", "Caller's title").title, "Caller's title");
}

TEST(HtmlLayout, EntitiesAreDecodedAndWhatIsMalformedIsShownAsText) {
    const std::pair<const char *, const char *> cases[] = {
        {"&amp;&lt;&gt;&quot;&apos;", "&<>\"'\n"},
        {"caf&eacute; &Uuml;ber &szlig; &copy; &euro; &hellip;", "café Über ß © € …\n"},
        {"&#65;&#x42;&#X43; &#233; &#x1F600;", "ABC é 😀\n"},
        {"non&nbsp;breaking so&shy;ft", "non breaking soft\n"},
        {"a&#32;b&#10;c", "a b c\n"},
        {"&bogus; &amp &AMP; & ; &#; &#x; &#12a;", "&bogus; &amp &AMP; & ; &#; &#x; &#12a;\n"},
        {"&#0; &#27; &#x110000; &#xD800; &#128;", "&#0; &#27; &#x110000; &#xD800; &#128;\n"},
        {"&#0000000065;", "&#0000000065;\n"},  // too long to be read
        {"a < b and 1<2", "a < b and 1<2\n"},
        {"x <b y", "x <b y\n"},
        {"<a href=\"open>text", "<a href=\"open>text\n"},
        {"<p class='x>never closed", "<p class='x>never closed\n"},
        {"before <!-- no end", "before <!-- no end\n"},
        {"<title>no end <b>bold</b>", "no end bold\n"},
        {"<script>var x; <p>after", "var x;\n\nafter\n"},
        {"<p <b>quoted</b>", "<p quoted\n"},
        {"</p></ul></li>text</pre>", "text\n"},
        {"<ul><li>open item<p>para", "  * open item\n\n    para\n"},
        {"<a href=\"x\">never closed", "never closed[1]\n\n[1] x\n"},
        {"bad \xff\xc3( esc \x1b[2J \xc2\x9b end", "bad ?\?( esc ?[2J ? end\n"},
        {"<pre>\x1b]0;t\x07</pre>", "?]0;t?\n"},
        {"<head>junk</head>body", "body\n"},
        {"<head>never closed", "never closed\n"},
        {"<head> </head><meta x><title>T</title>body", "body\n"},
    };
    for (auto [html, text] : cases) EXPECT_EQ(Laid(html).text, text) << html;
    EXPECT_EQ(Laid(std::string("nul\0inside", 10)).text, "nul?inside\n");
}

TEST(HtmlLayout, DeepNestingStopsIndentingAndFits) {
    std::string html;
    for (int i = 0; i < 20000; ++i) html += i % 2 ? "<blockquote>" : "<ul><li>";
    html += "deep text that wraps " + std::string(200, 'w');
    for (int i = 0; i < 20000; ++i) html += i % 2 ? "</blockquote>" : "</ul>";
    html += "<p>after";
    Laid laid(html);
    EXPECT_EQ(Widest(laid.text), HTML_WIDTH);
    EXPECT_NE(laid.text.find(std::string(HTML_MAX_INDENT, ' ') + "* deep text"), std::string::npos);
    EXPECT_EQ(laid.text.substr(laid.text.size() - 8), "\n\nafter\n");
}

TEST(HtmlLayout, HugeWordsAndAttributesAreCutAcrossLines) {
    std::string word(200, 'w');
    EXPECT_EQ(Laid("<p>" + word).text, std::string(80, 'w') + "\n" + std::string(80, 'w') + "\n" +
                                           std::string(40, 'w') + "\n");
    std::string wide =
        std::string(79, 'a') + "\xc3\xa9\xc3\xa9";  // the cut falls between characters
    EXPECT_EQ(Laid(wide).text, std::string(79, 'a') + "\xc3\xa9\n\xc3\xa9\n");

    Laid link("<a href=\"" + std::string(5000, 't') + "\">" + std::string(100, 'x') + "</a>");
    EXPECT_EQ(std::string(link.page->links[0].target).size(), static_cast<size_t>(HTML_ATTR_MAX));
    EXPECT_EQ(std::string(link.page->links[0].text).size(),
              static_cast<size_t>(HTML_LINK_TEXT_MAX));
    EXPECT_EQ(Widest(link.text), HTML_WIDTH);
    EXPECT_NE(link.text.find("\n[1] " + std::string(76, 't') + "\n    " + std::string(76, 't')),
              std::string::npos);

    // A tag too long to be one is text.
    Laid huge("<a href=\"" + std::string(HTML_TAG_MAX, 'h') + "\">x</a>");
    EXPECT_EQ(huge.page->linkCount, 0);
    EXPECT_EQ(Widest(huge.text), HTML_WIDTH);
}

// The file is found beside nothing but the working directory.
TEST(HelpViewer, FollowsRedirectsLinksToFilesAndGoesBack) {
    testfiles::TempDir dir;
    std::string built = fs::path(SETUP_BINARY).parent_path().string();
    pToolPath = built.data();  // the shipped English strings
    unsetenv("LANG");
    InitSysCmdList();
    fs::path cwd = fs::current_path();
    fs::current_path(dir.path());
    testfiles::Write(dir / "sub" / "more.html",
                     "<title>More</title><p>first</p><p id=x>Anchored text</p>");
    DbT *db = DbTOpen((dir / "help.vdb").c_str(), 0);
    std::string start = "see $$intro.redirect elsewhere, a text longer than the one it leads to";
    std::string intro = "<title>Intro</title><p>Intro <a href='sub/more.html#x'>more</a>";
    DbmTPutRecord(db, "start", start.c_str(), static_cast<int>(start.size() + 1));
    DbmTPutRecord(db, "intro", intro.c_str(), static_cast<int>(intro.size()));  // without a NUL
    pPrtHelpDB = db;

    ASSERT_TRUE(testfiles::FeedStdin(dir / "input", "1\nb\ne\n"));
    testing::internal::CaptureStdout();
    int status = TtyHtmlHelp("start", nullptr, nullptr);
    std::string shown = testing::internal::GetCapturedStdout();
    EXPECT_EQ(status, 0);
    std::string intro1 =
        std::string(37, ' ') + "Intro" + std::string(38, ' ') + "\nIntro more[1]\n";
    std::string more = std::string(38, ' ') + "More" + std::string(38, ' ') + "\nAnchored text\n";
    size_t first = shown.find(intro1);
    size_t second = shown.find(more, first);
    EXPECT_NE(second, std::string::npos) << shown;
    EXPECT_NE(shown.find(intro1, second), std::string::npos) << shown;
    EXPECT_NE(shown.find(" 1) more"), std::string::npos) << shown;

    ASSERT_TRUE(testfiles::FeedStdin(dir / "input", "\n"));
    testing::internal::CaptureStdout();
    EXPECT_EQ(TtyHtmlHelp("missing.html", nullptr, nullptr), 1);
    EXPECT_NE(
        testing::internal::GetCapturedStdout().find("The help page missing.html cannot be found."),
        std::string::npos);

    pPrtHelpDB = nullptr;
    DbTClose(db);
    fs::current_path(cwd);
}

}  // namespace
