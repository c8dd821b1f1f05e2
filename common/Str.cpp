// Paths, strings and environment.
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <climits>
#include <cstring>
#include <string_view>

#include "LineFile.h"
#include "MemMgr.h"
#include "Msg.h"
#include "Str.h"
#include "SysCmd.h"
#include "Token.h"

char *pToolPath = nullptr;

namespace {

constexpr long SAVESTR_PAGE = 4096;
constexpr long SAVESTR_WORK_SIZE = 0x10000;
constexpr int CWD_SIZE = 512;
constexpr int HOSTNAME_SIZE = 256;
constexpr int USERNAME_SIZE = 256;

// One buffer per splitter, so that a caller may hold the results of two
// different splitters at once (FindFile(StripFn(p), StripPath(p))).
char StripFnBuf[STRIP_BUF_SIZE];
char StripPathBuf[STRIP_BUF_SIZE];
char StripExtBuf[STRIP_BUF_SIZE];
char StripPathExtBuf[STRIP_BUF_SIZE];
char StripPathNameBuf[STRIP_BUF_SIZE];

char *AllocOrDie(long size) {
    char *p = static_cast<char *>(GetMem(size));
    if (!p) SysError("Unable to allocate memory");
    return p;
}

/// Copies `text` into `buffer`, cut at the buffer's size.
char *Keep(char *buffer, std::string_view text) {
    size_t n = std::min(text.size(), static_cast<size_t>(STRIP_BUF_SIZE - 1));
    std::memcpy(buffer, text.data(), n);
    buffer[n] = '\0';
    return buffer;
}

char *Copy(std::string_view text) {
    char *p = AllocOrDie(static_cast<long>(text.size()) + 1);
    std::memcpy(p, text.data(), text.size());
    p[text.size()] = '\0';
    return p;
}

/// The path with trailing slashes removed, a lone "/" kept.
std::string_view TrimTrailingSlashes(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    return path;
}

bool StartsWith(std::string_view text, std::string_view prefix) {
    return text.substr(0, prefix.size()) == prefix;
}

}  // namespace

// ---- Allocated strings

char *SaveStr(const char *format, ...) {
    if (!format) return nullptr;
    // The scratch size follows the format's length only: callers keep the
    // result within 4 KiB beyond it, and a longer one is cut at the scratch.
    long size = (static_cast<long>(std::strlen(format)) / SAVESTR_PAGE + 2) * SAVESTR_PAGE;
    MemPtr<char> scratch(AllocOrDie(size));
    va_list args;
    va_start(args, format);
    std::vsnprintf(scratch.get(), static_cast<size_t>(size), format, args);
    va_end(args);
    return Copy(scratch.get());
}

char *SaveStr_(const char *string) {
    if (!string) return nullptr;
    return Copy(string);
}

char *SaveStr__(const char *format, ...) {
    if (!format) return nullptr;
    MemPtr<char> scratch(AllocOrDie(SAVESTR_WORK_SIZE));
    va_list args;
    va_start(args, format);
    std::vsnprintf(scratch.get(), SAVESTR_WORK_SIZE, format, args);
    va_end(args);
    return Copy(scratch.get());
}

// ---- Path splitting

char *StripFn(const char *path) {
    if (!path) return Keep(StripFnBuf, ".");
    std::string_view p(path);
    size_t slash = p.rfind('/');
    if (slash == std::string_view::npos) return Keep(StripFnBuf, ".");
    if (slash == 0) return Keep(StripFnBuf, "/");
    return Keep(StripFnBuf, p.substr(0, slash));
}

char *StripPath(const char *path) {
    if (!path) return Keep(StripPathBuf, "");
    std::string_view p = TrimTrailingSlashes(path);
    if (p == "/") return Keep(StripPathBuf, p);
    size_t slash = p.rfind('/');
    return Keep(StripPathBuf, slash == std::string_view::npos ? p : p.substr(slash + 1));
}

char *StripExt(const char *name) {
    if (!name) return Keep(StripExtBuf, "");
    // The first token of a split at ".": leading dots are skipped, so
    // ".profile" names "profile".
    std::string_view n(name);
    size_t start = n.find_first_not_of('.');
    if (start == std::string_view::npos) return Keep(StripExtBuf, "");
    n.remove_prefix(start);
    return Keep(StripExtBuf, n.substr(0, n.find('.')));
}

