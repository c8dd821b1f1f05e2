// Record databases: keyed record files on disk, and the typed layer that holds
// a whole database in memory for lookups.
//
// A keyed record file "<tool directory>/db/<name>.vdb" is a run of records
// with no header: a 16-bit length L, then L body bytes holding a 16-bit key
// length K (the key's NUL included), the key and the data. Every length is
// big-endian on disk, on every host. The body is scrambled by an XOR chain
// (each byte XOR the plain byte after it; the last byte stays plain). Every
// operation opens the file by name and reads it from the start; a change
// copies the file record by record into "<name>.vdb_new" and renames it back.
//
// A headed file (the typed layer's own) starts with a 16-byte header
// "TVDBAA<number>\0<random bytes>"; its records keep L and K plain and
// scramble the key and the data as two separate runs.
#pragma once

#include <cstdint>
#include <cstdio>

constexpr int DBM_RECORD_SIZE = 0x10000;  ///< working buffer of one record
constexpr int DBM_MAX_BODY = 65527;       ///< most body bytes read of one record
constexpr int DBM_HEADER_SIZE = 16;       ///< header of a headed file
constexpr int DBM_KEY_SIZE = 4096;        ///< key buffer of the typed key search
constexpr int DBM_SCRATCH_SIZE = 65535;   ///< descrambled body of a plain-file record

/// One record of a record list, in file order.
struct DbmLinkNode {
    DbmLinkNode *next;
    unsigned char *body;  ///< owned: the key with its NUL, then the data
    unsigned char *data;  ///< into body, K bytes from its start
    uint32_t size;        ///< data length, L - K - 2
};

// ---- Keyed record files (named by a plain name under <tool directory>/db)

/// Stores `length` bytes under `key`, replacing every record with exactly
/// that key; the record moves to the end of the file. 1 when stored, 0 for a
/// null argument, a zero length, or a failed write ("ERROR: Can't write to
/// %s" on standard error). Makes "./db" (the current directory's) when absent.
int DbmPutRecord(const char *name, const char *key, const void *data, int length);
/// Removes every record with exactly `key`: 1 when the file was rewritten
/// (also when the key was absent), 0 for a missing file or a failed write.
int DbmDeleteRecord(const char *name, const char *key);
/// Removes every record whose key starts with `prefix`: 1 once both files
/// were open (even when the copy failed), 0 otherwise or for an empty prefix.
int DbmDeleteRecords(const char *name, const char *prefix);
/// Data length of the first record with exactly `key`, copied into `buffer`;
/// 0 when absent or empty. A null buffer only measures.
int DbmGetRecord(const char *name, const char *key, void *buffer);
/// Data length of the record under the process-wide cursor, copied into
/// `buffer`, and the cursor moves on; 0 (cursor unchanged) past the end.
int DbmGetNextRecord(const char *name, void *buffer);
/// Data length of the first record with exactly `key`; 0 when absent.
int DbmGetRecordSize(const char *name, const char *key);
/// `separator` before each key in file order, `terminator` after the last,
/// as a new block; null for a missing or empty database.
char *DbmGetRecordList(const char *name, const char *separator, const char *terminator);
/// Prints each record of "<name>.db" in the current directory as
/// "<L> <K> ==>{<printable bytes, others as .>}".
void DumpDbm(const char *name);
/// Names of the databases in "./db" (".vdb" files, extension dropped), joined
/// by "," (flag 0) or after a kept first character and joined by " " (flag
/// non-zero), in the directory list's own block; null when "./db" cannot be read.
char *DbmGetDbList(int flag);
/// Stores the data of `sourceKey` under `targetKey`; 0 when the source is
/// absent or empty, else DbmPutRecord's result.
int DbmCopyRecord(const char *name, const char *sourceKey, const char *targetKey);
/// Every record whose key contains `pattern`, in file order; null when none.
DbmLinkNode *DbmGetDbLinkList(const char *name, const char *pattern);
/// Releases every node of a list and its body.
void DbmFreeDbLinkList(DbmLinkNode *first);
/// Kept for callers that create or drop databases explicitly: both do nothing.
int DbmCreate(const char *name, const char *arg);
int DbmDelete(const char *name, const char *arg);

/// The process-wide cursor of DbmGetNextRecord; nothing resets it but this.
void DbmResetNextRecord();

// ---- Typed databases

