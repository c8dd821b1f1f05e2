// Building the sandbox: the overlay over the real root, the kernel file
// systems, the fresh /tmp, size-limited tmpfs mounts and the stand-ins.
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

bool MountOverlay(const Sandbox &box, const std::string &work) {
    std::string base = "lowerdir=" + box.lower + ",upperdir=" + box.upper + ",workdir=" + work;
    // The report compares whole files with the lower layer, which metacopy
    // would break; older kernels do not know the options and are off anyway.
    std::string strict = base + ",redirect_dir=off,metacopy=off,index=off";
    if (mount("overlay", box.root.c_str(), "overlay", 0, strict.c_str()) == 0) return true;
    if (errno == EINVAL && mount("overlay", box.root.c_str(), "overlay", 0, base.c_str()) == 0)
        return true;
    if (errno == ENODEV) {
        std::fputs("rehearse: this kernel has no overlay file system support\n", stderr);
        return false;
    }
    return Fail("cannot mount the overlay on", box.root);
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

// A tmpfs is first mounted in the state directory, where the report finds it,
// and then bound to its place inside by a chrooted child.
bool AddTmpfs(Sandbox &box, const std::string &path, const std::string &size, int index) {
    std::string staged = box.state + "/tmpfs" + std::to_string(index);
    if (!MakeDir(staged, 0700)) return false;
    std::string data = (path == "/tmp") ? "mode=1777" : "mode=0755";
    if (!size.empty()) data += ",size=" + size;
    if (!Mount("tmpfs", staged, "tmpfs", MS_NOSUID | MS_NODEV, data.c_str())) return false;
    int fd = open(staged.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return Fail("cannot open", staged);
    bool ok = InsideSandbox(box.root, [&] {
        if (!MakeDirs(path, 0755)) return false;
        struct stat st {};
        if (stat(path.c_str(), &st) == 0 && path != "/tmp")
            chmod(("/proc/self/fd/" + std::to_string(fd)).c_str(), st.st_mode & 07777);
        return Mount(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, nullptr, MS_BIND);
    });
    close(fd);
    if (!ok) {
        std::fprintf(stderr, "rehearse: cannot mount a tmpfs at %s\n", path.c_str());
        return false;
    }
    box.layers.push_back({staged, path, false});
    return true;
}

bool AddTmpfsMounts(const Options &options, Sandbox &box) {
    std::string tmpSize;
    for (const TmpfsMount &m : options.tmpfs)
        if (m.path == "/tmp") tmpSize = m.size;
    int index = 0;
    if (!AddTmpfs(box, "/tmp", tmpSize, index++)) return false;
    for (const TmpfsMount &m : options.tmpfs)
        if (m.path != "/tmp" && !AddTmpfs(box, m.path, m.size, index++)) return false;
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
    box.state = stateDir;
    box.lower = stateDir + "/lower";
    box.upper = stateDir + "/upper";
    box.root = stateDir + "/root";
    std::string work = stateDir + "/work";
    box.layers = {{box.upper, "", true}};
    if (!Mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE)) return false;
    if (!Mount("tmpfs", stateDir, "tmpfs", MS_NOSUID | MS_NODEV, "mode=0700")) return false;
    for (const std::string &dir : {box.lower, box.upper, work, box.root})
        if (!MakeDir(dir, 0755)) return false;
    // The root file system alone, without what is mounted on it: that is what
    // the overlay shows, and what the report compares against.
    if (!MountReadOnlyBind("/", box.lower, false)) return false;
    if (!MountOverlay(box, work)) return false;
    if (!MountKernelFileSystems(box) || !AddTmpfsMounts(options, box)) return false;
    if (!InstallStandIns(options, box, driveSocket)) return false;
    return true;
}
