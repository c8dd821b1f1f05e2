// The machine's own mounts, read from /proc/self/mountinfo: which of them the
// sandbox shows beside the root, and with which of their flags.
#include <sys/mount.h>

#include <algorithm>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "Sandbox.h"

namespace {

// Kernel interfaces and automount points rather than files: the sandbox mounts
// its own /proc, binds /dev and /sys as before, and leaves the rest out.
constexpr std::string_view kKernelTypes[] = {
    "proc",     "sysfs",      "devtmpfs",  "devpts",      "cgroup",   "cgroup2",
    "mqueue",   "debugfs",    "tracefs",   "securityfs",  "pstore",   "bpf",
    "configfs", "fusectl",    "hugetlbfs", "binfmt_misc", "efivarfs", "selinuxfs",
    "nsfs",     "rpc_pipefs", "nfsd",      "autofs"};
constexpr std::string_view kKernelTrees[] = {"/proc", "/sys", "/dev"};

struct Entry {
    int id = 0, parent = 0;
    MachineMount mount;
};

bool IsOctal(char c) {
    return c >= '0' && c <= '7';
}

// mountinfo writes space, tab, newline and backslash in names as \ooo.
std::string Unescape(std::string_view text) {
    std::string out;
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == '\\' && i + 3 < text.size() && IsOctal(text[i + 1]) &&
            IsOctal(text[i + 2]) && IsOctal(text[i + 3])) {
            out += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                                     (text[i + 3] - '0'));
            i += 3;
        } else {
            out += text[i];
        }
    }
    return out;
}

bool HasOption(const std::string &options, std::string_view name) {
    std::istringstream list(options);
    for (std::string option; std::getline(list, option, ',');)
        if (option == name) return true;
    return false;
}

// "36 35 98:0 /mnt1 /mnt2 rw,noatime master:1 - ext3 /dev/root rw,errors=continue"
bool Parse(const std::string &line, Entry &e) {
    std::istringstream in(line);
    std::string device, root, path, options, word, source, super;
    if (!(in >> e.id >> e.parent >> device >> root >> path >> options)) return false;
    while (in >> word && word != "-") {
    }
    if (word != "-" || !(in >> e.mount.type >> source >> super)) return false;
    e.mount.path = Unescape(path);
    e.mount.flags = 0;
    if (HasOption(options, "ro") || HasOption(super, "ro")) e.mount.flags |= MS_RDONLY;
    if (HasOption(options, "nosuid")) e.mount.flags |= MS_NOSUID;
    if (HasOption(options, "nodev")) e.mount.flags |= MS_NODEV;
    if (HasOption(options, "noexec")) e.mount.flags |= MS_NOEXEC;
    return true;
}

bool Below(const std::string &path, std::string_view tree) {
    return path == tree || (path.starts_with(tree) && path[tree.size()] == '/');
}

bool Shown(const MachineMount &m, const std::string &stateDir) {
    if (m.path == "/" || Below(m.path, stateDir)) return false;
    for (std::string_view tree : kKernelTrees)
        if (Below(m.path, tree)) return false;
    return std::find(std::begin(kKernelTypes), std::end(kKernelTypes), m.type) ==
           std::end(kKernelTypes);
}

}  // namespace

std::vector<MachineMount> MachineMounts(const std::string &stateDir) {
    std::vector<Entry> entries;
    std::ifstream in("/proc/self/mountinfo");
    for (std::string line; std::getline(in, line);) {
        Entry e;
        if (Parse(line, e)) entries.push_back(e);
    }
    std::map<int, const Entry *> byId;
    for (const Entry &e : entries) byId[e.id] = &e;
    // A mount is hidden by another mounted on the same point later, and so is
    // everything that was mounted on it.
    std::map<int, bool> covered;
    for (const Entry &e : entries) {
        auto parent = byId.find(e.parent);
        if (parent != byId.end() && parent->second->mount.path == e.mount.path)
            covered[e.parent] = true;
    }
    std::map<int, bool> reachable;
    auto Reachable = [&](auto &self, const Entry &e) -> bool {
        auto known = reachable.find(e.id);
        if (known != reachable.end()) return known->second;
        reachable[e.id] = false;  // a loop in a damaged table ends here
        auto parent = byId.find(e.parent);
        // The root of the namespace has a parent out of sight, or itself.
        bool yes = parent == byId.end() || e.parent == e.id ||
                   (self(self, *parent->second) &&
                    (!covered[e.parent] || parent->second->mount.path == e.mount.path));
        return reachable[e.id] = yes;
    };
    std::map<std::string, MachineMount> shown;
    for (const Entry &e : entries)
        if (Reachable(Reachable, e) && !covered[e.id] && Shown(e.mount, stateDir))
            shown[e.mount.path] = e.mount;
    // Sorted by path, each mount comes after the one it is mounted on.
    std::vector<MachineMount> mounts;
    for (auto &[path, m] : shown) mounts.push_back(m);
    return mounts;
}
