// The text form of record databases: where and why a bad source is refused,
// and that every record written reads back the same.
#include "DbSource.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <tuple>
#include <vector>

namespace {

using namespace std::string_literals;

struct Parsed {
    std::vector<std::pair<std::string, std::string>> records;
    int line = 0;
    std::string error;
};

int Collect(void *context, const char *key, const unsigned char *data, int length) {
    auto &records = static_cast<Parsed *>(context)->records;
    records.emplace_back(key, std::string(reinterpret_cast<const char *>(data), length));
    return records.size() < 3;  // refuses the third, as a full store would
}

Parsed Parse(const std::string &text) {
    Parsed p;
    char error[DBSOURCE_ERROR_SIZE] = "untouched";
    p.line = ParseDbSource(text.data(), static_cast<long>(text.size()), Collect, &p, error);
    p.error = error;
    return p;
}

std::string Written(const std::string &key, const std::string &data) {
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    WriteDbSourceRecord(out, key.c_str(), reinterpret_cast<const unsigned char *>(data.data()),
                        static_cast<int>(data.size()));
    std::fclose(out);
    std::string line(text, size);
    std::free(text);
    return line;
}

TEST(DbSourceTest, ReadsRecordsSkippingCommentsAndEmptyLines) {
    Parsed p =
        Parse("# notes\n\n \t\nplain \"a\\tb\\x41\\\\\\\"\"\n\t\"a key\"\traw\"\\x00\xc3\xa9\" \n");
    EXPECT_EQ(p.line, 0) << p.error;
    EXPECT_EQ(p.error, "");
    EXPECT_EQ(p.records,
              (decltype(p.records){{"plain", "a\tbA\\\"\0"s}, {"a key", "\0\xc3\xa9"s}}));
}

TEST(DbSourceTest, BadLinesGiveTheirNumberAndWhatWasExpected) {
    const std::tuple<std::string, int, const char *> cases[] = {
        {"k", 1, "expected a quoted text after the key"},
        {"k rawx \"a\"", 1, "expected a quoted text after the key"},
        {"k raw", 1, "expected a quoted text after raw"},
        {"# c\n\nk \"a\"\nk \"a", 4, "expected a closing quote"},
        {"k \"a\\", 1, "expected a closing quote"},
        {"k \"a\nb\"", 1, "expected a closing quote"},
        {"k \"a\\q\"", 1, "bad escape \\q"},
        {"k \"\\\xff\"", 1, "bad escape: byte 0xff after a backslash"},
        {"k \"\\x4\"", 1, "bad escape \\x: expected two hexadecimal digits"},
        {"k \"\\x4g\"", 1, "bad escape \\x: expected two hexadecimal digits"},
        {"k \"a\" b", 1, "text after the closing quote"},
        {"k \"a\"\r\n", 1, "text after the closing quote"},
        {"k \"a\"\0"s, 1, "text after the closing quote"},
        {" #k \"a\"", 1, "a key without quotes cannot start with '#'"},
        {"k\0x \"a\""s, 1, "a key cannot hold a NUL byte"},
        {"\"k\\x00\" \"a\"", 1, "a key cannot hold a NUL byte"},
        {"a \"\"\nb raw \"\"\nc \"\"", 3, "cannot store the record"},
    };
    for (const auto &[text, line, error] : cases) {
        Parsed p = Parse(text);
        EXPECT_EQ(p.line, line) << text;
        EXPECT_EQ(p.error, error) << text;
    }
}

TEST(DbSourceTest, WritesTheShortestFormThatReadsBack) {
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"MSG_1", "Hello\0"s, "MSG_1 \"Hello\"\n"},
        {"k", "\0"s, "k \"\"\n"},
        {"k", "", "k raw \"\"\n"},
        {"k", "a\0b\0"s, "k \"a\\x00b\"\n"},
        {"k", "\x01\x7f\xff\n\t\r\\\"", "k raw \"\\x01\\x7f\xff\\n\\t\\r\\\\\\\"\"\n"},
        {"", "x\0"s, "\"\" \"x\"\n"},
        {"#k", "x\0"s, "\"#k\" \"x\"\n"},
        {"\"k", "x\0"s, "\"\\\"k\" \"x\"\n"},
        {"a b\tc\\d\x1f\x7f", "x\0"s, "\"a b\\tc\\\\d\\x1f\\x7f\" \"x\"\n"},
        {"k#\xc3\xa9", "x\0"s, "k#\xc3\xa9 \"x\"\n"},
        {"c:\\d", "x\0"s, "\"c:\\\\d\" \"x\"\n"},
    };
    for (const auto &[key, data, expected] : cases) {
        std::string line = Written(key, data);
        EXPECT_EQ(line, expected);
        Parsed p = Parse(line);
        EXPECT_EQ(p.line, 0) << line << p.error;
        EXPECT_EQ(p.records, (decltype(p.records){{key, data}})) << line;
    }
}

}  // namespace
