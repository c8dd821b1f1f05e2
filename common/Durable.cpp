// Replacing files so that a crash leaves the old file or the complete new one:
// the new content is flushed to disk before it takes the old one's place, and
// the rename itself is flushed with the directory.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "utils.h"

int FlushToDisk(FILE *file) {
    if (!file) return 0;
    bool flushed = std::fflush(file) == 0 && !std::ferror(file);
    return flushed && fsync(fileno(file)) == 0 ? 1 : 0;
}

void FlushDirectoryOf(const char *path) {
    if (!path) return;
    MemPtr<char> directory(SaveStr_(StripFn(path)));
    int fd = open(directory.get(), O_RDONLY | O_DIRECTORY);
    if (fd < 0) return;  // some file systems refuse: only the guarantee is lost
    fsync(fd);
    close(fd);
}

namespace {

bool Fits(char *buffer, size_t size, const char *a, const char *b = "") {
    int n = std::snprintf(buffer, size, "%s%s", a, b);
    return n >= 0 && static_cast<size_t>(n) < size;
}

/// The file a replacement goes to: a symbolic link is followed, so that the
/// file it names is replaced rather than the link.
bool Target(const char *path, char *target, size_t size) {
    struct stat st;
    if (lstat(path, &st) == 0 && S_ISLNK(st.st_mode)) {
        char resolved[PATH_MAX];
        if (!realpath(path, resolved)) return false;
        return Fits(target, size, resolved);
    }
    return Fits(target, size, path);
}

mode_t CreationMode() {
    mode_t mask = umask(0);
    umask(mask);
    return 0666 & ~mask;
}

}  // namespace

FILE *OpenReplacement(const char *path, char *scratch, size_t size) {
    if (Seam.replace) {
        if (size > 0) scratch[0] = '\0';
        return path ? Seam.replace(path) : nullptr;
    }
    char target[PATH_MAX];
    if (!path || !Target(path, target, sizeof target)) return nullptr;
    if (!Fits(scratch, size, target, ".XXXXXX")) return nullptr;
    int fd = mkstemp(scratch);
    if (fd < 0) return nullptr;
    // mkstemp makes the file private; a replacement starts as fopen would.
    fchmod(fd, CreationMode());
    FILE *file = fdopen(fd, "w");
    if (!file) {
        close(fd);
        unlink(scratch);
    }
    return file;
}

int CommitReplacement(FILE *file, const char *scratch, const char *path, int permissions) {
    if (Seam.commit) return Seam.commit(file, path, permissions);
    char target[PATH_MAX];
    bool ok = file && path && Target(path, target, sizeof target);
    if (ok && permissions) ok = fchmod(fileno(file), static_cast<mode_t>(permissions)) == 0;
    ok = ok && FlushToDisk(file);
    if (file) ok = std::fclose(file) == 0 && ok;
    ok = ok && rename(scratch, target) == 0;
    if (!ok) {
        unlink(scratch);
        return 0;
    }
    FlushDirectoryOf(target);
    return 1;
}
