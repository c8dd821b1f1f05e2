// Keyed record files: every operation opens the file by name, reads it from
// the start and closes it; a change is copied record by record into
// "<name>.vdb_new", which is then renamed over "<name>.vdb".
#include "Dbm.h"

#include <unistd.h>

#include <cctype>
#include <cstring>

#include "DbmCodec.h"
#include "SysCmd.h"
#include "utils.h"

namespace {

/// The in-memory form handed between the routines: L, then the body as in
/// the file. The body area holds any L, so that a record cut at
/// DBM_MAX_BODY bytes is still read and written inside the buffer.
struct Record {
    uint16_t length;
    unsigned char body[DBM_RECORD_SIZE];
};

Record WorkRecord;  // one record at a time; never allocated per record
int NextRecord = 0;

const char *ToolPath() {
    return pToolPath ? pToolPath : ".";
}

char *DbDirectory() {
    return SaveStr("%s/db", ToolPath());
}

uint16_t KeyLength(const Record &r) {
    return r.length >= 2 ? dbm::ReadLength(r.body) : 0;
}

/// The key and data of a record whose key lies inside its body; a damaged
/// record (K of 0, or running past L) has none and matches nothing.
bool WellFormed(const Record &r) {
    uint16_t k = KeyLength(r);
    return k >= 1 && k + 2 <= r.length;
}

const char *KeyOf(const Record &r) {
    return reinterpret_cast<const char *>(r.body + 2);
}

int DataLength(const Record &r) {
    return r.length - KeyLength(r) - 2;
}

/// Exact match: the stored key, NUL included, equals `key`.
bool KeyIs(const Record &r, const char *key) {
    size_t n = std::strlen(key) + 1;
    return WellFormed(r) && KeyLength(r) == n && std::memcmp(KeyOf(r), key, n) == 0;
}

/// The first `n` bytes of the stored key equal those of `prefix`.
bool KeyStartsWith(const Record &r, const char *prefix, size_t n) {
    return WellFormed(r) && KeyLength(r) >= n && std::memcmp(KeyOf(r), prefix, n) == 0;
}

bool PutData(FILE *stream, Record &r) {
    unsigned char length[2];
    dbm::WriteLength(length, r.length);
    dbm::Scramble(r.body, r.length);
    return std::fwrite(length, 1, 2, stream) == 2 &&
           std::fwrite(r.body, 1, r.length, stream) == r.length;
}

bool GetData(FILE *stream, Record &r) {
    unsigned char length[2];
    if (std::fread(length, 1, 2, stream) != 2) return false;
    r.length = dbm::ReadLength(length);
    if (r.length == 0) return false;
    size_t n = r.length < DBM_MAX_BODY ? r.length : DBM_MAX_BODY;
    if (std::fread(r.body, 1, n, stream) != n) return false;
    dbm::Descramble(r.body, n);
    return true;
}

FILE *OpenDataBase(const char *name, const char *extension, const char *mode, int flag) {
    MemPtr<char> path(SaveStr("%s/db/%s.%s", ToolPath(), name, extension));
    if (!FindFile(path.get(), nullptr)) return nullptr;
    // Another process may hold the file for a moment: try for ten seconds.
    for (int attempt = 0; attempt < 10; ++attempt) {
        if (FILE *stream = OpenFile(nullptr, path.get(), mode, flag)) return stream;
        sleep(1);
    }
    return nullptr;
}

FILE *OpenNewDataBase(const char *name) {
    MemPtr<char> directory(DbDirectory());
    MemPtr<char> file(SaveStr("%s.vdb_new", name));
    CreateFile(directory.get(), file.get(), "666", nullptr, nullptr);
    return OpenDataBase(name, "vdb_new", "wb", 1);
}

int RenameDataBase(const char *name, const char *from, const char *to) {
    MemPtr<char> directory(DbDirectory());
    MemPtr<char> oldName(SaveStr("%s.%s", name, from));
    MemPtr<char> newName(SaveStr("%s.%s", name, to));
    int result = RenameFile(directory.get(), oldName.get(), newName.get());
    MemPtr<char> renamed(SaveStr("%s/%s", directory.get(), newName.get()));
    FlushDirectoryOf(renamed.get());
    return result;
}

/// Closes the scratch file; false when its content did not reach the disk
/// whole, so that it must not replace the database.
bool CloseScratch(FilePtr &scratch) {
    bool whole = FlushToDisk(scratch.get());
    return std::fclose(scratch.release()) == 0 && whole;
}

void ReportWriteFailure(const char *name) {
    std::fprintf(stderr, "ERROR: Can't write to %s", name);
}

/// Copies every record but those matching `key` over `keyLength` bytes (0:
/// exactly). 1 at the end of the input, 0 after a failed write. A read error
/// counts as the end, so the copy then keeps only what was read.
int PurgeRecord(const char *name, FILE *in, FILE *out, const char *key, size_t keyLength) {
    while (GetData(in, WorkRecord)) {
        bool match = keyLength ? KeyStartsWith(WorkRecord, key, keyLength)
                               : KeyIs(WorkRecord, key);
        if (match) continue;
        if (!PutData(out, WorkRecord)) {
            ReportWriteFailure(name);
            return 0;
        }
    }
    return 1;
}

/// The first record with exactly `key` into WorkRecord.
bool FindRecord(FILE *stream, const char *key) {
    while (GetData(stream, WorkRecord))
        if (KeyIs(WorkRecord, key)) return true;
    return false;
}

int CopyData(const Record &r, void *buffer) {
    int length = DataLength(r);
    if (length <= 0) return 0;
    if (buffer) std::memcpy(buffer, KeyOf(r) + KeyLength(r), static_cast<size_t>(length));
    return length;
}

/// Rewrites the database without the records matching `key` over
/// `keyLength` bytes; renames only after a complete copy.
int Rewrite(const char *name, const char *key, size_t keyLength, int *purged) {
    FilePtr old(OpenDataBase(name, "vdb", "rb", 0));
    if (!old) return 0;
    FilePtr fresh(OpenNewDataBase(name));
    if (!fresh) return 0;
    *purged = PurgeRecord(name, old.get(), fresh.get(), key, keyLength);
    old.reset();
    if (!CloseScratch(fresh) && *purged) {
        ReportWriteFailure(name);
        *purged = 0;
    }
    if (*purged) RenameDataBase(name, "vdb_new", "vdb");
    return 1;
}

}  // namespace

