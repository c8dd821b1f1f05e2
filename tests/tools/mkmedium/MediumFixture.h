// A package in a temporary directory and the built mkmedium run on it.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <vector>

namespace fs = std::filesystem;

struct Result {
    int status;
    std::string out, err;
};

inline std::string ReadFile(const fs::path &path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

inline void WriteFile(const fs::path &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
}

inline std::string RandomBytes(size_t count, unsigned seed) {
    std::mt19937 generator(seed);
    std::string bytes(count, '\0');
    for (char &c : bytes) c = static_cast<char>(generator());
    return bytes;
}

inline std::set<std::string> Listing(const fs::path &dir) {
    std::set<std::string> names;
    for (const auto &entry : fs::directory_iterator(dir)) names.insert(entry.path().filename());
    return names;
}

inline long Du(const fs::path &path) {
    std::string out = path.string() + ".du";
    std::system(("du -s '" + path.string() + "' > '" + out + "'").c_str());
    long size = std::atol(ReadFile(out).c_str());
    fs::remove(out);
    return size;
}

// A package directory with a tree of several kinds of entries, a stand-in
// installer and its help file, in a fresh temporary directory.
class MediumTest : public ::testing::Test {
  protected:
    void SetUp() override {
        char pattern[] = "/tmp/mkmedium_test-XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        top = pattern;
        package = top / "package";
        fs::path pkg = package / "pkg";
        fs::create_directories(pkg / "bin");
        fs::create_directories(pkg / "doc");
        fs::create_directories(pkg / "spool/empty");
        WriteFile(pkg / "pkg.list", "dir bin\nc doc/readme mode 644\n");
        WriteFile(pkg / "bin/tool", RandomBytes(40000, 1));
        fs::permissions(pkg / "bin/tool", fs::perms(0755));
        std::string text;
        for (int i = 0; i < 3000; ++i) text += "line " + std::to_string(i) + "\n";
        WriteFile(pkg / "doc/readme", text);
        WriteFile(pkg / "doc/empty", "");
        fs::create_symlink("doc/readme", pkg / "readme");
        WriteFile(package / "setup", "#!/bin/sh\necho installing\n");
        fs::permissions(package / "setup", fs::perms(0755));
        WriteFile(package / "setup.hlp", "<html>help</html>\n");
    }
    void TearDown() override { fs::remove_all(top); }

    Result Mkmedium(const std::string &args) {
        std::string command =
            "cd '" + top.string() + "' && " MKMEDIUM_BINARY " " + args + " > out.txt 2> err.txt";
        int status = std::system(command.c_str());
        Result result{WIFEXITED(status) ? WEXITSTATUS(status) : -1, ReadFile(top / "out.txt"),
                      ReadFile(top / "err.txt")};
        fs::remove(top / "out.txt");
        fs::remove(top / "err.txt");
        return result;
    }

    // Joins the pieces with cat, uncompresses with the host's uncompress and
    // unpacks with tar, as the installer does; true when the tree comes back
    // byte for byte (links as links).
    bool UnpacksToPackage(const std::vector<fs::path> &pieces) {
        fs::path work = top / "unpacked";
        fs::create_directory(work);
        std::string cat = "cat";
        for (const fs::path &piece : pieces) cat += " '" + piece.string() + "'";
        std::string command = "cd '" + work.string() + "' && " + cat +
                              " > SGIPnzz.tar.Z && uncompress SGIPnzz.tar.Z && tar xpf SGIPnzz.tar"
                              " && rm SGIPnzz.tar && diff -r --no-dereference '" +
                              (package / "pkg").string() + "' pkg >/dev/null";
        bool same = std::system(command.c_str()) == 0;
        if (same)
            same = (fs::status(work / "pkg/bin/tool").permissions() & fs::perms::owner_exec) !=
                   fs::perms::none;
        fs::remove_all(work);
        return same;
    }

    fs::path top, package;
};
