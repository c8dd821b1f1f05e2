// The text form of a record database: the reader that `vdb build` and the
// fuzz harness feed with whatever a package maker wrote, and the writer that
// `vdb dump` prints with, so that a dump builds the same database again.
#include "DbSource.h"

#include <climits>
#include <cstdarg>
#include <cstring>
#include <string_view>

#include "MemMgr.h"
#include "Str.h"

namespace {

bool IsBlank(char c) {
    return c == ' ' || c == '\t';
}

void SkipBlanks(std::string_view &s) {
    while (!s.empty() && IsBlank(s.front())) s.remove_prefix(1);
}

int HexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// Always false, so that every failing step of a line ends in one statement.
bool Fail(char *error, const char *format, ...) PRINTF_LIKE(2, 3);
bool Fail(char *error, const char *format, ...) {
    if (!error) return false;
    va_list args;
    va_start(args, format);
    std::vsnprintf(error, DBSOURCE_ERROR_SIZE, format, args);
    va_end(args);
    return false;
}

// The one-letter escapes, read and written alike.
constexpr struct {
    char letter, byte;
} kEscapes[] = {{'\\', '\\'}, {'"', '"'}, {'n', '\n'}, {'t', '\t'}, {'r', '\r'}};

// One byte of an escape whose backslash has been read; `s` moves past it.
bool ReadEscape(std::string_view &s, unsigned char &byte, char *error) {
    char c = s.front();
    s.remove_prefix(1);
    for (const auto &escape : kEscapes) {
        if (c != escape.letter) continue;
        byte = escape.byte;
        return true;
    }
    if (c == 'x') {
        int high = s.size() >= 2 ? HexValue(s[0]) : -1;
        int low = s.size() >= 2 ? HexValue(s[1]) : -1;
        if (high < 0 || low < 0)
            return Fail(error, "bad escape \\x: expected two hexadecimal digits");
        byte = static_cast<unsigned char>(high * 16 + low);
        s.remove_prefix(2);
        return true;
    }
    if (c > ' ' && c < 0x7f) return Fail(error, "bad escape \\%c", c);
    return Fail(error, "bad escape: byte 0x%02x after a backslash", static_cast<unsigned char>(c));
}

// Decodes the quoted string at the start of `s` into `out`; `s` moves past
// its closing quote. A string cannot be longer decoded than written, so `out`
// needs no more room than the line.
bool ReadQuoted(std::string_view &s, unsigned char *out, long &length, char *error) {
    s.remove_prefix(1);
    length = 0;
    while (!s.empty() && s.front() != '"') {
        unsigned char byte = s.front();
        s.remove_prefix(1);
        if (byte == '\\') {
            if (s.empty()) break;
            if (!ReadEscape(s, byte, error)) return false;
        }
        out[length++] = byte;
    }
    if (s.empty()) return Fail(error, "expected a closing quote");
    s.remove_prefix(1);
    return true;
}

std::string_view ReadWord(std::string_view &s) {
    size_t n = 0;
    while (n < s.size() && !IsBlank(s[n]) && s[n] != '"') ++n;
    std::string_view word = s.substr(0, n);
    s.remove_prefix(n);
    return word;
}

// The key, NUL-ended, at the start of `out`.
bool ReadKey(std::string_view &s, unsigned char *out, long &length, char *error) {
    if (s.front() == '"') {
        if (!ReadQuoted(s, out, length, error)) return false;
    } else {
        // A first-column '#' is a comment; an indented one would look like one.
        if (s.front() == '#') return Fail(error, "a key without quotes cannot start with '#'");
        std::string_view word = ReadWord(s);
        std::memcpy(out, word.data(), word.size());
        length = static_cast<long>(word.size());
    }
    // The key reaches the store as a C string.
    if (std::memchr(out, 0, length)) return Fail(error, "a key cannot hold a NUL byte");
    out[length] = 0;
    return true;
}

struct Record {
    const char *key;
    const unsigned char *data;
    long length;
};

// One line that holds more than blanks; `buffer` has room for the line and two bytes.
bool ParseRecord(std::string_view s, unsigned char *buffer, Record &record, char *error) {
    long keyLength = 0;
    if (!ReadKey(s, buffer, keyLength, error)) return false;
    SkipBlanks(s);
    bool raw = false;
    if (s.empty() || s.front() != '"') {
        if (ReadWord(s) != "raw") return Fail(error, "expected a quoted text after the key");
        SkipBlanks(s);
        if (s.empty() || s.front() != '"') return Fail(error, "expected a quoted text after raw");
        raw = true;
    }
    unsigned char *data = buffer + keyLength + 1;
    long length = 0;
    if (!ReadQuoted(s, data, length, error)) return false;
    if (!raw) data[length++] = 0;
    SkipBlanks(s);
    if (!s.empty()) return Fail(error, "text after the closing quote");
    record = {reinterpret_cast<const char *>(buffer), data, length};
    return true;
}

int LineNumber(long line) {
    return line < INT_MAX ? static_cast<int>(line) : INT_MAX;
}

bool NeedsQuotes(const char *key) {
    if (!*key || *key == '#' || *key == '"') return true;
    for (const char *p = key; *p; ++p) {
        unsigned char c = *p;
        if (c <= ' ' || c == '"' || c == '\\' || c == 0x7f) return true;
    }
    return false;
}

void WriteByte(FILE *out, unsigned char c) {
    for (const auto &escape : kEscapes) {
        if (c != static_cast<unsigned char>(escape.byte)) continue;
        std::fputc('\\', out);
        std::fputc(escape.letter, out);
        return;
    }
    if (c < ' ' || c == 0x7f)
        std::fprintf(out, "\\x%02x", c);
    else
        std::fputc(c, out);
}

void WriteQuoted(FILE *out, const unsigned char *bytes, long length) {
    std::fputc('"', out);
    for (long i = 0; i < length; ++i) WriteByte(out, bytes[i]);
    std::fputc('"', out);
}

}  // namespace

