// What the harnesses share: libFuzzer's entry points, a private work directory
// for the files an input becomes, the responses of the fake command layer
// (FakeExec.cpp), and the walks of record lists that both database harnesses make.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

struct DbmLinkNode;

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
/// Quiet(), then the library's tool directory: WorkDir()/`tool` made empty
/// ("" for WorkDir() itself), and its program name `name` when given.
void Begin(const char *tool, const char *name = nullptr);

/// The part of `data` before the first occurrence of `separator`, which is
/// dropped from `data`; all of it when there is none.
std::string_view Cut(std::string_view &data, char separator);

/// The first `max` keys of a record list made with "\n" before each key
/// (null: none); the list is freed. A key holding a line feed comes out in
/// pieces, which the harnesses then look up as keys of their own.
std::vector<std::string> Keys(char *list, size_t max = 32);
/// Aborts unless every node's key holds `pattern`; reads each node's data
/// and frees the list.
void CheckLinkList(DbmLinkNode *list, const char *pattern);

/// What GetCmdResponse gives for command-table row `index` from now on
/// (null: no output at all).
void SetResponse(int index, const char *output);

/// Each harness defines OneInput, and SetUp when it has any: libFuzzer's
/// entry points (FuzzSupport.cpp) run SetUp once, then OneInput on each input.
void SetUp();
void OneInput(std::string_view bytes);
/// True while an input runs: a system() or popen() call that bypasses the
/// command layer then aborts.
inline bool running = false;

}  // namespace fuzz
