// Entry formats: the input's first line is the format, the rest the text
// typed, checked by ValidateEntry. Formats come from menu tables, texts from
// whoever sits at the terminal; both are taken as they come.
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "FuzzSupport.h"
#include "NlsUtils.h"
#include "TextMenu.h"
#include "utils.h"

namespace {

// An accepted entry is stored with atoi or as a float (TextMenu.cpp): the
// format has to keep both defined. The float conversion is checked by the
// undefined-behaviour sanitizer, atoi's range here.
void StoreAsTheEngineDoes(const std::string &format, const std::string &text) {
    if (format.size() < 2) return;
    if (format[1] == 'I') {
        errno = 0;
        long value = std::strtol(text.c_str(), nullptr, 10);
        if (errno == ERANGE || value < INT_MIN || value > INT_MAX) std::abort();
    } else if (format[1] == 'F') {
        volatile float value = static_cast<float>(std::atof(text.c_str()));
        (void)value;
    }
}

}  // namespace

void fuzz::SetUp() {
    // No databases there: the messages come from the built-in English strings.
    fuzz::Begin("tool");
    unsetenv("LANG");
}

void fuzz::OneInput(std::string_view rest) {
    // Both arrive as C strings: a NUL ends each there.
    std::string format(fuzz::Cut(rest, '\n'));
    std::string text(rest);
    format.resize(std::strlen(format.c_str()));
    text.resize(std::strlen(text.c_str()));
    if (ValidateEntry(text.c_str(), format.c_str()) == 0) StoreAsTheEngineDoes(format, text);
    ValidateEntry(nullptr, format.c_str());
}
