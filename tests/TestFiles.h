// Files for tests: whole-file read and write, and a temporary directory that
// goes away with its owner.
#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>

namespace testfiles {

namespace fs = std::filesystem;

inline std::string Slurp(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

/// Writes `text` to `p`, making its parent directories.
inline void Write(const fs::path &p, const std::string &text) {
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << text;
}

/// The names in the directory `dir`.
inline std::set<std::string> Listing(const fs::path &dir) {
    std::set<std::string> names;
    for (const auto &entry : fs::directory_iterator(dir)) names.insert(entry.path().filename());
    return names;
}

/// Runs the shell line `line` with its output in `aside`, read back into
/// `out` and `err`; its exit status, -1 when it did not exit.
inline int Run(const std::string &line, const fs::path &aside, std::string &out, std::string &err) {
    int status = std::system(
        (line + " >" + (aside / "out").string() + " 2>" + (aside / "err").string()).c_str());
    out = Slurp(aside / "out"), err = Slurp(aside / "err");
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

/// Makes `text` the program's standard input, through the file `p`.
inline bool FeedStdin(const fs::path &p, const std::string &text) {
    Write(p, text);
    return std::freopen(p.c_str(), "r", stdin) != nullptr;
}

/// A fresh directory under `parent` (default /tmp), removed on destruction.
class TempDir {
  public:
    explicit TempDir(const fs::path &parent = "/tmp") {
        fs::create_directories(parent);
        std::string pattern = (parent / "test-XXXXXX").string();
        path_ = mkdtemp(pattern.data());
    }
    ~TempDir() {
        std::error_code ignored;
        fs::remove_all(path_, ignored);
    }
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    const fs::path &path() const { return path_; }
    fs::path operator/(const fs::path &p) const { return path_ / p; }

  private:
    fs::path path_;
};

}  // namespace testfiles
