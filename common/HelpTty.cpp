// The help viewer, line-mode for now: the help text with its markup left out,
// then a wait for Return. The paged viewer with links and history replaces it.
#include "HelpTty.h"

#include <cstdio>

#include "NlsUtils.h"
#include "TextMenu.h"
#include "utils.h"

int TtyHtmlHelp(const char *name, const char *data, const char *title) {
    MemPtr<char> page;
    if (!data && name && pPrtHelpDB) page.reset(NlsFetchString(pPrtHelpDB, nullptr, 1, name));
    const char *text = data ? data : page ? page.get() : "";
    if (title) std::printf("\n%s\n\n", title);
    bool inTag = false;
    for (const char *p = text; *p; ++p) {
        if (*p == '<') inTag = true;
        if (!inTag) std::putchar(*p);
        if (*p == '>') inTag = false;
    }
    PostMsg("\n");
    return 0;
}
