// CRC-32 of IEEE 802.3: reflected, polynomial 0xEDB88320, start value and final inversion of all
// bits.
#ifndef UPDATE_DTT_UPDATE_COMMON_CRC32_H
#define UPDATE_DTT_UPDATE_COMMON_CRC32_H

#include <array>
#include <cstddef>
#include <cstdint>

// The table for one byte a step.
extern const std::array<uint32_t, 256> crc32table;

// The CRC of the `blk_len` bytes at `blk_adr`; 0 for none.
uint32_t linuxcrc32(char *blk_adr, uint32_t blk_len);

// The CRC of a text whose beginning has the CRC `crc`, 0 at the start, and which goes on with the
// `len` bytes at `data`.
uint32_t crc32_update(uint32_t crc, const void *data, size_t len);

// The same in the way of a processor that can't multiply without carries. Where this one can, only
// tests and benchmarks call it.
uint32_t crc32_update_by_tables(uint32_t crc, const void *data, size_t len);

#endif
