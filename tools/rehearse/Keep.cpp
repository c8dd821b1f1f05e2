// Keeping a rehearsal's changes for inspection, and running host commands.
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
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

// A removal is kept as the overlay marks it, a 0/0 character device, which
// some file systems cannot hold: an overlay (a container's root) refuses it.
bool HoldsRemovals(const std::string &dir) {
    std::string probe = dir + "/.removal";
    if (mknod(probe.c_str(), S_IFCHR | 0600, 0) != 0) return false;
    unlink(probe.c_str());
    return true;
}

bool IsRemoval(const struct stat &st) {
    return S_ISCHR(st.st_mode) && st.st_rdev == 0;
}

// Whether everything in `from` but the removals reached `to` whole.
bool CopiedAllButRemovals(const std::string &from, const std::string &to) {
    namespace fs = std::filesystem;
    std::error_code error;
    for (fs::recursive_directory_iterator it(from, error), end; !error && it != end;
         it.increment(error)) {
        struct stat st {};
        struct stat copy {};
        std::string copied = to + it->path().string().substr(from.size());
        if (lstat(it->path().c_str(), &st) != 0) return false;
        if (IsRemoval(st)) continue;
        if (lstat(copied.c_str(), &copy) != 0 ||
            (S_ISREG(st.st_mode) && copy.st_size != st.st_size))
            return false;
    }
    return !error;
}

bool Copy(const std::string &from, const std::string &to, bool removals) {
    // -x: a layer never holds another mount's content, only its mount point.
    // Where removals cannot be kept, cp fails on each of them: it goes quiet,
    // and the copy is judged by what arrived.
    int status = RunHostCommand({"cp", "-ax", from + "/.", to}, -1, !removals);
    return status == 0 || (!removals && CopiedAllButRemovals(from, to));
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
    bool ok = true, removals = HoldsRemovals(dir);
    std::vector<std::string> madeForLayers;
    for (const Layer &layer : box.layers) {
        std::vector<std::string> missing = MissingDirs(dir, layer.prefix);
        madeForLayers.insert(madeForLayers.end(), missing.begin(), missing.end());
        for (const std::string &m : missing) mkdir(m.c_str(), 0755);
        ok = Copy(layer.dir, dir + layer.prefix, removals) && ok;
    }
    RemovePlumbing(box, dir);
    for (auto it = madeForLayers.rbegin(); it != madeForLayers.rend(); ++it) rmdir(it->c_str());
    if (!ok) std::fprintf(stderr, "rehearse: could not copy every change to %s\n", dir.c_str());
    return ok;
}
