// Keyed record files: the input is <tool>/db/x.vdb. The keys the scan lists
// are looked up one by one, patterns taken from them select link lists, the
// walk with the process-wide cursor runs to the end, and the first key is
// deleted. The deletion's rename is a command ("mv") and never runs
// (FakeExec.cpp); the scratch file it would rename is made beforehand,
// since "touch" never runs either.
#include <cstdlib>

#include "Dbm.h"
#include "FuzzSupport.h"
#include "utils.h"

namespace {

constexpr const char *NAME = "x";
unsigned char buffer[DBM_RECORD_SIZE];

void CheckLinks(const std::string &pattern) {
    fuzz::CheckLinkList(DbmGetDbLinkList(NAME, pattern.c_str()), pattern.c_str());
}

}  // namespace

void fuzz::SetUp() {
    fuzz::Begin("tool", "dbmfuzz");
}

void fuzz::OneInput(std::string_view bytes) {
    fuzz::FreshDir("tool/db");
    fuzz::WriteFile("tool/db/x.vdb", bytes);

    std::vector<std::string> keys = fuzz::Keys(DbmGetRecordList(NAME, "\n", ""));
    for (const std::string &key : keys) {
        int length = DbmGetRecordSize(NAME, key.c_str());
        if (DbmGetRecord(NAME, key.c_str(), buffer) != length) std::abort();
        if (DbmGetRecord(NAME, key.c_str(), nullptr) != length) std::abort();
    }
    CheckLinks("");
    if (!keys.empty() && !keys[0].empty()) CheckLinks(keys[0].substr(keys[0].size() / 2));

    // Each step reads the file from its start: a few steps show the cursor's
    // handling, past the end included.
    DbmResetNextRecord();
    for (size_t step = 0; step < keys.size() + 2; ++step) DbmGetNextRecord(NAME, buffer);
    DbmResetNextRecord();

    fuzz::WriteFile("tool/db/x.vdb_new", "");
    DbmDeleteRecord(NAME, keys.empty() ? "" : keys[0].c_str());
    DbmDeleteRecords(NAME, keys.empty() ? "k" : keys.back().substr(0, 1).c_str());
}
