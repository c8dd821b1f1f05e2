// helpview: a help file in the help viewer, as the installer shows its help.
constexpr const char *kUsage = R"(usage: helpview FILE
       helpview --help

Shows the HTML help file FILE on an 80 x 24 terminal, a screen at a time.
Type at the prompt:

  NUMBER  follow the link of that number on the screen
  + or -  the next or the previous screen
  b       back to the place seen before
  c       the contents: the top of FILE
  e       leave

These are the English keys; other languages name theirs in the bar. A link
leads to an anchor of FILE ("#name") or to another file, named from the
folder of FILE.

Exit status: 0 done; 1 FILE cannot be read; 2 a usage error.
)";

#include <cstdio>
#include <cstring>

#include "HelpTty.h"
#include "SysCmd.h"
#include "utils.h"

int main(int argc, char **argv) {
    InitSysCmdList();  // every screen starts with `clear`
    const char *invokedAs = argc > 0 && argv[0] ? argv[0] : "helpview";
    my_name = SaveStr_(StripPath(invokedAs));
    pToolPath = GetToolPath(invokedAs);  // the engine's strings lie beside the program

    if (argc == 2 && std::strcmp(argv[1], "--help") == 0) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    // A file whose name starts with "-" is named "./-name".
    if (argc != 2 || argv[1][0] == '-' || argv[1][0] == '\0') {
        std::fputs(kUsage, stderr);
        return 2;
    }
    // The viewer would say so and wait for Return; a command says so and ends.
    FILE *file = GetFileType(argv[1]) == 1 ? nullptr : std::fopen(argv[1], "rb");
    if (!file) {
        std::fprintf(stderr, "%s: cannot read %s\n", my_name, argv[1]);
        return 1;
    }
    std::fclose(file);
    return TtyHtmlHelp(argv[1], nullptr, nullptr);
}
