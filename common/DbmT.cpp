// Typed databases: a whole database file held in memory, re-read when the
// file on disk changes, records found by a walk from the start.
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "Dbm.h"
#include "DbmCodec.h"
#include "DbmTInternal.h"
#include "utils.h"

namespace {

// The byte-order probe: on a little-endian host it does not read 0x01020304.
// Lengths are big-endian on disk for every kind of file, so such a host swaps.
bool HostIsLittleEndian() {
    static const unsigned char probe[4] = {1, 2, 3, 4};
    uint32_t word;
    std::memcpy(&word, probe, sizeof word);
    return word != 0x01020304u;
}

unsigned char *PlainScratch = nullptr;  // a plain file's descrambled body, kept for the run

/// Content read with retries: a file being replaced may read empty for a moment.
unsigned char *ReadWhole(const char *path, long *size) {
    char *content = nullptr;
    for (int reads = 0; reads < 10; ++reads) {
        content = GetSavedFileContent(path, nullptr);
        if (content || SavedFileSize == 0) break;
        sleep(1);
    }
    *size = SavedFileSize;
    return reinterpret_cast<unsigned char *>(content);
}

long HeaderNumber(const unsigned char *content, long size) {
    char digits[DBM_HEADER_SIZE + 1] = {};
    for (long i = 6; i < size && i < DBM_HEADER_SIZE; ++i) digits[i - 6] = static_cast<char>(content[i]);
    return std::strtol(digits, nullptr, 10);
}

uint32_t Hash(const unsigned char *key, size_t n) {
    uint32_t h = 2166136261u;
    for (size_t i = 0; i < n; ++i) h = (h ^ key[i]) * 16777619u;
    return h;
}

bool KeyMatches(const DbT *db, const DbTRecord &r, const unsigned char *key, size_t n) {
    if (r.keyLength != n) return false;
    return db->type == DBT_PLAIN ? std::memcmp(r.key, key, n) == 0
                                 : dbm::ScrambledEquals(r.key, key, n);
}

/// The search as a plain walk from the start: the first record in file order.
int FindByWalk(DbT *db, const unsigned char *key, size_t n, DbTRecord *record) {
    for (DbTRecord *r = WalkDbTRecords(db, record, 0); r; r = WalkDbTRecords(db, record, 1)) {
        if (!KeyMatches(db, *r, key, n)) continue;
        if (db->type != DBT_PLAIN) db->cursor += static_cast<int32_t>(n);
        return 1;
    }
    return 0;
}

/// Open addressing over record offsets, the first record of each key only:
/// [slot count, offset or -1 ...]. Built by one walk, which also cuts the
/// view at a damaged record as any walk would.
int32_t *BuildIndex(DbT *db) {
    std::vector<int32_t, MemAllocator<int32_t>> offsets;
    DbTRecord record;
    for (DbTRecord *r = WalkDbTRecords(db, &record, 0); r; r = WalkDbTRecords(db, &record, 1))
        offsets.push_back(db->walk - r->length - 2);
    int32_t slots = 8;
    while (slots < 2 * static_cast<int32_t>(offsets.size())) slots *= 2;
    auto *index = static_cast<int32_t *>(GetMem(static_cast<long>(sizeof(int32_t)) * (slots + 1)));
    if (!index) return nullptr;
    index[0] = slots;
    for (int32_t i = 1; i <= slots; ++i) index[i] = -1;
    static unsigned char key[DBM_RECORD_SIZE];
    for (int32_t offset : offsets) {
        db->walk = offset;
        DbTRecord *r = WalkDbTRecords(db, &record, 1);
        size_t n = r->keyLength;
        if (db->type == DBT_PLAIN)
            std::memcpy(key, r->key, n);
        else
            dbm::DescrambleInto(key, r->key, n);
        for (uint32_t slot = Hash(key, n);; ++slot) {
            int32_t &entry = index[1 + (slot & (slots - 1))];
            if (entry < 0) {
                entry = offset;
                break;
            }
            // A later record with a key already there stays out: lookups
            // find the first in file order.
            db->walk = entry;
            DbTRecord earlier;
            if (KeyMatches(db, *WalkDbTRecords(db, &earlier, 1), key, n)) break;
        }
    }
    return index;
}

void MakeEmpty(DbT *db) {
    dbt::DropIndex(db);
    db->content = static_cast<unsigned char *>(GetMem(DBM_HEADER_SIZE));
    db->size = db->content ? DBM_HEADER_SIZE : 0;
    db->mtime = db->cursor = db->walk = db->number = 0;
    db->loaded = 1;
    DbTSetDbType(db, DBT_NEW);
    UpdateHeader(db);
}

}  // namespace

