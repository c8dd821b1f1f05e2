// Block memory manager: edge cases, and a random run checked against a model after every call.
#include "MemMgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

namespace {

class MemMgrTest : public ::testing::Test {
  protected:
    void TearDown() override {
        while (pMemB) FreeBlock(pMemB);
    }
    static char *Get(long n) { return static_cast<char *>(GetMem(n)); }
    static char *Adjust(void *p, long n) { return static_cast<char *>(AdjustMem(p, n)); }
    static int Nodes(char *p) { return FindBlock(p)->mat[(p - FindBlock(p)->data) / 32].nodes; }
    static bool AllZero(const char *p, long n) { return std::count(p, p + n, 0) == n; }
};

TEST_F(MemMgrTest, RoundsUpTakesFirstFitAndReleasesEmptyHeadBlock) {
    EXPECT_EQ(GetMem(0), nullptr);
    EXPECT_EQ(GetMem(-5), nullptr);
    char *a = Get(31), *b = Get(32), *c = Get(100), *d = Get(10);  // nodes 0, 1-2, 3-6, 7
    EXPECT_EQ(Nodes(a), 1);
    EXPECT_EQ(Nodes(b), 2);
    PutMem(c);
    EXPECT_EQ(Get(64), c) << "3 nodes fit into the 4-node gap";
    EXPECT_EQ(Get(10), c + 96) << "and one more";
    char *whole = Get(65535);
    EXPECT_EQ(Nodes(whole), MEM_NODES) << "the largest small request fills a fresh block";
    for (char *p : {a, b, c, c + 96, d}) PutMem(p);
    EXPECT_EQ(pMemB->data, whole);
    EXPECT_EQ(pMemB->prev, nullptr);
}

TEST_F(MemMgrTest, ForeignNullAndInteriorPointersAreIgnored) {
    int local = 0;
    char *a = Get(200);
    PutMem(nullptr);
    PutMem(&local);
    PutMem(a + 64);
    EXPECT_EQ(Nodes(a), 7);
    EXPECT_EQ(pMemB->freeNodes, MEM_NODES - 7);
    EXPECT_EQ(FindBlock(pMemB->data + MEM_BLOCK_SIZE), pMemB) << "the end address counts";
    EXPECT_EQ(FindBlock(pMemB->data + MEM_BLOCK_SIZE + 1), nullptr);
    PutMem(pMemB->data + MEM_BLOCK_SIZE);  // names no MAT entry
    char *fresh = Adjust(&local, 40);      // foreign: a new allocation
    EXPECT_EQ(fresh, a + 224);
    EXPECT_EQ(AdjustMem(fresh, 0), nullptr);
    EXPECT_EQ(Adjust(nullptr, 50), a + 224);
}

TEST_F(MemMgrTest, DedicatedBlockShrinksInPlaceZeroingAndMovesWhenOutgrown) {
    char *p = Get(65536);
    EXPECT_EQ(std::pair(pMemB->size, pMemB->used), std::pair(131072, 65568));
    EXPECT_TRUE(AllZero(p, 65568));
    std::memset(p, 'a', 65536);
    EXPECT_EQ(Adjust(p, 1000), p);
    EXPECT_EQ(pMemB->used, 1024);
    EXPECT_TRUE(AllZero(p + 1024, 65536 - 1024));
    EXPECT_EQ(Adjust(p, 120000), p);
    EXPECT_TRUE(AllZero(p + 1024, 120000 - 1024));
    EXPECT_EQ(Adjust(p, 200000)[0], 'a') << "moved, the whole block copied";
    PutMem(pMemB->data);
    std::strcpy(Get(100), "payload");
    EXPECT_STREQ(Adjust(pMemB->data, 70000), "payload");
    EXPECT_EQ(pMemB->next, nullptr) << "the small block went with its only allocation";
    EXPECT_GT(pMemB->size, MEM_BLOCK_SIZE);
}

// Where one data area ends exactly where the next begins, the shared address
// belongs to the block that comes first in the chain, whatever the addresses.
TEST_F(MemMgrTest, SharedBoundaryGoesToFirstBlockInChain) {
    static char area[3 * MEM_BLOCK_SIZE];
    for (bool lowFirst : {true, false}) {
        SCOPED_TRACE(lowFirst);
        auto blocks = std::make_unique<MemBlock[]>(3);
        MemBlock &head = blocks[0], &low = blocks[1], &high = blocks[2];
        head.data = area + 2 * MEM_BLOCK_SIZE;
        low.data = area;
        high.data = area + MEM_BLOCK_SIZE;
        for (MemBlock *b : {&head, &low, &high}) b->size = MEM_BLOCK_SIZE;
        PushBlock(&head);
        PushBlock(lowFirst ? &low : &high);
        PushBlock(lowFirst ? &high : &low);
        EXPECT_EQ(FindBlock(high.data), lowFirst ? &low : &high);
        EXPECT_EQ(FindBlock(high.data + 1), &high);
        EXPECT_EQ(FindBlock(low.data), &low);
        int elsewhere = 0;
        EXPECT_EQ(FindBlock(&elsewhere), nullptr);
        for (MemBlock *b : {&head, &low, &high}) PopBlock(b);
        EXPECT_EQ(pMemB, nullptr);
    }
}

TEST_F(MemMgrTest, DumpShowsMapAndAllocations) {
    std::strcpy(Get(40), "hello");
    testing::internal::CaptureStdout();
    DumpMem();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("Free(2046) Used(2) FreeNodeCount(2046) SizeCnt(2046)"), std::string::npos);
    EXPECT_NE(out.find("\tBlock MAT:\n\tUU______"), std::string::npos);
    EXPECT_NE(out.find("nodes(    2) size(   64) Memory(hello)\n"), std::string::npos);
}

