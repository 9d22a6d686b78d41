#pragma once
/* MD4 (RFC 1320) and the NT hash, on caller-owned buffers; nothing is allocated. */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Applies the three MD4 rounds to one 64-byte block (sixteen little-endian words) and adds the
   result into `state`. */
void md4_block(uint32_t state[4], const uint32_t block[16]);

/* Writes the 16-byte MD4 digest of `length` bytes at `data` to `out`. */
void velmora_md4(const uint8_t* data, uint64_t length, uint8_t out[16]);

/* The NT hash: MD4 of the password's UTF-16LE bytes, which the caller supplies. */
void velmora_nt_hash(const uint8_t* data, uint64_t length, uint8_t out[16]);

#ifdef __cplusplus
}
#endif
