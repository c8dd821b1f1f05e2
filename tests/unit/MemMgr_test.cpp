// Block memory manager: edge cases, and a long random run checked after every
// call against a model that keeps the same state in plain arrays.
#include "MemMgr.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <random>
#include <vector>

namespace {

int ChainLength() {
    int n = 0;
    for (MemBlock *b = pMemB; b; b = b->next) ++n;
    return n;
}

int Nodes(const void *p) {
    MemBlock *b = FindBlock(p);
    long i = (static_cast<const char *>(p) - b->data) / MEM_NODE_SIZE;
    return b->mat[i].nodes;
}

bool AllZero(const void *p, long n) {
    auto *c = static_cast<const unsigned char *>(p);
    return std::all_of(c, c + n, [](unsigned char x) { return x == 0; });
}

class MemMgrTest : public ::testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(pMemB, nullptr) << "a previous test leaked blocks"; }
    void TearDown() override {
        while (pMemB) FreeBlock(pMemB);
    }
};

TEST_F(MemMgrTest, RequestsRoundUpWithRoomForTerminator) {
    EXPECT_EQ(GetMem(0), nullptr);
    EXPECT_EQ(GetMem(-5), nullptr);
    void *a = GetMem(31);
    void *b = GetMem(32);
    EXPECT_EQ(Nodes(a), 1);
    EXPECT_EQ(Nodes(b), 2);
    EXPECT_EQ(static_cast<char *>(b) - static_cast<char *>(a), 32);
    EXPECT_EQ(pMemB->freeNodes, MEM_NODES - 3);
    PutMem(a);
    PutMem(b);
}

TEST_F(MemMgrTest, LargestSmallRequestFillsAFreshBlock) {
    void *small = GetMem(10);
    void *whole = GetMem(65535);
    ASSERT_EQ(ChainLength(), 2);
    MemBlock *second = pMemB->next;
    EXPECT_EQ(whole, second->data);
    EXPECT_EQ(second->freeNodes, 0);
    EXPECT_EQ(std::count(second->map, second->map + MEM_NODES, MEM_USED), MEM_NODES);
    PutMem(small);
    PutMem(whole);
    EXPECT_EQ(pMemB, nullptr);
}

TEST_F(MemMgrTest, LargeRequestGetsDedicatedBlock) {
    auto *p = static_cast<char *>(GetMem(65536));
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(ChainLength(), 1);
    EXPECT_EQ(pMemB->size, 131072);
    EXPECT_EQ(pMemB->used, 65568);
    EXPECT_EQ(pMemB->freeNodes, 0);
    EXPECT_TRUE(AllZero(p, 65568));
    EXPECT_EQ(pMemB->mat[0].nodes, 0);
    PutMem(p);
    EXPECT_EQ(pMemB, nullptr);
}

TEST_F(MemMgrTest, FreedGapIsReusedFirst) {
    void *a = GetMem(100);  // 4 nodes
    void *b = GetMem(10);
    PutMem(a);
    void *c = GetMem(64);  // 3 nodes fit into the 4-node gap
    EXPECT_EQ(c, a);
    void *d = GetMem(10);  // the remaining node of the gap
    EXPECT_EQ(static_cast<char *>(d) - static_cast<char *>(c), 96);
    for (void *p : {b, c, d}) PutMem(p);
}

TEST_F(MemMgrTest, ReleasingLastAllocationReleasesHeadBlock) {
    void *a = GetMem(65535);
    void *b = GetMem(100);
    ASSERT_EQ(ChainLength(), 2);
    MemBlock *second = pMemB->next;
    PutMem(a);
    EXPECT_EQ(pMemB, second);
    EXPECT_EQ(pMemB->prev, nullptr);
    PutMem(b);
    EXPECT_EQ(pMemB, nullptr);
}

TEST_F(MemMgrTest, ForeignNullAndInteriorPointersAreIgnored) {
    int local = 0;
    auto *a = static_cast<char *>(GetMem(200));
    PutMem(nullptr);
    PutMem(&local);
    PutMem(a + 64);  // inside the allocation, not its first node
    EXPECT_EQ(Nodes(a), 7);
    EXPECT_EQ(pMemB->freeNodes, MEM_NODES - 7);
    void *fresh = AdjustMem(&local, 40);  // foreign: a new allocation, nothing copied
    EXPECT_NE(fresh, nullptr);
    EXPECT_EQ(local, 0);
    PutMem(fresh);
    PutMem(a);
}

