// Questions about the running system, answered by reading the output of
// ps, df, du and pkginfo; stopping processes by name.
#include <signal.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "SysCmd.h"

namespace {

constexpr const char *COLUMN_DELIMITERS = " \t\n";
constexpr int PROC_TABLE_SIZE = 1024;
constexpr int PS_NAME_COLUMN = 4;  // "PID TTY TIME CMD"

struct ResponseDeleter {
    void operator()(ResponseLine *list) const { FreeResponseList(list); }
};
using ResponsePtr = std::unique_ptr<ResponseLine, ResponseDeleter>;

// Appends " <word>" to the list being built in Line; a word that would not
// fit is left out.
void AppendWord(size_t &used, const char *word) {
    size_t len = std::strlen(word);
    if (used + 1 + len + 2 > sizeof Line) return;
    Line[used++] = ' ';
    std::memcpy(Line + used, word, len);
    used += len;
    Line[used] = '\0';
}

// " a b " from what AppendWord collected, or null when nothing was.
char *FinishWordList(size_t used) {
    if (used == 0) return nullptr;
    Line[used++] = ' ';
    Line[used] = '\0';
    return SaveStr_(Line);
}

// The 0-based column of the header whose name starts with "avail", or -1.
int AvailColumn(const char *header) {
    int column = 0;
    for (const char *word = GetToken(header, COLUMN_DELIMITERS); word;
         word = GetToken(nullptr, COLUMN_DELIMITERS), ++column) {
        if (strncasecmp(word, "avail", 5) == 0) return column;
    }
    return -1;
}

double LeadingNumber(const ResponseLine *list) {
    return list ? std::strtod(list->text, nullptr) : 0;
}

}  // namespace

char *GetSysPsIdList(const char *name) {
    if (!name) return nullptr;
    ResponsePtr lines(GetCmdResponse(CMD_PS, name, "%s", ""));
    size_t used = 0;
    Line[0] = '\0';
    for (ResponseLine *r = lines.get(); r; r = r->next) {
        // A query for "lp" also sees "lpd" in the filter; only the exact
        // command name counts.
        const char *command = GetTokenN(r->text, COLUMN_DELIMITERS, PS_NAME_COLUMN);
        if (!command || std::strcmp(command, name) != 0) continue;
        AppendWord(used, GetTokenN(r->text, COLUMN_DELIMITERS, 1));
    }
    return FinishWordList(used);
}

char *GetSysPkgList(const char *filter) {
    // The response list stays allocated, as it always has; the installer asks
    // this once per run.
    ResponseLine *lines = GetCmdResponse(CMD_PKGINFO, filter, "%s", "");
    size_t used = 0;
    Line[0] = '\0';
    for (ResponseLine *r = lines; r; r = r->next) {
        if (const char *package = GetTokenN(r->text, COLUMN_DELIMITERS, 2))
            AppendWord(used, package);
    }
    return FinishWordList(used);
}

char *CheckProcTableForExecs(const char *names) {
    if (!names) return nullptr;
    MemPtr<char> copy(SaveStr_(names));
    char table[PROC_TABLE_SIZE];
    size_t used = 0;
    table[0] = '\0';
    // Split by hand: GetSysPsIdList uses the shared tokenizer.
    for (char *name = copy.get(); name;) {
        char *comma = std::strchr(name, ',');
        if (comma) *comma = '\0';
        MemPtr<char> ids(*name ? GetSysPsIdList(name) : nullptr);
        if (ids && used < sizeof table - 1) {
            int n = std::snprintf(table + used, sizeof table - used, "%s (%s)\n", name, ids.get());
            used = n < 0 ? used : std::min(sizeof table - 1, used + static_cast<size_t>(n));
        }
        name = comma ? comma + 1 : nullptr;
    }
    return used ? SaveStr_(table) : nullptr;
}

int KillProcessByName(const char *name) {
    MemPtr<char> ids(GetSysPsIdList(name));
    for (const char *p = ids.get(); p && *p;) {
        char *end;
        long pid = std::strtol(p, &end, 10);
        if (end == p) break;
        p = end;
        if (kill(static_cast<pid_t>(pid), SIGKILL) != 0 && errno == EPERM) {
            sleep(1);
            return 0;
        }
    }
    sleep(1);
    return 0;
}

int GetDiskSpace(const char *path, DiskSpace *record) {
    record->avail = 0;
    if (!path) return 0;
    ResponsePtr lines(GetCmdResponse(CMD_DF, nullptr, "%s", path));
    if (!lines) return 0;
    int column = AvailColumn(lines->text);
    if (column < 0) return 0;
    if (const ResponseLine *data = lines->next) {
        std::strncpy(record->line, data->text, sizeof record->line - 1);
        record->line[sizeof record->line - 1] = '\0';
        if (const char *value = GetTokenN(data->text, COLUMN_DELIMITERS, column + 1))
            record->avail = std::strtod(value, nullptr);
    }
    return 1;
}

int AvailSpace(const char *path, const char *name, double required) {
    if (!path) return 0;
    DiskSpace space;
    if (name && FindFile(path, name)) {
        // Reinstalling over `name` frees what it holds now.
        ResponsePtr du(GetCmdResponse(CMD_DU, nullptr, "%s/%s", path, name));
        GetDiskSpace(path, &space);
        return required <= space.avail + LeadingNumber(du.get()) ? 1 : 0;
    }
    if (GetDiskSpace(path, &space)) return required <= space.avail ? 1 : 0;
    MemPtr<char> parent(SaveStr_(StripFn(path)));
    if (std::strcmp(parent.get(), path) == 0) return 0;  // "/" or "." and df still silent
    return AvailSpace(parent.get(), nullptr, required);
}

double DUPath(const char *path) {
    if (!path) return 0;
    ResponsePtr du(GetCmdResponse(CMD_DU, nullptr, "%s", path));
    return LeadingNumber(du.get());
}

void SysGetSubnetMask() {}
