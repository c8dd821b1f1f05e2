// Running table commands through the shell with logging, and capturing the
// output of commands as lists of lines.
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "SysCmd.h"

namespace {

constexpr int RESPONSE_READ_SIZE = 4096;  // lines arrive in pieces of at most 4095 characters
constexpr int PS_WAIT_TRIES = 10;
constexpr int ERRNO_INTERRUPTED = 4;
constexpr int ERRNO_LAST_REPORTED = 151;

const char *OrEmpty(const char *s) {
    return s ? s : "";
}

// |index| when it names a table row, else -1.
int TableIndex(int index) {
    if (index <= -CMD_COUNT || index >= CMD_COUNT) return -1;
    return index < 0 ? -index : index;
}

// A block of exactly the formatted size, so no command line is ever cut into
// a different command than the caller asked for.
MemPtr<char> FormatV(const char *format, va_list args) {
    va_list measure;
    va_copy(measure, args);
    int len = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    if (len < 0) return nullptr;
    MemPtr<char> text(static_cast<char *>(GetMem(len + 1)));
    if (text) std::vsnprintf(text.get(), len + 1, format, args);
    return text;
}

MemPtr<char> Format(const char *format, ...) PRINTF_LIKE(1, 2);
MemPtr<char> Format(const char *format, ...) {
    va_list args;
    va_start(args, format);
    MemPtr<char> text = FormatV(format, args);
    va_end(args);
    return text;
}

// Entry `i` (above 1) with its directory, resolved on first use while lazy
// resolution is on. A command that is nowhere ends the program with status 0:
// the installer treats a missing tool as nothing left to do, not as a failure.
const SysCommand &Locate(int i) {
    SysCommand &cmd = ComList[i];
    if (flInitSysCmd && !cmd.path) FillCmdPath(i);
    if (!cmd.path) {
        std::fprintf(stderr, "ERROR: unable to locate system command '%s'\n", cmd.name);
        std::exit(0);
    }
    return cmd;
}

bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n';
}

// True when the shell text sends standard output somewhere itself: a '>'
// outside quotes that does not belong to "2>" or "2>>".
bool RedirectsStdout(std::string_view text) {
    char quote = 0;
    for (size_t p = 0; p < text.size(); ++p) {
        char c = text[p];
        if (quote) {
            if (c == quote)
                quote = 0;
            else if (c == '\\' && quote == '"')
                ++p;
            continue;
        }
        if (c == '\\') {
            ++p;
            continue;
        }
        if (c == '\'' || c == '"') {
            quote = c;
            continue;
        }
        if (c != '>') continue;
        if (p > 0 && text[p - 1] == '>') continue;  // second half of ">>"
        if (p > 0 && text[p - 1] == '2' && (p == 1 || IsBlank(text[p - 2]))) continue;
        return true;
    }
    return false;
}

// The redirection a mode appends. A caller that redirects standard output
// itself keeps it (the package list's sed step writes its result that way);
// only standard error then follows the mode.
MemPtr<char> Redirection(int mode, bool logging, bool callerHasStdout) {
    if (mode == 0)
        return Format("%s", callerHasStdout ? " 2>/dev/null" : " 1>/dev/null 2>/dev/null");
    if ((mode != 1 && mode != 2) || !logging) return Format("%s", "");
    const char *name = OrEmpty(my_name);
    if (!flUseLog)
        return Format("%s", callerHasStdout ? " 2>>/dev/null" : " 1>>/dev/null 2>>/dev/null");
    if (callerHasStdout) return Format(" 2>>/tmp/%s.log", name);
    return Format(" 1>>/tmp/%s.log 2>>/tmp/%s.log", name, name);
}

// "ERROR"/"WARNING_MSG" in the log for a failed mode 1 or 2 run; mode 2 also
// tells the user and ends the program.
void ReportFailure(int mode, int result) {
    if (mode != 1 && mode != 2) return;
    if (result < 1 || result > ERRNO_LAST_REPORTED || result == ERRNO_INTERRUPTED) return;
    const char *text = strerrordesc_np(result);
    if (!text) return;
    PutLogMsg("%s: %s\n", mode == 2 ? "ERROR" : "WARNING_MSG", text);
    if (mode == 2) {
        std::printf("%s: %s\n", "ERROR", text);
        std::exit(1);
    }
}

// Commands that start a daemon return before it runs: poll for it.
void WaitForProcess(const char *name) {
    for (int attempt = 0; attempt < PS_WAIT_TRIES; ++attempt) {
        if (attempt > 0) sleep(1);
        if (char *ids = GetSysPsIdList(name)) {
            PutMem(ids);
            return;
        }
    }
    PutLogMsg("ERROR: Time out for command %s\n", name);
}

void WaitAfter(const SysCommand &cmd) {
    if (cmd.wait == -1)
        WaitForProcess(cmd.name);
    else if (cmd.wait > 0)
        sleep(static_cast<unsigned>(cmd.wait));
}

// "<path>/<name> <args> " and the caller's text, or the text alone for the
// rows without a command.
MemPtr<char> ResponseCommand(int index, const char *format, va_list args) {
    int i = TableIndex(index);
    if (i < 0) return nullptr;
    MemPtr<char> text = FormatV(format, args);
    if (!text || i <= 1) return text;
    const SysCommand &cmd = Locate(i);
    return Format("%s/%s %s %s", cmd.path, cmd.name, cmd.args, text.get());
}

