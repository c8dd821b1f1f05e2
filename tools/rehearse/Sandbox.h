// The rehearsal sandbox: its mounts, what it held before the command ran, and
// the run itself.
#pragma once

#include <sys/types.h>

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "Options.h"

/// Where a path changed by the command can be found outside the chroot.
struct Layer {
    std::string dir;     ///< real directory holding the changes (upper layer or a tmpfs)
    std::string lower;   ///< the machine's files beneath `dir`; empty: all of `dir` is new
    std::string prefix;  ///< path inside the sandbox that `dir` shows ("" for the root)
};

/// A file system of the machine mounted below its root.
struct MachineMount {
    std::string path;     ///< mount point
    std::string type;     ///< file system type, as mountinfo names it
    unsigned long flags;  ///< its MS_RDONLY, MS_NOSUID, MS_NODEV and MS_NOEXEC
};

/// What an entry looked like before the command ran: the sandbox's own plumbing.
struct Before {
    mode_t mode;
    uid_t uid;
    gid_t gid;
    off_t size;
    long long ctimeNs;
};

struct Sandbox {
    std::string state;  ///< private tmpfs holding everything below
    std::string root;   ///< the merged view the command is chrooted into
    std::vector<Layer> layers;
    std::map<std::string, Before> plumbing;  ///< sandbox path -> entry as installed
    /// Writable mounts of the machine that no overlay could lie over: "PATH (TYPE)".
    std::vector<std::string> readOnly;
};

/// Mount point of the stand-ins' private tmpfs inside the sandbox.
constexpr const char *kHelperDir = "/run/rehearse";
/// The diskette drive's socket inside the sandbox.
constexpr const char *kDriveSocket = "/run/rehearse/drive";
/// Environment variable that turns our binary into an idle stand-in process.
constexpr const char *kIdleVariable = "REHEARSE_IDLE_STANDIN";

/// The machine's mounts the sandbox shows besides the root, each after the one
/// it is mounted on: not the kernel's own file systems, nor what is mounted on
/// /proc, /dev, /sys or `stateDir`, nor what another mount hides.
std::vector<MachineMount> MachineMounts(const std::string &stateDir);

/// Builds every mount under `stateDir` (in a private mount namespace) and
/// binds `driveSocket` (an unbound AF_UNIX socket, or -1 without a drive) to
/// the drive's socket inside; prints a "rehearse: ..." reason and returns
/// false when it cannot.
bool BuildSandbox(const Options &options, const std::string &stateDir, Sandbox &box,
                  int driveSocket);

/// Runs `work` in a child chrooted into `root`; true when it returned true.
bool InsideSandbox(const std::string &root, const std::function<bool()> &work);

/// Records the sandbox's own entries so that the report leaves them out.
void SnapshotPlumbing(Sandbox &box);

/// Runs the rehearsal inside new mount and pid namespaces (we are pid 1);
/// returns the exit status for rehearse.
int RunRehearsal(const Options &options, const std::string &stateDir);

/// Writes the change report to `out`.
void WriteReport(const Sandbox &box, int out);

/// Copies the changes into `dir`, leaving the plumbing out; false on failure.
bool KeepChanges(const Sandbox &box, const std::string &dir);

/// Runs argv (host programs, outside the chroot) with stdout to `out` (-1:
/// inherit, or /dev/null when `quiet`), and with standard input and error on
/// /dev/null when `quiet`; returns its exit status, or -1 when it cannot be run.
int RunHostCommand(const std::vector<std::string> &argv, int out, bool quiet = false);