TEST_F(MemMgrTest, PointerJustPastDataBelongsToTheBlock) {
    void *a = GetMem(10);
    MemBlock *b = pMemB;
    EXPECT_EQ(FindBlock(b->data + MEM_BLOCK_SIZE), b);
    EXPECT_EQ(FindBlock(b->data + MEM_BLOCK_SIZE + 1), nullptr);
    PutMem(b->data + MEM_BLOCK_SIZE);  // names no MAT entry: nothing happens
    EXPECT_EQ(pMemB, b);
    PutMem(a);
}

TEST_F(MemMgrTest, AdjustKeepsShrinksAndGrowsInPlace) {
    auto *a = static_cast<char *>(GetMem(100));  // 4 nodes
    std::memset(a, 'x', 100);
    EXPECT_EQ(AdjustMem(a, 120), a);  // still 4 nodes
    EXPECT_EQ(AdjustMem(a, 40), a);   // 2 nodes
    EXPECT_EQ(Nodes(a), 2);
    EXPECT_TRUE(AllZero(a + 64, 64));
    EXPECT_EQ(pMemB->freeNodes, MEM_NODES - 2);
    EXPECT_EQ(AdjustMem(a, 300), a);  // grows over the freed tail
    EXPECT_EQ(Nodes(a), 10);
    EXPECT_EQ(a[0], 'x');
    EXPECT_TRUE(AllZero(a + 64, 256));
    PutMem(a);
}

TEST_F(MemMgrTest, GrowWithRoomOnlyBelowMovesDown) {
    auto *a = static_cast<char *>(GetMem(100));  // nodes 0-3
    auto *b = static_cast<char *>(GetMem(31));   // node 4
    auto *c = static_cast<char *>(GetMem(31));   // node 5: blocks growth of b
    auto *d = static_cast<char *>(GetMem(31));   // node 6: loses its MAT entry
    std::strcpy(b, "moved");
    PutMem(a);
    auto *nb = static_cast<char *>(AdjustMem(b, 90));  // 3 nodes: 2 from below
    EXPECT_EQ(nb, b - 64);
    EXPECT_STREQ(nb, "moved");
    EXPECT_TRUE(AllZero(nb + 32, 64));
    EXPECT_EQ(Nodes(nb), 3);
    // The old entry is cleared 32 bytes wide: b's, c's and d's entries go.
    EXPECT_EQ(pMemB->mat[4].nodes, 0);
    EXPECT_EQ(pMemB->mat[5].nodes, 0);
    EXPECT_EQ(pMemB->mat[6].nodes, 0);
    PutMem(c);  // can no longer be released
    EXPECT_EQ(pMemB->map[5], MEM_USED);
    EXPECT_EQ(pMemB->freeNodes, MEM_NODES - 5);
    PutMem(nb);
    PutMem(d);
}

TEST_F(MemMgrTest, GrowNearMapStartNeverLooksBeforeIt) {
    auto *a = static_cast<char *>(GetMem(31));  // node 0
    void *b = GetMem(31);                       // node 1
    std::strcpy(a, "keep");
    auto *na = static_cast<char *>(AdjustMem(a, 100));  // no room above, none below
    ASSERT_NE(na, a);
    EXPECT_STREQ(na, "keep");
    EXPECT_EQ(Nodes(na), 5);  // rounded twice
    EXPECT_EQ(pMemB->map[0], MEM_FREE);
    PutMem(na);
    PutMem(b);
}

TEST_F(MemMgrTest, AdjustNullAndZero) {
    void *a = AdjustMem(nullptr, 50);
    ASSERT_NE(a, nullptr);
    EXPECT_EQ(Nodes(a), 2);
    EXPECT_EQ(AdjustMem(a, 0), nullptr);
    EXPECT_EQ(pMemB, nullptr);
}

