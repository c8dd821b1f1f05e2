// The typed layer's write side and lists. Changes are made to the database in
// memory, in the headed layout the lookups read, and then saved whole.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Dbm.h"
#include "DbmCodec.h"
#include "DbmTInternal.h"
#include "utils.h"

namespace {

/// One record decoded: the key with its NUL and the plain data.
struct Plain {
    const unsigned char *key;
    size_t keyLength;
    const unsigned char *data;
    size_t dataLength;
};

unsigned char KeyBuffer[DBM_RECORD_SIZE];
unsigned char DataBuffer[DBM_RECORD_SIZE];

/// Calls `visit(plain, start, end)` for every record of the view in order,
/// `start` and `end` being the record's byte range in the content. The
/// decoded key and data are valid during the call only.
template <typename Visit>
void ForEachRecord(DbT *db, Visit visit) {
    DbTRecord record;
    for (DbTRecord *r = WalkDbTRecords(db, &record, 0); r; r = WalkDbTRecords(db, &record, 1)) {
        size_t dataLength = static_cast<size_t>(r->length - r->keyLength - 2);
        int32_t end = db->walk;
        int32_t start = end - r->length - 2;
        Plain plain{};
        plain.keyLength = r->keyLength;
        plain.dataLength = dataLength;
        if (db->type == DBT_PLAIN) {
            plain.key = r->key;
            plain.data = r->key + r->keyLength;
        } else {
            dbm::DescrambleInto(KeyBuffer, r->key, r->keyLength);
            dbm::DescrambleInto(DataBuffer, r->key + r->keyLength, dataLength);
            plain.key = KeyBuffer;
            plain.data = DataBuffer;
        }
        visit(plain, start, end);
    }
}

void BringUpToDate(DbT *db) {
    if (!(db->mode & DBT_NOUPDATE)) DbTUpDate(db);
}

/// Appends a headed record to the content.
bool Append(DbT *db, const unsigned char *key, size_t keyLength, const unsigned char *data,
            size_t dataLength) {
    size_t length = keyLength + 2 + dataLength;
    if (length > 0xffff) return false;
    long newSize = db->size + 2 + static_cast<long>(length);
    auto *grown = static_cast<unsigned char *>(AdjustMem(db->content, newSize));
    if (!grown) return false;
    db->content = grown;
    dbt::DropIndex(db);
    unsigned char *p = grown + db->size;
    dbm::WriteLength(p, static_cast<uint16_t>(length));
    dbm::WriteLength(p + 2, static_cast<uint16_t>(keyLength));
    std::memcpy(p + 4, key, keyLength);
    dbm::Scramble(p + 4, keyLength);
    if (dataLength) std::memcpy(p + 4 + keyLength, data, dataLength);
    dbm::Scramble(p + 4 + keyLength, dataLength);
    db->size = static_cast<int32_t>(newSize);
    return true;
}

/// A plain or new database takes the headed layout; a handle without content
/// becomes an empty headed database.
bool MakeHeaded(DbT *db) {
    if (!db->content) DbTClear(db);
    if (!db->content) return false;
    if (db->type != DBT_PLAIN) {
        DbTSetDbType(db, DBT_HEADED);
        return true;
    }
    DbT headed = *db;
    headed.content = nullptr;
    headed.index = nullptr;
    DbTClear(&headed);
    if (!headed.content) return false;
    bool complete = true;
    ForEachRecord(db, [&](const Plain &r, int32_t, int32_t) {
        complete = complete && Append(&headed, r.key, r.keyLength, r.data, r.dataLength);
    });
    if (!complete) {
        PutMem(headed.content);
        return false;
    }
    PutMem(db->content);
    dbt::DropIndex(db);
    db->content = headed.content;
    db->size = headed.size;
    db->number = 0;
    DbTSetDbType(db, DBT_HEADED);
    return true;
}

bool Matches(const Plain &r, const char *key, size_t keyLength) {
    if (keyLength == 0) {
        size_t n = std::strlen(key) + 1;
        return r.keyLength == n && std::memcmp(r.key, key, n) == 0;
    }
    return r.keyLength >= keyLength && std::memcmp(r.key, key, keyLength) == 0;
}

bool WriteAll(int fd, const unsigned char *data, size_t size) {
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n < 0) return false;
        data += n;
        size -= static_cast<size_t>(n);
    }
    return true;
}

