// End-to-end harness: media made with mkmedium, the installer run as root
// inside rehearse, and the files it left behind read from the kept changes.
#pragma once

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <map>
#include <random>
#include <regex>
#include <vector>

#include "Scripts.h"
#include "TestFiles.h"

namespace e2e {

namespace fs = std::filesystem;
using testfiles::Slurp;
using testfiles::Write;

/// A queue tool that only records how it was called, next to itself.
constexpr const char *kQueueTool = "#!/bin/sh\necho \"$1\" >> `dirname $0`/pnqadmin.calls\n";

/// Random bytes: they do not compress, so an archive's size follows the data's.
inline std::string Incompressible(size_t size) {
    std::mt19937 random(7);
    std::string data(size, '\0');
    for (char &c : data) c = static_cast<char>(random());
    return data;
}

inline size_t Count(const std::string &text, const std::string &what) {
    size_t n = 0;
    for (size_t p = text.find(what); p != std::string::npos; p = text.find(what, p + 1)) ++n;
    return n;
}

/// Runs argv with output into the files out and err; its status, 128+N for a signal.
inline int Spawn(const std::vector<std::string> &argv, const fs::path &out, const fs::path &err) {
    std::string line = "exec";
    for (const std::string &a : argv)
        line += " '" + std::regex_replace(a, std::regex("'"), "'\\''") + "'";
    int status =
        std::system((line + " </dev/null >" + out.string() + " 2>" + err.string()).c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

/// What one rehearsed run produced.
struct Outcome {
    fs::path kept;  ///< the changed files, laid out as on the machine
    int status = -1;
    std::string out, err, report;
    fs::path At(const std::string &path) const { return kept / fs::path(path).relative_path(); }
    /// lstat of what the run left at `path`; all zero when nothing is there.
    struct stat Stat(const std::string &path) const {
        struct stat st {};
        lstat(At(path).c_str(), &st);
        return st;
    }
    /// True when the run left `path` (a whiteout of a removed file does not count).
    bool Has(const std::string &path) const {
        struct stat st = Stat(path);
        return st.st_mode != 0 && !(S_ISCHR(st.st_mode) && st.st_rdev == 0);
    }
    std::string Text(const std::string &path) const { return Slurp(At(path)); }
    int Mode(const std::string &path) const {
        return Has(path) ? static_cast<int>(Stat(path).st_mode & 07777) : -1;
    }
    /// Where the symbolic link at `path` points; empty when it is none.
    std::string Link(const std::string &path) const {
        std::error_code ec;
        return fs::read_symlink(At(path), ec).string();
    }
};

/// printf into a string, for the installer's script templates.
template <typename... Args>
std::string Fill(const char *tmpl, Args... args) {
    char text[4096];
    std::snprintf(text, sizeof text, tmpl, args...);
    return text;
}

/// The shell line, the banner naming this year, then exactly `body`; mode 755.
inline void ExpectScript(const Outcome &o, const std::string &path, const std::string &body) {
    SCOPED_TRACE(path);
    EXPECT_EQ(o.Mode(path), 0755);
    std::time_t now = std::time(nullptr);
    EXPECT_EQ(o.Text(path), std::string(ScriptShShell) + "\n" +
                                Fill(ScriptCopyRight, std::localtime(&now)->tm_year + 1900) + body);
}

/// A scratch directory per test in the build tree, kept on failure.
class E2eTest : public ::testing::Test {
  protected:
    fs::path scratch;
    void SetUp() override {
        if (geteuid() != 0) GTEST_SKIP() << "a rehearsal needs root";
        fs::create_directories(SCRATCH_DIR);
        std::string tmpl = std::string(SCRATCH_DIR) + "/run-XXXXXX";
        scratch = mkdtemp(tmpl.data());
        // A rehearsal shows the machine's own /tmp, where a work directory left
        // by a run outside the sandbox would decide how each run inside goes.
        struct stat left {};
        if (lstat("/tmp/OrvelInstall", &left) == 0)
            GTEST_FAIL() << "this machine's /tmp/OrvelInstall shows in every rehearsal; remove it";
    }
    void TearDown() override {
        if (!scratch.empty() && !HasFailure()) fs::remove_all(scratch);
    }
    /// A package directory <scratch>/<name>/pkg holding pkg.list and `files`.
    fs::path Package(const std::string &name, const std::string &pkgList,
                     const std::map<std::string, std::string> &files = {}) {
        Write(scratch / name / "pkg" / "pkg.list", pkgList);
        for (const auto &[path, text] : files) Write(scratch / name / "pkg" / path, text);
        return scratch / name;
    }
    /// About the bytes the translations take on every diskette: whole 512-byte
    /// clusters, one for each (small) directory.
    static long TranslationsOnDiskette() {
        auto clusters = [](uintmax_t bytes) {
            return static_cast<long>((bytes + 511) / 512 * 512);
        };
        fs::path dir = fs::path(SETUP_BIN).parent_path();
        long bytes = 512 + clusters(fs::file_size(dir / "trans.conf"));
        for (const auto &entry : fs::recursive_directory_iterator(dir / "db"))
            bytes += entry.is_directory() ? 512 : clusters(entry.file_size());
        return bytes;
    }
    /// The size of setup as mkmedium ships it: without debugging information.
    long ShippedSetupBytes() {
        fs::path stripped = scratch / "setup.stripped";
        if (Spawn({"objcopy", "--strip-debug", SETUP_BIN, stripped.string()},
                  scratch / "objcopy.out", scratch / "objcopy.err") != 0)
            return static_cast<long>(fs::file_size(SETUP_BIN));
        return static_cast<long>(fs::file_size(stripped));
    }
    /// Runs mkmedium with `options` on `package`; returns the medium directory.
    fs::path Medium(const fs::path &package, std::vector<std::string> options,
                    const std::string &name = "medium") {
        options.insert(options.begin(),
                       {MKMEDIUM_BIN, "--setup", SETUP_BIN, "--help-file", DEMO_DIR "/setup.hlp"});
        options.insert(options.end(), {"-o", (scratch / name).string(), package.string()});
        EXPECT_EQ(Spawn(options, scratch / "mkmedium.out", scratch / "mkmedium.err"), 0)
            << Slurp(scratch / "mkmedium.err");
        return scratch / name;
    }
    /// Runs `command` inside rehearse with `options`; `input` is fed to it.
    Outcome Rehearse(std::vector<std::string> options, const std::vector<std::string> &command,
                     const std::string &input = "") {
        static int runs = 0;
        fs::path run = scratch / ("run" + std::to_string(++runs));
        Write(run / "input", input);
        options.insert(options.begin(),
                       {REHEARSE_BIN, "-k", (run / "kept").string(), "-r",
                        (run / "report").string(), "-i", (run / "input").string()});
        options.push_back("--");
        options.insert(options.end(), command.begin(), command.end());
        int status = Spawn(options, run / "out", run / "err");
        return {run / "kept", status, Slurp(run / "out"), Slurp(run / "err"),
                Slurp(run / "report")};
    }
    /// Runs the shell line `line` inside rehearse with `options`.
    Outcome Shell(const std::vector<std::string> &options, const std::string &line,
                  const std::string &input = "") {
        return Rehearse(options, {"/bin/sh", "-c", line}, input);
    }
};

}  // namespace e2e
