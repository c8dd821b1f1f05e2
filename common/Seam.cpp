// The default seam: everything goes to the system.
#include "Seam.h"

#include <cstdlib>

CommandSeam Seam{};

int RunShellLine(const char *line) {
    return RunTableLine(-1, nullptr, line);
}

int RunTableLine(int index, const char *args, const char *line) {
    return Seam.run ? Seam.run(index, args, line) : std::system(line);
}

FILE *OpenShellPipe(const char *line) {
    return Seam.read ? Seam.read(line) : popen(line, "r");
}

int CloseShellPipe(FILE *stream) {
    return Seam.close ? Seam.close(stream) : pclose(stream);
}