/// Handle of a database held in memory.
struct DbT {
    char *name;          ///< as given to DbTOpen
    char swap;           ///< lengths stored in the other byte order than the host's
    uint32_t mode;       ///< DBT_NOUPDATE: do not look for a changed file
    unsigned char *content;
    int32_t size;        ///< valid bytes of content
    int32_t mtime;       ///< file time when loaded
    int32_t cursor;      ///< read position while descrambling a record
    int32_t walk;        ///< position of the next record of the walk
    int32_t number;      ///< header number of a headed file
    char loaded;         ///< a load was attempted
    int32_t type;        ///< DBT_NEW, DBT_PLAIN, DBT_HEADED
    void *index;         ///< keys to first records, built by the first search after a change
    char *file;          ///< the file the name stands for, resolved once
};

constexpr uint32_t DBT_NOUPDATE = 2;
constexpr int DBT_NEW = 0;
constexpr int DBT_PLAIN = 1;
constexpr int DBT_HEADED = 2;

/// A record yielded by the walk.
struct DbTRecord {
    uint16_t length;     ///< L
    uint16_t keyLength;  ///< K, the NUL included
    const unsigned char *key;  ///< scrambled in a headed file, plain in a plain file
};

/// New handle with the file loaded (a missing file leaves no content); null
/// for a null name or when memory is short.
DbT *DbTOpen(const char *name, uint32_t mode);
/// Releases the content and the handle; null is ignored.
void DbTClose(DbT *db);
/// Reloads the file when its modification time changed since the last load.
void DbTUpDate(DbT *db);
/// Sets the type and whether lengths are swapped on this host.
void DbTSetDbType(DbT *db, int type);
/// Writes "TVDBAA<number>", a NUL and random bytes into content[0..15].
void UpdateHeader(DbT *db);
/// The next record (the first when `index` is 0), or null at the end; a
/// record that runs past the end cuts the view there.
DbTRecord *WalkDbTRecords(DbT *db, DbTRecord *record, int index);
/// 1 when a record with exactly `key` exists (record, cursor and walk stand at
/// the first one, as a walk from the start would leave them), else 0.
int FindTRecord(DbT *db, const char *key, DbTRecord *record);
/// Data length of `key` copied into `buffer` (no NUL added; the buffer must
/// hold the record); 0 when absent or an argument is null.
int DbmTGetRecord(DbT *db, const char *key, void *buffer);
/// Data length of `key`; 0 when absent.
int DbmTGetRecordSize(DbT *db, const char *key);
/// Data length of `key`, copied into *buffer; when longer than `limit` a new
/// block of that length replaces *buffer first (the caller releases it).
int DbmTGetRecordV(DbT *db, const char *key, void **buffer, int limit);

// ---- Typed databases: the write side. Every change is made in memory and
// then saved: the whole database goes to "<file>_new", is flushed to disk
// and renamed over the file, so an interrupted save leaves the old or the
// new database, never a torn one. A plain or new database becomes a headed
// one at its first change.

/// 1 when `key` can be stored: 1 to DBM_KEY_SIZE - 1 characters, none below
/// a blank.
int TestKeyName(const char *key);
/// Appends a record in memory (no save, earlier records with the key stay);
/// 1, or 0 for a bad key or a record over 65535 bytes.
int DbmTPutData(DbT *db, const char *key, const void *data, int length);
/// Removes in memory every record whose key matches `key` over `keyLength`
/// bytes (0: exactly); the number removed.
int PurgeTRecord(DbT *db, const char *key, int keyLength);
/// Replaces every record of `key` by one at the end, and saves; 1 or 0.
int DbmTPutRecord(DbT *db, const char *key, const void *data, int length);
/// Removes every record of exactly `key` and saves; 1 when saved.
int DbmTDeleteRecord(DbT *db, const char *key);
/// Removes every record whose key starts with `prefix` and saves; 0 for an
/// empty prefix.
int DbmTDeleteRecords(DbT *db, const char *prefix);
/// Stores the data of `sourceKey` under `targetKey`; 0 when the source is
/// absent or empty.
int DbmTCopyRecord(DbT *db, const char *sourceKey, const char *targetKey);
/// Makes the handle an empty headed database in memory; the file is untouched
/// until the next save.
void DbTClear(DbT *db);
/// Saves the database to its file (header renewed first); 1 or 0.
int DbmTArchiveDb(DbT *db);
/// Every record whose key contains `pattern`, in file order; null when none.
DbmLinkNode *DbmTGetDbLinkList(DbT *db, const char *pattern);
/// As DbmGetRecordList, over the database in memory.
char *DbmTGetRecordList(DbT *db, const char *separator, const char *terminator);
/// The same with the keys sorted by their bytes.
char *DbmTGetRecordListS(DbT *db, const char *separator, const char *terminator);
/// The file a handle's name stands for (see DbTUpDate), in a new block.
char *DbTFileName(const char *name);
