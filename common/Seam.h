// The seam where the library's effects leave the process: shell lines run,
// shell lines read from, files written anew, and the existence tests that
// decide what to do next. Every member left null (the default) does the real
// thing; `pkglist plan` fills them in, so that a package list is shown
// rather than carried out, by the installer's own code.
#pragma once

#include <cstdio>

struct CommandSeam {
    /// In place of system(line). `index` is the command-table row the line
    /// was built from (-1 for a line of the caller's own), `args` the
    /// caller's part of it (null then). Returns what system() would.
    int (*run)(int index, const char *args, const char *line);
    /// In place of popen(line, "r"); the stream is given back to `close`.
    FILE *(*read)(const char *line);
    int (*close)(FILE *stream);
    /// In place of writing `path` anew: a stream for the new text, handed
    /// back to `commit` with the permissions it should get (0: unchanged).
    FILE *(*replace)(const char *path);
    int (*commit)(FILE *stream, const char *path, int permissions);
    /// In place of asking the file system whether `path` exists.
    int (*exists)(const char *path);
};

extern CommandSeam Seam;

/// system(line), or the seam's `run` with index -1.
int RunShellLine(const char *line);
/// system(line) for a line built from command-table row `index`.
int RunTableLine(int index, const char *args, const char *line);
/// popen(line, "r"), or the seam's `read`; null when it cannot start.
FILE *OpenShellPipe(const char *line);
/// pclose, or the seam's `close`.
int CloseShellPipe(FILE *stream);
