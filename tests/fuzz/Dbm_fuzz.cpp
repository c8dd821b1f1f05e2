// Keyed record files: the input is <tool>/db/x.vdb. The keys the scan lists
// are looked up one by one, patterns taken from them select link lists, the
// walk with the process-wide cursor runs to the end, and the first key is
// deleted. The deletion's rename is a command ("mv") and is only recorded
// (FakeExec.cpp); the scratch file it would rename is made beforehand,
// since "touch" is only recorded too.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "Dbm.h"
#include "FuzzSupport.h"
#include "utils.h"

namespace {

constexpr const char *NAME = "x";
constexpr size_t MAX_KEYS = 32;  // enough to reach every kind of record, few enough to stay fast

unsigned char buffer[DBM_RECORD_SIZE];

// The keys of DbmGetRecordList(name, "\n", ""); a key holding a line feed
// comes out in pieces, which are then looked up as keys of their own.
std::vector<std::string> Keys() {
    std::vector<std::string> keys;
    MemPtr<char> list(DbmGetRecordList(NAME, "\n", ""));
    if (!list) return keys;
    std::string_view rest(list.get() + 1);  // past the first separator
    while (keys.size() < MAX_KEYS && !rest.empty()) keys.emplace_back(fuzz::Cut(rest, '\n'));
    return keys;
}

void CheckLinkList(const char *pattern) {
    DbmLinkNode *list = DbmGetDbLinkList(NAME, pattern);
    for (DbmLinkNode *node = list; node; node = node->next) {
        // The body holds the key, its NUL, then the data.
        if (!std::strstr(reinterpret_cast<const char *>(node->body), pattern)) std::abort();
        if (node->size) std::memcpy(buffer, node->data, node->size);
    }
    DbmFreeDbLinkList(list);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::Quiet();
    static std::string tool = fuzz::FreshDir("tool");
    pToolPath = tool.data();
    my_name = const_cast<char *>("dbmfuzz");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::Input input;
    fuzz::FreshDir("tool/db");
    fuzz::WriteFile("tool/db/x.vdb", std::string_view(reinterpret_cast<const char *>(data), size));

    std::vector<std::string> keys = Keys();
    for (const std::string &key : keys) {
        int length = DbmGetRecordSize(NAME, key.c_str());
        if (DbmGetRecord(NAME, key.c_str(), buffer) != length) std::abort();
        if (DbmGetRecord(NAME, key.c_str(), nullptr) != length) std::abort();
    }
    CheckLinkList("");
    if (!keys.empty() && !keys[0].empty())
        CheckLinkList(keys[0].substr(keys[0].size() / 2).c_str());

    // Each step reads the file from its start: a few steps show the cursor's
    // handling, past the end included.
    DbmResetNextRecord();
    for (size_t step = 0; step < keys.size() + 2; ++step) DbmGetNextRecord(NAME, buffer);
    DbmResetNextRecord();

    fuzz::WriteFile("tool/db/x.vdb_new", "");
    DbmDeleteRecord(NAME, keys.empty() ? "" : keys[0].c_str());
    DbmDeleteRecords(NAME, keys.empty() ? "k" : keys.back().substr(0, 1).c_str());
    return 0;
}