int DbmPutRecord(const char *name, const char *key, const void *data, int length) {
    if (!name || !key || !data || length <= 0) return 0;
    size_t keyLength = std::strlen(key) + 1;
    if (keyLength + 2 + static_cast<size_t>(length) > DBM_MAX_BODY) return 0;
    // The check looks in the current directory although the files live under
    // the tool directory; installers have always run from there.
    if (!FindFile(".", "db")) CreateFile("./db", nullptr, "777", nullptr, nullptr);
    FilePtr old(OpenDataBase(name, "vdb", "rb", 0));
    FilePtr fresh(OpenNewDataBase(name));
    if (!fresh) return 0;
    int result = 1;
    if (old && !PurgeRecord(name, old.get(), fresh.get(), key, 0)) result = 0;
    if (result) {
        WorkRecord.length = static_cast<uint16_t>(keyLength + 2 + static_cast<size_t>(length));
        dbm::WriteLength(WorkRecord.body, static_cast<uint16_t>(keyLength));
        std::memcpy(WorkRecord.body + 2, key, keyLength);
        std::memcpy(WorkRecord.body + 2 + keyLength, data, static_cast<size_t>(length));
        if (!PutData(fresh.get(), WorkRecord)) {
            ReportWriteFailure(name);
            result = 0;
        }
    }
    old.reset();
    if (!CloseScratch(fresh) && result) {
        ReportWriteFailure(name);
        result = 0;
    }
    if (result) RenameDataBase(name, "vdb_new", "vdb");
    return result;
}

int DbmDeleteRecord(const char *name, const char *key) {
    if (!name || !key) return 0;
    int purged = 0;
    return Rewrite(name, key, 0, &purged) ? purged : 0;
}

int DbmDeleteRecords(const char *name, const char *prefix) {
    if (!name || !prefix || !*prefix) return 0;
    int purged = 0;
    return Rewrite(name, prefix, std::strlen(prefix), &purged);
}

int DbmGetRecord(const char *name, const char *key, void *buffer) {
    if (!name || !key) return 0;
    FilePtr stream(OpenDataBase(name, "vdb", "rb", 0));
    if (!stream || !FindRecord(stream.get(), key)) return 0;
    return CopyData(WorkRecord, buffer);
}

int DbmGetRecordSize(const char *name, const char *key) {
    if (!name || !key) return 0;
    FilePtr stream(OpenDataBase(name, "vdb", "rb", 0));
    if (!stream || !FindRecord(stream.get(), key)) return 0;
    return DataLength(WorkRecord) > 0 ? DataLength(WorkRecord) : 0;
}

int DbmGetNextRecord(const char *name, void *buffer) {
    if (!name) return 0;
    FilePtr stream(OpenDataBase(name, "vdb", "rb", 0));
    if (!stream) return 0;
    for (int read = 0; read <= NextRecord; ++read)
        if (!GetData(stream.get(), WorkRecord)) return 0;
    ++NextRecord;
    return WellFormed(WorkRecord) ? CopyData(WorkRecord, buffer) : 0;
}

void DbmResetNextRecord() {
    NextRecord = 0;
}

