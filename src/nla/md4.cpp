#include "nla/md4.h"

#include <cstring>

namespace {

inline uint32_t rotl(uint32_t x, int s) { return (x << s) | (x >> (32 - s)); }
// Equivalent forms of the round functions in which x, the word computed last, enters as late as
// possible: what depends only on y and z is ready before x is.
inline uint32_t F(uint32_t x, uint32_t y, uint32_t z) { return z ^ (x & (y ^ z)); }
inline uint32_t G(uint32_t x, uint32_t y, uint32_t z) { return (x & (y | z)) | (y & z); }
inline uint32_t H(uint32_t x, uint32_t y, uint32_t z) { return x ^ (y ^ z); }

}  // namespace

// The message word and constant are added first, off the chain that waits for b, c and d.
#define R1(a, b, c, d, k, s) a = rotl((a + x[k]) + F(b, c, d), s)
#define R2(a, b, c, d, k, s) a = rotl((a + (x[k] + 0x5A827999u)) + G(b, c, d), s)
#define R3(a, b, c, d, k, s) a = rotl((a + (x[k] + 0x6ED9EBA1u)) + H(b, c, d), s)

namespace {

// The compression function on state held in locals, so that a run of blocks keeps it in registers.
inline __attribute__((always_inline)) void compress(uint32_t& sa, uint32_t& sb, uint32_t& sc, uint32_t& sd,
                                                    const uint32_t* x) {
    uint32_t a = sa, b = sb, c = sc, d = sd;

    R1(a, b, c, d, 0, 3);  R1(d, a, b, c, 1, 7);  R1(c, d, a, b, 2, 11);  R1(b, c, d, a, 3, 19);
    R1(a, b, c, d, 4, 3);  R1(d, a, b, c, 5, 7);  R1(c, d, a, b, 6, 11);  R1(b, c, d, a, 7, 19);
    R1(a, b, c, d, 8, 3);  R1(d, a, b, c, 9, 7);  R1(c, d, a, b, 10, 11); R1(b, c, d, a, 11, 19);
    R1(a, b, c, d, 12, 3); R1(d, a, b, c, 13, 7); R1(c, d, a, b, 14, 11); R1(b, c, d, a, 15, 19);

    R2(a, b, c, d, 0, 3);  R2(d, a, b, c, 4, 5);  R2(c, d, a, b, 8, 9);   R2(b, c, d, a, 12, 13);
    R2(a, b, c, d, 1, 3);  R2(d, a, b, c, 5, 5);  R2(c, d, a, b, 9, 9);   R2(b, c, d, a, 13, 13);
    R2(a, b, c, d, 2, 3);  R2(d, a, b, c, 6, 5);  R2(c, d, a, b, 10, 9);  R2(b, c, d, a, 14, 13);
    R2(a, b, c, d, 3, 3);  R2(d, a, b, c, 7, 5);  R2(c, d, a, b, 11, 9);  R2(b, c, d, a, 15, 13);

    R3(a, b, c, d, 0, 3);  R3(d, a, b, c, 8, 9);  R3(c, d, a, b, 4, 11);  R3(b, c, d, a, 12, 15);
    R3(a, b, c, d, 2, 3);  R3(d, a, b, c, 10, 9); R3(c, d, a, b, 6, 11);  R3(b, c, d, a, 14, 15);
    R3(a, b, c, d, 1, 3);  R3(d, a, b, c, 9, 9);  R3(c, d, a, b, 5, 11);  R3(b, c, d, a, 13, 15);
    R3(a, b, c, d, 3, 3);  R3(d, a, b, c, 11, 9); R3(c, d, a, b, 7, 11);  R3(b, c, d, a, 15, 15);

    sa += a;
    sb += b;
    sc += c;
    sd += d;
}

}  // namespace

extern "C" void md4_block(uint32_t state[4], const uint32_t block[16]) {
    compress(state[0], state[1], state[2], state[3], block);
}

#undef R3

extern "C" void velmora_md4(const uint8_t* data, uint64_t length, uint8_t out[16]) {
    uint32_t a = 0x67452301u, b = 0xEFCDAB89u, c = 0x98BADCFEu, d = 0x10325476u;
    uint64_t offset = 0;
    // Whole blocks straight from the caller's buffer.
    if (reinterpret_cast<uintptr_t>(data) % alignof(uint32_t) == 0) {
        for (; length - offset >= 64; offset += 64) compress(a, b, c, d, reinterpret_cast<const uint32_t*>(data + offset));
    } else {
        uint32_t words[16];
        for (; length - offset >= 64; offset += 64) {
            std::memcpy(words, data + offset, 64);  // little-endian target: the bytes are the words
            compress(a, b, c, d, words);
        }
    }
    // The tail, the 0x80 marker and the bit length in one or two final blocks.
    alignas(uint32_t) uint8_t work[128] = {};
    const size_t rest = static_cast<size_t>(length - offset);
    if (rest) std::memcpy(work, data + offset, rest);
    work[rest] = 0x80;
    const uint64_t bits = length * 8;
    const size_t lengthAt = rest <= 55 ? 56 : 120;
    for (int i = 0; i < 8; ++i) work[lengthAt + i] = static_cast<uint8_t>(bits >> (8 * i));
    compress(a, b, c, d, reinterpret_cast<const uint32_t*>(work));
    if (rest > 55) compress(a, b, c, d, reinterpret_cast<const uint32_t*>(work + 64));
    const uint32_t state[4] = {a, b, c, d};
    std::memcpy(out, state, 16);
}

extern "C" void velmora_nt_hash(const uint8_t* data, uint64_t length, uint8_t out[16]) {
    velmora_md4(data, length, out);
}
