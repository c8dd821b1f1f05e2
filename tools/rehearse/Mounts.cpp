// Building the sandbox: an overlay over the real root and over each file system
// mounted on it, the kernel file systems, size-limited tmpfs mounts and the
// stand-ins.
//
// Every mount lives in our private mount namespace, so it vanishes with the
// last process of the rehearsal. Anything that creates a file or directory
// inside the sandbox is done by a child chrooted into it, so that a symbolic
// link of the sandbox can never lead a write out to the real machine.
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <string>

#include "Sandbox.h"

namespace {

bool Fail(const char *what, const std::string &path) {
    std::fprintf(stderr, "rehearse: %s %s: %s\n", what, path.c_str(), std::strerror(errno));
    return false;
}

bool Mount(const char *source, const std::string &target, const char *type, unsigned long flags,
           const char *data = nullptr) {
    if (mount(source, target.c_str(), type, flags, data) == 0) return true;
    return Fail("cannot mount", target);
}

bool MountReadOnlyBind(const std::string &source, const std::string &target, bool recursive) {
    unsigned long flags = MS_BIND | (recursive ? MS_REC : 0);
    return Mount(source.c_str(), target, nullptr, flags) &&
           Mount(nullptr, target, nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY);
}

bool MakeDir(const std::string &path, mode_t mode) {
    if (mkdir(path.c_str(), mode) == 0 || errno == EEXIST) return true;
    return Fail("cannot create", path);
}

// Creates the missing directories of an absolute path, like mkdir -p.
bool MakeDirs(const std::string &path, mode_t mode) {
    for (size_t slash = path.find('/', 1);; slash = path.find('/', slash + 1)) {
        std::string part = path.substr(0, slash);
        if (mkdir(part.c_str(), mode) != 0 && errno != EEXIST) return Fail("cannot create", part);
        if (slash == std::string::npos) return true;
    }
}

bool CopyFile(int fromFd, const std::string &to, mode_t mode) {
    unlink(to.c_str());
    int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, mode);
    if (out < 0) return Fail("cannot create", to);
    struct stat st {};
    fstat(fromFd, &st);
    off_t offset = 0;
    bool ok = true;
    while (ok && offset < st.st_size) ok = sendfile(out, fromFd, &offset, st.st_size - offset) > 0;
    fchmod(out, mode);
    close(out);
    if (!ok) return Fail("cannot copy to", to);
    return true;
}

}  // namespace