char *DbTFileName(const char *name) {
    if (!name) return nullptr;
    if (name[0] == '/') return std::strchr(name, '.') ? SaveStr_(name) : SaveStr("%s.vdb", name);
    if (name[0] == '.') return SaveStr_(name);
    return SaveStr("%s/db/%s.%s", pToolPath ? pToolPath : ".", name, "vdb");
}

DbT *DbTOpen(const char *name, uint32_t mode) {
    if (!name) return nullptr;
    auto *db = static_cast<DbT *>(GetMem(sizeof(DbT)));
    if (!db) return nullptr;
    db->name = SaveStr_(name);
    db->file = DbTFileName(name);
    db->mode = mode;
    db->loaded = 0;
    DbTUpDate(db);
    return db;
}

void DbTClose(DbT *db) {
    if (!db) return;
    PutMem(db->index);
    PutMem(db->file);
    PutMem(db->content);
    PutMem(db->name);
    PutMem(db);
}

void DbTUpDate(DbT *db) {
    if (!db || !db->name) return;
    if (!db->file) db->file = DbTFileName(db->name);
    const char *path = db->file;
    struct stat st;
    // stat alone answers whether the file is there: a directory listing on
    // every lookup would cost more than the lookup itself.
    if (stat(path, &st) != 0) return;
    if (db->content && db->mtime == static_cast<int32_t>(st.st_mtime)) return;
    db->content = static_cast<unsigned char *>(PutMem(db->content));
    dbt::DropIndex(db);
    db->loaded = 1;
    long size = 0;
    unsigned char *content = ReadWhole(path, &size);
    if (!content) {
        MakeEmpty(db);
        // Loaded as it is, so read again only when it changes: a reload
        // on every lookup would drop the records added in memory.
        db->mtime = static_cast<int32_t>(st.st_mtime);
        return;
    }
    db->content = content;
    db->size = static_cast<int32_t>(size);
    db->mtime = static_cast<int32_t>(st.st_mtime);
    db->cursor = db->walk = 0;
    if (size < 5 || std::memcmp(content, "TVDBA", 5) != 0) {
        DbTSetDbType(db, DBT_PLAIN);
    } else {
        db->number = static_cast<int32_t>(HeaderNumber(content, size));
        DbTSetDbType(db, DBT_HEADED);
    }
}

void DbTSetDbType(DbT *db, int type) {
    if (!db) return;
    db->type = type;
    db->swap = HostIsLittleEndian() ? 1 : 0;
}

void UpdateHeader(DbT *db) {
    if (!db || !db->content || db->size < DBM_HEADER_SIZE) return;
    char header[DBM_HEADER_SIZE] = {};
    int n = std::snprintf(header, sizeof header, "TVDBAA%li", static_cast<long>(db->number));
    // The bytes after the text's NUL are noise, as they have always been.
    for (int i = (n < DBM_HEADER_SIZE ? n : DBM_HEADER_SIZE - 1) + 1; i < DBM_HEADER_SIZE; ++i)
        header[i] = static_cast<char>(std::rand() & 255);
    std::memcpy(db->content, header, DBM_HEADER_SIZE);
}

