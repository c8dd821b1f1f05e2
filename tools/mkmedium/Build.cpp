#include "Build.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <unistd.h>

#include "Fail.h"
#include "Process.h"

namespace fs = std::filesystem;

namespace {

// Scratch names of the archive while it is made; the installer joins its own
// copy as SGIPnzz.tar.Z, but nothing here depends on the name.
constexpr const char *kTarName = "pkg.tar";
constexpr const char *kZName = "pkg.tar.Z";

struct Sizes {
    long tree = 0;  // du of the package's pkg/ tree
    long tar = 0;   // du of the uncompressed archive
    long z = 0;     // du of the joined compressed archive
};

void RequireFile(const std::string &path, const char *what) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        Die("%s: %s (%s)", path.c_str(), std::strerror(errno), what);
    if (!S_ISREG(info.st_mode)) Die("%s: not a regular file (%s)", path.c_str(), what);
}

void RequireDir(const std::string &path, const char *what) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0)
        Die("%s: %s (%s)", path.c_str(), std::strerror(errno), what);
    if (!S_ISDIR(info.st_mode)) Die("%s: not a directory (%s)", path.c_str(), what);
}

// The installer looks for its translations beside itself, so they come from
// beside the program that goes on the medium.
std::string ToolDir(const BuildOptions &options) {
    fs::path dir = fs::path(options.setupProgram).parent_path();
    return dir.empty() ? "." : dir.string();
}

void CheckInput(const BuildOptions &options) {
    struct stat info;
    std::string pkg = options.package + "/pkg";
    if (lstat(pkg.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        Die("%s: no pkg directory in the package directory", pkg.c_str());
    RequireFile(pkg + "/pkg.list", "the package list");
    RequireFile(options.setupProgram, "the installer program");
    RequireFile(options.helpFile, "the installer's help file");
    std::string tool = ToolDir(options);
    RequireFile(tool + "/trans.conf", "the installer's translation settings, beside --setup");
    RequireDir(tool + "/db", "the installer's string databases, beside --setup");
    if (lstat(options.output.c_str(), &info) == 0)
        Die("%s: already exists", options.output.c_str());
    // The archive is made while the staging tree grows beside the output.
    std::error_code ignored;
    fs::path tree = fs::weakly_canonical(pkg, ignored);
    fs::path out = fs::weakly_canonical(options.output, ignored);
    auto ends = std::mismatch(tree.begin(), tree.end(), out.begin(), out.end());
    if (!tree.empty() && ends.first == tree.end())
        Die("%s: inside the package tree %s", options.output.c_str(), pkg.c_str());
}

void MakeDir(const std::string &path) {
    if (mkdir(path.c_str(), 0755) != 0) Die("%s: %s", path.c_str(), std::strerror(errno));
}

// Puts the finished medium in place unless something took its name meanwhile.
void PutInPlace(const std::string &medium, const std::string &output) {
    if (renameat2(AT_FDCWD, medium.c_str(), AT_FDCWD, output.c_str(), RENAME_NOREPLACE) == 0)
        return;
    if (errno == EEXIST) Die("%s: already exists", output.c_str());
    if (errno != EINVAL) Die("%s: %s", output.c_str(), std::strerror(errno));
    // A file system without the no-replace flag: a look just before is the best there is.
    struct stat info;
    if (lstat(output.c_str(), &info) == 0) Die("%s: already exists", output.c_str());
    if (rename(medium.c_str(), output.c_str()) != 0)
        Die("%s: %s", output.c_str(), std::strerror(errno));
}

// A hidden sibling of the output, so that the finished medium is put in place
// by one rename on the same file system.
std::string MakeStaging(const std::string &output) {
    fs::path target = fs::path(output).lexically_normal();
    if (target.filename().empty()) target = target.parent_path();
    fs::path parent = target.parent_path().empty() ? fs::path(".") : target.parent_path();
    std::string pattern =
        (parent / ("." + target.filename().string() + ".mkmedium-XXXXXX")).string();
    if (!mkdtemp(pattern.data()))
        Die("%s: cannot create a directory there: %s", parent.c_str(), std::strerror(errno));
    RemoveOnFailure(pattern.c_str());
    return pattern;
}

void Run(const std::vector<std::string> &argv, const Redirect &redirect = {}) {
    std::string why;
    if (!RunProgram(argv, redirect, &why)) Die("%s: %s", argv[0].c_str(), why.c_str());
}

// Root owns what the archive unpacks to: the installer runs tar as root, which
// would otherwise give the packager's user ids to the installed files.
Sizes MakeArchive(const std::string &package, const std::string &scratch) {
    Sizes sizes;
    std::string tar = scratch + "/" + kTarName, z = scratch + "/" + kZName;
    Run({"tar", "-c", "-f", tar, "--sort=name", "--owner=0", "--group=0", "--numeric-owner", "-C",
         package, "pkg"});
    // -f: keep the .Z form even when it does not shrink; the installer always uncompresses.
    Run({"compress", "-f", "-c"}, {tar, z});
    sizes.tree = DuSize(package + "/pkg");
    sizes.tar = DuSize(tar);
    sizes.z = DuSize(z);
    return sizes;
}

void WriteText(const std::string &path, const std::string &text) {
    std::ofstream file(path, std::ios::binary | std::ios::trunc);
    file << text;
    file.close();
    if (!file) Die("%s: cannot write", path.c_str());
}

// Copies keeping mode and times, as `cp -p` does; the installer relies on the
// program staying executable.
void CopyFile(const std::string &from, const std::string &to) {
    std::error_code error;
    fs::copy_file(from, to, error);
    if (!error) fs::permissions(to, fs::status(from).permissions(), error);
    if (!error) fs::last_write_time(to, fs::last_write_time(from), error);
    if (error) Die("cannot copy %s to %s: %s", from.c_str(), to.c_str(), error.message().c_str());
}

long FileBytes(const std::string &path) {
    std::error_code error;
    auto size = fs::file_size(path, error);
    if (error) Die("%s: %s", path.c_str(), error.message().c_str());
    return static_cast<long>(size);
}

// The entries of a directory by name, so that media come out the same each time.
std::vector<fs::directory_entry> Entries(const std::string &dir) {
    std::error_code error;
    std::vector<fs::directory_entry> entries;
    for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error))
        entries.push_back(*it);
    if (error) Die("%s: %s", dir.c_str(), error.message().c_str());
    std::sort(entries.begin(), entries.end());
    return entries;
}

