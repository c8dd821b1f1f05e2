// Block memory manager. See MemMgr.h for the layout of a block.
#include "MemMgr.h"

#include <algorithm>
#include <bit>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

MemBlock *pMemB = nullptr;
const char *OutOfMem = "Unable to allocate memory";

namespace {

// One byte more than asked for is always there, so callers can NUL-terminate.
long RoundRequest(long size) {
    return (size + MEM_NODE_SIZE) / MEM_NODE_SIZE * MEM_NODE_SIZE;
}

// Largest request we can describe in the block's 32-bit size field.
constexpr long MAX_REQUEST = INT32_MAX - 2L * MEM_BLOCK_SIZE;

bool IsDedicated(const MemBlock *b) {
    return b->size > MEM_BLOCK_SIZE;
}

// Signed distance of a pointer from a block's data start, computed on
// integers because the pointer may belong to another object altogether.
long Offset(const MemBlock *b, const void *p) {
    return static_cast<long>(reinterpret_cast<intptr_t>(p) - reinterpret_cast<intptr_t>(b->data));
}

char *NodeAddr(MemBlock *b, long node) {
    return b->data + node * MEM_NODE_SIZE;
}

// Every block in data-address order, so that FindBlock is a binary search
// rather than a walk of the whole chain. Should the system refuse it room,
// the chain is walked instead until it empties.
struct IndexEntry {
    uintptr_t start;  // the block's data, kept here to spare a visit to each block
    MemBlock *block;
};

struct AddressIndex {
    IndexEntry *entries = nullptr;
    long count = 0, capacity = 0;
    bool complete = true;
} byAddress;

uintptr_t Addr(const void *p) {
    return reinterpret_cast<uintptr_t>(p);
}

// How many indexed blocks start at or below `p`. Free of branches on the
// addresses, as the block a pointer falls in cannot be predicted.
long StartingAtOrBelow(uintptr_t p) {
    const IndexEntry *base = byAddress.entries;
    if (byAddress.count == 0) return 0;
    for (long n = byAddress.count; n > 1; n -= n / 2)
        base = base[n / 2].start <= p ? base + n / 2 : base;
    return base - byAddress.entries + (base->start <= p);
}

bool ReserveIndexSlot() {
    if (byAddress.count < byAddress.capacity) return true;
    long capacity = std::max(16L, 2 * byAddress.capacity);
    void *grown =
        std::realloc(byAddress.entries, static_cast<size_t>(capacity) * sizeof(IndexEntry));
    if (!grown) return false;
    byAddress.entries = static_cast<IndexEntry *>(grown);
    byAddress.capacity = capacity;
    return true;
}

void IndexInsert(MemBlock *b) {
    IndexEntry *at = byAddress.entries + StartingAtOrBelow(Addr(b->data));
    IndexEntry *end = byAddress.entries + byAddress.count;
    std::copy_backward(at, end, end + 1);
    *at = {Addr(b->data), b};
    ++byAddress.count;
}

// A block that was never pushed, or was popped already, is not there.
void IndexErase(MemBlock *b) {
    long at = StartingAtOrBelow(Addr(b->data)) - 1;
    if (at < 0 || byAddress.entries[at].block != b) return;
    std::copy(byAddress.entries + at + 1, byAddress.entries + byAddress.count,
              byAddress.entries + at);
    --byAddress.count;
}

bool HoldsPointer(const MemBlock *b, const void *p) {
    long off = Offset(b, p);
    // Inclusive: a pointer just past the data area still counts as this block's.
    return off >= 0 && off <= b->size;
}

// The first block in chain order that holds `p`: the rule when one data area
// ends exactly where the next begins, so that both hold the pointer.
MemBlock *FirstInChain(const void *p) {
    for (MemBlock *b = pMemB; b; b = b->next)
        if (HoldsPointer(b, p)) return b;
    return nullptr;
}

// Calls apply(word, mask) for the bits of nodes [i, i + k), word by word.
template <typename Apply>
void ForEachWord(long i, long k, Apply apply) {
    for (long n = i, end = i + k; n < end;) {
        long lo = n & 63, count = std::min<long>(64 - lo, end - n);
        apply(n >> 6, (count == 64 ? ~0ULL : (1ULL << count) - 1) << lo);
        n += count;
    }
}

// Every write to the map goes through MarkUsed and MarkFree, so that the
// bit mirror never disagrees with the string that tests and DumpMem read.
void MarkUsed(MemBlock *b, long i, long k) {
    std::memset(b->map + i, MEM_USED, static_cast<size_t>(k));
    ForEachWord(i, k, [b](long w, uint64_t mask) { b->freeBits[w] &= ~mask; });
}

void MarkFree(MemBlock *b, long i, long k) {
    std::memset(b->map + i, MEM_FREE, static_cast<size_t>(k));
    ForEachWord(i, k, [b](long w, uint64_t mask) { b->freeBits[w] |= mask; });
    b->lowFree = std::min<int32_t>(b->lowFree, static_cast<int32_t>(i));
    // Freed nodes can lengthen a run: a failed search's bound no longer holds.
    b->runBound = MEM_NODES + 1;
}

// The word holding the lowest free node; the hint moves up past full words
// so that a block filled from the bottom is not walked again from node 0.
long FirstFreeWord(MemBlock *b) {
    long w = b->lowFree >> 6;
    while (w < MEM_WORDS && b->freeBits[w] == 0) ++w;
    b->lowFree = static_cast<int32_t>(w * 64);
    return w;
}

// Positions of `free` (bit set = free node) that begin k <= 64 free nodes
// within this word, by doubling the run length checked at each step.
uint64_t RunStarts(uint64_t free, int k) {
    // Both ends free is needed, and rules out most words at once.
    if ((free & (free >> (k - 1))) == 0) return 0;
    int len = 1;
    for (; 2 * len <= k; len *= 2) free &= free >> len;
    return free & (free >> (k - len));
}

// First fit: the lowest index that begins `k` consecutive free nodes, the
// first occurrence of k spaces in the map string. A run that crosses words
// is carried as the count of free nodes at the top of the words before; the
// end of the bits stands for the map's closing NUL.
long FindFreeRun(MemBlock *b, int k) {
    long carry = 0, w = FirstFreeWord(b);
    // A one-node request, the commonest, takes the lowest free node.
    if (k == 1) return w < MEM_WORDS ? w * 64 + std::countr_zero(b->freeBits[w]) : -1;
    for (; w < MEM_WORDS; ++w) {
        uint64_t free = b->freeBits[w];
        if (carry + std::countr_one(free) >= k) return w * 64 - carry;
        uint64_t starts = k <= 64 ? RunStarts(free, k) : 0;
        if (starts) return w * 64 + std::countr_zero(starts);
        carry = free == ~0ULL ? carry + 64 : std::countl_one(free);
    }
    return -1;
}

bool NoneUsed(const MemBlock *b) {
    for (uint64_t w : b->freeBits)
        if (w != ~0ULL) return false;
    return true;
}

void *TakeNodes(MemBlock *b, long i, int k) {
    MarkUsed(b, i, k);
    b->mat[i] = {static_cast<uint16_t>(k), NodeAddr(b, i)};
    std::memset(NodeAddr(b, i), 0, static_cast<size_t>(k) * MEM_NODE_SIZE);
    b->freeNodes -= k;
    return NodeAddr(b, i);
}

void *GetSmall(int k) {
    if (!pMemB && !GetNewBlock(0)) return nullptr;
    for (MemBlock *b = pMemB;; b = b->next) {
        if (!b && !(b = GetNewBlock(0))) return nullptr;
        // A failed search is remembered until nodes are freed, so that a
        // fragmented block is not searched again for runs it cannot hold.
        if (b->freeNodes < k || b->runBound <= k) continue;
        long i = FindFreeRun(b, k);
        if (i >= 0) return TakeNodes(b, i, k);
        b->runBound = k;
    }
}

void *GetDedicated(long r) {
    long dataSize = (r + MEM_BLOCK_SIZE - 1) / MEM_BLOCK_SIZE * MEM_BLOCK_SIZE;
    MemBlock *b = GetNewBlock(dataSize);
    if (!b) return nullptr;
    // Only `r` bytes are promised zero, but the whole area is cleared so that
    // a later move of the whole block copies nothing undefined.
    std::memset(b->data, 0, dataSize);
    MarkUsed(b, 0, MEM_NODES);
    b->freeNodes = 0;
    b->used = static_cast<int32_t>(r);
    return b->data;
}

// The MAT has MEM_NODES entries; FindBlock's inclusive bound can yield the
// index one past the end, which starts no allocation.
int MatNodes(const MemBlock *b, long i) {
    return i >= 0 && i < MEM_NODES ? b->mat[i].nodes : 0;
}

void ShrinkInPlace(MemBlock *b, long i, int old, int k) {
    int d = old - k;
    MarkFree(b, i + k, d);
    std::memset(NodeAddr(b, i + k), 0, static_cast<size_t>(d) * MEM_NODE_SIZE);
    b->mat[i].nodes = static_cast<uint16_t>(k);
    b->freeNodes += d;
}

void GrowUpward(MemBlock *b, long i, int old, int k) {
    int d = k - old;
    MarkUsed(b, i, k);
    std::memset(NodeAddr(b, i + old), 0, static_cast<size_t>(d) * MEM_NODE_SIZE);
    b->mat[i].nodes = static_cast<uint16_t>(k);
    b->freeNodes -= d;
}

void *GrowDownward(MemBlock *b, long i, int old, int k) {
    int d = k - old;
    long j = i - d;
    MarkUsed(b, j, k);
    std::memmove(NodeAddr(b, j), NodeAddr(b, i), static_cast<size_t>(old) * MEM_NODE_SIZE);
    std::memset(NodeAddr(b, j + old), 0, static_cast<size_t>(d) * MEM_NODE_SIZE);
    b->mat[j] = {static_cast<uint16_t>(k), NodeAddr(b, j)};
    // The old entry is cleared as a 32-byte unit, four entries wide; an
    // allocation starting in the three entries after it loses its entry and
    // can no longer be released. The dump output of existing runs shows it.
    long end = std::min<long>(i + 4, MEM_NODES);
    for (long e = i; e < end; ++e) b->mat[e] = {0, nullptr};
    b->freeNodes -= d;
    return NodeAddr(b, j);
}

void *MoveToNewAllocation(void *pointer, const void *from, long copyBytes, long request) {
    void *n = GetMem(request);
    if (!n) return nullptr;
    if (copyBytes > 0) std::memcpy(n, from, copyBytes);
    PutMem(pointer);
    return n;
}

void *AdjustSmall(MemBlock *b, void *pointer, long i, long r) {
    int old = MatNodes(b, i);
    int k = static_cast<int>(r / MEM_NODE_SIZE);
    if (k == old) return pointer;
    if (k < old) {
        ShrinkInPlace(b, i, old, k);
        return pointer;
    }
    int d = k - old;
    if (i + old <= MEM_NODES && TestMAT(b->map + i + old, MEM_FREE, d)) {
        GrowUpward(b, i, old, k);
        return pointer;
    }
    // Guards the start of the map: an allocation near node 0 cannot move down.
    if (i - d >= 0 && TestMAT(b->map + i - d, MEM_FREE, d)) return GrowDownward(b, i, old, k);
    // The rounded size is rounded again here, which costs one node; kept so
    // that block layouts stay as they always were.
    return MoveToNewAllocation(pointer, i < MEM_NODES ? NodeAddr(b, i) : pointer,
                               static_cast<long>(old) * MEM_NODE_SIZE, r);
}

void *AdjustLarge(MemBlock *b, void *pointer, long i, long r) {
    if (r > b->size) {
        bool wholeBlock = pointer == b->data && b->mat[0].nodes == 0;
        long bytes = wholeBlock ? b->size : static_cast<long>(MatNodes(b, i)) * MEM_NODE_SIZE;
        return MoveToNewAllocation(pointer, wholeBlock ? b->data : NodeAddr(b, i), bytes, r);
    }
    if (r < b->size) {
        long lo = std::min<long>(b->used, r), hi = std::max<long>(b->used, r);
        std::memset(b->data + lo, 0, hi - lo);
        b->used = static_cast<int32_t>(r);
    }
    return pointer;
}

void DumpDedicated(const MemBlock *b) {
    std::printf("\n============ Dedicated Block(%li) size(%li) FreeNodeCount(%i) <==(%li) (%li)==>",
                reinterpret_cast<long>(b->data), static_cast<long>(b->size), b->freeNodes,
                reinterpret_cast<long>(b->prev), reinterpret_cast<long>(b->next));
}

void DumpOrdinary(const MemBlock *b) {
    int freeCount = static_cast<int>(std::count(b->map, b->map + MEM_NODES, MEM_FREE));
    int sum = 0;
    for (const MemMatEntry &e : b->mat) sum += e.nodes;
    std::printf(
        "\n============ Block(%li) size(%li) Free(%i) Used(%i) FreeNodeCount(%i) SizeCnt(%i) "
        "<==(%li) (%li)==>\n\tBlock MAT:",
        reinterpret_cast<long>(b), static_cast<long>(b->size), freeCount, MEM_NODES - freeCount,
        b->freeNodes, MEM_NODES - sum, reinterpret_cast<long>(b->prev),
        reinterpret_cast<long>(b->next));
    for (int i = 0; i < MEM_NODES; ++i) {
        if (i % 64 == 0) std::fputs("\n\t", stdout);
        std::putchar(b->map[i] == MEM_FREE ? '_' : b->map[i]);
    }
    std::fputs("\n\n\tAllocated Nodes:\n", stdout);
    for (int i = 0; i < MEM_NODES; ++i) {
        const MemMatEntry &e = b->mat[i];
        if (e.nodes == 0 || !e.addr) continue;
        // The contents are shown as a string, but never past the allocation.
        int shown = static_cast<int>(strnlen(e.addr, static_cast<size_t>(e.nodes) * MEM_NODE_SIZE));
        std::printf("\tMAT index(%6i) Memory Addr(%6li) nodes(%5i) size(%5i) Memory(%.*s)\n", i,
                    reinterpret_cast<long>(e.addr), e.nodes, e.nodes * MEM_NODE_SIZE, shown,
                    e.addr);
    }
    std::putchar('\n');
}

}  // namespace

