// The simulated diskette drive and the stand-in programs of the sandbox.
//
// The stand-ins are copies of our own binary, told apart by their name. Those
// of the drive ask the rehearsal's pid 1 over a socket, because only it may
// mount: the command may be running as an ordinary user.
#include "Drive.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Sandbox.h"

namespace {

constexpr const char *kFloppy = "/floppy/floppy0";

}  // namespace

bool Drive::Start(bool empty) {
    if (empty || queue_.empty()) return true;
    if (Load()) return true;
    std::fprintf(stderr, "rehearse: cannot load diskette %s\n", queue_[0].c_str());
    return false;
}

namespace {

std::string InCase(std::string name, int (*convert)(int)) {
    for (char &c : name) c = static_cast<char>(convert(static_cast<unsigned char>(c)));
    return name;
}

bool CopyFileAt(int dirFd, const char *name, const std::string &to, mode_t mode) {
    int in = openat(dirFd, name, O_RDONLY | O_CLOEXEC);
    if (in < 0) return false;
    int out = open(to.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode & 07777);
    bool ok = out >= 0;
    char buf[65536];
    ssize_t n;
    while (ok && (n = read(in, buf, sizeof buf)) > 0)
        ok = write(out, buf, static_cast<size_t>(n)) == n;
    close(in);
    if (out >= 0) close(out);
    return ok;
}

// Fills the mount point with the diskette's files. Diskettes are DOS file
// systems, which answer to a name in either case: the installer looks for
// "disks" and "DISKS" alike, so each file is reachable under its own name and
// under its all-lower and all-upper case names.
bool FillDiskette(int dirFd) {
    if (mount("diskette", kFloppy, "tmpfs", MS_NOSUID | MS_NODEV, "size=64m,mode=0755") != 0)
        return false;
    DIR *dir = fdopendir(dup(dirFd));
    if (!dir) return false;
    std::vector<std::string> names;
    bool ok = true;
    while (dirent *e = readdir(dir)) {
        struct stat st {};
        if (fstatat(dirFd, e->d_name, &st, 0) != 0 || !S_ISREG(st.st_mode)) continue;
        names.push_back(e->d_name);
        ok = ok && CopyFileAt(dirFd, e->d_name, std::string(kFloppy) + "/" + e->d_name, st.st_mode);
    }
    closedir(dir);
    for (const std::string &name : names) {
        for (const std::string &alias : {InCase(name, tolower), InCase(name, toupper)}) {
            std::string path = std::string(kFloppy) + "/" + alias;
            if (access(path.c_str(), F_OK) != 0 && symlink(name.c_str(), path.c_str()) != 0)
                ok = false;
        }
    }
    // A diskette is read-only: the medium directory belongs to the real machine.
    return ok && mount(nullptr, kFloppy, nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

}  // namespace

bool Drive::Load() {
    int fd = open(queue_[next_].c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    bool ok = InsideSandbox(root_, [&] {
        if (FillDiskette(fd)) return true;
        umount2(kFloppy, MNT_DETACH);
        return false;
    });
    close(fd);
    if (ok) {
        loaded_ = true;
        next_++;
    }
    return ok;
}

std::string Drive::Eject() {
    if (ejectFailures_ > 0) {
        ejectFailures_--;
        return "1 eject: /floppy/floppy0: Device or resource busy";
    }
    // An empty drive ejects nothing and succeeds: the installer insists on
    // `eject -f` until it does, and would otherwise never get past it.
    if (!loaded_) return "0";
    // `eject -f` forces the diskette out even while a program started from
    // it is running: the installer itself is usually run from the diskette.
    if (!InsideSandbox(root_, [&] { return umount2(kFloppy, MNT_DETACH) == 0; }))
        return "1 eject: /floppy/floppy0: Device or resource busy";
    loaded_ = false;
    return "0";
}

std::string Drive::Handle(std::string_view request) {
    if (request == "eject") return Eject();
    if (request == "query") return loaded_ ? "0" : "1 eject: no diskette in drive";
    if (request == "load") {
        if (loaded_ || next_ >= queue_.size()) return "0";
        return Load() ? "0" : "1 volcheck: cannot read the diskette";
    }
    return "2 unknown request";
}

void ServeDriveClient(Drive &drive, int listenFd) {
    int client = accept4(listenFd, nullptr, nullptr, SOCK_CLOEXEC);
    if (client < 0) return;
    // A client that connects and says nothing must not stall the rehearsal.
    timeval timeout{2, 0};
    setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    char buf[64];
    ssize_t n = read(client, buf, sizeof buf - 1);
    if (n > 0) {
        std::string_view request(buf, static_cast<size_t>(n));
        while (!request.empty() && (request.back() == '\n' || request.back() == '\r'))
            request.remove_suffix(1);
        std::string reply = drive.Handle(request) + "\n";
        if (write(client, reply.data(), reply.size()) < 0) {
            // The client went away; nothing to tell it.
        }
    }
    close(client);
}

namespace {

int AskDrive(const char *program, const char *request) {
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", kDriveSocket);
    if (fd < 0 || connect(fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
        std::fprintf(stderr, "%s: no diskette drive\n", program);
        return 1;
    }
    std::string text = std::string(request) + "\n";
    std::string reply;
    char buf[256];
    ssize_t n = write(fd, text.data(), text.size());
    while (n > 0 && (n = read(fd, buf, sizeof buf)) > 0) reply.append(buf, static_cast<size_t>(n));
    close(fd);
    int status = std::atoi(reply.c_str());
    size_t space = reply.find(' ');
    if (reply.empty()) {
        std::fprintf(stderr, "%s: the drive did not answer\n", program);
        return 1;
    }
    if (space != std::string::npos) std::fputs(reply.c_str() + space + 1, stderr);
    return status;
}

int EjectMain(int argc, char **argv) {
    const char *request = "eject";
    for (int i = 1; i < argc; i++) {
        if (std::strcmp(argv[i], "-q") == 0) {
            request = "query";
        } else if (std::strcmp(argv[i], "-f") != 0) {
            std::fputs("usage: eject [-f | -q]\n", stderr);
            return 2;
        }
    }
    return AskDrive("eject", request);
}

// The installer finds LPRng by a line of `lpd -V` that contains "LPRng".
int LpdMain(int argc, char **argv) {
    for (int i = 1; i < argc; i++)
        if (std::strcmp(argv[i], "-V") == 0) std::puts("lpd: LPRng-3.8.28 (rehearsal stand-in)");
    return 0;
}

[[noreturn]] void Idle() {
    for (;;) pause();
}

}  // namespace

int StandInMain(int argc, char **argv) {
    if (std::getenv(kIdleVariable)) Idle();
    const char *slash = std::strrchr(argv[0], '/');
    std::string_view name = slash ? slash + 1 : argv[0];
    if (name == "eject") return EjectMain(argc, argv);
    if (name == "volcheck") return AskDrive("volcheck", "load");
    if (name == "lpd") return LpdMain(argc, argv);
    if (name == "cupsd") return 0;
    return -1;
}
