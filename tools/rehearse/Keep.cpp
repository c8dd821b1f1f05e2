// Keeping a rehearsal's changes for inspection, and running host commands.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Sandbox.h"

int RunHostCommand(const std::vector<std::string> &argv, int out, bool quiet) {
    std::vector<char *> args;
    for (const std::string &a : argv) args.push_back(const_cast<char *>(a.c_str()));
    args.push_back(nullptr);
    pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        int null = quiet ? open("/dev/null", O_RDWR) : -1;
        if (null >= 0) {
            dup2(null, STDIN_FILENO), dup2(null, STDERR_FILENO);
            if (out < 0) dup2(null, STDOUT_FILENO);
        }
        if (out >= 0 && out != STDOUT_FILENO) dup2(out, STDOUT_FILENO);
        execvp(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

namespace {

bool Copy(const std::string &from, const std::string &to) {
    // -x: a layer never holds another mount's content, only its mount point.
    return RunHostCommand({"cp", "-ax", from + "/.", to}, -1) == 0;
}

// Directories of `path` (below `dir`) that do not exist yet, deepest last.
std::vector<std::string> MissingDirs(const std::string &dir, const std::string &path) {
    std::vector<std::string> missing;
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        std::string part = dir + path.substr(0, slash);
        struct stat st {};
        if (lstat(part.c_str(), &st) != 0) missing.push_back(part);
        if (slash == std::string::npos) return missing;
    }
}

// The stand-ins and mount points we installed are ours, not the command's;
// directories go only when nothing of the command's is left in them.
void RemovePlumbing(const Sandbox &box, const std::string &dir) {
    for (auto it = box.plumbing.rbegin(); it != box.plumbing.rend(); ++it) {
        std::string copy = dir + it->first;
        struct stat st {};
        if (lstat(copy.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode))
            rmdir(copy.c_str());
        else if (st.st_size == it->second.size && (st.st_mode == it->second.mode))
            unlink(copy.c_str());
    }
}

}  // namespace

bool KeepChanges(const Sandbox &box, const std::string &dir) {
    if (mkdir(dir.c_str(), 0755) != 0) {
        std::fprintf(stderr, "rehearse: cannot create %s: %s\n", dir.c_str(), std::strerror(errno));
        return false;
    }
    bool ok = true;
    std::vector<std::string> madeForLayers;
    for (const Layer &layer : box.layers) {
        if (!layer.overlay) {
            std::vector<std::string> missing = MissingDirs(dir, layer.prefix);
            madeForLayers.insert(madeForLayers.end(), missing.begin(), missing.end());
            for (const std::string &m : missing) mkdir(m.c_str(), 0755);
        }
        ok = Copy(layer.dir, dir + layer.prefix) && ok;
    }
    RemovePlumbing(box, dir);
    for (auto it = madeForLayers.rbegin(); it != madeForLayers.rend(); ++it) rmdir(it->c_str());
    if (!ok) std::fprintf(stderr, "rehearse: could not copy every change to %s\n", dir.c_str());
    return ok;
}
