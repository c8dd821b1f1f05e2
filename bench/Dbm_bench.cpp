// One string looked up among 1,000: in a typed database held in memory (with
// and without the check for a changed file), and with DbmGetRecord in the same
// records as a keyed record file, read from disk on every call. The baseline
// is a plain linear search of the same keys in memory.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "Dbm.h"
#include "SysCmd.h"

namespace {

namespace fs = std::filesystem;

constexpr int STRINGS = 1000;

struct Fixture {
    fs::path dir;
    std::string tool;
    std::vector<std::string> keys;
    std::vector<std::string> texts;

    Fixture() {
        char pattern[] = "/tmp/dbm-bench-XXXXXX";
        dir = mkdtemp(pattern);
        tool = dir.string();
        fs::create_directories(dir / "db");
        pToolPath = tool.data();
        InitSysCmdList();
        std::mt19937 rng(3);
        DbT *typed = DbTOpen("strings", DBT_NOUPDATE);
        DbTClear(typed);
        FILE *keyed = std::fopen((dir / "db" / "keyed.vdb").c_str(), "wb");
        for (int i = 0; i < STRINGS; ++i) {
            keys.push_back("25_" + std::to_string(i));
            texts.push_back(std::string(20 + rng() % 100, static_cast<char>('a' + i % 26)));
            DbmTPutData(typed, keys[i].c_str(), texts[i].c_str(),
                        static_cast<int>(texts[i].size() + 1));
        }
        DbmTArchiveDb(typed);
        DbTClose(typed);
        std::fclose(keyed);
        // The keyed file gets the same records through its own writer, in one
        // pass: DbmPutRecord rewrites the whole file on every call.
        for (int i = 0; i < STRINGS; ++i)
            DbmPutRecord("keyed", keys[i].c_str(), texts[i].c_str(),
                         static_cast<int>(texts[i].size() + 1));
    }
    ~Fixture() { fs::remove_all(dir); }
};

Fixture &Data() {
    static Fixture fixture;
    return fixture;
}

/// Keys in a fixed shuffled order, so every run asks the same questions.
const std::string &NextKey(size_t &i) {
    static std::vector<size_t> order = [] {
        std::vector<size_t> o(STRINGS);
        for (size_t k = 0; k < o.size(); ++k) o[k] = k;
        std::shuffle(o.begin(), o.end(), std::mt19937(5));
        return o;
    }();
    return Data().keys[order[i++ % order.size()]];
}

void BM_Baseline_LinearSearchInMemory(benchmark::State &state) {
    auto &d = Data();
    size_t i = 0;
    for (auto _ : state) {
        const std::string &key = NextKey(i);
        for (size_t k = 0; k < d.keys.size(); ++k)
            if (d.keys[k] == key) {
                benchmark::DoNotOptimize(d.texts[k].data());
                break;
            }
    }
}

void TypedLookup(benchmark::State &state, uint32_t mode) {
    Data();
    DbT *db = DbTOpen("strings", mode);
    char buffer[DBM_RECORD_SIZE];
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(DbmTGetRecord(db, NextKey(i).c_str(), buffer));
    DbTClose(db);
}

void BM_TypedLookup_NoFileCheck(benchmark::State &state) {
    TypedLookup(state, DBT_NOUPDATE);
}

void BM_TypedLookup_WithFileCheck(benchmark::State &state) {
    TypedLookup(state, 0);
}

void BM_KeyedFileGetRecord(benchmark::State &state) {
    Data();
    char buffer[DBM_RECORD_SIZE];
    size_t i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(DbmGetRecord("keyed", NextKey(i).c_str(), buffer));
}

BENCHMARK(BM_Baseline_LinearSearchInMemory);
BENCHMARK(BM_TypedLookup_NoFileCheck);
BENCHMARK(BM_TypedLookup_WithFileCheck);
BENCHMARK(BM_KeyedFileGetRecord);

}  // namespace

BENCHMARK_MAIN();
