// Running the host's commands (tar, compress, uncompress, du) as child processes,
// with arguments passed as words, never through a shell.
#pragma once

#include <string>
#include <vector>

/// Where a child's standard input and output go; empty means inherited.
struct Redirect {
    std::string input;
    std::string output;
};

/// Runs `argv` (looked up in PATH) and waits for it; returns true when it exited
/// with status 0. Its standard error is captured: on failure `*why` receives its
/// first line, or a description of how it ended.
bool RunProgram(const std::vector<std::string> &argv, const Redirect &redirect, std::string *why);
/// Runs `argv` and returns its standard output in `*output`; as RunProgram.
bool CaptureProgram(const std::vector<std::string> &argv, std::string *output, std::string *why);
/// Size of `path` as `du -s` reports it in its default unit (1 KiB blocks with GNU
/// du), the unit the installer's free-space check compares; ends the tool on failure.
long DuSize(const std::string &path);