TEST_F(MemMgrTest, DedicatedBlockShrinksInPlaceAndZeroes) {
    auto *p = static_cast<char *>(GetMem(100000));
    std::memset(p, 'a', 100000);
    EXPECT_EQ(AdjustMem(p, 1000), p);
    EXPECT_EQ(pMemB->used, 1024);
    EXPECT_TRUE(AllZero(p + 1024, 100000 - 1024));
    EXPECT_EQ(AdjustMem(p, 120000), p);  // still inside the 131072 bytes
    EXPECT_TRUE(AllZero(p + 1024, 120000 - 1024));
    auto *q = static_cast<char *>(AdjustMem(p, 200000));  // outgrows it: moved, whole block copied
    ASSERT_NE(q, nullptr);
    EXPECT_EQ(q[0], 'a');
    EXPECT_EQ(ChainLength(), 1);
    PutMem(q);
}

TEST_F(MemMgrTest, SmallAllocationGrowsIntoDedicatedBlock) {
    auto *p = static_cast<char *>(GetMem(100));
    std::strcpy(p, "payload");
    auto *q = static_cast<char *>(AdjustMem(p, 70000));
    EXPECT_STREQ(q, "payload");
    EXPECT_EQ(ChainLength(), 1);  // the small block went with its only allocation
    EXPECT_GT(pMemB->size, MEM_BLOCK_SIZE);
    PutMem(q);
}

TEST_F(MemMgrTest, DumpShowsMapAndAllocations) {
    auto *p = static_cast<char *>(GetMem(40));
    std::strcpy(p, "hello");
    testing::internal::CaptureStdout();
    DumpMem();
    std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("Free(2046) Used(2) FreeNodeCount(2046) SizeCnt(2046)"), std::string::npos);
    EXPECT_NE(out.find("\tBlock MAT:\n\tUU______"), std::string::npos);
    EXPECT_NE(out.find("nodes(    2) size(   64) Memory(hello)\n"), std::string::npos);
    PutMem(p);
}

// ---------------------------------------------------------------------------
// The model: the same blocks as plain arrays, driven by the documented rules.

struct ModelBlock {
    bool dedicated = false;
    long size = MEM_BLOCK_SIZE;
    long used = 0;
    std::array<bool, MEM_NODES> busy{};
    std::array<int, MEM_NODES> starts{};  // allocation length starting at a node
    int FreeCount() const { return static_cast<int>(std::count(busy.begin(), busy.end(), false)); }
};

struct Where {
    int block = -1;
    long node = 0;
};

class Model {
  public:
    std::vector<ModelBlock> blocks;

    static long Round(long n) { return (n + 32) / 32 * 32; }

    Where Get(long size) {
        long r = Round(size);
        if (r > MEM_BLOCK_SIZE) {
            ModelBlock b;
            b.dedicated = true;
            b.size = (r + 65535) / 65536 * 65536;
            b.used = r;
            b.busy.fill(true);
            blocks.push_back(b);
            return {static_cast<int>(blocks.size()) - 1, 0};
        }
        int k = static_cast<int>(r / 32);
        for (size_t bi = 0;; ++bi) {
            if (bi == blocks.size()) blocks.emplace_back();
            ModelBlock &b = blocks[bi];
            if (b.dedicated || b.FreeCount() < k) continue;
            for (long i = 0; i + k <= MEM_NODES; ++i) {
                if (std::all_of(b.busy.begin() + i, b.busy.begin() + i + k,
                                [](bool x) { return !x; })) {
                    std::fill(b.busy.begin() + i, b.busy.begin() + i + k, true);
                    b.starts[i] = k;
                    return {static_cast<int>(bi), i};
                }
            }
        }
    }

    // Returns true when the block went back to the system.
    bool Put(Where w) {
        ModelBlock &b = blocks[w.block];
        if (!b.dedicated) {
            if (int n = b.starts[w.node]) {
                std::fill(b.busy.begin() + w.node, b.busy.begin() + w.node + n, false);
                b.starts[w.node] = 0;
            }
            if (b.FreeCount() != MEM_NODES) return false;
        }
        blocks.erase(blocks.begin() + w.block);
        return true;
    }

