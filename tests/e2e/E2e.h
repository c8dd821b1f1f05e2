// End-to-end harness: media made with mkmedium, the installer run as root
// inside rehearse, and the files it left behind read from the kept changes.
#pragma once

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <map>
#include <sstream>
#include <string>
#include <vector>

namespace e2e {

namespace fs = std::filesystem;

inline std::string Slurp(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void Write(const fs::path &p, const std::string &text) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
}

/// Exit status of a wait status, 128+N for a signal.
inline int Decode(int status) {
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// Runs argv with stdin from `input` (a path, or empty for /dev/null);
/// returns the status and fills out/err.
inline int Spawn(const std::vector<std::string> &argv, const std::string &input, std::string *out,
                 std::string *err, const fs::path &scratch) {
    fs::path outFile = scratch / "spawn.out", errFile = scratch / "spawn.err";
    pid_t pid = fork();
    if (pid == 0) {
        int in = open(input.empty() ? "/dev/null" : input.c_str(), O_RDONLY);
        int o = open(outFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        int e = open(errFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        dup2(in, 0);
        dup2(o, 1);
        dup2(e, 2);
        std::vector<char *> args;
        for (const std::string &a : argv) args.push_back(const_cast<char *>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    int status = 0;
    waitpid(pid, &status, 0);
    if (out) *out = Slurp(outFile);
    if (err) *err = Slurp(errFile);
    return Decode(status);
}

/// What one rehearsed run produced.
struct Outcome {
    int status = -1;
    std::string out, err, report;
    fs::path kept;  ///< the changed files, laid out as on the machine

    fs::path At(const std::string &path) const { return kept / fs::path(path).relative_path(); }
    /// True when the run left `path` (a whiteout of a removed file does not count).
    bool Has(const std::string &path) const {
        struct stat st {};
        return lstat(At(path).c_str(), &st) == 0 && !(S_ISCHR(st.st_mode) && st.st_rdev == 0);
    }
    std::string Text(const std::string &path) const { return Slurp(At(path)); }
    int Mode(const std::string &path) const {
        struct stat st {};
        return lstat(At(path).c_str(), &st) == 0 ? static_cast<int>(st.st_mode & 07777) : -1;
    }
};

/// One scratch directory per test, outside /tmp (a rehearsal has its own).
class E2eTest : public ::testing::Test {
  protected:
    fs::path scratch;

    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "end-to-end runs need root for the sandbox";
        fs::create_directories(SCRATCH_DIR);
        struct stat root {
        }, here{};
        // A rehearsal sees the root file system only.
        if (stat("/", &root) != 0 || stat(SCRATCH_DIR, &here) != 0 || root.st_dev != here.st_dev)
            GTEST_SKIP() << "the build tree is not on the root file system, which is all a "
                            "rehearsal shows";
        std::string tmpl = std::string(SCRATCH_DIR) + "/run-XXXXXX";
        scratch = mkdtemp(tmpl.data());
    }
    void TearDown() override {
        if (!scratch.empty() && !HasFailure()) fs::remove_all(scratch);
    }

    /// A package directory PKGDIR/pkg with `files` (relative path -> text) and pkg.list.
    fs::path Package(const std::string &name, const std::string &pkgList,
                     const std::map<std::string, std::string> &files = {}) {
        fs::path dir = scratch / name;
        Write(dir / "pkg" / "pkg.list", pkgList);
        for (const auto &[path, text] : files) Write(dir / "pkg" / path, text);
        return dir;
    }

    /// Runs mkmedium with `options` on `package`; returns the medium directory.
    fs::path Medium(const fs::path &package, std::initializer_list<std::string> options,
                    const std::string &name = "medium") {
        fs::path out = scratch / name;
        std::vector<std::string> argv{MKMEDIUM_BIN};
        argv.insert(argv.end(), options);
        for (std::string a : {"--setup", SETUP_BIN, "--help-file", DEMO_DIR "/setup.hlp", "-o"})
            argv.push_back(a);
        argv.push_back(out.string());
        argv.push_back(package.string());
        std::string err;
        int status = Spawn(argv, "", nullptr, &err, scratch);
        EXPECT_EQ(status, 0) << err;
        return out;
    }

    fs::path Site(const fs::path &package) { return Medium(package, {"--site"}); }

    /// Runs `command` inside rehearse with `options`; `input` is fed to it.
    Outcome Rehearse(const std::vector<std::string> &options,
                     const std::vector<std::string> &command, const std::string &input = "") {
        static int run = 0;
        Outcome o;
        std::string tag = std::to_string(++run);
        o.kept = scratch / ("kept" + tag);
        fs::path report = scratch / ("report" + tag);
        fs::path inputFile = scratch / ("input" + tag);
        Write(inputFile, input);
        std::vector<std::string> argv{REHEARSE_BIN,    "-k", o.kept.string(),   "-r",
                                      report.string(), "-i", inputFile.string()};
        argv.insert(argv.end(), options.begin(), options.end());
        argv.push_back("--");
        argv.insert(argv.end(), command.begin(), command.end());
        o.status = Spawn(argv, "", &o.out, &o.err, scratch);
        o.report = Slurp(report);
        return o;
    }
};

}  // namespace e2e
