// Line-mode prompts.
#include <cstdarg>
#include <cstdio>

#include "NlsUtils.h"
#include "TextMenu.h"
#include "TextMenuString.h"
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
        GetsLine(LineBuf, LINEBUF_SIZE);
        // Exact and case-sensitive by design: "Y" asks again.
        if (LineBuf[0] == 'y') return 1;
        if (LineBuf[0] == 'n') return 0;
    }
}

void PostMsg(const char *format, ...) {
    if (format) {
        va_list args;
        va_start(args, format);
        std::vprintf(format, args);
        va_end(args);
    }
    Nlsfprintf(stdout, OpenCoreStrings(), NLS_MENU_GROUP, 1001);
    std::fflush(stdout);
    GetsLine(LineBuf, LINEBUF_SIZE);
}

char *PromptUser(const char *prompt, ...) {
    va_list args;
    va_start(args, prompt);
    va_list first;
    va_copy(first, args);
    char *buffer = va_arg(first, char *);
    va_end(first);
    // The prompt is a format whose first argument is the buffer itself:
    // prompts written for that keep working; others carry no conversions.
    if (prompt) std::vprintf(prompt, args);
    va_end(args);
    std::fflush(stdout);
    if (buffer) {
        GetsLine(buffer, LINEBUF_SIZE);
        if (std::feof(stdin)) buffer[0] = '\0';
        return buffer;
    }
    char line[1024];
    GetsLine(line, sizeof line);
    if (std::feof(stdin)) line[0] = '\0';
    return SaveStr("%s", line);
}
