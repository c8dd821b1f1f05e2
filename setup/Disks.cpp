#include "Disks.h"

#include "setup.h"

namespace {

std::string_view NextToken(std::string_view &rest, std::string_view separators) {
    size_t start = rest.find_first_not_of(separators);
    if (start == std::string_view::npos) {
        rest = {};
        return {};
    }
    rest.remove_prefix(start);
    size_t end = std::min(rest.find_first_of(separators), rest.size());
    std::string_view token = rest.substr(0, end);
    rest.remove_prefix(end);
    return token;
}

}  // namespace

DisksLines SplitDisksText(std::string_view text, std::string_view wordSeparators) {
    DisksLines lines;
    std::string_view rest = text;
    for (std::string_view line = NextToken(rest, "\r\n"); !line.empty();
         line = NextToken(rest, "\r\n")) {
        DisksWords words;
        bool ended = false;
        for (std::string_view word = NextToken(line, wordSeparators); !word.empty();
             word = NextToken(line, wordSeparators)) {
            if (word == "end_of_list") {
                ended = true;
                break;
            }
            words.push_back(word);
        }
        if (!words.empty()) lines.push_back(std::move(words));
        if (ended) break;
    }
    return lines;
}

void CopyDisksFiles(const char *from, const char *to) {
    GetDisksData(from);
    // A private copy: the tokenizer and file readers reuse LineBuf meanwhile.
    MemPtr<char> disks(SaveStr_(LineBuf));
    for (const DisksWords &line : SplitDisksText(disks.get(), DISKS_WORD_SEPARATORS))
        for (std::string_view file : line)
            SysCmd(CMD_CP, 2, "%s/%.*s %s", from, static_cast<int>(file.size()), file.data(), to);
}
