// Typed databases: the input is a database file, plain or headed, opened with
// DbTOpen. The keys its list gives are looked up in every way, patterns
// from them select link lists, and records are purged and added in memory
// (nothing is saved), after which a lookup must find what was added.
#include <cstdlib>
#include <cstring>

#include "Dbm.h"
#include "FuzzSupport.h"
#include "utils.h"

namespace {

constexpr const char *ADDED = "fuzz.added";

unsigned char buffer[DBM_RECORD_SIZE];

std::vector<std::string> KeysOf(DbT *db, bool sorted) {
    return fuzz::Keys(sorted ? DbmTGetRecordListS(db, "\n", "") : DbmTGetRecordList(db, "\n", ""));
}

void LookUp(DbT *db, const std::string &key) {
    int length = DbmTGetRecordSize(db, key.c_str());
    if (DbmTGetRecord(db, key.c_str(), buffer) != length) std::abort();
    unsigned char small[16];
    void *into = small;
    if (DbmTGetRecordV(db, key.c_str(), &into, sizeof small) != length) std::abort();
    if (into != small) PutMem(into);
}

void CheckLinks(DbT *db, const std::string &pattern) {
    fuzz::CheckLinkList(DbmTGetDbLinkList(db, pattern.c_str()), pattern.c_str());
}

}  // namespace

void fuzz::SetUp() {
    fuzz::Begin("tool");
}

void fuzz::OneInput(std::string_view bytes) {
    fuzz::WriteFile("tool/db/t.vdb", bytes);
    DbT *db = DbTOpen("t", 0);
    if (!db) return;

    std::vector<std::string> keys = KeysOf(db, false);
    KeysOf(db, true);
    for (const std::string &key : keys) LookUp(db, key);
    LookUp(db, "absent");
    CheckLinks(db, "");
    if (!keys.empty() && !keys[0].empty()) {
        CheckLinks(db, keys[0].substr(keys[0].size() / 2));
        PurgeTRecord(db, keys[0].c_str(), 0);
        PurgeTRecord(db, keys[0].c_str(), 1);
    }
    for (const std::string &key : KeysOf(db, false)) LookUp(db, key);

    int length = static_cast<int>(std::min<size_t>(bytes.size(), 100)) + 1;
    PurgeTRecord(db, ADDED, 0);
    std::memset(buffer, 'a', length);
    std::memcpy(buffer, bytes.data(), length - 1);
    if (DbmTPutData(db, ADDED, buffer, length) && DbmTGetRecordSize(db, ADDED) != length)
        std::abort();
    LookUp(db, ADDED);
    DbTClose(db);
}