char *StripPathExt(const char *path) {
    if (!path) return Keep(StripPathExtBuf, "");
    std::string_view last(StripPath(path));
    return Keep(StripPathExtBuf, last.substr(0, last.find('.')));
}

char *StripPathName(const char *path) {
    if (!path) return Keep(StripPathNameBuf, "");
    const char *last = StripPath(path);
    if (FindToken(last, ";.;..;")) return Keep(StripPathNameBuf, "");
    // The extension is what follows the last "."; a leading dot belongs to
    // the name (".profile" has none).
    std::string_view name(last);
    size_t dot = name.rfind('.');
    if (dot != std::string_view::npos && dot > 0) name = name.substr(0, dot);
    return Keep(StripPathNameBuf, name);
}

char *SkipSpace(const char *string) {
    if (!string) return nullptr;
    while (*string && std::isspace(static_cast<unsigned char>(*string))) ++string;
    return const_cast<char *>(string);
}

char *StripAllBackslashes(char *string) {
    if (!string) return nullptr;
    char *out = string;
    for (const char *in = string; *in; ++in) {
        if (*in == '\\' && !*++in) break;
        *out++ = *in;
    }
    *out = '\0';
    return string;
}

// ---- Searching

int StrLen(const char *string) {
    return string ? static_cast<int>(std::strlen(string)) : 0;
}

char *StrChr(const char *string, int c) {
    if (!string) return nullptr;
    for (const char *p = string; *p; ++p) {
        if (*p == '\\') {
            if (!*++p) break;
            continue;
        }
        if (*p == static_cast<char>(c)) return const_cast<char *>(p);
    }
    return nullptr;
}

char *StrNChr(const char *string, int c, int n) {
    if (!string || n < 1) return nullptr;
    for (const char *p = string; *p; ++p)
        if (*p == static_cast<char>(c) && --n == 0) return const_cast<char *>(p);
    return nullptr;
}

char *StrStr(const char *haystack, const char *needle) {
    if (!haystack || !needle || !*haystack) return nullptr;
    return const_cast<char *>(std::strstr(haystack, needle));
}

char *StrCaseStr(const char *haystack, const char *needle) {
    if (!haystack || !needle || !*haystack) return nullptr;
    auto upper = [](char ch) { return std::toupper(static_cast<unsigned char>(ch)); };
    size_t length = std::strlen(needle);
    for (const char *p = haystack; *p; ++p) {
        size_t i = 0;
        while (i < length && p[i] && upper(p[i]) == upper(needle[i])) ++i;
        if (i == length) return const_cast<char *>(p);
    }
    return nullptr;
}

char *StrNStr(const char *haystack, const char *needle, int n) {
    if (n < 1) return nullptr;
    // Every pass searches from the start again, so the n-th occurrence is
    // never reached; only the "nothing left after it" test of a further pass
    // remains. Callers rely on this result as it is.
    char *found = StrStr(haystack, needle);
    if (!found) return nullptr;
    if (n >= 2 && found[1] == '\0') return nullptr;
    return found;
}

char *FindExistingPath(const char *path, int *exactFlag) {
    if (!path) return nullptr;
    char current[STRIP_BUF_SIZE];
    Keep(current, path);
    // "/" and "." are their own parent; stop there rather than loop.
    while (!FindPath(current) && std::strcmp(StripFn(current), current) != 0)
        Keep(current, StripFn(current));
    if (exactFlag && std::strcmp(current, path) == 0) *exactFlag = 1;
    return Copy(current);
}

// ---- Environment and identity

char *GetEnv(const char *name) {
    const char *value = name ? std::getenv(name) : nullptr;
    if (!value) return nullptr;
    // The value once went through the formatter with no arguments; only its
    // "%%" has a defined meaning there, so that is all that is interpreted.
    std::string_view v(value);
    MemPtr<char> copy(Copy(v));
    char *out = copy.get();
    for (size_t i = 0; i < v.size(); ++i) {
        *out++ = v[i];
        if (v[i] == '%' && i + 1 < v.size() && v[i + 1] == '%') ++i;
    }
    *out = '\0';
    return copy.release();
}

