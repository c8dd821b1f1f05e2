// The command layer of the fuzz build, in place of common/SysExec.cpp: the
// line a command would run is formatted, never handed to a shell, whatever
// the input makes of it. GetCmdResponse answers with the text a harness
// set for that command (fuzz::SetResponse), so that readers of df or ps
// output can be driven without the programs.
//
// The harnesses are also linked with --wrap=system and --wrap=popen: a
// library path that reaches the shell past this layer aborts the input as a
// finding instead of running anything. Outside an input the calls go
// through, for libFuzzer's own use of them.
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "SysCmd.h"

namespace {

std::string responses[CMD_COUNT];
bool hasResponse[CMD_COUNT];

int TableIndex(int index) {
    if (index <= -CMD_COUNT || index >= CMD_COUNT) return -1;
    return index < 0 ? -index : index;
}

// The command line is formatted as the real layer would, so that the
// sanitizers see a format that does not fit its arguments.
void Format(const char *format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (length < 0) return;
    std::string text(static_cast<size_t>(length) + 1, '\0');
    std::vsnprintf(text.data(), text.size(), format, args);
}

#define FORMAT_ARGS(format)     \
    va_list args;               \
    va_start(args, format);     \
    Format(format, args);       \
    va_end(args)

// The kept lines of the response set for row `i`, each ended by a newline.
template <typename Keep>
void Respond(int i, const char *filter, Keep keep) {
    if (!hasResponse[i]) return;
    const std::string &all = responses[i];
    for (size_t start = 0; start < all.size();) {
        size_t end = all.find('\n', start);
        end = end == std::string::npos ? all.size() : end + 1;
        std::string line = all.substr(start, end - start);
        start = end;
        if (filter && *filter && !std::strstr(line.c_str(), filter)) continue;
        keep(line);
    }
}

[[noreturn]] void Bypassed(const char *call, const char *line) {
    std::fprintf(stderr, "fuzz: %s() reached past the command layer: %s\n", call,
                 line ? line : "(null)");
    std::abort();
}

}  // namespace

void fuzz::SetResponse(int index, const char *output) {
    int i = TableIndex(index);
    if (i < 0) return;
    hasResponse[i] = output != nullptr;
    responses[i] = output ? output : "";
}

int SysCmd(int index, int, const char *format, ...) {
    if (TableIndex(index) < 0) return EINVAL;
    FORMAT_ARGS(format);
    return 0;
}

int SysCmdP(int, const char *format, ...) {
    FORMAT_ARGS(format);
    return 0;
}

ResponseLine *GetCmdResponse(int index, const char *filter, const char *format, ...) {
    int i = TableIndex(index);
    if (i < 0) return nullptr;
    FORMAT_ARGS(format);
    ResponseLine *head = nullptr;
    ResponseLine **tail = &head;
    Respond(i, filter, [&tail](const std::string &line) {
        auto *record = static_cast<ResponseLine *>(GetMem(sizeof(ResponseLine) + line.size() + 1));
        if (!record) return;
        record->text = reinterpret_cast<char *>(record + 1);
        std::memcpy(record->text, line.c_str(), line.size() + 1);
        *tail = record;
        tail = &record->next;
    });
    return head;
}

char *GetCmdResponseStr(int index, const char *filter, const char *format, ...) {
    int i = TableIndex(index);
    if (i < 0) return nullptr;
    FORMAT_ARGS(format);
    std::string all;
    Respond(i, filter, [&all](const std::string &line) {
        all += line;
        if (all.back() != '\n') all += '\n';
    });
    if (all.empty()) return nullptr;
    auto *copy = static_cast<char *>(GetMem(static_cast<long>(all.size()) + 1));
    if (copy) std::memcpy(copy, all.c_str(), all.size() + 1);
    return copy;
}

void FreeResponseList(ResponseLine *list) {
    while (list) {
        ResponseLine *next = list->next;
        PutMem(list);
        list = next;
    }
}

extern "C" {
int __real_system(const char *line);
FILE *__real_popen(const char *line, const char *mode);

int __wrap_system(const char *line) {
    if (fuzz::Input::running) Bypassed("system", line);
    return __real_system(line);
}

FILE *__wrap_popen(const char *line, const char *mode) {
    if (fuzz::Input::running) Bypassed("popen", line);
    return __real_popen(line, mode);
}
}
