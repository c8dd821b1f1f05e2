// Entry validation: what each format admits, the one line that says why a
// text is refused, and broken formats refused without a crash.
#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "BuiltInStrings.h"
#include "TestFiles.h"
#include "TextMenu.h"

namespace {

const std::string k255(255, 'a'), k256(256, 'a'), kManyNines(5000, '9');
const std::string kHugeDecimal = "1" + std::string(400, '0');
const std::string kLongPart = "/" + std::string(NAME_MAX + 1, 'p');
/// A path of `length` characters in parts of 199.
std::string PathOf(size_t length) {
    std::string path;
    while (path.size() < length) path += path.size() % 200 ? 'p' : '/';
    return path;
}
const std::string kLongestPath = PathOf(PATH_MAX - 1), kTooLongPath = PathOf(PATH_MAX);
const std::string kManyExtras = "/A" + std::string(4001, '+') + "/";  // "+" admitted, 2000 times
const std::string kWideRange = "/A(1," + std::string(30, '9') + ")/";

class MenuValidateTest : public ::testing::Test {
  protected:
    // No string database in reach: the English texts built into the program answer.
    testfiles::TempDir tool;
    std::string toolPath = tool.path().string();
    void SetUp() override {
        UseBuiltInStrings(toolPath);
    }
};

TEST_F(MenuValidateTest, AdmitsWhatTheFormatSaysAndSaysWhyNot) {
    constexpr const char *kOk = nullptr;
    constexpr const char *kBroken = "The entry format \"";
    // clang-format off
    // says: part of the one line printed
    struct { const char *format, *text, *says; } cases[] = {
        {"/A(1,255)+-+_+/", "my-file_2", kOk}, {"/A(1,255)+-+_+/", k255.c_str(), kOk},
        {"/A(1,255)+-+_+/", k256.c_str(), "must be 1 to 255 characters long"},
        {"/A(1,255)+-+_+/", nullptr, "must be 1 to 255"},
        {"/A(1,255)+-+_+/", "a.b", "letters and digits are allowed, and these characters: - _"},
        {"/A(1,255)+-+_+/", "caf\xc3\xa9", "Only letters and digits"},
        {"/A+/+++/", "a/b+c", kOk}, {kManyExtras.c_str(), "a.b", "these characters: + + +"},
        {"/L(2,)/", "Abc", kOk}, {"/L(2,)/", "a", "at least 2 characters"},
        {"/L/", "ab1", "Only letters are allowed"}, {"/L/", "", "must not be empty"},
        {"/D(3,3)/", "007", kOk}, {"/D/", "1a", "Only digits"},
        {"/S(0,5)/", "", kOk}, {"/S/", "h\xc3\xa9llo world", kOk}, {"/S/", "a\tb", "Only printable"},
        {"/I(0,65535)/", " 42 ", kOk}, {"/I(0,65535)/", "65536", "whole number from 0 to 65535"},
        {"/I(-10,10)/", "+5", kOk}, {"/I(-10,10)/", "-10", kOk}, {"/I(0,)/", "2147483647", kOk},
        {"/I/", "2147483648", "from -2147483648 to 2147483647"}, {"/I/", "+-5", "whole number"},
        {"/I/", "1.0", "whole number"}, {"/I/", kManyNines.c_str(), "whole number"},
        {"/F(0.5,10.0)/", "0.5", kOk}, {"/F(0.5,10.0)/", ".75", kOk},
        {"/F(0.5,10.0)/", "0.49", "number from 0.5 to 10"}, {"/F/", "1e1", "number from"},
        {"/F/", "nan", "number from"}, {"/F/", ".", "number from"},
        {"/F/", kHugeDecimal.c_str(), "number from"},
        {"/P/", "/usr/local", kOk}, {"/P/", "/", kOk}, {"/P/", kLongestPath.c_str(), kOk},
        {"/P/", "usr/local", "starts with \"/\""}, {"/P/", "/usr//local", "empty parts"},
        {"/P/", "/usr/", "empty parts"}, {"/P/", "/a\nb", "control characters"},
        {"/P/", kLongPart.c_str(), "at most 4095 characters, and each of its parts at most 255"},
        {"/P/", kTooLongPath.c_str(), "at most 4095"}, {"/P(1,5)/", "/abcdef", "1 to 5"},
        {nullptr, "anything", kOk}, {"", "anything", kOk}};
    const char *broken[] = {
        "A(1,255)", "/", "/Q/", "/A(1,255/", "/A(5,1)/", "/A(-1,3)/", "/A(,5)/", "/A+/", "/A+-+_/",
        "/A(1,255)+-+_+", "/I+-+/", "/I(0,3000000000)/", "/F(0,1e5)/", kWideRange.c_str(),
        "/F(0,1000000000000000000000000000000000000000)/"};
    // clang-format on
    auto check = [](const char *format, const char *text, const char *says) {
        SCOPED_TRACE(std::string(format ? format : "(null)").substr(0, 60) + " / " +
                     std::string(text ? text : "(null)").substr(0, 60));
        testing::internal::CaptureStdout();
        int result = ValidateEntry(text, format);
        std::string out = testing::internal::GetCapturedStdout();
        EXPECT_EQ(result != 0, says != kOk);
        if (!says) {
            EXPECT_EQ(out, "");
            return;
        }
        EXPECT_NE(out.find(says), std::string::npos) << out;
        EXPECT_EQ(out.find('\n'), out.size() - 1) << "one line: " << out;
        EXPECT_EQ(out.find(kBroken) == 0, says == kBroken) << out;
    };
    for (const auto &c : cases) check(c.format, c.text, c.says);
    for (const char *format : broken) check(format, "a", kBroken);
}

}  // namespace
