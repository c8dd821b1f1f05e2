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

void CheckInput(const BuildOptions &options) {
    struct stat info;
    std::string pkg = options.package + "/pkg";
    if (lstat(pkg.c_str(), &info) != 0 || !S_ISDIR(info.st_mode))
        Die("%s: no pkg directory in the package directory", pkg.c_str());
    RequireFile(pkg + "/pkg.list", "the package list");
    RequireFile(options.setupProgram, "the installer program");
    RequireFile(options.helpFile, "the installer's help file");
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
std::vector<long> Plan(const BuildOptions &options, const MediumNames &names, long archive) {
    // The first diskette holds the program, its help file, installf.rom and the
    // two size files besides the disks file; a size file is one cluster.
    long firstFiles =
        OnDiskette(FileBytes(options.setupProgram)) + OnDiskette(FileBytes(options.helpFile)) +
        OnDiskette(static_cast<long>(std::strlen(KindWord(options.kind)))) + 2 * kClusterSize;
    std::string why;
    std::vector<long> pieces = PlanPieces(names, archive, firstFiles, options.capacity, &why);
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

}  // namespace

void BuildMedium(const BuildOptions &options) {
    const MediumNames &names = options.dosNames ? kDosNames : kPlainNames;
    CheckInput(options);
    std::string staging = MakeStaging(options.output);
    std::string scratch = staging + "/scratch", medium = staging + "/medium";
    MakeDir(scratch);
    MakeDir(medium);

    Sizes sizes = MakeArchive(options.package, scratch);
    std::string z = scratch + "/" + kZName;

    std::vector<long> pieces = Plan(options, names, FileBytes(z));
    int count = static_cast<int>(pieces.size());
    std::string first = options.kind == MediumKind::Site ? medium : DisketteDir(medium, 1);
    std::vector<std::string> piecePaths = PiecePaths(medium, options.kind, names, count);
    WritePieces(z, pieces, piecePaths);
    CopyFile(options.setupProgram, first + "/" + names.setup);
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
