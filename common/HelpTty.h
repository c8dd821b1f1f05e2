// The help viewer.
#pragma once

/// Shows the help text `data`, or the page `name` of the help database, under
/// `title`, and returns when the user leaves it.
int TtyHtmlHelp(const char *name, const char *data, const char *title);
