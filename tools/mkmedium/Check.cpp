#include "Check.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string_view>
#include <sys/stat.h>

#include "Fail.h"
#include "Medium.h"
#include "Process.h"

namespace fs = std::filesystem;

namespace {

bool IsFile(const std::string &path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode);
}

bool IsDir(const std::string &path) {
    struct stat info;
    return stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

// A DOS diskette answers to either case of a name; a copy on disk may hold
// either, so both are tried, the listed form first.
std::string Find(const std::string &dir, const std::string &name,
                 bool (*is)(const std::string &) = IsFile) {
    std::string lower = name, upper = name;
    for (char &c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (char &c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    for (const std::string &form : {name, lower, upper})
        if (is(dir + "/" + form)) return dir + "/" + form;
    return {};
}

std::string Require(const std::string &dir, const std::string &name,
                    bool (*is)(const std::string &) = IsFile) {
    std::string path = Find(dir, name, is);
    if (path.empty()) Die("%s: %s missing", dir.c_str(), name.c_str());
    return path;
}

std::string ReadAll(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

bool HasDisks(const std::string &dir) {
    return IsFile(dir + "/disks") || IsFile(dir + "/DISKS");
}

// One directory holding disk1, disk2, ... is the output of a diskette build.
std::vector<std::string> ExpandSet(const std::vector<std::string> &dirs) {
    if (dirs.size() != 1 || HasDisks(dirs[0]) || !HasDisks(dirs[0] + "/disk1")) return dirs;
    std::vector<std::string> set;
    for (int n = 1; fs::is_directory(dirs[0] + "/disk" + std::to_string(n)); ++n)
        set.push_back(dirs[0] + "/disk" + std::to_string(n));
    return set;
}

using Lines = std::vector<std::vector<std::string>>;

// The disks file as the installer reads it: "disks" else "DISKS", whose names
// are taken in capitals up to "end_of_list"; lines end at newlines or carriage
// returns.
Lines ReadDisks(const std::string &dir) {
    std::string path = dir + "/disks";
    bool dos = !IsFile(path);
    if (dos) path = dir + "/DISKS";
    if (!IsFile(path)) Die("%s: no disks file", dir.c_str());
    std::string text = ReadAll(path);
    if (text.size() > kDisksTextMax)
        Die("%s: %zu bytes, over the installer's %zu", path.c_str(), text.size(), kDisksTextMax);
    size_t end = text.find(kEndOfList);
    if (end == std::string::npos) Die("%s: no %s", path.c_str(), kEndOfList);
    text.resize(end);
    // The joiner splits words at blanks and line ends only: a piece after a tab
    // would be copied but never joined.
    if (text.find('\t') != std::string::npos) Die("%s: a tab between names", path.c_str());
    if (dos)
        for (char &c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    std::replace(text.begin(), text.end(), '\r', '\n');
    Lines lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line, '\n');) {
        std::istringstream words(line);
        std::vector<std::string> files;
        for (std::string word; words >> word;) files.push_back(word);
        if (!files.empty()) lines.push_back(files);
    }
    if (lines.empty()) Die("%s: lists no files", path.c_str());
    return lines;
}

bool IsPiece(std::string_view word) {
    return word.substr(0, 8) == "pkg_tar." || word.substr(0, 8) == "PKG_TAR.";
}

// isize and tsize are read beside the program with strtod.
long ReadSize(const std::string &dir, const char *name) {
    std::string path = Require(dir, name);
    std::string text = ReadAll(path);
    char *end = nullptr;
    double size = std::strtod(text.c_str(), &end);
    if (end == text.c_str() || size <= 0) Die("%s: no size in it", path.c_str());
    return static_cast<long>(size);
}

MediumKind ReadKind(const std::string &dir) {
    std::string path = Require(dir, "installf.rom");
    std::string word = ReadAll(path);
    for (MediumKind kind : {MediumKind::Site, MediumKind::Diskettes})
        if (word == KindWord(kind)) return kind;
    Die("%s: neither \"%s\" nor \"%s\"", path.c_str(), KindWord(MediumKind::Site),
        KindWord(MediumKind::Diskettes));
}

// The diskette directory of each line: all in one directory on a site. The
// installer knows diskette n by its piece pkg_tar.z<n>, so the directories may
// come in any order (a shell's disk* puts disk10 before disk2).
std::vector<std::string> DirOfLine(MediumKind kind, const std::vector<std::string> &dirs,
                                   const Lines &lines) {
    if (kind == MediumKind::Site) {
        if (dirs.size() != 1) Die("%s: an installation site is one directory", dirs[0].c_str());
        return std::vector<std::string>(lines.size(), dirs[0]);
    }
    if (dirs.size() != lines.size())
        Die("%s: the disks file lists %zu diskettes, %zu given", dirs[0].c_str(), lines.size(),
            dirs.size());
    std::vector<std::string> where;
    for (size_t n = 1; n <= lines.size(); ++n) {
        std::string piece = PieceName(kPlainNames, static_cast<int>(n));
        for (const std::string &dir : dirs)
            if (!Find(dir, piece).empty()) where.push_back(dir);
        if (where.size() < n) Die("no diskette holds %s", piece.c_str());
        if (where.size() > n) Die("%s is on more than one diskette", piece.c_str());
    }
    for (const std::string &dir : dirs)
        if (std::find(where.begin(), where.end(), dir) == where.end())
            Die("%s: holds no piece of the set", dir.c_str());
    return where;
}

// The first diskette is the one with the program beside piece 1.
std::string FirstOf(const std::vector<std::string> &dirs) {
    for (const std::string &dir : dirs)
        if (!Find(dir, PieceName(kPlainNames, 1)).empty() && HasDisks(dir)) return dir;
    return dirs[0];
}

// Every listed file where the installer copies it from.
void CheckListed(const std::vector<std::string> &where, const Lines &lines) {
    for (size_t n = 0; n < lines.size(); ++n) {
        for (const std::string &file : lines[n]) Require(where[n], file);
    }
}

// The installer reads these from whichever diskette is in the drive.
void CheckTranslations(const std::vector<std::string> &dirs) {
    for (const std::string &dir : dirs) {
        Require(dir, "trans.conf");
        Require(dir, "db/", IsDir);
    }
}

void CheckProgram(const std::string &dir) {
    std::string program = Require(dir, "setup");
    struct stat info;
    if (stat(program.c_str(), &info) != 0 || !(info.st_mode & S_IXUSR))
        Die("%s: not executable", program.c_str());
    Require(dir, "setup.hlp");
}

void Run(const std::vector<std::string> &argv) {
    std::string why;
    if (!RunProgram(argv, {}, &why)) Die("%s: %s", argv[0].c_str(), why.c_str());
}

// Joins the pieces in disks-file order, as the installer does with cat.
int JoinPieces(const std::vector<std::string> &where, const Lines &lines, const std::string &z) {
    std::ofstream out(z, std::ios::binary);
    int pieces = 0;
    for (size_t n = 0; n < lines.size(); ++n)
        for (const std::string &file : lines[n])
            if (IsPiece(file)) {
                std::ifstream in(Require(where[n], file), std::ios::binary);
                out << in.rdbuf();
                ++pieces;
            }
    out.close();
    if (!out) Die("%s: cannot write", z.c_str());
    if (pieces == 0) Die("%s: the disks file names no archive piece", where[0].c_str());
    return pieces;
}

// The installer unpacks in its work directory: a member outside pkg/ would land
// beside its own files.
void CheckMembers(const std::string &tar) {
    std::string list, why;
    if (!CaptureProgram({"tar", "-t", "-f", tar}, &list, &why)) Die("tar: %s", why.c_str());
    std::istringstream in(list);
    for (std::string member; std::getline(in, member);) {
        std::string_view name = member;
        if (name.substr(0, 2) == "./") name.remove_prefix(2);
        if (name != "pkg" && name != "pkg/" && name.substr(0, 4) != "pkg/")
            Die("archive member %s lies outside pkg/", member.c_str());
    }
}

void Unpack(const std::string &scratch, int pieces) {
    std::string z = scratch + "/SGIPnzz.tar.Z", tar = scratch + "/SGIPnzz.tar";
    Run({"uncompress", z});
    if (!IsFile(tar)) Die("uncompress left no %s", tar.c_str());
    CheckMembers(tar);
    std::string tree = scratch + "/unpacked";
    if (mkdir(tree.c_str(), 0755) != 0) Die("%s: %s", tree.c_str(), std::strerror(errno));
    Run({"tar", "-x", "-p", "-f", tar, "-C", tree});
    if (!IsFile(tree + "/pkg/pkg.list"))
        Die("the %d piece%s unpack to no pkg/pkg.list", pieces, pieces == 1 ? "" : "s");
}

std::string MakeScratch() {
    const char *tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/mkmedium-check-XXXXXX";
    if (!mkdtemp(pattern.data())) Die("%s: %s", pattern.c_str(), std::strerror(errno));
    RemoveOnFailure(pattern.c_str());
    return pattern;
}

}  // namespace

void CheckMedium(std::vector<std::string> dirs) {
    dirs = ExpandSet(dirs);
    const std::string first = FirstOf(dirs);
    MediumKind kind = ReadKind(first);
    Lines lines = ReadDisks(first);
    std::vector<std::string> where = DirOfLine(kind, dirs, lines);
    CheckListed(where, lines);
    CheckProgram(first);
    CheckTranslations(dirs);
    long isize = ReadSize(first, "isize"), tsize = ReadSize(first, "tsize");

    std::string scratch = MakeScratch();
    int pieces = JoinPieces(where, lines, scratch + "/SGIPnzz.tar.Z");
    Unpack(scratch, pieces);
    RemoveOnFailure("");
    std::error_code ignored;
    fs::remove_all(scratch, ignored);
    std::printf("mkmedium: %s: ok, %s with %d piece%s, isize %ld, tsize %ld\n", first.c_str(),
                kind == MediumKind::Site ? "installation site" : "diskette set", pieces,
                pieces == 1 ? "" : "s", isize, tsize);
}
