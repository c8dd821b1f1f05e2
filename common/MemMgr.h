// Block memory manager: every allocation of the program's own code.
//
// Small requests are carved out of 64 KiB blocks in 32-byte nodes; each
// block keeps a memory allocation table (MAT) and an occupancy map written
// as a printable string (" " free, "U" used), so a first-fit search is a
// substring search for a run of spaces. The map is mirrored one bit a node,
// so that the search and the emptiness test take 64 nodes at a time. A
// request whose rounded size exceeds 64 KiB gets a dedicated block of its
// own. A block goes back to the system as soon as its last allocation is
// released. Single-threaded, no locking.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

constexpr int MEM_NODE_SIZE = 32;
constexpr int MEM_BLOCK_SIZE = 0x10000;
constexpr int MEM_NODES = MEM_BLOCK_SIZE / MEM_NODE_SIZE;
constexpr int MEM_WORDS = MEM_NODES / 64;
constexpr char MEM_FREE = ' ';
constexpr char MEM_USED = 'U';

struct MemMatEntry {
    uint16_t nodes;  ///< nodes of the allocation that starts here, 0 = none
    char *addr;      ///< first byte of that allocation, null = none
};

struct MemBlock {
    MemBlock *next;
    MemBlock *prev;
    int32_t size;       ///< data bytes: 65536, or a multiple above it for a dedicated block
    int32_t used;       ///< dedicated block: current rounded request; 0 otherwise
    int32_t freeNodes;  ///< count of " " in map; 0 for a dedicated block
    char *data;
    MemMatEntry mat[MEM_NODES];
    char map[MEM_NODES + 1];       ///< the last byte is a NUL that ends every scan
    uint64_t freeBits[MEM_WORDS];  ///< map mirrored, bit n%64 of word n/64 set when node n is free
    int32_t lowFree;               ///< no node below this one is free
    int32_t runBound;              ///< every free run is shorter than this
};

extern MemBlock *pMemB;       ///< head of the block chain, null when empty
extern const char *OutOfMem;  ///< "Unable to allocate memory"

/// `size` usable zeroed bytes (one more is always there for a NUL), or null
/// for size 0 or when the system refuses memory.
void *GetMem(long size);
/// Releases an allocation; null, foreign and interior pointers are ignored.
/// Always returns null.
void *PutMem(void *pointer);
/// Resizes like realloc: null or foreign pointer behaves as GetMem(newSize);
/// newSize 0 releases and returns null. Returns the possibly moved pointer.
void *AdjustMem(void *pointer, long newSize);
/// Prints every block, its map and its allocations to standard output.
void DumpMem();

/// Creates a block (data area of max(size, 65536) bytes) appended to the
/// chain; null with "ERROR: Unable to allocate memory" when the system refuses.
MemBlock *GetNewBlock(long size);
/// Raw memory from the system allocator.
void *MapBlock(long size);
void PushBlock(MemBlock *block);
/// Unlinks `block`; returns the new head when it was the head, else `block`.
MemBlock *PopBlock(MemBlock *block);
/// The block whose data area holds `pointer` (end address included), or null.
MemBlock *FindBlock(const void *pointer);
void FreeBlock(MemBlock *block);
/// 1 when n is 0 or the n characters from `chars` all equal c, else 0.
int TestMAT(const char *chars, char c, int n);

/// Owner for one GetMem allocation, so that early returns cannot leak it.
struct MemDeleter {
    void operator()(void *p) const { PutMem(p); }
};
template <typename T>
using MemPtr = std::unique_ptr<T, MemDeleter>;

/// Minimal allocator so that standard containers draw from the block manager.
template <typename T>
struct MemAllocator {
    using value_type = T;
    MemAllocator() = default;
    template <typename U>
    MemAllocator(const MemAllocator<U> &) {}
    T *allocate(std::size_t n) {
        void *p = GetMem(static_cast<long>(n * sizeof(T)));
        if (!p) throw std::bad_alloc();
        return static_cast<T *>(p);
    }
    void deallocate(T *p, std::size_t) { PutMem(p); }
    template <typename U>
    bool operator==(const MemAllocator<U> &) const {
        return true;
    }
};

/// A string and a vector whose storage comes from the block manager.
using MemString = std::basic_string<char, std::char_traits<char>, MemAllocator<char>>;
template <typename T>
using MemVector = std::vector<T, MemAllocator<T>>;