void *MapBlock(long size) {
    return std::malloc(static_cast<size_t>(size));
}

MemBlock *GetNewBlock(long size) {
    long dataSize = size <= MEM_BLOCK_SIZE ? MEM_BLOCK_SIZE : size;
    auto *b = static_cast<MemBlock *>(MapBlock(sizeof(MemBlock)));
    char *data = b ? static_cast<char *>(MapBlock(dataSize)) : nullptr;
    if (!data) {
        std::free(b);
        std::fprintf(stderr, "ERROR: %s\n", OutOfMem);
        return nullptr;
    }
    std::memset(b, 0, sizeof *b);
    MarkFree(b, 0, MEM_NODES);
    b->map[MEM_NODES] = '\0';
    b->size = static_cast<int32_t>(dataSize);
    b->data = data;
    b->freeNodes = MEM_NODES;
    PushBlock(b);
    return b;
}

void PushBlock(MemBlock *block) {
    if (!block) return;
    if (ReserveIndexSlot())
        IndexInsert(block);
    else
        byAddress.complete = false;
    if (!pMemB) {
        pMemB = block;
        return;
    }
    MemBlock *last = pMemB;
    while (last->next) last = last->next;
    last->next = block;
    block->prev = last;
}

MemBlock *PopBlock(MemBlock *block) {
    if (!block) return nullptr;
    IndexErase(block);
    if (block == pMemB) {
        pMemB = block->next;
        if (pMemB)
            pMemB->prev = nullptr;
        else
            byAddress.complete = true;  // nothing left unindexed
        return pMemB;
    }
    if (block->prev) block->prev->next = block->next;
    if (block->next) block->next->prev = block->prev;
    return block;
}