char *DbmGetRecordList(const char *name, const char *separator, const char *terminator) {
    if (!name || !separator || !terminator) return nullptr;
    FilePtr stream(OpenDataBase(name, "vdb", "rb", 0));
    if (!stream) return nullptr;
    char *list = nullptr;
    long used = 0;
    size_t separatorLength = std::strlen(separator);
    while (GetData(stream.get(), WorkRecord)) {
        if (!WellFormed(WorkRecord)) continue;
        size_t keyLength = strnlen(KeyOf(WorkRecord), KeyLength(WorkRecord));
        long need = used + static_cast<long>(separatorLength + keyLength);
        char *grown = static_cast<char *>(AdjustMem(list, need + 1));
        if (!grown) return static_cast<char *>(PutMem(list));
        list = grown;
        std::memcpy(list + used, separator, separatorLength);
        std::memcpy(list + used + separatorLength, KeyOf(WorkRecord), keyLength);
        used = need;
        list[used] = '\0';
    }
    if (!list) return nullptr;
    size_t terminatorLength = std::strlen(terminator);
    char *grown = static_cast<char *>(AdjustMem(list, used + static_cast<long>(terminatorLength) + 1));
    if (!grown) return static_cast<char *>(PutMem(list));
    std::memcpy(grown + used, terminator, terminatorLength + 1);
    return grown;
}

void DumpDbm(const char *name) {
    if (!name) return;
    MemPtr<char> path(SaveStr("%s.db", name));
    FilePtr stream(std::fopen(path.get(), "rb"));
    if (!stream) return;
    while (GetData(stream.get(), WorkRecord)) {
        std::printf("%i %i ==>{", WorkRecord.length, KeyLength(WorkRecord));
        size_t shown = WorkRecord.length < DBM_MAX_BODY ? WorkRecord.length : DBM_MAX_BODY;
        for (size_t i = 2; i < shown; ++i) {
            unsigned char c = WorkRecord.body[i];
            std::putchar(std::isprint(c) ? c : '.');
        }
        std::printf("}\n");
    }
}

char *DbmGetDbList(int flag) {
    char *list = GetDirFileList("db");
    if (!list) return nullptr;
    // Rebuilt in a copy and put back: the names are shorter than the entries
    // they come from, so the result always fits the list's own block.
    MemPtr<char> rebuilt(static_cast<char *>(GetMem(static_cast<long>(std::strlen(list)) + 1)));
    if (!rebuilt) return list;
    char *saved = GetTokenBufInput();
    char *out = rebuilt.get();
    if (flag) *out++ = list[0];
    bool first = true;
    for (char *entry = GetToken(list, " "); entry; entry = GetToken(nullptr, " ")) {
        char *dot = std::strchr(entry, '.');
        if (!dot || std::strcmp(dot, ".vdb") != 0 || dot == entry) continue;
        *dot = '\0';
        if (!first) *out++ = flag ? ' ' : ',';
        size_t n = std::strlen(entry);
        std::memcpy(out, entry, n);
        out += n;
        first = false;
    }
    *out = '\0';
    SetTokenBuf(saved);
    std::strcpy(list, rebuilt.get());
    return list;
}

int DbmCopyRecord(const char *name, const char *sourceKey, const char *targetKey) {
    static unsigned char data[DBM_RECORD_SIZE];
    int length = DbmGetRecord(name, sourceKey, data);
    if (length <= 0) return 0;
    return DbmPutRecord(name, targetKey, data, length);
}

DbmLinkNode *DbmGetDbLinkList(const char *name, const char *pattern) {
    if (!name || !pattern) return nullptr;
    FilePtr stream(OpenDataBase(name, "vdb", "rb", 0));
    if (!stream) return nullptr;
    DbmLinkNode *first = nullptr;
    DbmLinkNode **tail = &first;
    while (GetData(stream.get(), WorkRecord)) {
        if (!WellFormed(WorkRecord)) continue;
        size_t keyLength = KeyLength(WorkRecord);
        if (!memmem(KeyOf(WorkRecord), strnlen(KeyOf(WorkRecord), keyLength), pattern,
                    std::strlen(pattern)))
            continue;
        auto *node = static_cast<DbmLinkNode *>(GetMem(sizeof(DbmLinkNode)));
        size_t bodyLength = WorkRecord.length - 2u;
        auto *body = static_cast<unsigned char *>(GetMem(static_cast<long>(bodyLength)));
        if (!node || !body) {
            PutMem(node);
            PutMem(body);
            break;
        }
        std::memcpy(body, WorkRecord.body + 2, bodyLength);
        *node = {nullptr, body, body + keyLength, static_cast<uint32_t>(bodyLength - keyLength)};
        *tail = node;
        tail = &node->next;
    }
    return first;
}

void DbmFreeDbLinkList(DbmLinkNode *first) {
    while (first) {
        DbmLinkNode *next = first->next;  // read before the node goes
        PutMem(first->body);
        PutMem(first);
        first = next;
    }
}

int DbmCreate(const char *, const char *) {
    return 0;
}

int DbmDelete(const char *, const char *) {
    return 0;
}
