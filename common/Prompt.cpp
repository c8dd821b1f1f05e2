// Line-mode prompts.
#include <cstdarg>
#include <cstdio>

#include "TextMenu.h"
#include "utils.h"

char flExitTextMenu = 0;

int PromptYN(const char *question, ...) {
    // The question becomes part of the format, so its conversions are filled
    // from our own arguments: "\nDo you want to return to %s menu".
    char format[LINEBUF_SIZE] = {};
    std::snprintf(format, sizeof format, "%s? [y/n] ", question ? question : "");
    for (;;) {
        va_list args;
        va_start(args, question);
        std::vprintf(format, args);
        va_end(args);
        std::fflush(stdout);
        Gets(LineBuf, LINEBUF_SIZE);
        // Exact and case-sensitive by design: "Y" asks again.
        if (LineBuf[0] == 'y') return 1;
        if (LineBuf[0] == 'n') return 0;
    }
}
