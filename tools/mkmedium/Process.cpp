#include "Process.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Fail.h"

extern char **environ;

namespace {

// Environment variables that change the unit of GNU du and df. The installer
// runs them with a root login's plain environment, so the sizes are measured in
// the same default unit whatever the packager's shell has set.
constexpr const char *kUnitVariables[] = {"POSIXLY_CORRECT", "BLOCK_SIZE", "BLOCKSIZE",
                                          "DU_BLOCK_SIZE", "DF_BLOCK_SIZE"};

bool IsUnitVariable(const char *entry) {
    for (const char *name : kUnitVariables) {
        size_t length = std::strlen(name);
        if (std::strncmp(entry, name, length) == 0 && entry[length] == '=') return true;
    }
    return false;
}

std::vector<char *> PlainEnvironment() {
    std::vector<char *> env;
    for (char **entry = environ; *entry; ++entry)
        if (!IsUnitVariable(*entry)) env.push_back(*entry);
    env.push_back(nullptr);
    return env;
}

std::string FirstLine(int fd) {
    std::string text;
    char chunk[512];
    lseek(fd, 0, SEEK_SET);
    for (ssize_t got; (got = read(fd, chunk, sizeof chunk)) > 0;) text.append(chunk, got);
    size_t end = text.find('\n');
    return end == std::string::npos ? text : text.substr(0, end);
}

std::string Describe(const std::string &program, int status, int errorFd) {
    std::string first = FirstLine(errorFd);
    if (!first.empty()) return first;
    if (WIFSIGNALED(status))
        return program + " killed by signal " + std::to_string(WTERMSIG(status));
    return program + " exited with status " + std::to_string(WEXITSTATUS(status));
}

// `outputFd`, when not -1, takes the place of the output file of `redirect`.
bool Spawn(const std::vector<std::string> &argv, const Redirect &redirect, int outputFd,
           std::string *why) {
    std::vector<char *> args;
    for (const std::string &word : argv) args.push_back(const_cast<char *>(word.c_str()));
    args.push_back(nullptr);

    FILE *errors = std::tmpfile();
    if (!errors) Die("cannot make a temporary file: %s", std::strerror(errno));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    if (!redirect.input.empty())
        posix_spawn_file_actions_addopen(&actions, 0, redirect.input.c_str(), O_RDONLY, 0);
    if (outputFd != -1)
        posix_spawn_file_actions_adddup2(&actions, outputFd, 1);
    else if (!redirect.output.empty())
        posix_spawn_file_actions_addopen(&actions, 1, redirect.output.c_str(),
                                         O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, fileno(errors), 2);

    std::vector<char *> env = PlainEnvironment();
    pid_t child;
    int failed = posix_spawnp(&child, args[0], &actions, nullptr, args.data(), env.data());
    posix_spawn_file_actions_destroy(&actions);
    bool ok = false;
    if (failed) {
        *why = argv[0] + ": " + std::strerror(failed);
    } else {
        int status = -1;
        while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
        }
        ok = WIFEXITED(status) && WEXITSTATUS(status) == 0;
        if (!ok) *why = Describe(argv[0], status, fileno(errors));
    }
    std::fclose(errors);
    return ok;
}

}  // namespace

bool RunProgram(const std::vector<std::string> &argv, const Redirect &redirect, std::string *why) {
    return Spawn(argv, redirect, -1, why);
}

bool CaptureProgram(const std::vector<std::string> &argv, std::string *output, std::string *why) {
    FILE *captured = std::tmpfile();
    if (!captured) Die("cannot make a temporary file: %s", std::strerror(errno));
    bool ok = Spawn(argv, {}, fileno(captured), why);
    output->clear();
    std::rewind(captured);
    char chunk[4096];
    for (size_t got; (got = std::fread(chunk, 1, sizeof chunk, captured)) > 0;)
        output->append(chunk, got);
    std::fclose(captured);
    return ok;
}

long DuSize(const std::string &path) {
    std::string output, why;
    if (!CaptureProgram({"du", "-s", path}, &output, &why))
        Die("du -s %s: %s", path.c_str(), why.c_str());
    char *end = nullptr;
    long size = std::strtol(output.c_str(), &end, 10);
    if (end == output.c_str()) Die("du -s %s: no size in its output", path.c_str());
    return size;
}
