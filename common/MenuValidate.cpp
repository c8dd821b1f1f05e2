// Entry validation: what a value item accepts before its value changes.
//
// A format is one class letter between slashes, optionally followed by a
// range in parentheses and by further admitted characters:
//
//   /C(min,max)+x+y+/
//
//   A   letters and digits   (min,max) bounds the length
//   L   letters              (min,max) bounds the length
//   D   digits               (min,max) bounds the length
//   S   printable text       (min,max) bounds the length
//   P   a full path          (min,max) bounds the length
//   I   a whole number       (min,max) bounds the value
//   F   a decimal number     (min,max) bounds the value
//
//   (min,)  no bound above but the class's own
//   +x+y+   one further character between each pair of "+" (A, L and D only);
//           any character may stand there, "+" and "/" included.
//
// Examples: "/A(1,255)+-+_+/" a settings file name; "/I(0,65535)/" a port;
// "/F(0.5,10.0)/" a scale; "/P/" an installation directory; "/S(0,40)/" a
// comment that may stay empty.
//
// Without a range a text class wants at least one character, I any value of
// an int and F any value of a float: the engine stores entries with atoi and
// as single precision, and both are undefined beyond those ranges, so a range
// reaching past them is a broken format too. Letters and digits are ASCII.
// Numbers are written plainly: an optional sign, digits, for F at most one
// decimal point; blanks around them are allowed, as a typed line keeps them.
// A path starts with "/", has no empty part (no "//", no "/" at the end but
// the root itself), no control characters, at most PATH_MAX - 1 characters
// and NAME_MAX in each part.
//
// A rejected text gets one line on standard output saying why; a broken
// format gets a message of its own, so that a developer sees the fault is not
// the user's.
#include <algorithm>
#include <cfloat>
#include <charconv>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string_view>

#include "TextMenu.h"
#include "TextMenuString.h"
#include "utils.h"