// Runs `line` and hands each kept piece of its output to `keep`.
template <typename Keep>
bool ReadResponse(const char *line, const char *filter, Keep keep) {
    FILE *pipe = OpenShellPipe(line);
    if (!pipe) return false;
    char piece[RESPONSE_READ_SIZE];
    while (std::fgets(piece, sizeof piece, pipe)) {
        if (filter && *filter && !std::strstr(piece, filter)) continue;
        keep(piece, std::strlen(piece));
    }
    CloseShellPipe(pipe);
    return true;
}

ResponseLine *CollectLines(const char *line, const char *filter) {
    ResponseLine *head = nullptr;
    ResponseLine **tail = &head;
    ReadResponse(line, filter, [&tail](const char *piece, size_t len) {
        auto *record = static_cast<ResponseLine *>(GetMem(sizeof(ResponseLine) + len + 1));
        if (!record) return;
        record->text = reinterpret_cast<char *>(record + 1);
        std::memcpy(record->text, piece, len + 1);
        *tail = record;
        tail = &record->next;
    });
    return head;
}

char *CollectString(const char *line, const char *filter) {
    char *all = nullptr;
    size_t used = 0;
    ReadResponse(line, filter, [&all, &used](const char *piece, size_t len) {
        auto *grown = static_cast<char *>(AdjustMem(all, static_cast<long>(used + len + 2)));
        if (!grown) return;
        all = grown;
        std::memcpy(all + used, piece, len);
        used += len;
        if (len == 0 || piece[len - 1] != '\n') all[used++] = '\n';
        all[used] = '\0';
    });
    return all;
}

}  // namespace

int SysCmd(int index, int mode, const char *format, ...) {
    int i = TableIndex(index);
    if (i < 0) return EINVAL;
    bool logging = index > 0;
    if (flInitSysCmd && i > 1 && !ComList[i].path) FillCmdPath(i);
    if (flInitSysCmd && !ComList[CMD_SH].path) FillCmdPath(CMD_SH);

    va_list args;
    va_start(args, format);
    MemPtr<char> text = FormatV(format, args);
    va_end(args);
    if (!text) return ENOMEM;

    MemPtr<char> head;
    if (i <= 1) {
        head = Format("%s", text.get());
    } else {
        const SysCommand &cmd = Locate(i);
        const SysCommand &sh = Locate(CMD_SH);
        head = Format("%s/%s -c \"%s/%s %s %s", sh.path, sh.name, cmd.path, cmd.name, cmd.args,
                      text.get());
    }
    if (!head) return ENOMEM;

    if (logging && flSysCmdLog && (mode == 1 || mode == 2)) {
        std::printf(".");
        std::fflush(stdout);
        PutLogMsg("%s\n", head.get());
    }
    MemPtr<char> redirect = Redirection(mode, logging, RedirectsStdout(text.get()));
    MemPtr<char> line =
        Format("%s%s%s", head.get(), redirect ? redirect.get() : "", i > 1 ? "\"" : "");
    if (!line) return ENOMEM;

    std::fflush(stdout);  // what the user already saw comes before the command's output
    int result = RunTableLine(i, text.get(), line.get());
    // The error number, not the exit status, is the result: callers have
    // always tested it this way, and a command that fails while errno is 0
    // therefore counts as a success.
    if (result != 0) result = errno;
    ReportFailure(mode, result);
    WaitAfter(ComList[i]);
    return result;
}

int SysCmdP(int mode, const char *format, ...) {
    va_list args;
    va_start(args, format);
    MemPtr<char> line = FormatV(format, args);
    va_end(args);
    if (!line) return ENOMEM;
    bool reporting = mode == 1 || mode == 2;
    if (reporting) std::printf("%s\n", line.get());
    std::fflush(stdout);
    int status = RunShellLine(line.get());
    int result = status >> 7;  // 7, not 8: the error numbers users know come out of this
    if (status != 0 && reporting) {
        errno = result;
        if (result != ERRNO_INTERRUPTED) {
            // The prefix is printed as it stands, placeholder included.
            std::perror(mode == 2 ? "ERROR: unable to locate system command '%s'\n" : "ERROR");
            if (mode == 2) std::exit(1);
        }
    }
    RunShellLine("/usr/bin/sleep 1");
    return result;
}

ResponseLine *GetCmdResponse(int index, const char *filter, const char *format, ...) {
    va_list args;
    va_start(args, format);
    MemPtr<char> line = ResponseCommand(index, format, args);
    va_end(args);
    return line ? CollectLines(line.get(), filter) : nullptr;
}

char *GetCmdResponseStr(int index, const char *filter, const char *format, ...) {
    va_list args;
    va_start(args, format);
    MemPtr<char> line = ResponseCommand(index, format, args);
    va_end(args);
    return line ? CollectString(line.get(), filter) : nullptr;
}

void FreeResponseList(ResponseLine *list) {
    while (list) {
        ResponseLine *next = list->next;
        PutMem(list);
        list = next;
    }
}
