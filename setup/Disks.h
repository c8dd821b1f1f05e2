// Reading the `disks` file: one line per diskette, the files of each, up to
// "end_of_list".
#pragma once

#include <string_view>
#include <vector>

#include "MemMgr.h"

using DisksWords = std::vector<std::string_view, MemAllocator<std::string_view>>;
using DisksLines = std::vector<DisksWords, MemAllocator<DisksWords>>;

/// The lines of `text` (runs of CR/LF separate them; no empty lines) up to a
/// line or word "end_of_list", each split into words at `wordSeparators`.
DisksLines SplitDisksText(std::string_view text, std::string_view wordSeparators);

constexpr std::string_view DISKS_WORD_SEPARATORS = " \t\r\n";

/// Copies every file that the disks file of `from` lists into `to` (`cp -p`,
/// failures end the program); ends it when there is no disks file.
void CopyDisksFiles(const char *from, const char *to);
