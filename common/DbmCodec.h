// Byte-level pieces shared by both database layers: big-endian lengths and the
// XOR chain that scrambles a run of bytes.
#pragma once

#include <cstddef>
#include <cstdint>

namespace dbm {

inline uint16_t ReadLength(const unsigned char *p) {
    return static_cast<uint16_t>(p[0] << 8 | p[1]);
}

inline void WriteLength(unsigned char *p, uint16_t value) {
    p[0] = static_cast<unsigned char>(value >> 8);
    p[1] = static_cast<unsigned char>(value & 0xff);
}

/// Each byte becomes itself XOR the plain byte after it; the last stays plain.
inline void Scramble(unsigned char *run, size_t n) {
    for (size_t i = 0; i + 1 < n; ++i) run[i] ^= run[i + 1];
}

/// Undoes Scramble, from the end, where the plain byte is already known.
inline void Descramble(unsigned char *run, size_t n) {
    for (size_t i = n; i-- > 1;) run[i - 1] ^= run[i];
}

/// Descrambles a run of `n` bytes from `from` into `to` (no overlap).
inline void DescrambleInto(unsigned char *to, const unsigned char *from, size_t n) {
    if (n == 0) return;
    to[n - 1] = from[n - 1];
    for (size_t i = n - 1; i-- > 0;) to[i] = from[i] ^ to[i + 1];
}

/// Whether the scrambled run of `n` bytes reads as `plain`, checked from the
/// end, where keys sharing a prefix differ first.
inline bool ScrambledEquals(const unsigned char *run, const unsigned char *plain, size_t n) {
    unsigned char next = 0;
    for (size_t i = n; i-- > 0;) {
        unsigned char byte = i + 1 == n ? run[i] : static_cast<unsigned char>(run[i] ^ next);
        if (byte != plain[i]) return false;
        next = byte;
    }
    return true;
}

}  // namespace dbm