MemBlock *FindBlock(const void *pointer) {
    if (!pointer) return nullptr;
    // First fit keeps the head block the busiest, and it comes first in chain order.
    if (pMemB && HoldsPointer(pMemB, pointer)) return pMemB;
    if (!byAddress.complete) return FirstInChain(pointer);
    long at = StartingAtOrBelow(Addr(pointer));
    if (at == 0) return nullptr;
    MemBlock *b = byAddress.entries[at - 1].block;
    if (!HoldsPointer(b, pointer)) return nullptr;
    if (pointer == b->data && at >= 2 && HoldsPointer(byAddress.entries[at - 2].block, pointer))
        return FirstInChain(pointer);
    return b;
}

void FreeBlock(MemBlock *block) {
    PopBlock(block);
    std::free(block->data);
    std::free(block);
}

int TestMAT(const char *chars, char c, int n) {
    for (int j = 0; j < n; ++j)
        if (chars[j] != c) return 0;
    return 1;
}

void *GetMem(long size) {
    if (size <= 0) return nullptr;
    if (size > MAX_REQUEST) {
        std::fprintf(stderr, "ERROR: %s\n", OutOfMem);
        return nullptr;
    }
    long r = RoundRequest(size);
    if (r <= MEM_BLOCK_SIZE) return GetSmall(static_cast<int>(r / MEM_NODE_SIZE));
    return GetDedicated(r);
}