namespace {

enum class Kind { Alnum, Letters, Digits, Text, Path, Integer, Decimal };

// Ids of the engine's strings (group 25) that explain a rejection.
enum : int {
    kBadFormat = 600,
    kLengthRange = 601,
    kLengthAtLeast = 602,
    kOnlyLetters = 603,
    kOnlyDigits = 604,
    kOnlyAlnum = 605,
    kOnlyPrintable = 606,
    kAndThese = 607,
    kIntegerRange = 608,
    kDecimalRange = 609,
    kPathAbsolute = 610,
    kPathEmptyPart = 611,
    kPathTooLong = 612,
    kPathControl = 613,
    kNotEmpty = 614,
};

struct Format {
    Kind kind = Kind::Text;
    long minLength = 1;
    long maxLength = LONG_MAX;
    long minInt = INT_MIN;
    long maxInt = INT_MAX;
    double minReal = -FLT_MAX;
    double maxReal = FLT_MAX;
    std::string_view extras;  // "+x+y+": the characters at odd positions
};

bool IsLetter(unsigned char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool IsDigit(unsigned char c) {
    return c >= '0' && c <= '9';
}

bool IsControl(unsigned char c) {
    return c < 0x20 || c == 0x7f;
}

std::string_view TrimBlanks(std::string_view s) {
    while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
    while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
    return s;
}

bool AllDigits(std::string_view s) {
    for (char c : s)
        if (!IsDigit(c)) return false;
    return true;
}

/// The number without a "+" sign, which from_chars does not take; empty
/// when a second sign follows.
std::string_view DropPlus(std::string_view s) {
    if (s.empty() || s.front() != '+') return s;
    s.remove_prefix(1);
    return !s.empty() && s.front() == '-' ? std::string_view() : s;
}

/// An optional sign and at least one digit, nothing else.
bool ParseInteger(std::string_view s, long &out) {
    s = DropPlus(s);
    std::string_view digits = s.substr(!s.empty() && s.front() == '-');
    if (digits.empty() || !AllDigits(digits)) return false;
    auto [end, error] = std::from_chars(s.data(), s.data() + s.size(), out);
    return error == std::errc() && end == s.data() + s.size();
}

/// An optional sign, digits with at most one point, at least one digit; no
/// exponent, no "inf" or "nan", so that only plainly written numbers pass.
bool ParseDecimal(std::string_view s, double &out) {
    s = DropPlus(s);
    std::string_view body = s.substr(!s.empty() && s.front() == '-');
    size_t point = body.find('.');
    std::string_view whole = body.substr(0, point);
    std::string_view fraction =
        point == std::string_view::npos ? std::string_view() : body.substr(point + 1);
    if (whole.size() + fraction.size() == 0 || !AllDigits(whole) || !AllDigits(fraction))
        return false;
    auto [end, error] =
        std::from_chars(s.data(), s.data() + s.size(), out, std::chars_format::fixed);
    return error == std::errc() && end == s.data() + s.size();
}

/// Splits "(a,b)" into its two numbers' texts.
bool SplitRange(std::string_view range, std::string_view &low, std::string_view &high) {
    size_t comma = range.find(',');
    if (comma == std::string_view::npos) return false;
    low = range.substr(0, comma);
    high = range.substr(comma + 1);
    return true;
}

/// "min,max", or "min," for no bound above but the class's own.
bool ParseRange(std::string_view range, Format &f) {
    std::string_view low, high;
    if (!SplitRange(range, low, high)) return false;
    switch (f.kind) {
        case Kind::Integer:
            return ParseInteger(low, f.minInt) && (high.empty() || ParseInteger(high, f.maxInt)) &&
                   f.minInt >= INT_MIN && f.maxInt <= INT_MAX && f.minInt <= f.maxInt;
        case Kind::Decimal:
            return ParseDecimal(low, f.minReal) &&
                   (high.empty() || ParseDecimal(high, f.maxReal)) && f.minReal >= -FLT_MAX &&
                   f.maxReal <= FLT_MAX && f.minReal <= f.maxReal;
        default:
            return ParseInteger(low, f.minLength) &&
                   (high.empty() || ParseInteger(high, f.maxLength)) && f.minLength >= 0 &&
                   f.minLength <= f.maxLength;
    }
}

/// "+x+" pairs sharing their "+": odd length, "+" at every even position.
bool ValidExtras(std::string_view extras) {
    if (extras.size() < 3 || extras.size() % 2 == 0) return false;
    for (size_t i = 0; i < extras.size(); i += 2)
        if (extras[i] != '+') return false;
    return true;
}

bool ParseKind(char letter, Kind &kind) {
    static constexpr struct {
        char letter;
        Kind kind;
    } kKinds[] = {{'A', Kind::Alnum}, {'L', Kind::Letters}, {'D', Kind::Digits}, {'S', Kind::Text},
                  {'P', Kind::Path},  {'I', Kind::Integer}, {'F', Kind::Decimal}};
    for (const auto &k : kKinds) {
        if (k.letter != letter) continue;
        kind = k.kind;
        return true;
    }
    return false;
}

bool ParseFormat(std::string_view text, Format &f) {
    if (text.size() < 3 || text.front() != '/' || text.back() != '/') return false;
    std::string_view inner = text.substr(1, text.size() - 2);
    if (!ParseKind(inner.front(), f.kind)) return false;
    inner.remove_prefix(1);
    if (!inner.empty() && inner.front() == '(') {
        size_t close = inner.find(')');
        if (close == std::string_view::npos || !ParseRange(inner.substr(1, close - 1), f))
            return false;
        inner.remove_prefix(close + 1);
    }
    if (inner.empty()) return true;
    bool widenable = f.kind == Kind::Alnum || f.kind == Kind::Letters || f.kind == Kind::Digits;
    f.extras = inner;
    return widenable && ValidExtras(inner);
}

/// Prints string `id` with the arguments, without ending the line.
void Say(int id, ...) {
    MemPtr<char> text(TextMenuString(id));
    if (!text) return;
    va_list args;
    va_start(args, id);
    std::vprintf(text.get(), args);
    va_end(args);
}

int EndLine() {
    std::putchar('\n');
    std::fflush(stdout);
    return 1;
}

bool IsExtra(const Format &f, unsigned char c) {
    for (size_t i = 1; i < f.extras.size(); i += 2)
        if (static_cast<unsigned char>(f.extras[i]) == c) return true;
    return false;
}

bool InClass(Kind kind, unsigned char c) {
    switch (kind) {
        case Kind::Alnum:
            return IsLetter(c) || IsDigit(c);
        case Kind::Letters:
            return IsLetter(c);
        case Kind::Digits:
            return IsDigit(c);
        default:
            return !IsControl(c);
    }
}

int RejectLength(const Format &f) {
    if (f.maxLength == LONG_MAX && f.minLength == 1)
        Say(kNotEmpty);
    else if (f.maxLength == LONG_MAX)
        Say(kLengthAtLeast, f.minLength);
    else
        Say(kLengthRange, f.minLength, f.maxLength);
    return EndLine();
}

bool LengthFits(const Format &f, std::string_view text) {
    long length = static_cast<long>(text.size());
    return length >= f.minLength && length <= f.maxLength;
}

int RejectCharacters(const Format &f) {
    int id = f.kind == Kind::Alnum     ? kOnlyAlnum
             : f.kind == Kind::Letters ? kOnlyLetters
             : f.kind == Kind::Digits  ? kOnlyDigits
                                       : kOnlyPrintable;
    Say(id);
    if (!f.extras.empty()) {
        // Control characters are left out and a long list is cut, so that
        // the message stays one readable line.
        char list[128] = {};
        size_t n = 0;
        for (size_t i = 1; i < f.extras.size() && n + 2 < sizeof list; i += 2) {
            if (IsControl(static_cast<unsigned char>(f.extras[i]))) continue;
            if (n) list[n++] = ' ';
            list[n++] = f.extras[i];
        }
        Say(kAndThese, list);
    }
    return EndLine();
}

int CheckText(const Format &f, std::string_view text) {
    if (!LengthFits(f, text)) return RejectLength(f);
    for (unsigned char c : text)
        if (!InClass(f.kind, c) && !IsExtra(f, c)) return RejectCharacters(f);
    return 0;
}

int CheckInteger(const Format &f, std::string_view text) {
    long value = 0;
    if (ParseInteger(TrimBlanks(text), value) && value >= f.minInt && value <= f.maxInt) return 0;
    Say(kIntegerRange, f.minInt, f.maxInt);
    return EndLine();
}

int CheckDecimal(const Format &f, std::string_view text) {
    double value = 0;
    if (ParseDecimal(TrimBlanks(text), value) && value >= f.minReal && value <= f.maxReal) return 0;
    Say(kDecimalRange, f.minReal, f.maxReal);
    return EndLine();
}

/// Whether a part between slashes is empty; `longest` gets the longest part.
bool HasEmptyPart(std::string_view path, size_t &longest) {
    longest = 0;
    if (path == "/") return false;
    for (size_t start = 1;;) {
        size_t slash = path.find('/', start);
        size_t end = slash == std::string_view::npos ? path.size() : slash;
        if (end == start) return true;
        longest = std::max(longest, end - start);
        if (slash == std::string_view::npos) return false;
        start = slash + 1;
    }
}

int CheckPath(const Format &f, std::string_view path) {
    size_t longest = 0;
    int id = 0;
    if (path.empty() || path.front() != '/')
        id = kPathAbsolute;
    else if (std::any_of(path.begin(), path.end(), [](unsigned char c) { return IsControl(c); }))
        id = kPathControl;
    else if (HasEmptyPart(path, longest))
        id = kPathEmptyPart;
    else if (path.size() > PATH_MAX - 1 || longest > NAME_MAX)
        id = kPathTooLong;
    if (!id) return LengthFits(f, path) ? 0 : RejectLength(f);
    Say(id, PATH_MAX - 1, NAME_MAX);
    return EndLine();
}

}  // namespace

int ValidateEntry(const char *text, const char *format) {
    if (!format || !*format) return 0;
    Format f;
    if (!ParseFormat(format, f)) {
        Say(kBadFormat, format);
        return EndLine();
    }
    std::string_view entry = text ? text : "";
    switch (f.kind) {
        case Kind::Integer:
            return CheckInteger(f, entry);
        case Kind::Decimal:
            return CheckDecimal(f, entry);
        case Kind::Path:
            return CheckPath(f, entry);
        default:
            return CheckText(f, entry);
    }
}
