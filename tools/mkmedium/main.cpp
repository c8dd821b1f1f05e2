// mkmedium: builds and checks installation media for the `setup` installer.
constexpr const char *kUsage = R"(usage: mkmedium [--site | --diskettes] [--dos] [--capacity BYTES]
                [--setup PATH] [--help-file PATH] -o OUTDIR PKGDIR
       mkmedium --check MEDIUM [DISKETTE...]

Builds an installation medium from PKGDIR, whose pkg/ tree holds pkg.list.
pkg/ is archived with tar, compressed into the .Z format with compress and
cut into pieces pkg_tar.z1, pkg_tar.z2, ... sized for diskettes of BYTES
(default 1457664, a 1.44 MB DOS diskette; files take whole 512-byte clusters).
The medium also holds the disks file (the files of each diskette, one line per
diskette, then "end_of_list"), isize, tsize, installf.rom, and copies of the
installer and its help file. The installer's trans.conf and string databases
(the tree db/, e.g. db/fr_FR/CoreString.vdb), taken from the directory of the
--setup program, go on the site and on every diskette, since the installer
reads them from the drive whichever diskette is in it; the disks file does not
list them.

  --site            one installation-site directory OUTDIR (the default)
  --diskettes       diskette directories OUTDIR/disk1, OUTDIR/disk2, ...: piece n
                    on diskette n, the other files on the first
  --dos             upper-case names as a DOS diskette shows them (PKG_TAR.Z1,
                    DISKS, INSTALLF.ROM, DB/FR_FR/CORESTRING.VDB, ...); at most
                    99 pieces
  --capacity BYTES  bytes per diskette
  --setup PATH      the installer program (default PKGDIR/setup); its directory
                    must hold trans.conf and db/
  --help-file PATH  its help file (default PKGDIR/setup.hlp)
  -o OUTDIR         where the medium goes; it must not exist
  --check           verify a medium: a site directory, the diskette directories
                    in order, or the OUTDIR of --diskettes (each must also hold
                    trans.conf and db/)

Sizes, in the unit of `du -s` and `df` (1 KiB blocks here), as the installer's
free-space check compares them:
  isize = du of pkg/: what the installed package needs
  tsize = du of every file the disks file lists + du of the joined .Z archive
          + du of the .tar + du of pkg/: the work directory at its fullest
)";

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Build.h"
#include "Check.h"
#include "Fail.h"

namespace {

[[noreturn]] void UsageError(const char *text) {
    std::fprintf(stderr, "mkmedium: %s (see mkmedium --help)\n", text);
    std::exit(2);
}

long ParseCapacity(const char *text) {
    char *end = nullptr;
    errno = 0;
    long capacity = std::strtol(text, &end, 10);
    if (end == text || *end || errno || capacity <= 0)
        UsageError("--capacity needs a positive number of bytes");
    return capacity;
}

// The value of an option that takes one; `*i` moves past it.
const char *Value(int argc, char **argv, int *i) {
    if (*i + 1 >= argc) UsageError("an option lacks its value");
    return argv[++*i];
}

BuildOptions ParseBuild(int argc, char **argv) {
    BuildOptions options;
    std::vector<std::string> operands;
    bool setupGiven = false, helpGiven = false;
    for (int i = 1; i < argc; ++i) {
        std::string word = argv[i];
        if (word == "--site")
            options.kind = MediumKind::Site;
        else if (word == "--diskettes")
            options.kind = MediumKind::Diskettes;
        else if (word == "--dos")
            options.dosNames = true;
        else if (word == "--capacity")
            options.capacity = ParseCapacity(Value(argc, argv, &i));
        else if (word == "--setup")
            setupGiven = true, options.setupProgram = Value(argc, argv, &i);
        else if (word == "--help-file")
            helpGiven = true, options.helpFile = Value(argc, argv, &i);
        else if (word == "-o")
            options.output = Value(argc, argv, &i);
        else if (word.size() > 1 && word[0] == '-')
            UsageError(("unknown option " + word).c_str());
        else
            operands.push_back(word);
    }
    if (options.output.empty()) UsageError("no output directory (-o OUTDIR)");
    if (operands.size() != 1) UsageError("give one package directory");
    options.package = operands[0];
    if (!setupGiven) options.setupProgram = options.package + "/setup";
    if (!helpGiven) options.helpFile = options.package + "/setup.hlp";
    return options;
}

}  // namespace

int main(int argc, char **argv) {
    if (argc > 1 && (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h"))) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    if (argc > 1 && !std::strcmp(argv[1], "--check")) {
        if (argc < 3) UsageError("--check needs a medium");
        CheckMedium(std::vector<std::string>(argv + 2, argv + argc));
        return 0;
    }
    BuildMedium(ParseBuild(argc, argv));
    return 0;
}
