// rehearse: run a command as root in a throwaway copy-on-write view of the
// machine. This process stays in the real mount namespace, so that it can
// always remove its state directory; the rehearsal runs in its child, which
// is pid 1 of a new pid namespace and owns a private mount namespace.
#include <dirent.h>
#include <sched.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "Drive.h"
#include "Options.h"
#include "Sandbox.h"

namespace {

volatile sig_atomic_t gRehearsal = 0;
volatile sig_atomic_t gInterrupts = 0;

// The first interrupt goes to the rehearsal, which passes it to the command;
// a second one ends the rehearsal at once (its namespaces go with it).
void Forward(int sig) {
    if (gRehearsal > 0) {
        gInterrupts = gInterrupts + 1;
        kill(gRehearsal, gInterrupts > 1 ? SIGKILL : sig);
    }
}

void ForwardInterrupts() {
    struct sigaction action {};
    action.sa_handler = Forward;
    sigemptyset(&action.sa_mask);
    for (int sig : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) sigaction(sig, &action, nullptr);
}

int Refuse(const char *reason) {
    std::fprintf(stderr, "rehearse: %s\n", reason);
    return kSetupFailure;
}

bool UserNamespacesAvailable() {
    FILE *f = std::fopen("/proc/sys/user/max_user_namespaces", "r");
    long max = 0;
    if (f) {
        if (std::fscanf(f, "%ld", &max) != 1) max = 0;
        std::fclose(f);
    }
    return max > 0;
}

// A rehearse killed outright (SIGKILL) cannot remove its state directory;
// its namespaces die with it, so an empty directory is all that is left. The
// creator's pid is in the name: only a dead creator's directory is removed,
// since removing a live one would unmount that rehearsal's sandbox.
void RemoveStaleStateDirs() {
    DIR *tmp = opendir("/tmp");
    if (!tmp) return;
    while (dirent *e = readdir(tmp)) {
        long pid = 0;
        char rest[16];
        if (std::sscanf(e->d_name, "rehearse.%ld.%15s", &pid, rest) != 2 || pid <= 0) continue;
        if (kill(static_cast<pid_t>(pid), 0) == 0 || errno != ESRCH) continue;
        rmdir((std::string("/tmp/") + e->d_name).c_str());
    }
    closedir(tmp);
}

int WaitForRehearsal(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return kSetupFailure;
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace

int main(int argc, char **argv) {
    int standIn = StandInMain(argc, argv);
    if (standIn >= 0) return standIn;
    Options options;
    bool helpShown = false;
    if (!ParseOptions(argc, argv, options, helpShown)) return kSetupFailure;
    if (helpShown) return 0;
    if (geteuid() != 0)
        return Refuse(UserNamespacesAvailable()
                          ? "must be run as root (an unprivileged overlay cannot copy up files "
                            "of other owners)"
                          : "must be run as root (and this machine has no user namespaces)");
    RemoveStaleStateDirs();
    std::string stateName = "/tmp/rehearse." + std::to_string(getpid()) + ".XXXXXX";
    char *state = stateName.data();
    if (!mkdtemp(state)) return Refuse("cannot create a state directory in /tmp");
    // Our next child becomes pid 1 of the new namespace; we stay where we are.
    if (unshare(CLONE_NEWPID) != 0) {
        rmdir(state);
        return Refuse("cannot create a pid namespace (no namespace support?)");
    }
    ForwardInterrupts();
    std::fflush(nullptr);
    pid_t pid = fork();
    if (pid == 0) {
        if (unshare(CLONE_NEWNS) != 0) _exit(Refuse("cannot create a private mount namespace"));
        _exit(RunRehearsal(options, state));
    }
    if (pid < 0) {
        rmdir(state);
        return Refuse("cannot start the rehearsal");
    }
    gRehearsal = pid;
    int status = WaitForRehearsal(pid);
    rmdir(state);
    return status;
}
