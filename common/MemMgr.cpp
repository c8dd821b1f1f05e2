// Block memory manager. See MemMgr.h for the layout of a block.
#include "MemMgr.h"

#include <algorithm>
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

// First fit: the lowest index that begins `k` consecutive free nodes. This is
// the first occurrence of a run of k spaces in the map string.
long FindFreeRun(const char *map, int k) {
    const char *end = map + MEM_NODES;
    for (const char *p = map; p < end;) {
        p = static_cast<const char *>(std::memchr(p, MEM_FREE, end - p));
        if (!p) return -1;
        const char *q = p;
        while (q < end && *q == MEM_FREE && q - p < k) ++q;
        if (q - p == k) return p - map;
        p = q;
    }
    return -1;
}

void *TakeNodes(MemBlock *b, long i, int k) {
    std::memset(b->map + i, MEM_USED, k);
    b->mat[i] = {static_cast<uint16_t>(k), NodeAddr(b, i)};
    std::memset(NodeAddr(b, i), 0, static_cast<size_t>(k) * MEM_NODE_SIZE);
    b->freeNodes -= k;
    return NodeAddr(b, i);
}

void *GetSmall(int k) {
    if (!pMemB && !GetNewBlock(0)) return nullptr;
    for (MemBlock *b = pMemB;; b = b->next) {
        if (!b && !(b = GetNewBlock(0))) return nullptr;
        if (b->freeNodes < k) continue;
        long i = FindFreeRun(b->map, k);
        if (i >= 0) return TakeNodes(b, i, k);
    }
}

void *GetDedicated(long r) {
    long dataSize = (r + MEM_BLOCK_SIZE - 1) / MEM_BLOCK_SIZE * MEM_BLOCK_SIZE;
    MemBlock *b = GetNewBlock(dataSize);
    if (!b) return nullptr;
    // Only `r` bytes are promised zero, but the whole area is cleared so that
    // a later move of the whole block copies nothing undefined.
    std::memset(b->data, 0, dataSize);
    std::memset(b->map, MEM_USED, MEM_NODES);
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
    std::memset(b->map + i + k, MEM_FREE, d);
    std::memset(NodeAddr(b, i + k), 0, static_cast<size_t>(d) * MEM_NODE_SIZE);
    b->mat[i].nodes = static_cast<uint16_t>(k);
    b->freeNodes += d;
}

void GrowUpward(MemBlock *b, long i, int old, int k) {
    int d = k - old;
    std::memset(b->map + i, MEM_USED, k);
    std::memset(NodeAddr(b, i + old), 0, static_cast<size_t>(d) * MEM_NODE_SIZE);
    b->mat[i].nodes = static_cast<uint16_t>(k);
    b->freeNodes -= d;
}

void *GrowDownward(MemBlock *b, long i, int old, int k) {
    int d = k - old;
    long j = i - d;
    std::memset(b->map + j, MEM_USED, k);
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
    std::memset(b->map, MEM_FREE, MEM_NODES);
    b->map[MEM_NODES] = '\0';
    PushBlock(b);
    b->size = static_cast<int32_t>(dataSize);
    b->data = data;
    b->freeNodes = MEM_NODES;
    return b;
}

void PushBlock(MemBlock *block) {
    if (!block) return;
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
    if (block == pMemB) {
        pMemB = block->next;
        if (pMemB) pMemB->prev = nullptr;
        return pMemB;
    }
    if (block->prev) block->prev->next = block->next;
    if (block->next) block->next->prev = block->prev;
    return block;
}

MemBlock *FindBlock(const void *pointer) {
    if (!pointer) return nullptr;
    for (MemBlock *b = pMemB; b; b = b->next) {
        long off = Offset(b, pointer);
        // Inclusive: a pointer just past the data area still counts as this block's.
        if (off >= 0 && off <= b->size) return b;
    }
    return nullptr;
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
        std::memset(b->map + i, MEM_FREE, n);
        b->mat[i] = {0, nullptr};
    }
    if (!std::memchr(b->map, MEM_USED, MEM_NODES)) FreeBlock(b);
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