char *JoinKeys(std::vector<char *, MemAllocator<char *>> &keys, const char *separator,
               const char *terminator) {
    if (keys.empty()) return nullptr;
    size_t total = std::strlen(terminator) + 1;
    for (char *key : keys) total += std::strlen(separator) + std::strlen(key);
    auto *list = static_cast<char *>(GetMem(static_cast<long>(total)));
    if (!list) return nullptr;
    char *out = list;
    for (char *key : keys) out = stpcpy(stpcpy(out, separator), key);
    std::strcpy(out, terminator);
    return list;
}

/// Every key of the view, each a new block.
std::vector<char *, MemAllocator<char *>> Keys(DbT *db) {
    std::vector<char *, MemAllocator<char *>> keys;
    ForEachRecord(db, [&](const Plain &r, int32_t, int32_t) {
        size_t n = strnlen(reinterpret_cast<const char *>(r.key), r.keyLength);
        auto *key = static_cast<char *>(GetMem(static_cast<long>(n) + 1));
        if (!key) return;
        std::memcpy(key, r.key, n);
        keys.push_back(key);
    });
    return keys;
}

char *KeyList(DbT *db, const char *separator, const char *terminator, bool sorted) {
    if (!db || !separator || !terminator) return nullptr;
    BringUpToDate(db);
    auto keys = Keys(db);
    if (sorted)
        std::sort(keys.begin(), keys.end(),
                  [](const char *a, const char *b) { return std::strcmp(a, b) < 0; });
    char *list = JoinKeys(keys, separator, terminator);
    for (char *key : keys) PutMem(key);
    return list;
}

}  // namespace

void DbTClear(DbT *db) {
    if (!db) return;
    db->content = static_cast<unsigned char *>(PutMem(db->content));
    dbt::DropIndex(db);
    db->content = static_cast<unsigned char *>(GetMem(DBM_HEADER_SIZE));
    db->size = db->content ? DBM_HEADER_SIZE : 0;
    db->cursor = db->walk = db->number = 0;
    db->loaded = 1;
    DbTSetDbType(db, DBT_NEW);
    UpdateHeader(db);
}

int TestKeyName(const char *key) {
    if (!key || !*key) return 0;
    size_t n = 0;
    for (; key[n]; ++n)
        if (static_cast<unsigned char>(key[n]) < ' ' || n + 1 >= DBM_KEY_SIZE) return 0;
    return 1;
}

int DbmTPutData(DbT *db, const char *key, const void *data, int length) {
    if (!db || !TestKeyName(key) || (!data && length > 0) || length < 0) return 0;
    if (!MakeHeaded(db)) return 0;
    return Append(db, reinterpret_cast<const unsigned char *>(key), std::strlen(key) + 1,
                  static_cast<const unsigned char *>(data), static_cast<size_t>(length))
               ? 1
               : 0;
}

int PurgeTRecord(DbT *db, const char *key, int keyLength) {
    if (!db || !key || keyLength < 0 || !db->content) return 0;
    if (!MakeHeaded(db)) return 0;
    int removed = 0;
    int32_t kept = DBM_HEADER_SIZE;
    // Records only ever move down over ones already visited.
    ForEachRecord(db, [&](const Plain &r, int32_t start, int32_t end) {
        if (Matches(r, key, static_cast<size_t>(keyLength))) {
            ++removed;
            return;
        }
        if (start != kept) std::memmove(db->content + kept, db->content + start, end - start);
        kept += end - start;
    });
    db->size = kept;
    dbt::DropIndex(db);
    return removed;
}

