// The rehearsal itself, run as pid 1 of its own pid namespace in a private
// mount namespace: build the sandbox, start the stand-in processes and the
// command, serve the diskette drive while the command runs, end everything
// that is left, then report.
#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <vector>

#include "Drive.h"
#include "Sandbox.h"

namespace {

constexpr int kGraceMs = 2000;  // how long an interrupted command may take to end

struct Identity {
    bool change = false;
    uid_t uid = 0;
    gid_t gid = 0;
    std::vector<gid_t> groups;
    std::string name, home;
};

bool ResolveUser(const std::string &user, Identity &id) {
    if (user.empty()) return true;
    char *end = nullptr;
    long number = std::strtol(user.c_str(), &end, 10);
    const passwd *pw = (*end == '\0' && end != user.c_str()) ? getpwuid(static_cast<uid_t>(number))
                                                             : getpwnam(user.c_str());
    if (!pw) {
        std::fprintf(stderr, "rehearse: unknown user: %s\n", user.c_str());
        return false;
    }
    id = {true, pw->pw_uid, pw->pw_gid, {}, pw->pw_name, pw->pw_dir};
    int count = 64;
    id.groups.resize(count);
    if (getgrouplist(pw->pw_name, pw->pw_gid, id.groups.data(), &count) < 0) {
        id.groups.resize(count);
        getgrouplist(pw->pw_name, pw->pw_gid, id.groups.data(), &count);
    }
    id.groups.resize(count);
    return true;
}

// A child reports a failure before exec through a close-on-exec pipe: the
// exit status it chose, after printing its own one-line reason.
[[noreturn]] void ChildFail(int pipeFd, int status, const char *what, const std::string &arg) {
    std::fprintf(stderr, "rehearse: %s%s: %s\n", what, arg.c_str(), std::strerror(errno));
    if (write(pipeFd, &status, sizeof status) < 0) {
        // Our parent sees the pipe close without a status; it treats that as success.
    }
    _exit(status);
}

void UnblockSignals() {
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

// Waits for the child's exec; returns the status it failed with, if any.
std::optional<int> AwaitExec(int pipe[2]) {
    close(pipe[1]);
    int status = 0;
    ssize_t n;
    while ((n = read(pipe[0], &status, sizeof status)) < 0 && errno == EINTR) {
    }
    close(pipe[0]);
    if (n == static_cast<ssize_t>(sizeof status)) return status;
    return std::nullopt;
}

bool StartStandIn(const Sandbox &box, const std::string &name) {
    int pipe[2];
    if (pipe2(pipe, O_CLOEXEC) != 0) return false;
    pid_t pid = fork();
    if (pid < 0) return false;
    if (pid == 0) {
        UnblockSignals();
        close(pipe[0]);
        if (chroot(box.root.c_str()) != 0 || chdir("/") != 0)
            ChildFail(pipe[1], 125, "cannot enter the sandbox", "");
        int null = open("/dev/null", O_RDWR);
        for (int fd = 0; fd < 3; fd++) dup2(null, fd);
        std::string program = std::string(kHelperDir) + "/bin/" + name;
        std::string idle = std::string(kIdleVariable) + "=1";
        char *env[] = {idle.data(), nullptr};
        execle(program.c_str(), name.c_str(), static_cast<char *>(nullptr), env);
        ChildFail(pipe[1], 125, "cannot start stand-in process ", name);
    }
    // The command must not start before `ps -e` shows the stand-in by name.
    return !AwaitExec(pipe).has_value();
}

void SetEnvironment(const Options &options, const Identity &id) {
    if (id.change) {
        setenv("HOME", id.home.c_str(), 1);
        setenv("USER", id.name.c_str(), 1);
        setenv("LOGNAME", id.name.c_str(), 1);
    }
    for (const auto &[name, value] : options.env) setenv(name.c_str(), value.c_str(), 1);
    for (const std::string &name : options.unset) unsetenv(name.c_str());
}

[[noreturn]] void ExecCommand(const Options &options, const Sandbox &box, const Identity &id,
                              int stdinFd, const std::string &cwd, int pipeFd) {
    UnblockSignals();
    if (stdinFd >= 0) dup2(stdinFd, STDIN_FILENO);
    if (chroot(box.root.c_str()) != 0) ChildFail(pipeFd, 125, "cannot enter the sandbox", "");
    if (id.change && (setgroups(id.groups.size(), id.groups.data()) != 0 || setgid(id.gid) != 0 ||
                      setuid(id.uid) != 0))
        ChildFail(pipeFd, 125, "cannot become ", id.name);
    if (chdir(cwd.c_str()) != 0) {
        // The caller's own directory may not exist inside (it may be in /tmp).
        if (options.chdirGiven) ChildFail(pipeFd, 125, "cannot change inside to ", cwd);
        if (chdir("/") != 0) ChildFail(pipeFd, 125, "cannot change inside to ", "/");
    }
    SetEnvironment(options, id);
    std::vector<char *> argv;
    for (const std::string &a : options.command) argv.push_back(const_cast<char *>(a.c_str()));
    argv.push_back(nullptr);
    execvp(argv[0], argv.data());
    ChildFail(pipeFd, errno == ENOENT ? 127 : 126, "cannot run ", options.command[0]);
}

int DecodeStatus(int status) {
    if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
    return WEXITSTATUS(status);
}

class Rehearsal {
  public:
    Rehearsal(const Options &options, Sandbox &box, int signals, int driveSocket, Drive *drive)
        : options_(options),
          box_(box),
          signals_(signals),
          driveSocket_(driveSocket),
          drive_(drive) {}

    /// True when the command could not be started at all.
    bool NotStarted() const { return notStarted_; }

    /// Runs the command to its end; returns its status, or a setup failure.
    int Run(const Identity &id, int stdinFd, const std::string &cwd) {
        int pipe[2];
        if (pipe2(pipe, O_CLOEXEC) != 0) return kSetupFailure;
        command_ = fork();
        if (command_ < 0) return kSetupFailure;
        if (command_ == 0) ExecCommand(options_, box_, id, stdinFd, cwd, pipe[1]);
        if (std::optional<int> failed = AwaitExec(pipe)) {
            Reap();
            notStarted_ = true;
            return *failed;
        }
        while (!status_) WaitForEvent();
        return *status_;
    }

  private:
    const Options &options_;
    Sandbox &box_;
    int signals_, driveSocket_;
    Drive *drive_;
    pid_t command_ = -1;
    bool notStarted_ = false;
    std::optional<int> status_;
    enum class Phase { kRunning, kInterrupted, kKilled } phase_ = Phase::kRunning;
    std::chrono::steady_clock::time_point deadline_{};

    void WaitForEvent() {
        pollfd fds[2] = {{signals_, POLLIN, 0}, {driveSocket_, POLLIN, 0}};
        int timeout = -1;
        if (phase_ == Phase::kInterrupted) {
            auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline_ - std::chrono::steady_clock::now());
            timeout = left.count() > 0 ? static_cast<int>(left.count()) : 0;
        }
        int ready = poll(fds, driveSocket_ >= 0 ? 2 : 1, timeout);
        if (ready == 0 && phase_ == Phase::kInterrupted) {
            // The command's status still arrives through SIGCHLD.
            if (getpid() == 1) kill(-1, SIGKILL);
            phase_ = Phase::kKilled;
        }
        if (ready > 0 && (fds[0].revents & POLLIN)) HandleSignal();
        if (ready > 0 && driveSocket_ >= 0 && (fds[1].revents & POLLIN))
            ServeDriveClient(*drive_, driveSocket_);
    }

    void HandleSignal() {
        signalfd_siginfo info{};
        if (read(signals_, &info, sizeof info) != sizeof info) return;
        if (info.ssi_signo == SIGCHLD) {
            Reap();
            return;
        }
        if (phase_ != Phase::kRunning) return;
        phase_ = Phase::kInterrupted;
        kill(command_, static_cast<int>(info.ssi_signo));
        deadline_ = std::chrono::steady_clock::now() + std::chrono::milliseconds(kGraceMs);
    }

    void Reap() {
        int status = 0;
        pid_t pid;
        while ((pid = waitpid(-1, &status, WNOHANG)) > 0)
            if (pid == command_) status_ = DecodeStatus(status);
    }

  public:
    /// Ends every process of the rehearsal but us and waits for them.
    static void KillAll() {
        // kill(-1) from anything but the pid namespace's init would reach
        // every process of the real machine.
        if (getpid() != 1) return;
        kill(-1, SIGKILL);
        while (waitpid(-1, nullptr, 0) > 0 || errno == EINTR) {
        }
    }
};

int OpenInput(const Options &options) {
    if (options.stdinFile.empty()) return -1;
    int fd = open(options.stdinFile.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        std::fprintf(stderr, "rehearse: cannot read %s: %s\n", options.stdinFile.c_str(),
                     std::strerror(errno));
    return fd;
}

int OpenReport(const Options &options) {
    if (options.quiet || options.reportFile.empty()) return STDERR_FILENO;
    int fd = open(options.reportFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        std::fprintf(stderr, "rehearse: cannot write %s: %s\n", options.reportFile.c_str(),
                     std::strerror(errno));
    return fd;
}

std::string WorkingDirectory(const Options &options) {
    if (options.chdirGiven) return options.chdir;
    char cwd[4096];
    return getcwd(cwd, sizeof cwd) ? cwd : "/";
}

int BlockSignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int sig : {SIGCHLD, SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaddset(&set, sig);
    sigprocmask(SIG_BLOCK, &set, nullptr);
    return signalfd(-1, &set, SFD_CLOEXEC);
}

int Rehearse(const Options &options, const std::string &stateDir, int signals) {
    int driveSocket = options.drive ? socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0) : -1;
    Sandbox box;
    if (!BuildSandbox(options, stateDir, box, driveSocket)) return kSetupFailure;
    Drive drive(box.root, box.state, options.floppies, options.ejectFailures);
    if (options.drive && !drive.Start(options.floppyEmpty)) return kSetupFailure;
    SnapshotPlumbing(box);
    Identity id;
    int stdinFd = OpenInput(options);
    int reportFd = OpenReport(options);
    if (!ResolveUser(options.user, id) || (!options.stdinFile.empty() && stdinFd < 0) ||
        reportFd < 0)
        return kSetupFailure;
    for (const std::string &name : options.processes) {
        if (!StartStandIn(box, name)) {
            std::fprintf(stderr, "rehearse: cannot start stand-in process %s\n", name.c_str());
            return kSetupFailure;
        }
    }
    Rehearsal rehearsal(options, box, signals, driveSocket, &drive);
    int status = rehearsal.Run(id, stdinFd, WorkingDirectory(options));
    Rehearsal::KillAll();
    if (rehearsal.NotStarted()) return status;
    if (!options.quiet) WriteReport(box, reportFd);
    if (!options.keepDir.empty() && !KeepChanges(box, options.keepDir)) return kSetupFailure;
    return status;
}

}  // namespace

int RunRehearsal(const Options &options, const std::string &stateDir) {
    // Should rehearse itself die, the kernel ends the rehearsal with it.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    int signals = BlockSignals();
    int status = Rehearse(options, stateDir, signals);
    Rehearsal::KillAll();
    return status;
}
