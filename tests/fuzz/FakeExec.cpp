// The command layer of the fuzz build is the library's own (SysExec.cpp),
// with the seam turned into a recorder: every command line is built as in a
// real run and handed to nothing, whatever the input makes of it; a command
// whose output is read answers with the text a harness set for its row
// (fuzz::SetResponse), so that readers of df or ps output can be driven
// without the programs. Every row has a made-up directory, so that nothing
// is looked for on this machine.
//
// The harnesses are also linked with --wrap=system and --wrap=popen: a
// library path that reaches the shell past the seam aborts the input as a
// finding instead of running anything. Outside an input the calls go
// through, for libFuzzer's own use of them.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "SysCmd.h"

namespace {

constexpr const char *DIRECTORY = "/fuzz/bin";
std::string responses[CMD_COUNT];
bool hasResponse[CMD_COUNT];

// The row whose "<directory>/<name> " starts the line, when it has a response.
const std::string *ResponseFor(const char *line) {
    for (int i = 2; i < CMD_COUNT; ++i) {
        std::string head = std::string(DIRECTORY) + "/" + ComList[i].name + " ";
        if (hasResponse[i] && std::strncmp(line, head.c_str(), head.size()) == 0)
            return &responses[i];
    }
    return nullptr;
}

int Run(int, const char *, const char *) {
    return 0;
}

FILE *Read(const char *line) {
    const std::string *response = ResponseFor(line);
    FILE *stream = std::tmpfile();
    if (stream && response) std::fputs(response->c_str(), stream);
    if (stream) std::rewind(stream);
    return stream;
}

int Close(FILE *stream) {
    return std::fclose(stream);
}

[[noreturn]] void Bypassed(const char *call, const char *line) {
    std::fprintf(stderr, "fuzz: %s() reached past the command layer: %s\n", call,
                 line ? line : "(null)");
    std::abort();
}

const bool installed = [] {
    for (int i = 2; i < CMD_COUNT; ++i) ComList[i].path = DIRECTORY;
    Seam.run = Run;
    Seam.read = Read;
    Seam.close = Close;
    return true;
}();

}  // namespace

void fuzz::SetResponse(int index, const char *output) {
    int i = index < 0 ? -index : index;
    if (i >= CMD_COUNT) return;
    hasResponse[i] = output != nullptr;
    responses[i] = output ? output : "";
}

extern "C" {
int __real_system(const char *line);
FILE *__real_popen(const char *line, const char *mode);

int __wrap_system(const char *line) {
    if (fuzz::running) Bypassed("system", line);
    return __real_system(line);
}

FILE *__wrap_popen(const char *line, const char *mode) {
    if (fuzz::running) Bypassed("popen", line);
    return __real_popen(line, mode);
}
}