DbTRecord *WalkDbTRecords(DbT *db, DbTRecord *record, int index) {
    if (!db || !db->content || !record) return nullptr;
    bool plain = db->type == DBT_PLAIN;
    if (index == 0) {
        db->walk = plain ? 0 : DBM_HEADER_SIZE;
        if (plain && !PlainScratch)
            PlainScratch = static_cast<unsigned char *>(GetMem(DBM_SCRATCH_SIZE));
        if (plain && !PlainScratch) return nullptr;
    }
    if (db->walk >= db->size) return nullptr;
    db->cursor = db->walk;
    // A record whose length field or body runs past the end cuts the view
    // there: everything before it still reads.
    if (db->cursor + 2 > db->size) {
        db->size = db->walk;
        return nullptr;
    }
    uint16_t length = dbm::ReadLength(db->content + db->cursor);
    db->cursor += 2;
    if (db->cursor + length > db->size || length < 2) {
        db->size = db->walk;
        return nullptr;
    }
    uint16_t keyLength;
    if (plain) {
        dbm::DescrambleInto(PlainScratch, db->content + db->cursor, length);
        keyLength = dbm::ReadLength(PlainScratch);
        record->key = PlainScratch + 2;
    } else {
        keyLength = dbm::ReadLength(db->content + db->cursor);
        db->cursor += 2;
        record->key = db->content + db->cursor;
    }
    // A key running past its record is damage of the same kind.
    if (keyLength + 2 > length) {
        db->size = db->walk;
        return nullptr;
    }
    record->length = length;
    record->keyLength = keyLength;
    db->walk += length + 2;
    return record;
}

int FindTRecord(DbT *db, const char *key, DbTRecord *record) {
    if (!db || !db->content || !key || !*key || !record) return 0;
    size_t n = std::strlen(key) + 1;
    const auto *wanted = reinterpret_cast<const unsigned char *>(key);
    if (!db->index) db->index = BuildIndex(db);
    auto *index = static_cast<int32_t *>(db->index);
    if (!index) return FindByWalk(db, wanted, n, record);
    int32_t mask = index[0] - 1;
    // Each candidate is read by the walk itself, so that a hit leaves the
    // record, cursor and walk where a walk from the start would.
    for (uint32_t slot = Hash(wanted, n);; ++slot) {
        int32_t offset = index[1 + (slot & mask)];
        if (offset < 0) break;
        db->walk = offset;
        DbTRecord *r = WalkDbTRecords(db, record, 1);
        if (r && KeyMatches(db, *r, wanted, n)) {
            if (db->type != DBT_PLAIN) db->cursor += static_cast<int32_t>(n);
            return 1;
        }
    }
    db->walk = db->size;
    return 0;
}

namespace dbt {

void DropIndex(DbT *db) {
    db->index = PutMem(db->index);
}

int FindData(DbT *db, const char *key, DbTRecord *record) {
    if (!db || !key) return -1;
    if (!(db->mode & DBT_NOUPDATE)) DbTUpDate(db);
    if (!FindTRecord(db, key, record)) return -1;
    return record->length - record->keyLength - 2;
}

void CopyData(const DbT *db, const DbTRecord &record, void *to) {
    size_t length = static_cast<size_t>(record.length - record.keyLength - 2);
    if (length == 0) return;
    auto *out = static_cast<unsigned char *>(to);
    if (db->type == DBT_PLAIN)
        std::memcpy(out, record.key + record.keyLength, length);
    else
        dbm::DescrambleInto(out, db->content + db->cursor, length);
}

}  // namespace dbt

int DbmTGetRecord(DbT *db, const char *key, void *buffer) {
    if (!buffer) return 0;
    DbTRecord record;
    int length = dbt::FindData(db, key, &record);
    if (length <= 0) return 0;
    dbt::CopyData(db, record, buffer);
    return length;
}

int DbmTGetRecordSize(DbT *db, const char *key) {
    DbTRecord record;
    int length = dbt::FindData(db, key, &record);
    return length > 0 ? length : 0;
}

int DbmTGetRecordV(DbT *db, const char *key, void **buffer, int limit) {
    if (!buffer) return 0;
    DbTRecord record;
    int length = dbt::FindData(db, key, &record);
    if (length <= 0) return 0;
    if (length > limit) {
        void *block = GetMem(length);
        if (!block) return 0;
        *buffer = block;
    }
    if (!*buffer) return 0;
    dbt::CopyData(db, record, *buffer);
    return length;
}