void *PutMem(void *pointer) {
    MemBlock *b = FindBlock(pointer);
    if (!b) return nullptr;
    if (IsDedicated(b)) {
        FreeBlock(b);
        return nullptr;
    }
    long i = Offset(b, pointer) / MEM_NODE_SIZE;
    if (i < MEM_NODES && b->mat[i].nodes != 0 && b->mat[i].addr) {
        int n = std::min<int>(b->mat[i].nodes, MEM_NODES - static_cast<int>(i));
        b->freeNodes += b->mat[i].nodes;
        MarkFree(b, i, n);
        b->mat[i] = {0, nullptr};
    }
    if (NoneUsed(b)) FreeBlock(b);
    return nullptr;
}

void *AdjustMem(void *pointer, long newSize) {
    if (newSize <= 0) {
        if (pointer) PutMem(pointer);
        return nullptr;
    }
    MemBlock *b = FindBlock(pointer);
    if (!b) return GetMem(newSize);
    if (newSize > MAX_REQUEST) {
        std::fprintf(stderr, "ERROR: %s\n", OutOfMem);
        return nullptr;
    }
    long r = RoundRequest(newSize);
    long i = Offset(b, pointer) / MEM_NODE_SIZE;
    if (r <= MEM_BLOCK_SIZE && !IsDedicated(b)) return AdjustSmall(b, pointer, i, r);
    return AdjustLarge(b, pointer, i, r);
}

void DumpMem() {
    for (const MemBlock *b = pMemB; b; b = b->next) {
        if (IsDedicated(b))
            DumpDedicated(b);
        else
            DumpOrdinary(b);
    }
}