char *GetHostname() {
    char name[HOSTNAME_SIZE] = {};
    if (gethostname(name, sizeof name - 1) != 0) return nullptr;
    name[std::strcspn(name, "\n\r")] = '\0';
    return Copy(name);
}

char *GetUserName() {
    MemPtr<char> command(GetCmdNoFlags(CMD_WHOAMI));
    if (!command) return nullptr;
    FILE *pipe = OpenShellPipe(command.get());
    if (!pipe) return nullptr;
    char line[USERNAME_SIZE] = {};
    if (!std::fgets(line, sizeof line, pipe)) line[0] = '\0';
    CloseShellPipe(pipe);
    line[std::strcspn(line, "\n\r")] = '\0';
    return Copy(line);
}

char *GetToolPath(const char *path) {
    if (!path) return nullptr;
    if (path[0] == '/') return Copy(StripFn(path));
    char cwd[CWD_SIZE];
    // A working directory beyond the buffer leaves only the relative part.
    if (!getcwd(cwd, sizeof cwd)) return Copy(StripFn(path));
    char directoryBuf[STRIP_BUF_SIZE];
    std::string_view directory(Keep(directoryBuf, StripFn(path)));
    // "./sub/x" also gives the working directory itself: the program is
    // started from its own directory, and nothing below it is looked at.
    if (directory == "." || StartsWith(directory, "./")) return Copy(cwd);
    if (StartsWith(directory, "../")) return SaveStr("%s/%s", StripFn(cwd), directoryBuf + 3);
    MemPtr<char> joined(SaveStr("%s/%s", cwd, path));
    return Copy(StripFn(joined.get()));
}

void SetVarContent(void *destination, const void *source, int count, int reverse) {
    if (!destination || !source || count <= 0) return;
    auto *to = static_cast<unsigned char *>(destination);
    const auto *from = static_cast<const unsigned char *>(source);
    if ((reverse & 0xFF) == 0) {
        std::memmove(to, from, static_cast<size_t>(count));
        return;
    }
    for (int i = 0; i < count; ++i) to[i] = from[count - 1 - i];
}

// ---- Print system detection

int SniffCUPS() {
    return TestCmd(CMD_CUPSD) ? 1 : 0;
}

int SniffLprng() {
    if (!TestCmd(CMD_LPD)) return 0;
    ResponseLine *list = GetCmdResponse(CMD_LPD, "LPRng", " -V 2>&1");
    int found = 0;
    for (ResponseLine *line = list; line && !found; line = line->next)
        found = std::strstr(line->text, "LPRng") != nullptr;
    FreeResponseList(list);
    return found;
}

// ---- Numbers

double MaxD(double a, double b) {
    return a > b ? a : b;
}

double CvtFloatFormat(double value, int fromUnit, int toUnit) {
    enum : int { INCH = 0, CM = 1, POINT = 2 };
    constexpr double CM_PER_INCH = 2.54;
    constexpr double POINTS_PER_INCH = 72;
    if (fromUnit == INCH && toUnit == CM) return value * CM_PER_INCH;
    if (fromUnit == CM && toUnit == INCH) return value / CM_PER_INCH;
    if (fromUnit == INCH && toUnit == POINT) return value * POINTS_PER_INCH;
    if (fromUnit == POINT && toUnit == INCH) return value / POINTS_PER_INCH;
    if (fromUnit == POINT && toUnit == CM) return value / POINTS_PER_INCH * CM_PER_INCH;
    if (fromUnit == CM && toUnit == POINT) return value / CM_PER_INCH * POINTS_PER_INCH;
    return value;
}

int PathFits(const char *path, int room) {
    std::string_view rest(path ? path : "");
    if (rest.size() + static_cast<size_t>(room > 0 ? room : 0) > PATH_MAX - 1) return 1;
    while (!rest.empty()) {
        size_t slash = rest.find('/');
        if (rest.substr(0, slash).size() > NAME_MAX) return 2;
        rest.remove_prefix(slash == std::string_view::npos ? rest.size() : slash + 1);
    }
    return 0;
}

int ClampedInt(const char *text) {
    // strtol saturates at the range of long, which the clamp then takes in.
    long value = std::strtol(text ? text : "", nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}