bool InsideSandbox(const std::string &root, const std::function<bool()> &work) {
    pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        if (chroot(root.c_str()) != 0 || chdir("/") != 0) _exit(1);
        _exit(work() ? 0 : 1);
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

namespace {

// The machine's file system at `source` alone, without what is mounted on it,
// read-only at base/lower: what an overlay shows beneath the command's
// changes, and what the report compares them with. The upper and work
// directories and the mount point base/root are made beside it.
bool StageLayers(const std::string &source, const std::string &base, Layer &layer) {
    layer = {base + "/upper", base + "/lower", ""};
    for (const std::string &dir : {base, layer.lower, layer.dir, base + "/work", base + "/root"})
        if (!MakeDir(dir, 0755)) return false;
    if (!MountReadOnlyBind(source, layer.lower, false)) return false;
    // An overlay's root directory shows the mode and owner of its upper layer's.
    struct stat st {};
    if (stat(layer.lower.c_str(), &st) != 0 || chmod(layer.dir.c_str(), st.st_mode & 07777) != 0 ||
        chown(layer.dir.c_str(), st.st_uid, st.st_gid) != 0)
        return Fail("cannot prepare", layer.dir);
    return true;
}

// Mounts the overlay of `layer` staged under `base` at base/root; false, with
// errno set, when the kernel refuses it.
bool MountOverlay(const Layer &layer, const std::string &base, unsigned long flags) {
    std::string options =
        "lowerdir=" + layer.lower + ",upperdir=" + layer.dir + ",workdir=" + base + "/work";
    // The report compares whole files with the lower layer, which metacopy
    // would break; older kernels do not know the options and are off anyway.
    std::string strict = options + ",redirect_dir=off,metacopy=off,index=off";
    std::string root = base + "/root";
    if (mount("overlay", root.c_str(), "overlay", flags, strict.c_str()) == 0) return true;
    return errno == EINVAL &&
           mount("overlay", root.c_str(), "overlay", flags, options.c_str()) == 0;
}

bool MountRootOverlay(Sandbox &box) {
    Layer layer;
    if (!StageLayers("/", box.state, layer)) return false;
    if (!MountOverlay(layer, box.state, 0)) {
        if (errno != ENODEV) return Fail("cannot mount the overlay on", box.root);
        std::fputs("rehearse: this kernel has no overlay file system support\n", stderr);
        return false;
    }
    box.layers.push_back(layer);
    return true;
}

// /proc of our own pid namespace, so `ps -e` inside sees only the rehearsal;
// /proc/sys stays read-only so that root inside cannot retune the real kernel.
bool MountKernelFileSystems(const Sandbox &box) {
    std::string proc = box.root + "/proc";
    if (!Mount("proc", proc, "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC)) return false;
    if (!MountReadOnlyBind(proc + "/sys", proc + "/sys", false)) return false;
    if (!Mount("/dev", box.root + "/dev", nullptr, MS_BIND | MS_REC)) return false;
    struct stat st {};
    if (stat((box.root + "/dev/shm").c_str(), &st) == 0 &&
        !Mount("tmpfs", box.root + "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777"))
        return false;
    return MountReadOnlyBind("/sys", box.root + "/sys", false);
}

// A mount point missing inside: one on a file system the sandbox leaves out.
bool MakeMountPoint(const std::string &path, bool directory) {
    if (directory) return MakeDirs(path, 0755);
    std::string parent = path.substr(0, path.rfind('/'));
    int fd = (parent.empty() || MakeDirs(parent, 0755))
                 ? open(path.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0644)
                 : -1;
    if (fd < 0) return Fail("cannot create", path);
    close(fd);
    return true;
}

// Binds `staged`, outside the chroot, over `path` inside and gives the mount
// `flags`. A chrooted child does it, so that a symbolic link of the sandbox
// never leads the mount out of it. With `takeMode` the staged directory takes
// the mode of the one it covers.
bool BindInside(const Sandbox &box, const std::string &staged, const std::string &path,
                unsigned long flags, bool takeMode) {
    int fd = open(staged.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return Fail("cannot open", staged);
    struct stat what {};
    fstat(fd, &what);
    std::string source = "/proc/self/fd/" + std::to_string(fd);
    bool ok = InsideSandbox(box.root, [&] {
        struct stat st {};
        if (stat(path.c_str(), &st) == 0) {
            if (takeMode) chmod(source.c_str(), st.st_mode & 07777);
        } else if (!MakeMountPoint(path, S_ISDIR(what.st_mode))) {
            return false;
        }
        return Mount(source.c_str(), path, nullptr, MS_BIND) &&
               (!flags || Mount(nullptr, path, nullptr, MS_REMOUNT | MS_BIND | flags));
    });
    close(fd);
    if (!ok) std::fprintf(stderr, "rehearse: cannot mount %s inside\n", path.c_str());
    return ok;
}

// Copy-on-write like the root, with the machine's mount flags. Where the
// kernel refuses an overlay (one over an overlay over an overlay exceeds its
// stacking depth) the file system is bound read-only instead, and its devices
// with it are unusable, as writing one would reach the machine.
bool AddMountOverlay(Sandbox &box, const MachineMount &m, int index) {
    std::string base = box.state + "/mount" + std::to_string(index);
    Layer layer;
    if (!StageLayers(m.path, base, layer)) return false;
    layer.prefix = m.path;
    if (MountOverlay(layer, base, m.flags)) {
        box.layers.push_back(layer);
        return BindInside(box, base + "/root", m.path, m.flags, false);
    }
    if (!(m.flags & MS_RDONLY)) box.readOnly.push_back(m.path + " (" + m.type + ")");
    return BindInside(box, layer.lower, m.path, m.flags | MS_RDONLY | MS_NODEV, false);
}

// A mount on a file is bound read-only. One on a socket, fifo or device is
// left out: read-only, it would still reach the machine's service or device.
bool AddMachineMounts(Sandbox &box, const std::vector<MachineMount> &mounts) {
    int index = 0;
    for (const MachineMount &m : mounts) {
        struct stat st {};
        if (stat(m.path.c_str(), &st) != 0) continue;
        if (S_ISDIR(st.st_mode) && !AddMountOverlay(box, m, index++)) return false;
        if (S_ISREG(st.st_mode) && !BindInside(box, m.path, m.path, m.flags | MS_RDONLY, false))
            return false;
    }
    return true;
}

// A tmpfs is first mounted in the state directory, where the report finds it.
bool AddTmpfsMounts(const Options &options, Sandbox &box) {
    int index = 0;
    for (const TmpfsMount &m : options.tmpfs) {
        std::string staged = box.state + "/tmpfs" + std::to_string(index++);
        std::string data = "mode=0755,size=" + m.size;
        if (!MakeDir(staged, 0700) ||
            !Mount("tmpfs", staged, "tmpfs", MS_NOSUID | MS_NODEV, data.c_str()) ||
            !BindInside(box, staged, m.path, 0, true))
            return false;
        box.layers.push_back({staged, "", m.path});
    }
    return true;
}

struct StandIn {
    const char *path;
    bool Options::*wanted;
};

// Placed where the installer's command search looks first.
constexpr StandIn kStandIns[] = {
    {"/usr/bin/eject", &Options::drive},
    {"/usr/bin/volcheck", &Options::drive},
    {"/usr/sbin/cupsd", &Options::cupsd},
    {"/usr/sbin/lpd", &Options::lprng},
};

bool InstallStandIns(const Options &options, Sandbox &box, int driveSocket) {
    bool helpers = options.drive || !options.processes.empty();
    if (!helpers && !options.cupsd && !options.lprng) return true;
    int exe = open("/proc/self/exe", O_RDONLY | O_CLOEXEC);
    if (exe < 0) return Fail("cannot read", "/proc/self/exe");
    bool ok = InsideSandbox(box.root, [&] {
        if (helpers) {
            if (!MakeDirs(kHelperDir, 0755) ||
                !Mount("tmpfs", kHelperDir, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755,size=64m") ||
                !MakeDir(std::string(kHelperDir) + "/bin", 0755))
                return false;
        }
        for (const StandIn &s : kStandIns) {
            std::string dir = std::string(s.path).substr(0, std::string(s.path).rfind('/'));
            if (options.*s.wanted && !(MakeDirs(dir, 0755) && CopyFile(exe, s.path, 0755)))
                return false;
        }
        for (const std::string &name : options.processes)
            if (!CopyFile(exe, std::string(kHelperDir) + "/bin/" + name, 0755)) return false;
        if (!options.drive) return true;
        if (!MakeDirs("/floppy/floppy0", 0755)) return false;
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", kDriveSocket);
        if (bind(driveSocket, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0 ||
            chmod(kDriveSocket, 0666) != 0 || listen(driveSocket, 8) != 0)
            return Fail("cannot create", kDriveSocket);
        return true;
    });
    close(exe);
    if (!ok) std::fputs("rehearse: cannot install the stand-ins\n", stderr);
    return ok;
}

}  // namespace

bool BuildSandbox(const Options &options, const std::string &stateDir, Sandbox &box,
                  int driveSocket) {
    std::vector<MachineMount> mounts = MachineMounts(stateDir);
    box.state = stateDir;
    box.root = stateDir + "/root";
    if (!Mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE)) return false;
    if (!Mount("tmpfs", stateDir, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0700")) return false;
    return MountRootOverlay(box) && MountKernelFileSystems(box) && AddMachineMounts(box, mounts) &&
           AddTmpfsMounts(options, box) && InstallStandIns(options, box, driveSocket);
}
