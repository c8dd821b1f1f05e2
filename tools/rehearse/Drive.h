// The simulated diskette drive and the stand-in programs of the sandbox.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The drive, served by the rehearsal's pid 1 outside the chroot: a queue of
/// diskette directories, one of which may be mounted at /floppy/floppy0.
class Drive {
  public:
    /// `scratch`, outside the sandbox, holds the diskette images while they are made.
    Drive(std::string root, std::string scratch, std::vector<std::string> queue, int ejectFailures)
        : root_(std::move(root)),
          scratch_(std::move(scratch)),
          queue_(std::move(queue)),
          ejectFailures_(ejectFailures) {}

    /// Loads the first diskette; false (with a "rehearse: ..." reason) when it cannot.
    bool Start(bool empty);
    /// Answers one request ("eject", "query", "load") with "<status> <message>".
    std::string Handle(std::string_view request);

  private:
    bool Load();
    bool LoadFat(const std::string &dir);
    bool LoadCopy(const std::string &dir);
    std::string Eject();

    std::string root_;
    std::string scratch_;
    std::vector<std::string> queue_;
    int ejectFailures_;
    size_t next_ = 0;
    bool loaded_ = false;
};

/// Accepts and answers one client of the drive's listening socket.
void ServeDriveClient(Drive &drive, int listenFd);

/// Runs our binary as the stand-in named by argv[0] when it is one (eject,
/// volcheck, cupsd, lpd, or an idle process); returns -1 when it is not.
int StandInMain(int argc, char **argv);