int DbmTArchiveDb(DbT *db) {
    if (!db || !db->name || !MakeHeaded(db)) return 0;
    UpdateHeader(db);
    MemPtr<char> path(DbTFileName(db->name));
    MemPtr<char> scratch(SaveStr("%s_new", path.get()));
    int fd = open(scratch.get(), O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (fd < 0) return 0;
    bool written = WriteAll(fd, db->content, static_cast<size_t>(db->size)) && fsync(fd) == 0;
    written = close(fd) == 0 && written;
    if (!written || rename(scratch.get(), path.get()) != 0) {
        unlink(scratch.get());
        return 0;
    }
    FlushDirectoryOf(path.get());
    struct stat st;
    if (stat(path.get(), &st) == 0) db->mtime = static_cast<int32_t>(st.st_mtime);
    return 1;
}

int DbmTPutRecord(DbT *db, const char *key, const void *data, int length) {
    if (!db || !TestKeyName(key) || !data || length <= 0) return 0;
    BringUpToDate(db);
    if (!MakeHeaded(db)) return 0;
    PurgeTRecord(db, key, 0);
    return DbmTPutData(db, key, data, length) && DbmTArchiveDb(db) ? 1 : 0;
}

int DbmTDeleteRecord(DbT *db, const char *key) {
    if (!db || !key || !*key) return 0;
    BringUpToDate(db);
    if (!db->content) return 0;
    PurgeTRecord(db, key, 0);
    return DbmTArchiveDb(db);
}

int DbmTDeleteRecords(DbT *db, const char *prefix) {
    if (!db || !prefix || !*prefix) return 0;
    BringUpToDate(db);
    if (!db->content) return 0;
    PurgeTRecord(db, prefix, static_cast<int>(std::strlen(prefix)));
    return DbmTArchiveDb(db);
}

int DbmTCopyRecord(DbT *db, const char *sourceKey, const char *targetKey) {
    int length = DbmTGetRecordSize(db, sourceKey);
    if (length <= 0) return 0;
    MemPtr<unsigned char> data(static_cast<unsigned char *>(GetMem(length)));
    if (!data || DbmTGetRecord(db, sourceKey, data.get()) != length) return 0;
    return DbmTPutRecord(db, targetKey, data.get(), length);
}

DbmLinkNode *DbmTGetDbLinkList(DbT *db, const char *pattern) {
    if (!db || !pattern) return nullptr;
    BringUpToDate(db);
    DbmLinkNode *first = nullptr;
    DbmLinkNode **tail = &first;
    size_t patternLength = std::strlen(pattern);
    ForEachRecord(db, [&](const Plain &r, int32_t, int32_t) {
        size_t keyText = strnlen(reinterpret_cast<const char *>(r.key), r.keyLength);
        if (!memmem(r.key, keyText, pattern, patternLength)) return;
        auto *node = static_cast<DbmLinkNode *>(GetMem(sizeof(DbmLinkNode)));
        auto *body = static_cast<unsigned char *>(GetMem(static_cast<long>(r.keyLength + r.dataLength)));
        if (!node || !body) {
            PutMem(node);
            PutMem(body);
            return;
        }
        std::memcpy(body, r.key, r.keyLength);
        if (r.dataLength) std::memcpy(body + r.keyLength, r.data, r.dataLength);
        *node = {nullptr, body, body + r.keyLength, static_cast<uint32_t>(r.dataLength)};
        *tail = node;
        tail = &node->next;
    });
    return first;
}

char *DbmTGetRecordList(DbT *db, const char *separator, const char *terminator) {
    return KeyList(db, separator, terminator, false);
}

char *DbmTGetRecordListS(DbT *db, const char *separator, const char *terminator) {
    return KeyList(db, separator, terminator, true);
}