// The model: the same blocks in plain containers, driven by the documented rules.
using Where = std::pair<int, long>;  // block index in chain order, node

struct ModelBlock {
    long size = MEM_BLOCK_SIZE, used = 0;  // `used` is set for a dedicated block only
    std::string map = std::string(MEM_NODES, MEM_FREE) + '\0';
    std::vector<int> starts = std::vector<int>(MEM_NODES);  // nodes of the allocation there
};

struct Model {
    std::vector<ModelBlock> blocks;
    int movedDown = 0, lostEntries = 0;  // proof that the run took these paths
    static long Round(long n) { return (n + 32) / 32 * 32; }
    Where Get(long size) {
        long r = Round(size);
        if (r > MEM_BLOCK_SIZE) {
            blocks.push_back({(r + 65535) / 65536 * 65536, r, std::string(MEM_NODES, 'U') + '\0'});
            return {blocks.size() - 1, 0};
        }
        int k = static_cast<int>(r / 32);
        for (size_t bi = 0;; ++bi) {
            if (bi == blocks.size()) blocks.emplace_back();
            ModelBlock &b = blocks[bi];
            size_t i = b.map.find(std::string(k, MEM_FREE));  // a dedicated map has none
            if (i == std::string::npos) continue;
            b.map.replace(i, k, k, MEM_USED);
            b.starts[i] = k;
            return {bi, i};
        }
    }
    // Returns true when the block went back to the system.
    bool Put(Where w) {
        ModelBlock &b = blocks[w.first];
        int &n = b.starts[w.second];
        b.map.replace(w.second, n, n, MEM_FREE);
        n = 0;
        if (!b.used && b.map.find(MEM_USED) != std::string::npos) return false;
        blocks.erase(blocks.begin() + w.first);
        return true;
    }
    // An allocation whose MAT entry is gone can never be released.
    bool Lost(Where w) const { return !blocks[w.first].used && !blocks[w.first].starts[w.second]; }
    Where Adjust(Where w, long newSize) {
        long r = Round(newSize), i = w.second;
        ModelBlock &b = blocks[w.first];
        if (b.used || r > MEM_BLOCK_SIZE) {
            if (r > b.size) return Move(w, r);
            b.used = r;  // only a dedicated block is large enough to get here
            return w;
        }
        int old = b.starts[i], k = static_cast<int>(r / 32), d = k - old;
        auto freeRun = [&](long from) {
            return from >= 0 && b.map.compare(from, d, std::string(d, MEM_FREE)) == 0;
        };
        if (d <= 0 || freeRun(i + old)) {
            b.map.replace(i, old, old, MEM_FREE).replace(i, k, k, MEM_USED);
            b.starts[i] = k;
            return w;
        }
        if (!freeRun(i - d)) return Move(w, r);
        b.map.replace(i - d, d, d, MEM_USED);
        for (long e = i; e < std::min<long>(i + 4, MEM_NODES); ++e) {
            lostEntries += e > i && b.starts[e];
            b.starts[e] = 0;
        }
        b.starts[i - d] = k;
        ++movedDown;
        return {w.first, i - d};
    }
    // Allocates before it releases; a released block shifts the indexes after it.
    Where Move(Where w, long r) {
        Where n = Get(r);
        if (Put(w) && w.first < n.first) --n.first;
        return n;
    }
};

