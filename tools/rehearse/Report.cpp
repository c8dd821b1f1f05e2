// The change report: what the command added, changed and removed, read from
// each overlay's upper layer (compared with the machine's file system beneath
// it) and from the sandbox's tmpfs mounts (all of whose content is new).
#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "Sandbox.h"

namespace {

struct Change {
    char kind;  // '+', '~', '-'
    std::string path;
    struct stat st;  // the entry now, or as it was for a removal
    std::string target;
    std::string note;
    std::string was, now;  // real paths of a changed text file, for its diff
};

std::vector<std::string> ListDir(const std::string &dir) {
    std::vector<std::string> names;
    DIR *d = opendir(dir.c_str());
    if (!d) return names;
    while (dirent *e = readdir(d))
        if (std::strcmp(e->d_name, ".") != 0 && std::strcmp(e->d_name, "..") != 0)
            names.emplace_back(e->d_name);
    closedir(d);
    std::sort(names.begin(), names.end());
    return names;
}

long long CtimeNs(const struct stat &st) {
    return st.st_ctim.tv_sec * 1000000000LL + st.st_ctim.tv_nsec;
}

bool Lstat(const std::string &path, struct stat &st) {
    return lstat(path.c_str(), &st) == 0;
}

std::string LinkTarget(const std::string &path) {
    char buf[4096];
    ssize_t n = readlink(path.c_str(), buf, sizeof buf);
    return n < 0 ? std::string() : std::string(buf, static_cast<size_t>(n));
}

// Overlay marks a removed lower entry with a 0/0 character device.
bool IsWhiteout(const struct stat &st) {
    return S_ISCHR(st.st_mode) && st.st_rdev == 0;
}

bool IsOpaque(const std::string &dir) {
    char value[4] = {};
    return getxattr(dir.c_str(), "trusted.overlay.opaque", value, sizeof value - 1) > 0 &&
           value[0] == 'y';
}

const char *TypeName(mode_t mode) {
    switch (mode & S_IFMT) {
        case S_IFREG:
            return "file";
        case S_IFDIR:
            return "dir";
        case S_IFLNK:
            return "symlink";
        case S_IFIFO:
            return "fifo";
        case S_IFSOCK:
            return "socket";
        case S_IFCHR:
            return "chardev";
        case S_IFBLK:
            return "blockdev";
        default:
            return "unknown";
    }
}

std::string Owner(uid_t uid, gid_t gid) {
    const passwd *pw = getpwuid(uid);
    const group *gr = getgrgid(gid);
    std::string user = pw ? pw->pw_name : std::to_string(uid);
    return user + ":" + (gr ? gr->gr_name : std::to_string(gid));
}

std::string Mode(mode_t mode) {
    char text[8];
    std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
    return text;
}

bool SameContent(const std::string &a, const std::string &b) {
    FILE *fa = std::fopen(a.c_str(), "rb");
    FILE *fb = std::fopen(b.c_str(), "rb");
    bool same = fa && fb;
    char ba[65536], bb[65536];
    while (same) {
        size_t na = std::fread(ba, 1, sizeof ba, fa);
        size_t nb = std::fread(bb, 1, sizeof bb, fb);
        same = na == nb && std::memcmp(ba, bb, na) == 0;
        if (na == 0) break;
    }
    if (fa) std::fclose(fa);
    if (fb) std::fclose(fb);
    return same;
}

// The same rule as diff and git: a NUL byte near the start means binary.
bool IsText(const std::string &path) {
    FILE *f = std::fopen(path.c_str(), "rb");
    if (!f) return false;
    char buf[8000];
    size_t n = std::fread(buf, 1, sizeof buf, f);
    std::fclose(f);
    return std::memchr(buf, '\0', n) == nullptr;
}

class Comparer {
  public:
    Comparer(const Sandbox &box) : box_(box) {}

