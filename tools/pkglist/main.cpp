// pkglist: plans and checks the installer's package lists (pkg.list).
constexpr const char *kUsage = R"(usage: pkglist plan [--base DIR] [--work DIR] LIST
       pkglist lint LIST

  plan   prints, in order, every command line and every file the installer
         would run or write for LIST, without running anything: each line
         that does something as LIST:LINE and the line, then its effects
         indented: the shell lines as the installer hands them to the shell,
         "write PATH" and the text of a file it writes ("| " lines), and
         "read: LINE" for a command whose output it reads. Existence tests
         (m, s, newdir) see the package directory as the lines before left
         it. Nothing is assumed to run for checkps.
           --base DIR   installation base (default /opt): the package
                        directory is DIR/Orvel/pnzz
           --work DIR   the installer's work directory (default
                        /tmp/OrvelInstall): the list's files come from DIR/pkg
  lint   warns, as LIST:LINE: warning: MESSAGE, about every construct that
         may not do what its author expects; the package's files are taken
         from the list's own directory

Exit status: plan 0; lint 0 when clean, 1 when it warned; 2 a usage error or
an unreadable LIST.
)";

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <algorithm>

#include "Pkglist.h"
#include "utils.h"

namespace {

int Usage() {
    std::fputs(kUsage, stderr);
    return 2;
}

bool Load(const char *path, ListSource &source) {
    FILE *in = std::fopen(path, "rb");
    source = {path, {}};
    char piece[4096];
    for (size_t n; in && (n = std::fread(piece, 1, sizeof piece, in)) > 0;)
        source.text.append(piece, n);
    bool ok = in && !std::ferror(in);
    int error = errno;
    if (in) std::fclose(in);
    if (!ok) std::fprintf(stderr, "pkglist: cannot read %s: %s\n", path, std::strerror(error));
    return ok;
}

}  // namespace

int ListSource::ReaderLine() const {
    long after = pIn ? std::ftell(pIn) : 0;
    size_t end = std::min(text.size(), static_cast<size_t>(std::max(after, 0L)));
    size_t start = end - std::min(end, std::strlen(LineBuf));
    return 1 + static_cast<int>(std::count(text.begin(), text.begin() + start, '\n'));
}

int main(int argc, char **argv) {
    if (argc < 3) return Usage();
    std::string command = argv[1];
    const char *base = "/opt", *work = "/tmp/OrvelInstall";
    int i = 2;
    for (; command == "plan" && i + 1 < argc && argv[i][0] == '-'; i += 2) {
        if (std::strcmp(argv[i], "--base") == 0)
            base = argv[i + 1];
        else if (std::strcmp(argv[i], "--work") == 0)
            work = argv[i + 1];
        else
            return Usage();
    }
    bool option = std::strncmp(argv[i], "--", 2) == 0;  // an option short of its value
    if (i != argc - 1 || option || (command != "plan" && command != "lint")) return Usage();
    ListSource source;
    if (!Load(argv[i], source)) return 2;
    return command == "plan" ? Plan(source, base, work) : Lint(source);
}
