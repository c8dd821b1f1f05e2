#include "FuzzSupport.h"

#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "Dbm.h"
#include "MemMgr.h"
#include "utils.h"

namespace fuzz {

namespace fs = std::filesystem;

const std::string &WorkDir() {
    static const std::string dir = [] {
        // Memory-backed when the machine offers it: the library flushes what
        // it writes to disk, which on a real disk costs most of each input.
        std::string pattern = access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "/tmp";
        pattern += "/setup-fuzz-XXXXXX";
        if (!mkdtemp(pattern.data())) {
            std::perror("fuzz: mkdtemp");
            std::abort();
        }
        return pattern;
    }();
    static const bool cleanup = std::atexit([] {
                                    std::error_code ignored;
                                    fs::remove_all(WorkDir(), ignored);
                                }) == 0;
    (void)cleanup;
    return dir;
}

std::string FreshDir(const std::string &relative) {
    fs::path p = fs::path(WorkDir()) / relative;
    std::error_code ignored;
    fs::remove_all(p, ignored);
    fs::create_directories(p);
    return p.string();
}

std::string WriteFile(const std::string &relative, std::string_view bytes) {
    fs::path p = fs::path(WorkDir()) / relative;
    fs::create_directories(p.parent_path());
    std::ofstream out(p, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.close();
    if (!out) {
        std::fprintf(stderr, "fuzz: cannot write %s\n", p.c_str());
        std::abort();
    }
    return p.string();
}

void Quiet() {
    if (!std::freopen("/dev/null", "w", stdout) || !std::freopen("/dev/null", "r", stdin)) {
        std::perror("fuzz: /dev/null");
        std::abort();
    }
}

void Begin(const char *tool, const char *name) {
    Quiet();
    static std::string dir;
    dir = *tool ? FreshDir(tool) : WorkDir();
    pToolPath = dir.data();
    if (name) my_name = const_cast<char *>(name);
}

std::string_view Cut(std::string_view &data, char separator) {
    size_t at = data.find(separator);
    std::string_view head = data.substr(0, at);
    data.remove_prefix(at == std::string_view::npos ? data.size() : at + 1);
    return head;
}

std::vector<std::string> Keys(char *list, size_t max) {
    MemPtr<char> owned(list);
    std::vector<std::string> keys;
    std::string_view rest(list ? list + 1 : "");  // past the first separator
    while (keys.size() < max && !rest.empty()) keys.emplace_back(Cut(rest, '\n'));
    return keys;
}

void CheckLinkList(DbmLinkNode *list, const char *pattern) {
    static unsigned char buffer[DBM_RECORD_SIZE];
    for (DbmLinkNode *node = list; node; node = node->next) {
        // The body holds the key, its NUL, then the data.
        if (!std::strstr(reinterpret_cast<const char *>(node->body), pattern)) std::abort();
        if (node->size) std::memcpy(buffer, node->data, node->size);
    }
    DbmFreeDbLinkList(list);
}

[[gnu::weak]] void SetUp() {}

}  // namespace fuzz

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    fuzz::SetUp();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz::running = true;
    fuzz::OneInput({reinterpret_cast<const char *>(data), size});
    fuzz::running = false;
    return 0;
}