bool IsDir(const fs::directory_entry &entry) {
    std::error_code ignored;
    return entry.is_directory(ignored);
}

// Copies the tree `from` to `to` under the medium's names; a DOS diskette
// holds only files and directories.
void CopyTree(const std::string &from, const std::string &to, const MediumNames &names) {
    MakeDir(to);
    for (const fs::directory_entry &entry : Entries(from)) {
        std::string target = to + "/" + MediumName(names, entry.path().filename());
        std::error_code ignored;
        if (IsDir(entry))
            CopyTree(entry.path(), target, names);
        else if (entry.is_regular_file(ignored))
            CopyFile(entry.path(), target);
        else
            Die("%s: neither a file nor a directory", entry.path().c_str());
    }
}

long TreeOnDiskette(const std::string &dir) {
    std::vector<std::string> names;
    long bytes = 0;
    for (const fs::directory_entry &entry : Entries(dir)) {
        names.push_back(entry.path().filename());
        bytes += IsDir(entry) ? TreeOnDiskette(entry.path()) : OnDiskette(FileBytes(entry.path()));
    }
    return bytes + DirectoryOnDiskette(names);
}

void CopyTranslations(const std::string &tool, const std::string &dir, const MediumNames &names) {
    CopyFile(tool + "/trans.conf", dir + "/" + names.transConf);
    CopyTree(tool + "/db", dir + "/" + names.db, names);
}

// Cuts the archive into its piece files, streaming: a site's pieces may be large.
void WritePieces(const std::string &z, const std::vector<long> &pieces,
                 const std::vector<std::string> &paths) {
    std::ifstream in(z, std::ios::binary);
    char chunk[65536];
    for (size_t i = 0; i < pieces.size(); ++i) {
        std::ofstream out(paths[i], std::ios::binary | std::ios::trunc);
        for (long left = pieces[i]; left > 0;) {
            long want = std::min<long>(left, sizeof chunk);
            in.read(chunk, want);
            if (in.gcount() != want) Die("%s: shorter than measured", z.c_str());
            out.write(chunk, want);
            left -= want;
        }
        out.close();
        if (!out) Die("%s: cannot write", paths[i].c_str());
    }
}

std::string DisketteDir(const std::string &medium, int n) {
    return medium + "/disk" + std::to_string(n);
}

