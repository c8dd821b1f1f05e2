// The block memory manager of the fuzz build, in place of common/MemMgr.cpp.
// The real one carves 32-byte nodes out of 64 KiB blocks, so a write past
// an allocation lands in its neighbour unseen; here every GetMem is a
// malloc of exactly the promised size (the request and the one byte for a
// NUL), so that AddressSanitizer reports the first byte too far. The
// contract is the one in MemMgr.h: zeroed memory, null for size 0, foreign
// and interior pointers ignored by PutMem, AdjustMem moving like realloc.
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unordered_map>

#include "MemMgr.h"

MemBlock *pMemB = nullptr;
const char *OutOfMem = "Unable to allocate memory";

namespace {

// The size field of a real block is 32 bits: larger requests are refused there too.
constexpr long MAX_REQUEST = INT32_MAX - 2L * MEM_BLOCK_SIZE;

// Never destroyed: allocations are still released while statics go away.
std::unordered_map<void *, long> &Live() {
    static auto *live = new std::unordered_map<void *, long>();
    return *live;
}

bool Refused(long size) {
    if (size <= MAX_REQUEST) return false;
    std::fprintf(stderr, "ERROR: %s\n", OutOfMem);
    return true;
}

}  // namespace

void *GetMem(long size) {
    if (size <= 0 || Refused(size)) return nullptr;
    void *p = std::calloc(static_cast<size_t>(size) + 1, 1);
    if (p) Live()[p] = size;
    return p;
}

void *PutMem(void *pointer) {
    auto found = Live().find(pointer);
    if (found == Live().end()) return nullptr;
    Live().erase(found);
    std::free(pointer);
    return nullptr;
}

void *AdjustMem(void *pointer, long newSize) {
    if (newSize <= 0) {
        PutMem(pointer);
        return nullptr;
    }
    auto found = Live().find(pointer);
    if (found == Live().end()) return GetMem(newSize);
    if (Refused(newSize)) return nullptr;
    long oldSize = found->second;
    void *moved = GetMem(newSize);
    if (!moved) return nullptr;
    std::memcpy(moved, pointer, static_cast<size_t>(oldSize < newSize ? oldSize : newSize));
    PutMem(pointer);
    return moved;
}

void DumpMem() {
    std::printf("%zu allocations\n", Live().size());
}
