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

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
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

// The largest FAT cluster: no file or directory takes more than its size
// rounded up to it, whatever cluster size mkfs.vfat picks.
constexpr long long kLargestCluster = 32768;
// Boot sector, both FATs and the root directory of a small volume.
constexpr long long kFatOverhead = 1 << 20;
// A 1.44 MB diskette: smaller contents get a volume of a real diskette's size.
constexpr long long kDisketteKiB = 1440;

// Bytes for a FAT volume that holds the tree under `dir`, with room to spare.
long long FatBytes(const std::string &dir) {
    namespace fs = std::filesystem;
    std::error_code error, ignored;
    long long bytes = kFatOverhead;
    for (fs::recursive_directory_iterator it(dir, error), end; !error && it != end;
         it.increment(error)) {
        long long size = it->is_regular_file(ignored) ? it->file_size(ignored) : 0;
        bytes += (size / kLargestCluster + 1) * kLargestCluster;
    }
    // The FATs grow with the volume: two of them, up to 4 bytes per 512-byte cluster.
    return error ? -1 : std::max(bytes + bytes / 64, kDisketteKiB * 1024);
}

// Writes a FAT image of the files and directories of `dir` (the diskette).
bool MakeFatImage(const std::string &dir, const std::string &image) {
    long long bytes = FatBytes(dir);
    if (bytes < 0 ||
        RunHostCommand({"mkfs.vfat", "-C", image, std::to_string(bytes / 1024)}, -1, true) != 0)
        return false;
    std::vector<std::string> entries;
    std::error_code error, ignored;
    for (std::filesystem::directory_iterator it(dir, error), end; !error && it != end;
         it.increment(error))
        if (it->is_regular_file(ignored) || it->is_directory(ignored))
            entries.push_back(it->path());
    if (error) return false;
    if (entries.empty()) return true;
    std::vector<std::string> copy{"mcopy", "-s", "-p", "-m", "-i", image};
    copy.insert(copy.end(), entries.begin(), entries.end());
    copy.push_back("::/");
    // Names that a FAT cannot hold side by side ("disks" and "DISKS") fail here.
    return RunHostCommand(copy, -1, true) == 0;
}

// Runs the FAT driver inside the sandbox, where the mount point is; the image
// lies outside, so the driver gets it as an inherited open file.
bool MountFat(const std::string &root, const std::string &image) {
    int fd = open(image.c_str(), O_RDONLY);
    if (fd < 0) return false;
    bool ok = InsideSandbox(root, [&] {
        int null = open("/dev/null", O_RDWR);
        for (int standard = 0; null >= 0 && standard < 3; standard++) dup2(null, standard);
        std::string path = "/proc/self/fd/" + std::to_string(fd);
        // Read-only, and readable by every user as a DOS file system mounted by
        // root is; fusefat exits once it has mounted and runs on as a daemon.
        execlp("fusefat", "fusefat", "-s", "-o",
               "ro,allow_other,umask=022,fsname=diskette,subtype=vfat", path.c_str(), kFloppy,
               static_cast<char *>(nullptr));
        return false;
    });
    close(fd);
    return ok;
}

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

// Copies the files and directories (not links to directories, which could
// loop) of `dirFd` into `to`. Each name is reachable under its own spelling and
// under its all-lower and all-upper case spellings, the most a plain file
// system can do for the installer's "disks" and "DISKS".
bool CopyTree(int dirFd, const std::string &to) {
    DIR *dir = fdopendir(dup(dirFd));
    if (!dir) return false;
    std::vector<std::string> names;
    bool ok = true;
    while (dirent *e = readdir(dir)) {
        struct stat st {};
        struct stat link {};
        if (e->d_name[0] == '.' && (!e->d_name[1] || !std::strcmp(e->d_name, ".."))) continue;
        if (fstatat(dirFd, e->d_name, &st, 0) != 0 ||
            fstatat(dirFd, e->d_name, &link, AT_SYMLINK_NOFOLLOW) != 0)
            continue;
        std::string target = to + "/" + e->d_name;
        if (S_ISREG(st.st_mode)) {
            ok = ok && CopyFileAt(dirFd, e->d_name, target, st.st_mode);
        } else if (S_ISDIR(link.st_mode)) {
            int sub = openat(dirFd, e->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
            ok = ok && sub >= 0 && mkdir(target.c_str(), 0755) == 0 && CopyTree(sub, target);
            if (sub >= 0) close(sub);
        } else {
            continue;
        }
        names.push_back(e->d_name);
    }
    closedir(dir);
    for (const std::string &name : names) {
        for (const std::string &alias : {InCase(name, tolower), InCase(name, toupper)}) {
            std::string path = to + "/" + alias;
            if (access(path.c_str(), F_OK) != 0 && symlink(name.c_str(), path.c_str()) != 0)
                ok = false;
        }
    }
    return ok;
}

bool FillDiskette(int dirFd) {
    if (mount("diskette", kFloppy, "tmpfs", MS_NOSUID | MS_NODEV, "size=64m,mode=0755") != 0)
        return false;
    // A diskette is read-only: the medium directory belongs to the real machine.
    return CopyTree(dirFd, kFloppy) &&
           mount(nullptr, kFloppy, nullptr, MS_REMOUNT | MS_RDONLY, nullptr) == 0;
}

}  // namespace

// A DOS diskette is a FAT file system, which answers to a name in any case at
// any depth: the installer asks for db/fr_FR/CoreString.vdb on a diskette that
// lists DB/FR_FR/CORESTRING.VDB. The diskette becomes a FAT image served by
// fusefat, a FAT driver in user space, as kernels in containers often lack
// their own; without it the diskette is copied to a tmpfs.
bool Drive::Load() {
    const std::string &dir = queue_[next_];
    if (!LoadFat(dir) && !LoadCopy(dir)) return false;
    loaded_ = true;
    next_++;
    return true;
}

bool Drive::LoadFat(const std::string &dir) {
    std::string image = scratch_ + "/diskette" + std::to_string(next_) + ".img";
    bool ok = MakeFatImage(dir, image) && MountFat(root_, image);
    // The driver keeps the image open for as long as anything uses the diskette.
    unlink(image.c_str());
    return ok;
}

bool Drive::LoadCopy(const std::string &dir) {
    int fd = open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return false;
    bool ok = InsideSandbox(root_, [&] {
        if (FillDiskette(fd)) return true;
        umount2(kFloppy, MNT_DETACH);
        return false;
    });
    close(fd);
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