// Piece sizes for the options; ends the tool when the capacity cannot carry
// the archive in a form the installer reads.
std::vector<long> Plan(const BuildOptions &options, const MediumNames &names, long archive,
                       const std::string &program) {
    // The first diskette holds the program, its help file, installf.rom and the
    // two size files besides the disks file; a size file is one cluster.
    long firstFiles =
        OnDiskette(FileBytes(program)) + OnDiskette(FileBytes(options.helpFile)) +
        OnDiskette(static_cast<long>(std::strlen(KindWord(options.kind)))) + 2 * kClusterSize;
    // Every diskette: trans.conf and the db/ tree, whose subdirectories take
    // clusters too. Names in the root directory cost nothing: it has a region
    // of its own outside the capacity.
    std::string tool = ToolDir(options);
    long everyFiles = OnDiskette(FileBytes(tool + "/trans.conf")) + TreeOnDiskette(tool + "/db");
    std::string why;
    std::vector<long> pieces =
        PlanPieces(names, archive, firstFiles, everyFiles, options.capacity, &why);
    if (pieces.empty()) Die("%s", why.c_str());
    int count = static_cast<int>(pieces.size());
    if (options.dosNames && count > kDosMaxPieces)
        Die("capacity %ld too small: %d pieces, DOS names allow %d", options.capacity, count,
            kDosMaxPieces);
    if (DisksText(names, count).size() > kDisksTextMax)
        Die("capacity %ld too small: %d pieces make a disks file over the installer's %zu bytes",
            options.capacity, count, kDisksTextMax);
    return pieces;
}

// Paths of the pieces: all in the site, or piece n in diskette directory n.
std::vector<std::string> PiecePaths(const std::string &medium, MediumKind kind,
                                    const MediumNames &names, int count) {
    std::vector<std::string> paths;
    for (int n = 1; n <= count; ++n) {
        std::string dir = kind == MediumKind::Site ? medium : DisketteDir(medium, n);
        if (kind == MediumKind::Diskettes) MakeDir(dir);
        paths.push_back(dir + "/" + PieceName(names, n));
    }
    return paths;
}

// The site, or the diskette directories in order.
std::vector<std::string> MediumDirs(const std::string &medium, MediumKind kind, int count) {
    if (kind == MediumKind::Site) return {medium};
    std::vector<std::string> dirs;
    for (int n = 1; n <= count; ++n) dirs.push_back(DisketteDir(medium, n));
    return dirs;
}

// The work directory at its fullest: every listed file copied in, the joined
// .Z, the .tar made from it and the unpacked tree. uncompress removes the .Z
// only after the .tar is whole, so both count.
long WorkNeed(const Sizes &sizes, const std::vector<std::string> &piecePaths,
              const std::string &first, const MediumNames &names) {
    long work = sizes.z + sizes.tar + sizes.tree;
    for (const std::string &path : piecePaths) work += DuSize(path);
    for (const char *file : {names.disks, names.isize, names.tsize, names.setup, names.help})
        work += DuSize(first + "/" + file);
    return work;
}

/// The program as a medium ships it: without its debugging information,
/// which a development build carries and a diskette has no room for. A
/// program objcopy cannot read (a script, say) goes as it is.
std::string ShippedProgram(const std::string &program, const std::string &scratch) {
    std::string stripped = scratch + "/setup";
    std::string why;
    if (RunProgram({"objcopy", "--strip-debug", program, stripped}, {}, &why)) return stripped;
    return program;
}

}  // namespace

void BuildMedium(const BuildOptions &options) {
    const MediumNames &names = options.dosNames ? kDosNames : kPlainNames;
    CheckInput(options);
    std::string staging = MakeStaging(options.output);
    std::string scratch = staging + "/scratch", medium = staging + "/medium";
    MakeDir(scratch);
    MakeDir(medium);
    std::string program = ShippedProgram(options.setupProgram, scratch);

    Sizes sizes = MakeArchive(options.package, scratch);
    std::string z = scratch + "/" + kZName;

    std::vector<long> pieces = Plan(options, names, FileBytes(z), program);
    int count = static_cast<int>(pieces.size());
    std::vector<std::string> piecePaths = PiecePaths(medium, options.kind, names, count);
    WritePieces(z, pieces, piecePaths);
    std::vector<std::string> dirs = MediumDirs(medium, options.kind, count);
    for (const std::string &dir : dirs) CopyTranslations(ToolDir(options), dir, names);
    const std::string &first = dirs[0];
    CopyFile(program, first + "/" + names.setup);
    CopyFile(options.helpFile, first + "/" + names.help);
    WriteText(first + "/" + names.disks, DisksText(names, count));
    WriteText(first + "/" + names.installf, KindWord(options.kind));
    WriteText(first + "/" + names.isize, std::to_string(sizes.tree) + "\n");
    // tsize counts itself, so it is written once before it is measured.
    std::string tsize = first + "/" + names.tsize;
    WriteText(tsize, "0\n");
    long work = WorkNeed(sizes, piecePaths, first, names);
    WriteText(tsize, std::to_string(work) + "\n");

    std::error_code ignored;
    fs::remove_all(scratch, ignored);
    PutInPlace(medium, options.output);
    RemoveOnFailure("");
    fs::remove_all(staging, ignored);
    std::printf("mkmedium: %s: %s with %d piece%s, isize %ld, tsize %ld\n", options.output.c_str(),
                options.kind == MediumKind::Site ? "installation site" : "diskette set", count,
                count == 1 ? "" : "s", sizes.tree, work);
}