Where Locate(const void *p) {
    int bi = 0;
    for (MemBlock *b = pMemB; b; b = b->next, ++bi) {
        long off = static_cast<const char *>(p) - b->data;
        if (off >= 0 && off < b->size) return {bi, off / 32};
    }
    return {-1, 0};
}

void ExpectMatchesModel(const Model &m) {
    size_t bi = 0;
    for (MemBlock *b = pMemB; b; b = b->next, ++bi) {
        const ModelBlock &mb = m.blocks.at(bi);
        ASSERT_EQ((std::pair<long, long>(b->size, b->used)), std::pair(mb.size, mb.used));
        ASSERT_EQ(std::string(b->map, MEM_NODES + 1), mb.map) << "block " << bi;
        ASSERT_EQ(b->freeNodes, std::count(mb.map.begin(), mb.map.end(), MEM_FREE));
        for (int i = 0; i < MEM_NODES; ++i)
            if (b->mat[i].nodes != mb.starts[i] ||
                b->mat[i].addr != (mb.starts[i] ? b->data + 32 * i : nullptr))
                FAIL() << "MAT entry " << i << " of block " << bi;
    }
    ASSERT_EQ(bi, m.blocks.size());
}

// Mostly small, some near 64 KiB on both sides, some dedicated.
long RandomSize(std::mt19937 &rng) {
    constexpr long base[] = {65000, 65537, 2000, 1}, span[] = {600, 200000, 20000, 600};
    unsigned c = std::min(rng() % 10, 3ul);
    return base[c] + static_cast<long>(rng() % span[c]);
}

struct Live {
    char *p;
    long size;
    char fill;
};

TEST_F(MemMgrTest, RandomSequenceMatchesModel) {
    std::mt19937 rng(20261122);
    Model model;
    std::vector<Live> live;
    for (int step = 0; step < 6000; ++step) {
        SCOPED_TRACE(step);
        // About a hundred allocations stay alive, so blocks fill up and empty out.
        int op = static_cast<int>(rng() % 10) + (live.size() > 120) * 2 - (live.size() < 60) * 2;
        Live *l = live.empty() ? nullptr : &live[rng() % live.size()];
        if (op < 4 || !l || model.Lost(Locate(l->p))) {
            long size = RandomSize(rng);
            char *p = Get(size);
            ASSERT_EQ(Locate(p), model.Get(size));
            ASSERT_TRUE(AllZero(p, size)) << "fresh memory not zeroed";
            l = &live.emplace_back(Live{p, size, static_cast<char>(1 + step % 255)});
        } else if (op < 7) {
            model.Put(Locate(l->p));
            PutMem(l->p);
            live.erase(live.begin() + (l - live.data()));
            l = nullptr;
        } else {
            long newSize = RandomSize(rng);
            Where predicted = model.Adjust(Locate(l->p), newSize);
            char *p = Adjust(l->p, newSize);
            ASSERT_EQ(Locate(p), predicted);
            long kept = std::min(l->size, newSize);
            ASSERT_EQ(std::count(p, p + kept, l->fill), kept) << "contents lost";
            ASSERT_TRUE(AllZero(p + kept, newSize - kept)) << "grown memory not zeroed";
            long freed = Model::Round(l->size) - Model::Round(newSize);
            if (p == l->p && freed > 0)
                ASSERT_TRUE(AllZero(p + Model::Round(newSize), freed)) << "freed tail not zeroed";
            *l = {p, newSize, l->fill};
        }
        // Each allocation holds its fill byte, then zeroes up to its rounded
        // end, so that the zeroing of grown memory can be checked.
        if (l) std::memset(l->p, l->fill, l->size);
        if (l) std::memset(l->p + l->size, 0, Model::Round(l->size) - l->size);
        ASSERT_NO_FATAL_FAILURE(ExpectMatchesModel(model));
        for (size_t j = 0; step % 64 == 0 && j < live.size(); ++j)
            ASSERT_EQ(std::count(live[j].p, live[j].p + live[j].size, live[j].fill), live[j].size);
    }
    EXPECT_GT(model.movedDown, 10);
    EXPECT_GT(model.lostEntries, 0);
}

}  // namespace
