// The text form of a record database: the input is parsed by ParseDbSource;
// every record it yields is written back with WriteDbSourceRecord, and the
// line written must parse to the same key and bytes.
#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "DbSource.h"
#include "FuzzSupport.h"

namespace {

struct Record {
    std::string key;
    std::string data;
};

int Keep(void *context, const char *key, const unsigned char *data, int length) {
    if (!key || length < 0 || (length > 0 && !data)) std::abort();
    static_cast<std::vector<Record> *>(context)->push_back(
        {key, std::string(reinterpret_cast<const char *>(data), static_cast<size_t>(length))});
    return 1;
}

// Stops after the first record, as a full database would.
int Refuse(void *, const char *, const unsigned char *, int) {
    return 0;
}

std::string Written(const Record &r) {
    char *text = nullptr;
    size_t size = 0;
    FILE *out = open_memstream(&text, &size);
    if (!out) std::abort();
    WriteDbSourceRecord(out, r.key.c_str(), reinterpret_cast<const unsigned char *>(r.data.data()),
                        static_cast<int>(r.data.size()));
    std::fclose(out);
    std::string line(text, size);
    std::free(text);
    return line;
}

void CheckRoundTrip(const Record &r) {
    std::string line = Written(r);
    std::vector<Record> again;
    char error[DBSOURCE_ERROR_SIZE];
    if (ParseDbSource(line.data(), static_cast<long>(line.size()), Keep, &again, error) != 0 ||
        again.size() != 1 || again[0].key != r.key || again[0].data != r.data) {
        std::fprintf(stderr, "round trip broke on the line: %s", line.c_str());
        std::abort();
    }
}

}  // namespace

void fuzz::OneInput(std::string_view bytes) {
    const char *text = bytes.data();
    long size = static_cast<long>(bytes.size());
    std::vector<Record> records;
    char error[DBSOURCE_ERROR_SIZE];
    int bad = ParseDbSource(text, size, Keep, &records, error);
    // A bad line is always explained, and lies within the text.
    if (bad < 0 || (bad > 0 && error[0] == '\0')) std::abort();
    if (bad > 1 + std::count(text, text + size, '\n')) std::abort();
    for (const Record &r : records) CheckRoundTrip(r);
    ParseDbSource(text, size, Refuse, nullptr, error);
    ParseDbSource(text, size, nullptr, nullptr, nullptr);
}