    // Returns where the allocation ends up; `lost` collects nodes whose
    // allocations lose their table entry.
    Where Adjust(Where w, long newSize, std::vector<Where> &lost) {
        long r = Round(newSize);
        ModelBlock &b = blocks[w.block];
        long i = w.node;
        if (b.dedicated || r > MEM_BLOCK_SIZE) {
            if (r > b.size) {
                return Move(w, r);
            }
            if (b.dedicated) b.used = r;
            return w;
        }
        int old = b.starts[i], k = static_cast<int>(r / 32);
        if (k <= old) {
            std::fill(b.busy.begin() + i + k, b.busy.begin() + i + old, false);
            b.starts[i] = k;
            return w;
        }
        int d = k - old;
        auto freeRun = [&](long from) {
            return from >= 0 && from + d <= MEM_NODES &&
                   std::none_of(b.busy.begin() + from, b.busy.begin() + from + d,
                                [](bool x) { return x; });
        };
        if (freeRun(i + old)) {
            std::fill(b.busy.begin() + i, b.busy.begin() + i + k, true);
            b.starts[i] = k;
            return w;
        }
        if (freeRun(i - d)) {
            std::fill(b.busy.begin() + i - d, b.busy.begin() + i - d + k, true);
            for (long e = i + 1; e < std::min<long>(i + 4, MEM_NODES); ++e)
                if (b.starts[e]) lost.push_back({w.block, e});
            for (long e = i; e < std::min<long>(i + 4, MEM_NODES); ++e) b.starts[e] = 0;
            b.starts[i - d] = k;
            return {w.block, i - d};
        }
        return Move(w, r);
    }

  private:
    // The new allocation is made before the old one goes; releasing the old
    // block shifts the indexes of the blocks after it.
    Where Move(Where w, long r) {
        Where n = Get(r);
        if (Put(w) && w.block < n.block) --n.block;
        return n;
    }
};

struct Live {
    char *p;
    long size;
    unsigned char fill;
    Where at;
    bool lost;
};

std::vector<MemBlock *> Chain() {
    std::vector<MemBlock *> v;
    for (MemBlock *b = pMemB; b; b = b->next) v.push_back(b);
    return v;
}

void ExpectMatchesModel(const Model &m, const std::vector<Live> &live, bool contents) {
    std::vector<MemBlock *> chain = Chain();
    ASSERT_EQ(chain.size(), m.blocks.size());
    for (size_t bi = 0; bi < chain.size(); ++bi) {
        const MemBlock *b = chain[bi];
        const ModelBlock &mb = m.blocks[bi];
        ASSERT_EQ(b->size > MEM_BLOCK_SIZE, mb.dedicated) << "block " << bi;
        if (mb.dedicated) {
            ASSERT_EQ(b->used, mb.used);
            ASSERT_EQ(b->freeNodes, 0);
            continue;
        }
        int freeCount = 0;
        for (int i = 0; i < MEM_NODES; ++i) {
            // Plain comparisons first: assertion macros per node would dominate the run.
            bool same = b->map[i] == (mb.busy[i] ? MEM_USED : MEM_FREE) &&
                        b->mat[i].nodes == mb.starts[i] &&
                        b->mat[i].addr == (mb.starts[i] ? b->data + 32 * i : nullptr);
            if (!same) {
                ASSERT_EQ(b->map[i], mb.busy[i] ? MEM_USED : MEM_FREE)
                    << "block " << bi << " node " << i;
                ASSERT_EQ(b->mat[i].nodes, mb.starts[i]) << "block " << bi << " node " << i;
                FAIL() << "MAT address of block " << bi << " node " << i;
            }
            freeCount += !mb.busy[i];
        }
        ASSERT_EQ(b->map[MEM_NODES], '\0');
        ASSERT_EQ(b->freeNodes, freeCount);
    }
    for (const Live &l : live) {
        if (!contents) break;
        auto *c = reinterpret_cast<unsigned char *>(l.p);
        if (std::count(c, c + l.size, l.fill) != l.size) FAIL() << "contents lost";
    }
}

