// usage: rehearse [options] [--] command [args...]
//
// Runs a command as root inside a throwaway copy-on-write view of the whole
// machine and reports what it changed. The real machine is never changed.
#include "Options.h"

#include <getopt.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

constexpr const char *kUsage = R"(usage: rehearse [options] [--] command [args...]

Runs COMMAND as root inside a throwaway copy-on-write view of the whole machine
(a private mount namespace; an overlay with the real root as its lower layer,
and one over each file system mounted on it, /tmp included; its own /proc,
with /dev and /sys bound in; its own process ids) and reports what the command
changed. Nothing on the real machine changes. A file system mounted read-only
stays so inside, as does one that no overlay can lie over (an overlay over an
overlay over an overlay), which the report names at its end. The kernel's own
file systems (cgroup, mqueue, ...) are not shown.

  -u, --user USER        run the command as USER (name or number; default root);
                         HOME, USER and LOGNAME follow USER unless set with -e
  -t, --tmpfs PATH:SIZE  mount an empty tmpfs of SIZE (2M, 500k, 1G) at PATH,
                         hiding what PATH holds
  -e, --env NAME=VALUE   set a variable for the command
      --unset NAME       clear a variable (otherwise the caller's environment
                         is inherited)
  -i, --stdin FILE       feed FILE as standard input (default: inherit)
  -k, --keep DIR         after the run copy the changed files (every overlay's
                         upper layer and every -t tmpfs) into DIR, which must
                         not exist; removed files show as character devices 0/0
                         (left out where DIR's file system cannot hold those,
                         as an overlay cannot)
  -f, --floppy DIR       add a diskette directory to the drive's queue
                         (repeatable; the first one is loaded at start)
      --floppy-empty     start with an empty drive (`volcheck` loads the first)
      --eject-fail N     the first N `eject -f` fail as if the drive were stuck
      --cupsd            install a stand-in /usr/sbin/cupsd
      --lprng            install a stand-in /usr/sbin/lpd that answers -V as LPRng
  -p, --process NAME     start a stand-in process named NAME (as root, before the
                         command; repeatable); `ps -e` shows at most 15
                         characters of a name
  -C, --chdir DIR        working directory inside (default: the caller's, or /
                         when that does not exist inside)
  -q, --quiet            no change report
  -r, --report FILE      write the change report to FILE instead of standard error
  -h, --help             this text

The diskette drive (any -f or --floppy-empty): /floppy/floppy0 shows the loaded
diskette read-only as a DOS file system: the directory is made into a FAT
image (mkfs.vfat, mcopy) that fusefat serves, answering to any case of a name
at any depth. Without those tools or /dev/fuse, or when the directory holds
names a FAT cannot (two differing only in case), the diskette is copied to a
tmpfs where each name answers only as given, in all lower and in all upper
case (those show as symbolic links). `eject -f`
(or plain `eject`) unloads it, even while a program started from it runs, and
succeeds on an empty drive too; `eject -q` exits 0 when a diskette is loaded
and 1 when not; `volcheck` loads the next diskette of the queue into an empty
drive.

The change report is written after the command ends: one line per path added
(+), changed (~) or removed (-) with its type, mode, owner and link target,
then a unified diff of every changed text file that existed before. The
sandbox's own stand-ins, mount points and sockets are not listed. The
command's own output is never mixed into it.

Exit status: the command's status, 128+N when it was killed by signal N, 126 or
127 when it cannot be run, 125 when the sandbox cannot be set up (with a
one-line "rehearse: ..." reason). An interrupt (SIGINT, SIGTERM, SIGHUP) is
passed to the command; whatever still runs two seconds later is killed.
)";

enum LongOnly { kUnset = 256, kFloppyEmpty, kEjectFail, kCupsd, kLprng };

constexpr option kLongOptions[] = {
    {"user", required_argument, nullptr, 'u'},
    {"tmpfs", required_argument, nullptr, 't'},
    {"env", required_argument, nullptr, 'e'},
    {"unset", required_argument, nullptr, kUnset},
    {"stdin", required_argument, nullptr, 'i'},
    {"keep", required_argument, nullptr, 'k'},
    {"floppy", required_argument, nullptr, 'f'},
    {"floppy-empty", no_argument, nullptr, kFloppyEmpty},
    {"eject-fail", required_argument, nullptr, kEjectFail},
    {"cupsd", no_argument, nullptr, kCupsd},
    {"lprng", no_argument, nullptr, kLprng},
    {"process", required_argument, nullptr, 'p'},
    {"chdir", required_argument, nullptr, 'C'},
    {"quiet", no_argument, nullptr, 'q'},
    {"report", required_argument, nullptr, 'r'},
    {"help", no_argument, nullptr, 'h'},
    {nullptr, 0, nullptr, 0},
};

bool Refuse(const char *what, const char *arg) {
    std::fprintf(stderr, "rehearse: %s: %s\n", what, arg);
    return false;
}

// tmpfs itself accepts these suffixes; anything else would fail later at
// mount time with a less helpful message.
bool ValidSize(std::string_view size) {
    size_t digits = 0;
    while (digits < size.size() && std::isdigit(static_cast<unsigned char>(size[digits]))) digits++;
    if (digits == 0) return false;
    std::string_view rest = size.substr(digits);
    return rest.empty() ||
           (rest.size() == 1 && std::string_view("kKmMgG").find(rest[0]) != std::string_view::npos);
}