    std::vector<Change> Run() {
        for (const Layer &layer : box_.layers) {
            if (!layer.lower.empty())
                CompareDir(layer, "");
            else
                ListAdded(layer, "");
        }
        std::sort(changes_.begin(), changes_.end(),
                  [](const Change &a, const Change &b) { return a.path < b.path; });
        return std::move(changes_);
    }

  private:
    const Sandbox &box_;
    std::vector<Change> changes_;

    // Entries the sandbox installed itself: a directory is never listed for
    // having been created by us; a file only while it is as we left it.
    bool IsPlumbing(const std::string &path, const struct stat &st) const {
        auto it = box_.plumbing.find(path);
        if (it == box_.plumbing.end()) return false;
        const Before &b = it->second;
        if (S_ISDIR(st.st_mode) && S_ISDIR(b.mode)) return true;
        return b.mode == st.st_mode && b.size == st.st_size && b.ctimeNs == CtimeNs(st);
    }

    void Add(char kind, const std::string &path, const std::string &real, const struct stat &st,
             std::string note = {}) {
        Change c{kind, path, st, {}, std::move(note)};
        if (S_ISLNK(st.st_mode)) c.target = LinkTarget(real);
        changes_.push_back(std::move(c));
    }

    void ListAdded(const Layer &layer, const std::string &rel) {
        for (const std::string &name : ListDir(layer.dir + rel)) {
            std::string sub = rel + "/" + name;
            std::string path = layer.prefix + sub;
            struct stat st {};
            if (!Lstat(layer.dir + sub, st)) continue;
            if (!IsPlumbing(path, st)) Add('+', path, layer.dir + sub, st);
            if (S_ISDIR(st.st_mode)) ListAdded(layer, sub);
        }
    }

    void ListRemoved(const Layer &layer, const std::string &rel) {
        struct stat st {};
        if (!Lstat(layer.lower + rel, st)) return;
        Add('-', layer.prefix + rel, layer.lower + rel, st);
        if (S_ISDIR(st.st_mode))
            for (const std::string &name : ListDir(layer.lower + rel))
                ListRemoved(layer, rel + "/" + name);
    }

    void CompareDir(const Layer &layer, const std::string &rel) {
        std::vector<std::string> names = ListDir(layer.dir + rel);
        if (!rel.empty() && IsOpaque(layer.dir + rel)) {
            // The directory was removed and made again: whatever the lower
            // layer held that the new one lacks is gone.
            for (const std::string &name : ListDir(layer.lower + rel))
                if (!std::binary_search(names.begin(), names.end(), name))
                    ListRemoved(layer, rel + "/" + name);
        }
        for (const std::string &name : names) CompareEntry(layer, rel + "/" + name);
    }

    void CompareEntry(const Layer &layer, const std::string &rel) {
        struct stat now {
        }, was{};
        std::string upper = layer.dir + rel, path = layer.prefix + rel;
        if (!Lstat(upper, now)) return;
        bool existed = Lstat(layer.lower + rel, was);
        if (IsWhiteout(now)) {
            if (existed) ListRemoved(layer, rel);
            return;
        }
        bool plumbing = IsPlumbing(path, now);
        if (!existed) {
            if (!plumbing) Add('+', path, upper, now);
        } else if ((now.st_mode & S_IFMT) != (was.st_mode & S_IFMT)) {
            Add('~', path, upper, now, std::string("was ") + TypeName(was.st_mode));
            if (S_ISDIR(was.st_mode))
                for (const std::string &name : ListDir(layer.lower + rel))
                    ListRemoved(layer, rel + "/" + name);
        } else if (!plumbing || S_ISDIR(now.st_mode)) {
            CompareSameType(layer, rel, now, was);
        }
        if (S_ISDIR(now.st_mode)) CompareDir(layer, rel);
    }

