// The disks file: the input is split as SplitDisksText does for the
// diskette installation and the join, then read from a medium as "disks"
// and as "DISKS" (upper-cased up to the end marker) and its files copied,
// the copies never run (FakeExec.cpp).
#include <cstdio>
#include <cstdlib>

#include "Disks.h"
#include "FuzzSupport.h"
#include "setup.h"

namespace {

std::string medium, target;

// What Disks.h promises of every split: no empty line, no empty word, no
// separator inside a word, nothing from the end marker on.
void CheckSplit(std::string_view text, std::string_view separators) {
    for (const DisksWords &line : SplitDisksText(text, separators)) {
        if (line.empty()) std::abort();
        for (std::string_view word : line)
            if (word.empty() || word.find_first_of(separators) != std::string_view::npos ||
                word.find_first_of("\r\n") != std::string_view::npos || word == "end_of_list")
                std::abort();
    }
}

void ReadAs(const char *name, std::string_view bytes) {
    fuzz::FreshDir("medium");
    fuzz::WriteFile(std::string("medium/") + name, bytes);
    CopyDisksFiles(medium.c_str(), target.c_str());
}

}  // namespace

void fuzz::SetUp() {
    fuzz::Begin("", "disksfuzz");
    medium = fuzz::WorkDir() + "/medium";
    target = fuzz::FreshDir("target");
}

void fuzz::OneInput(std::string_view bytes) {
    CheckSplit(bytes, DISKS_WORD_SEPARATORS);
    CheckSplit(bytes, " \r\n");
    ReadAs("disks", bytes);
    ReadAs("DISKS", bytes);
}