bool ValidName(std::string_view name) {
    if (name.empty()) return false;
    for (char c : name)
        if (c == '=' || c == '\0') return false;
    return true;
}

// The sandbox shares the caller's file system view, so a relative path given
// on our command line means what it means to the caller.
std::string Absolute(const std::string &path) {
    if (!path.empty() && path[0] == '/') return path;
    char cwd[4096];
    if (!getcwd(cwd, sizeof cwd)) return path;
    return std::string(cwd) + "/" + path;
}

bool IsDirectory(const std::string &path) {
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

bool AddTmpfs(Options &options, const char *arg) {
    std::string_view text(arg);
    size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0 || text[0] != '/')
        return Refuse("--tmpfs needs /PATH:SIZE", arg);
    std::string_view size = text.substr(colon + 1);
    if (!ValidSize(size)) return Refuse("bad tmpfs size (use a number with k, M or G)", arg);
    std::string path(text.substr(0, colon));
    while (path.size() > 1 && path.back() == '/') path.pop_back();
    if (path == "/") return Refuse("--tmpfs cannot replace the root", arg);
    options.tmpfs.push_back({path, std::string(size)});
    return true;
}

bool AddEnv(Options &options, const char *arg) {
    std::string_view text(arg);
    size_t eq = text.find('=');
    if (eq == std::string_view::npos || !ValidName(text.substr(0, eq)))
        return Refuse("--env needs NAME=VALUE", arg);
    options.env.emplace_back(std::string(text.substr(0, eq)), std::string(text.substr(eq + 1)));
    return true;
}

bool AddFloppy(Options &options, const char *arg) {
    std::string dir = Absolute(arg);
    if (!IsDirectory(dir)) return Refuse("diskette directory not found", arg);
    options.floppies.push_back(dir);
    options.drive = true;
    return true;
}

bool SetKeep(Options &options, const char *arg) {
    struct stat st {};
    if (lstat(arg, &st) == 0) return Refuse("--keep directory already exists", arg);
    options.keepDir = Absolute(arg);
    std::string parent = options.keepDir.substr(0, options.keepDir.rfind('/'));
    if (!parent.empty() && !IsDirectory(parent))
        return Refuse("--keep directory's parent does not exist", arg);
    return true;
}

bool SetUser(Options &options, const char *arg) {
    char *end = nullptr;
    long uid = std::strtol(arg, &end, 10);
    bool known = (*end == '\0' && end != arg && uid >= 0) ? getpwuid(uid) != nullptr
                                                          : getpwnam(arg) != nullptr;
    if (!known) return Refuse("unknown user", arg);
    options.user = arg;
    return true;
}

bool SetEjectFailures(Options &options, const char *arg) {
    char *end = nullptr;
    long n = std::strtol(arg, &end, 10);
    if (*end != '\0' || end == arg || n < 0 || n > 1000000)
        return Refuse("--eject-fail needs a count", arg);
    options.ejectFailures = static_cast<int>(n);
    options.drive = true;
    return true;
}

bool ApplyOption(Options &options, int opt, const char *arg, bool &helpShown) {
    switch (opt) {
        case 'u':
            return SetUser(options, arg);
        case 't':
            return AddTmpfs(options, arg);
        case 'e':
            return AddEnv(options, arg);
        case kUnset:
            if (!ValidName(arg)) return Refuse("bad variable name", arg);
            options.unset.emplace_back(arg);
            return true;
        case 'i':
            options.stdinFile = Absolute(arg);
            return true;
        case 'k':
            return SetKeep(options, arg);
        case 'f':
            return AddFloppy(options, arg);
        case kFloppyEmpty:
            options.floppyEmpty = options.drive = true;
            return true;
        case kEjectFail:
            return SetEjectFailures(options, arg);
        case kCupsd:
            options.cupsd = true;
            return true;
        case kLprng:
            options.lprng = true;
            return true;
        case 'p':
            if (!*arg || std::string_view(arg).find('/') != std::string_view::npos)
                return Refuse("bad process name", arg);
            options.processes.emplace_back(arg);
            return true;
        case 'C':
            options.chdir = Absolute(arg);
            options.chdirGiven = true;
            return true;
        case 'q':
            options.quiet = true;
            return true;
        case 'r':
            options.reportFile = Absolute(arg);
            return true;
        case 'h':
            std::fputs(kUsage, stdout);
            helpShown = true;
            return true;
        default:
            std::fputs("rehearse: bad option (see rehearse --help)\n", stderr);
            return false;
    }
}

}  // namespace

bool ParseOptions(int argc, char **argv, Options &options, bool &helpShown) {
    helpShown = false;
    opterr = 0;
    // "+": options end at the command's name, so its own options stay its own.
    int opt;
    while ((opt = getopt_long(argc, argv, "+u:t:e:i:k:f:p:C:qr:h", kLongOptions, nullptr)) != -1) {
        if (opt == '?' || opt == ':') {
            std::fprintf(stderr, "rehearse: bad option %s (see rehearse --help)\n",
                         argv[optind - 1]);
            return false;
        }
        if (!ApplyOption(options, opt, optarg, helpShown)) return false;
        if (helpShown) return true;
    }
    for (int i = optind; i < argc; i++) options.command.emplace_back(argv[i]);
    if (options.command.empty()) {
        std::fputs("rehearse: no command given (see rehearse --help)\n", stderr);
        return false;
    }
    return true;
}
