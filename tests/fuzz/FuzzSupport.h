// What the harnesses share: a private work directory for the files an input
// becomes, and the record that the fake command layer (FakeExec.cpp) keeps
// of the command lines the library asked for.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace fuzz {

/// The harness's private directory, made on first use under /dev/shm (else
/// /tmp) and removed when the process exits normally.
const std::string &WorkDir();
/// WorkDir()/`relative` as an empty directory; its full path.
std::string FreshDir(const std::string &relative);
/// Writes `bytes` to WorkDir()/`relative`, making the parent directories; the
/// full path. Aborts when the file cannot be written: the harness would test
/// nothing.
std::string WriteFile(const std::string &relative, std::string_view bytes);

/// Standard output goes to /dev/null (the library's messages would drown
/// libFuzzer's report) and standard input reads /dev/null, so that a question
/// the library asks is answered by end of input.
void Quiet();

/// The part of `data` before the first occurrence of `separator`, which is
/// dropped from `data`; all of it when there is none.
std::string_view Cut(std::string_view &data, char separator);

/// How many command lines the library asked for during the current input.
size_t CommandCount();
/// The last of them ("" when none).
const std::string &LastCommand();
/// What GetCmdResponse gives for command-table row `index` from now on
/// (null: no output at all).
void SetResponse(int index, const char *output);

/// Marks one input's run: the record of commands starts empty, and a
/// system() or popen() call that bypasses the command layer aborts.
class Input {
  public:
    Input();
    ~Input();
    Input(const Input &) = delete;
    Input &operator=(const Input &) = delete;
};

/// For the fake command layer: whether an Input is running, and adding a
/// line to the record.
bool InInput();
void Record(std::string line);

}  // namespace fuzz
