// vdb: builds and reads the record databases that hold the installer's strings.
constexpr const char *kUsage = R"(usage: vdb build SOURCE DATABASE
       vdb dump DATABASE
       vdb get DATABASE KEY
       vdb put DATABASE KEY TEXT
       vdb delete DATABASE KEY
       vdb keys DATABASE

  build   makes DATABASE anew from the text source SOURCE; a malformed source
          is reported as SOURCE:LINE and leaves DATABASE as it was
  dump    prints every record in file order, in source form
  get     prints the data of KEY: a text without its NUL and with a newline,
          other data as its bytes
  put     stores TEXT with a NUL under KEY, in place of the key's records;
          makes DATABASE when it is missing
  delete  removes every record of KEY
  keys    prints the keys in file order, one a line

DATABASE is the file itself, plain or headed; a name without a "." stands for
that name with ".vdb" added, as the installer reads it. A source holds one
record a line:

  KEY "TEXT"        the text, stored with a NUL after it
  KEY raw "BYTES"   exactly these bytes

KEY is a word without blanks or quotes, not starting with '#', or a quoted
string. Inside quotes \\ \" \n \t \r and \xHH stand for one byte and every
other byte for itself. Empty lines and lines starting with '#' are skipped.

Exit status: 0 done; 1 a missing database or key, or a failed read or write;
2 a usage error or a malformed source.
)";

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "DbSource.h"
#include "Dbm.h"
#include "MemMgr.h"
#include "Str.h"

namespace {

namespace fs = std::filesystem;

[[noreturn]] void Fail(const char *format, ...) PRINTF_LIKE(1, 2);
[[noreturn]] void Fail(const char *format, ...) {
    va_list args;
    va_start(args, format);
    std::fputs("vdb: ", stderr);
    std::vfprintf(stderr, format, args);
    std::fputc('\n', stderr);
    va_end(args);
    std::exit(1);
}

using DbHandle = std::unique_ptr<DbT, decltype(&DbTClose)>;

// A database named on the command line, as the typed layer sees it.
struct Database {
    // Absolute, since the typed layer looks a relative name up under its tool directory.
    std::string name;
    std::string file;  // the file that name stands for

    explicit Database(const char *argument) {
        std::error_code error;
        fs::path path = fs::absolute(argument, error);
        if (error || !*argument) Fail("'%s': not a database name", argument);
        name = path.lexically_normal();
        MemPtr<char> named(DbTFileName(name.c_str()));
        file = named ? named.get() : name;
    }
    DbHandle Open(bool mustExist) const {
        std::error_code error;
        if (mustExist && !fs::is_regular_file(file, error))
            Fail("%s: no such database", file.c_str());
        DbHandle db(DbTOpen(name.c_str(), DBT_NOUPDATE), DbTClose);
        if (!db) Fail("%s: cannot open", file.c_str());
        return db;
    }
};

using Records = std::unique_ptr<DbmLinkNode, decltype(&DbmFreeDbLinkList)>;

Records AllRecords(DbT *db) {
    return Records(DbmTGetDbLinkList(db, ""), DbmFreeDbLinkList);
}

const char *KeyOf(const DbmLinkNode *node) {
    return reinterpret_cast<const char *>(node->body);
}

// The whole file; a directory or an unreadable file ends the program.
std::string Slurp(const char *path) {
    std::unique_ptr<FILE, decltype(&std::fclose)> in(std::fopen(path, "rb"), std::fclose);
    if (!in) Fail("%s: cannot read", path);
    std::string text;
    char chunk[65536];
    while (size_t n = std::fread(chunk, 1, sizeof chunk, in.get())) text.append(chunk, n);
    if (std::ferror(in.get())) Fail("%s: cannot read", path);
    return text;
}

int Store(void *db, const char *key, const unsigned char *data, int length) {
    return DbmTPutData(static_cast<DbT *>(db), key, data, length);
}

int Build(char **args) {
    const char *source = args[0];
    std::string text = Slurp(source);
    Database database(args[1]);
    DbHandle db = database.Open(false);
    // Records go to memory only: the file changes once, after the whole source has been read.
    DbTClear(db.get());
    char error[DBSOURCE_ERROR_SIZE];
    if (int line =
            ParseDbSource(text.data(), static_cast<long>(text.size()), Store, db.get(), error)) {
        std::fprintf(stderr, "%s:%d: %s\n", source, line, error);
        return 2;
    }
    if (!DbmTArchiveDb(db.get())) Fail("%s: cannot write", database.file.c_str());
    return 0;
}

int Dump(char **args) {
    DbHandle db = Database(args[0]).Open(true);
    Records records = AllRecords(db.get());
    for (const DbmLinkNode *n = records.get(); n; n = n->next)
        WriteDbSourceRecord(stdout, KeyOf(n), n->data, static_cast<int>(n->size));
    return 0;
}

int Keys(char **args) {
    DbHandle db = Database(args[0]).Open(true);
    Records records = AllRecords(db.get());
    for (const DbmLinkNode *n = records.get(); n; n = n->next) std::printf("%s\n", KeyOf(n));
    return 0;
}

// An empty record has length 0 like an absent one, so presence is asked apart.
void RequireRecord(DbT *db, const Database &database, const char *key) {
    DbTRecord record;
    if (!FindTRecord(db, key, &record)) Fail("%s: no record %s", database.file.c_str(), key);
}

int Get(char **args) {
    Database database(args[0]);
    DbHandle db = database.Open(true);
    const char *key = args[1];
    RequireRecord(db.get(), database, key);
    std::vector<unsigned char> data(DbmTGetRecordSize(db.get(), key) + 1);
    int length = DbmTGetRecord(db.get(), key, data.data());
    bool text = length > 0 && data[length - 1] == 0;
    std::fwrite(data.data(), 1, text ? length - 1 : length, stdout);
    if (text) std::putchar('\n');
    return 0;
}

int Put(char **args) {
    Database database(args[0]);
    DbHandle db = database.Open(false);
    const char *key = args[1], *text = args[2];
    if (!DbmTPutRecord(db.get(), key, text, static_cast<int>(std::strlen(text)) + 1))
        Fail("%s: cannot store %s", database.file.c_str(), key);
    return 0;
}

int Delete(char **args) {
    Database database(args[0]);
    DbHandle db = database.Open(true);
    RequireRecord(db.get(), database, args[1]);
    if (!DbmTDeleteRecord(db.get(), args[1])) Fail("%s: cannot write", database.file.c_str());
    return 0;
}

struct Command {
    const char *name;
    int arguments;
    int (*run)(char **args);
};

constexpr Command kCommands[] = {
    {"build", 2, Build}, {"dump", 1, Dump},     {"get", 2, Get},
    {"put", 3, Put},     {"delete", 2, Delete}, {"keys", 1, Keys},
};

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && (!std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h"))) {
        std::fputs(kUsage, stdout);
        return 0;
    }
    for (const Command &command : kCommands) {
        if (argc < 2 || std::strcmp(argv[1], command.name) || argc - 2 != command.arguments)
            continue;
        int status = command.run(argv + 2);
        if (std::fflush(stdout) || std::ferror(stdout)) Fail("cannot write the output");
        return status;
    }
    std::fputs(kUsage, stderr);
    return 2;
}