    void CompareSameType(const Layer &layer, const std::string &rel, const struct stat &now,
                         const struct stat &was) {
        std::vector<std::string> notes;
        if ((now.st_mode & 07777) != (was.st_mode & 07777))
            notes.push_back("mode was " + Mode(was.st_mode));
        if (now.st_uid != was.st_uid || now.st_gid != was.st_gid)
            notes.push_back("owner was " + Owner(was.st_uid, was.st_gid));
        bool contentChanged = false;
        std::string upper = layer.dir + rel, lower = layer.lower + rel;
        if (S_ISREG(now.st_mode)) {
            contentChanged = now.st_size != was.st_size || !SameContent(upper, lower);
            if (contentChanged) notes.push_back("content changed");
        } else if (S_ISLNK(now.st_mode)) {
            std::string old = LinkTarget(lower);
            if (old != LinkTarget(upper)) notes.push_back("target was " + old);
        } else if ((S_ISCHR(now.st_mode) || S_ISBLK(now.st_mode)) && now.st_rdev != was.st_rdev) {
            notes.push_back("device changed");
        }
        if (notes.empty()) return;
        std::string note;
        for (const std::string &n : notes) note += (note.empty() ? "" : ", ") + n;
        Add('~', layer.prefix + rel, upper, now, note);
        if (contentChanged && IsText(upper) && IsText(lower)) {
            changes_.back().was = lower;
            changes_.back().now = upper;
        }
    }
};

void Print(int out, const std::string &text) {
    size_t done = 0;
    while (done < text.size()) {
        ssize_t n = write(out, text.data() + done, text.size() - done);
        if (n <= 0) return;
        done += static_cast<size_t>(n);
    }
}

std::string FormatChange(const Change &c) {
    char head[64];
    std::snprintf(head, sizeof head, "%c %-8s %s ", c.kind, TypeName(c.st.st_mode),
                  Mode(c.st.st_mode).c_str());
    std::string line = head + Owner(c.st.st_uid, c.st.st_gid) + "  " + c.path;
    if (S_ISLNK(c.st.st_mode)) line += " -> " + c.target;
    if (!c.note.empty()) line += " (" + c.note + ")";
    return line + "\n";
}

void WalkSnapshot(Sandbox &box, const Layer &layer, const std::string &rel) {
    for (const std::string &name : ListDir(layer.dir + rel)) {
        std::string sub = rel + "/" + name;
        struct stat st {};
        if (!Lstat(layer.dir + sub, st)) continue;
        box.plumbing[layer.prefix + sub] = {st.st_mode, st.st_uid, st.st_gid, st.st_size,
                                            CtimeNs(st)};
        if (S_ISDIR(st.st_mode)) WalkSnapshot(box, layer, sub);
    }
}

void WriteChanges(const std::vector<Change> &changes, int out) {
    if (changes.empty()) {
        Print(out, "rehearse: no changes\n");
        return;
    }
    int counts[3] = {};
    Print(out, "rehearse: changes made by the command (+ added, ~ changed, - removed):\n");
    for (const Change &c : changes) {
        Print(out, FormatChange(c));
        counts[c.kind == '+' ? 0 : c.kind == '~' ? 1 : 2]++;
    }
    char summary[128];
    std::snprintf(summary, sizeof summary, "rehearse: %d added, %d changed, %d removed\n",
                  counts[0], counts[1], counts[2]);
    Print(out, summary);
    for (const Change &c : changes) {
        if (c.was.empty()) continue;
        std::string from = "a" + c.path, to = "b" + c.path;
        RunHostCommand({"diff", "-u", "--label", from, "--label", to, c.was, c.now}, out);
    }
}

}  // namespace

void SnapshotPlumbing(Sandbox &box) {
    box.plumbing.clear();
    for (const Layer &layer : box.layers) WalkSnapshot(box, layer, "");
}

void WriteReport(const Sandbox &box, int out) {
    WriteChanges(Comparer(box).Run(), out);
    // Told last, so that the report still begins as it always has.
    for (const std::string &mount : box.readOnly)
        Print(out, "rehearse: read-only inside, as no overlay could lie over it: " + mount + "\n");
}