int ParseDbSource(const char *text, long length, DbSourceSink sink, void *context, char *error) {
    if (error) *error = 0;
    if (!text || length <= 0) return 0;
    std::string_view rest(text, static_cast<size_t>(length));
    MemPtr<unsigned char> buffer;
    size_t capacity = 0;
    for (long line = 1; !rest.empty(); ++line) {
        size_t end = rest.find('\n');
        std::string_view s = rest.substr(0, end);
        rest.remove_prefix(end == rest.npos ? rest.size() : end + 1);
        if (!s.empty() && s.front() == '#') continue;
        SkipBlanks(s);
        if (s.empty()) continue;
        if (s.size() + 2 > capacity) {
            buffer.reset(static_cast<unsigned char *>(GetMem(static_cast<long>(s.size()) + 2)));
            capacity = buffer ? s.size() + 2 : 0;
            if (!buffer) {
                Fail(error, "line too long to hold in memory");
                return LineNumber(line);
            }
        }
        Record record{};
        if (!ParseRecord(s, buffer.get(), record, error)) return LineNumber(line);
        // The buffer is below GetMem's limit, so a record's length fits an int.
        if (sink && !sink(context, record.key, record.data, static_cast<int>(record.length))) {
            Fail(error, "cannot store the record");
            return LineNumber(line);
        }
    }
    return 0;
}

void WriteDbSourceRecord(FILE *out, const char *key, const unsigned char *data, int length) {
    if (!key) key = "";
    if (!data || length < 0) length = 0;
    if (NeedsQuotes(key))
        WriteQuoted(out, reinterpret_cast<const unsigned char *>(key), std::strlen(key));
    else
        std::fputs(key, out);
    bool text = length > 0 && data[length - 1] == 0;
    std::fputs(text ? " " : " raw ", out);
    WriteQuoted(out, data, text ? length - 1 : length);
    std::fputc('\n', out);
}
