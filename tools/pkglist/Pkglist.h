// pkglist: a package list planned or checked without installing anything.
#pragma once

#include <set>
#include <string>

/// Where a list's lines come from: its path as given, and its whole text, so
/// that a line number can be told from the reader's position.
struct ListSource {
    std::string path;
    std::string text;
    /// 1-based number of the line where the reader's current line (LineBuf)
    /// starts, from the reader's position after it.
    int ReaderLine() const;
};

/// Sets the installer up as `plan` runs it, printing nothing: the package
/// directory <base>/Orvel/pnzz prepared as before a list's first line.
/// Returns the names the package directory then holds.
std::set<std::string> Prepare(const ListSource &source, const char *base, const char *work);
/// Prints every command line and file write of the list at `source.path`
/// carried out by the installer's own interpreter against <base>/Orvel/pnzz
/// with its files in <work>/pkg, running nothing. Returns the exit status.
int Plan(const ListSource &source, const char *base, const char *work);
/// Prints "LIST:LINE: warning: ..." for every construct that may not do what
/// the list's author expects; 1 when it warned, 0 when clean.
int Lint(const ListSource &source);
