#include "Fail.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// Kept in a fixed array so that the signal handler can read it without allocating.
char gDoomed[4096];

void RemoveDoomed() {
    if (!gDoomed[0]) return;
    std::error_code ignored;
    std::filesystem::remove_all(gDoomed, ignored);
    gDoomed[0] = '\0';
}

// An interrupted build must not leave its staging tree beside the output. Only
// async-signal-safe calls here: the tree is removed by a child `rm`.
void OnSignal(int signal) {
    if (gDoomed[0]) {
        pid_t child = fork();
        if (child == 0) {
            char *const argv[] = {const_cast<char *>("rm"), const_cast<char *>("-rf"),
                                  const_cast<char *>("--"), gDoomed, nullptr};
            execv("/bin/rm", argv);
            _exit(127);
        }
        if (child > 0) waitpid(child, nullptr, 0);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

}  // namespace

void Die(const char *format, ...) {
    char text[1024];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    // A message that quotes a child's output must still be one line.
    for (char *c = text; *c; ++c)
        if (*c == '\n' || *c == '\r') *c = ' ';
    std::fprintf(stderr, "mkmedium: %s\n", text);
    RemoveDoomed();
    std::exit(1);
}

void RemoveOnFailure(const char *path) {
    static bool handlersSet = false;
    if (std::strlen(path) >= sizeof gDoomed) Die("%s: path too long", path);
    sigset_t all, old;
    sigfillset(&all);
    sigprocmask(SIG_BLOCK, &all, &old);
    std::strcpy(gDoomed, path);
    if (!handlersSet) {
        for (int signal : {SIGHUP, SIGINT, SIGTERM}) std::signal(signal, OnSignal);
        handlersSet = true;
    }
    sigprocmask(SIG_SETMASK, &old, nullptr);
}
