// GetMem/PutMem against malloc/free on the same mixed small-allocation trace:
// the sizes and lifetimes of an installer run (path strings, response lines,
// list nodes), with a working set of a few hundred live allocations.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

#include "MemMgr.h"

namespace {

struct Op {
    bool alloc;
    int slot;
    long size;
};

std::vector<Op> MakeTrace() {
    std::mt19937 rng(7);
    constexpr int SLOTS = 400;
    std::vector<bool> used(SLOTS);
    std::vector<Op> trace;
    for (int i = 0; i < 200000; ++i) {
        int slot = static_cast<int>(rng() % SLOTS);
        if (used[slot]) {
            trace.push_back({false, slot, 0});
        } else {
            long size = rng() % 8 ? 8 + rng() % 120 : 128 + rng() % 3000;
            trace.push_back({true, slot, size});
        }
        used[slot] = !used[slot];
    }
    for (int s = 0; s < SLOTS; ++s)
        if (used[s]) trace.push_back({false, s, 0});
    return trace;
}

const std::vector<Op> &Trace() {
    static const std::vector<Op> trace = MakeTrace();
    return trace;
}

template <typename Alloc, typename Free>
void Replay(benchmark::State &state, Alloc alloc, Free release) {
    std::vector<void *> slots(400);
    for (auto _ : state) {
        for (const Op &op : Trace()) {
            if (op.alloc) {
                slots[op.slot] = alloc(op.size);
                static_cast<char *>(slots[op.slot])[0] = 1;
            } else {
                release(slots[op.slot]);
            }
        }
    }
    state.SetItemsProcessed(state.iterations() * static_cast<int64_t>(Trace().size()));
}

void BM_GetMemPutMem(benchmark::State &state) {
    Replay(
        state, [](long n) { return GetMem(n); }, [](void *p) { PutMem(p); });
}

// calloc: GetMem's memory is zero-filled, so the fair comparison zeroes too.
void BM_CallocFree(benchmark::State &state) {
    Replay(
        state, [](long n) { return std::calloc(1, n); }, [](void *p) { std::free(p); });
}

void BM_MallocFree(benchmark::State &state) {
    Replay(
        state, [](long n) { return std::malloc(n); }, [](void *p) { std::free(p); });
}

}  // namespace

BENCHMARK(BM_GetMemPutMem)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CallocFree)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MallocFree)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