// Blocks are found again by address after every call: the model's indexes
// shift when a block is released.
Where Locate(const void *p) {
    int bi = 0;
    for (MemBlock *b = pMemB; b; b = b->next, ++bi) {
        long off = static_cast<const char *>(p) - b->data;
        if (off >= 0 && off < b->size) return {bi, off / 32};
    }
    return {};
}

long RandomSize(std::mt19937 &rng) {
    switch (rng() % 10) {
        case 0:
            return 65000 + static_cast<long>(rng() % 600);  // near 64 KiB, both sides
        case 1:
            return 65537 + static_cast<long>(rng() % 200000);  // dedicated
        case 2:
            return 2000 + static_cast<long>(rng() % 20000);
        default:
            return 1 + static_cast<long>(rng() % 600);
    }
}

TEST_F(MemMgrTest, RandomSequenceMatchesModel) {
    std::mt19937 rng(20261122);
    Model model;
    std::vector<Live> live;
    unsigned nextFill = 0;
    int movedDown = 0, lostEntries = 0, movedAway = 0;
    for (int step = 0; step < 6000; ++step) {
        // Keeps about a hundred allocations alive so blocks fill up and empty out.
        int op =
            static_cast<int>(rng() % 10) + (live.size() > 120 ? 2 : 0) - (live.size() < 60 ? 2 : 0);
        std::vector<Live *> usable;
        for (Live &l : live)
            if (!l.lost) usable.push_back(&l);
        if (op < 4 || usable.empty()) {
            long size = RandomSize(rng);
            Where predicted = model.Get(size);
            auto *p = static_cast<char *>(GetMem(size));
            ASSERT_NE(p, nullptr);
            Where got = Locate(p);
            ASSERT_EQ(got.block, predicted.block) << "step " << step;
            ASSERT_EQ(got.node, predicted.node) << "step " << step;
            ASSERT_TRUE(AllZero(p, size)) << "fresh memory not zeroed, step " << step;
            auto fill = static_cast<unsigned char>(1 + nextFill++ % 255);
            std::memset(p, fill, size);
            std::memset(p + size, 0, Model::Round(size) - size);
            live.push_back({p, size, fill, got, false});
        } else if (op < 7) {
            Live *l = usable[rng() % usable.size()];
            model.Put(Locate(l->p));
            PutMem(l->p);
            live.erase(live.begin() + (l - live.data()));
        } else {
            Live *l = usable[rng() % usable.size()];
            long newSize = RandomSize(rng);
            std::vector<Where> lost;
            Where predicted = model.Adjust(Locate(l->p), newSize, lost);
            for (const Where &w : lost)
                for (Live &other : live)
                    if (Locate(other.p).block == w.block && Locate(other.p).node == w.node)
                        other.lost = true;
            auto *p = static_cast<char *>(AdjustMem(l->p, newSize));
            ASSERT_NE(p, nullptr);
            Where got = Locate(p);
            ASSERT_EQ(got.block, predicted.block) << "step " << step;
            ASSERT_EQ(got.node, predicted.node) << "step " << step;
            movedDown += p < l->p && FindBlock(p) == FindBlock(l->p);
            movedAway += FindBlock(p) != FindBlock(l->p);
            lostEntries += static_cast<int>(lost.size());
            long kept = std::min(l->size, newSize);
            auto *c = reinterpret_cast<unsigned char *>(p);
            ASSERT_EQ(std::count(c, c + kept, l->fill), kept) << "contents lost, step " << step;
            ASSERT_TRUE(AllZero(p + kept, newSize - kept))
                << "grown memory not zeroed, step " << step;
            // Callers keep the slack after their data clean, so that the zeroing
            // of grown memory can be checked.
            std::memset(p, l->fill, newSize);
            std::memset(p + newSize, 0, Model::Round(newSize) - newSize);
            l->p = p;
            l->size = newSize;
        }
        ASSERT_NO_FATAL_FAILURE(ExpectMatchesModel(model, live, step % 64 == 0))
            << "after step " << step;
    }
    // The run must have gone through the interesting paths.
    EXPECT_GT(movedDown, 10);
    EXPECT_GT(movedAway, 10);
    EXPECT_GT(lostEntries, 0);
    for (Live &l : live) PutMem(l.p);
}

}  // namespace
