// What the command line of `rehearse` asks for.
#pragma once

#include <string>
#include <utility>
#include <vector>

/// A size-limited tmpfs to mount inside the sandbox.
struct TmpfsMount {
    std::string path;  ///< absolute path inside the sandbox
    std::string size;  ///< tmpfs size text ("2M", "500k")
};

struct Options {
    std::string user;                                      ///< empty: root
    std::vector<TmpfsMount> tmpfs;                         ///< in command-line order
    std::vector<std::pair<std::string, std::string>> env;  ///< variables to set
    std::vector<std::string> unset;                        ///< variables to clear
    std::string stdinFile;                                 ///< empty: inherit
    std::string keepDir;                                   ///< empty: discard the upper layer
    std::vector<std::string> floppies;                     ///< the drive's queue
    bool floppyEmpty = false;                              ///< start with nothing loaded
    bool drive = false;                                    ///< a drive was asked for
    int ejectFailures = 0;                                 ///< first N `eject -f` fail
    bool cupsd = false;
    bool lprng = false;
    std::vector<std::string> processes;  ///< stand-in process names
    std::string chdir;                   ///< empty: the caller's directory
    bool chdirGiven = false;
    bool quiet = false;
    std::string reportFile;  ///< empty: standard error
    std::vector<std::string> command;
};

/// Parses argv into `options`; prints the reason and returns false on bad input.
/// Sets `helpShown` when --help was given (the caller then exits 0).
bool ParseOptions(int argc, char **argv, Options &options, bool &helpShown);

/// Exit status when the sandbox cannot be set up.
constexpr int kSetupFailure = 125;
