// The help viewer: HTML help (html.h) paged on an 80 x 24 line terminal
// through the menu engine, with numbered links and a history.
#pragma once

/// Shows help until the user leaves it, then returns 0. The help is `data`
/// when given; else the page `name` of pPrtHelpDB (its "$$target.redirect"
/// markers followed); else the file `name`. `title` (may be null) stands for
/// a help text without <title>. A link leads to an "#anchor" of the same
/// text, another page of pPrtHelpDB, or a file named from beside the current
/// file. When there is no help to show, says so, waits for Return and
/// returns 1. End of input ends the program, as at every menu.
int TtyHtmlHelp(const char *name, const char *data, const char *title);
