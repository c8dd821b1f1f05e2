// pkglist plan: the installer's own interpreter runs the list with the
// command seam turned into printing. A small model of the package directory
// answers the interpreter's existence tests as the printed commands would
// have left it, so that `m` after `c` is planned as it would run.
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "Pkglist.h"
#include "SysCmd.h"
#include "setup.h"

namespace fs = std::filesystem;

namespace {

const ListSource *list;
std::string workPackage;  // <work>/pkg as the printed lines name it
std::string listDir;      // where the list's files really are
int shownLine;
bool quiet;  // while the installer prepares the package directory

// Paths the planned commands made (true: a directory) or removed.
std::map<std::string, bool> made;
std::set<std::string> removed;

std::string Clean(std::string path) {
    std::string out;
    for (char c : path)
        if (c != '/' || out.empty() || out.back() != '/') out += c;
    while (out.size() > 1 && out.back() == '/') out.pop_back();
    return out;
}

std::string BaseName(const std::string &path) {
    return fs::path(Clean(path)).filename().string();
}

// A source under <work>/pkg is read from the list's own directory.
std::string RealSource(const std::string &path) {
    std::string p = Clean(path);
    if (p.compare(0, workPackage.size(), workPackage) == 0 &&
        (p.size() == workPackage.size() || p[workPackage.size()] == '/'))
        return listDir + p.substr(workPackage.size());
    return p;
}

bool Exists(const std::string &path, bool *directory = nullptr) {
    std::string p = Clean(path);
    if (removed.count(p)) return false;
    if (auto it = made.find(p); it != made.end()) {
        if (directory) *directory = it->second;
        return true;
    }
    struct stat st;
    if (stat(RealSource(p).c_str(), &st) != 0) return false;
    if (directory) *directory = S_ISDIR(st.st_mode);
    return true;
}

void Make(const std::string &path, bool directory) {
    std::string p = Clean(path);
    removed.erase(p);
    made[p] = directory;
}

void Remove(const std::string &path) {
    std::string p = Clean(path);
    made.erase(p);
    removed.insert(p);
}

// `from` copied to `to`, the whole tree when `from` is a real directory.
void MakeCopy(const std::string &from, const std::string &to) {
    std::error_code error;
    std::string source = RealSource(from);
    Make(to, fs::is_directory(source, error));
    if (!fs::is_directory(source, error)) return;
    for (auto it = fs::recursive_directory_iterator(source, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error))
        Make(to + "/" + fs::relative(it->path(), source, error).string(), it->is_directory(error));
}

std::vector<std::string> Operands(const char *args) {
    std::vector<std::string> words;
    std::istringstream in(args ? args : "");
    for (std::string w; in >> w;)
        if (w[0] != '-') words.push_back(w);
    return words;
}

// What a command does to the package directory, for the tests that follow.
void Model(int index, const char *args) {
    std::vector<std::string> w = Operands(args);
    if (w.empty()) return;
    bool intoDirectory = false;
    std::string last = w.back();
    bool lastIsDirectory = Exists(last, &intoDirectory) && intoDirectory;
    auto target = [&](const std::string &from) {
        return lastIsDirectory ? last + "/" + BaseName(from) : last;
    };
    switch (index) {
        case CMD_CP:
        case CMD_CP_R:
            for (size_t i = 0; i + 1 < w.size(); ++i) MakeCopy(w[i], target(w[i]));
            break;
        case CMD_MV:
            for (size_t i = 0; i + 1 < w.size(); ++i) {
                bool directory = false;
                Exists(w[i], &directory);
                Make(target(w[i]), directory);
                Remove(w[i]);
            }
            break;
        case CMD_LN:
            if (w.size() >= 2) Make(last, false);
            break;
        case CMD_TOUCH:
        case CMD_MKDIR:
            for (const std::string &path : w) Make(path, index == CMD_MKDIR);
            break;
        case CMD_RM:
        case CMD_RM_R:
            for (const std::string &path : w) Remove(path);
            break;
        default:
            break;
    }
}

// The list line the reader is in, once, before its first effect.
void ShowLine() {
    if (quiet) return;
    int line = list->ReaderLine();
    if (line == shownLine) return;
    shownLine = line;
    std::string text(LineBuf);
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.pop_back();
    std::printf("%s:%d: %s\n", list->path.c_str(), line, text.c_str());
}

int Run(int index, const char *args, const char *line) {
    ShowLine();
    if (!quiet) std::printf("  %s\n", line);
    Model(index, args);
    return 0;
}

FILE *Read(const char *line) {
    ShowLine();
    if (!quiet) std::printf("  read: %s\n", line);
    return std::fopen("/dev/null", "r");
}

int Close(FILE *stream) {
    return std::fclose(stream);
}

FILE *Replace(const char *) {
    return std::tmpfile();
}

int Commit(FILE *stream, const char *path, int) {
    if (!stream) return 0;
    ShowLine();
    if (!quiet) std::printf("  write %s\n", path);
    std::rewind(stream);
    char text[READ_PIECE];
    while (!quiet && std::fgets(text, sizeof text, stream)) {
        text[std::strcspn(text, "\n")] = '\0';
        std::printf("  | %s\n", text);
    }
    std::fclose(stream);
    Make(path, false);
    return 1;
}

int Test(const char *path) {
    return Exists(path) ? 1 : 0;
}

}  // namespace

std::set<std::string> Prepare(const ListSource &source, const char *base, const char *work) {
    list = &source;
    workPackage = Clean(std::string(work) + "/pkg");
    listDir = Clean(fs::absolute(fs::path(source.path)).parent_path().string());
    pOrvelInstallDir = SaveStr_(work);
    my_name = SaveStr_("setup");
    InitSysCmdList();
    // Lines carry the log redirections of a real run; nothing is logged here.
    flUseLog = 1;
    Seam = {Run, Read, Close, Replace, Commit, Test};
    std::snprintf(AppDir, sizeof AppDir, "%s/%s/%s", base, COMPANY, PRODUCT_DIR);
    quiet = true;
    PreparePackageDirectory(base);
    quiet = false;
    std::set<std::string> names;
    std::string package = Clean(AppDir) + "/";
    for (const auto &[path, directory] : made)
        if (path.compare(0, package.size(), package) == 0)
            names.insert(path.substr(package.size()));
    return names;
}

int Plan(const ListSource &source, const char *base, const char *work) {
    Prepare(source, base, work);
    std::fflush(stdout);
    RunPkgList(source.path.c_str(), "pkg");
    std::fflush(stdout);
    return 0;
}
