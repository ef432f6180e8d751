// CRC-32, sixteen bytes a step on two independent streams.
//
// One byte a step waits for a table look-up on every byte. Sixteen look-ups that do not depend on
// each other (one table for each distance of a byte from the end of its step) overlap instead, and
// so do the steps of two streams over neighbouring blocks. The state of the first stream is then
// moved past the second block, as if that block were zeros, and the two are added.
#include "update/dtt_update_common/crc32.h"

namespace
{

constexpr uint32_t POLYNOMIAL = 0xEDB88320U;
constexpr size_t STEP = 16;
constexpr size_t BLOCK = 1024; // bytes of a stream's block, a multiple of STEP

using table_t = std::array<uint32_t, 256>;

constexpr table_t byte_table()
{
    table_t table{};
    for (uint32_t i = 0; i < 256; i++) {
        uint32_t c = i;
        for (int bit = 0; bit < 8; bit++)
            c = (c & 1U) != 0 ? (c >> 1) ^ POLYNOMIAL : c >> 1;
        table[i] = c;
    }
    return table;
}

} // namespace

constexpr table_t crc32table = byte_table();
static_assert(crc32table[1] == 0x77073096U && crc32table[255] == 0x2D02EF8DU, "CRC-32 table");

namespace
{

constexpr uint32_t next_zero_byte(uint32_t c)
{
    return (c >> 8) ^ crc32table[c & 0xFFU];
}

// Table d gives what a byte has become d bytes further on.
constexpr std::array<table_t, STEP> step_tables()
{
    std::array<table_t, STEP> tables{};
    tables[0] = crc32table;
    for (size_t d = 1; d < STEP; d++)
        for (size_t i = 0; i < 256; i++)
            tables[d][i] = next_zero_byte(tables[d - 1][i]);
    return tables;
}

// Table k gives what byte k of a state has become BLOCK zero bytes further on. The state is linear
// in its bits, so 32 walks over the block give all of it.
constexpr std::array<table_t, 4> block_tables()
{
    std::array<uint32_t, 32> of_bit{};
    for (size_t bit = 0; bit < 32; bit++) {
        of_bit[bit] = uint32_t{1} << bit;
        for (size_t i = 0; i < BLOCK; i++)
            of_bit[bit] = next_zero_byte(of_bit[bit]);
    }
    std::array<table_t, 4> tables{};
    for (size_t k = 0; k < 4; k++)
        for (size_t i = 0; i < 256; i++)
            for (size_t bit = 0; bit < 8; bit++)
                if (((i >> bit) & 1U) != 0)
                    tables[k][i] ^= of_bit[8 * k + bit];
    return tables;
}

constexpr auto STEP_TABLES = step_tables();
constexpr auto BLOCK_TABLES = block_tables();

uint32_t load_le32(const unsigned char *p)
{
    return p[0] | uint32_t{p[1]} << 8 | uint32_t{p[2]} << 16 | uint32_t{p[3]} << 24;
}

uint32_t look_up(uint32_t word, size_t distance)
{
    return STEP_TABLES[distance + 3][word & 0xFFU] ^ STEP_TABLES[distance + 2][word >> 8 & 0xFFU] ^
           STEP_TABLES[distance + 1][word >> 16 & 0xFFU] ^ STEP_TABLES[distance][word >> 24];
}

uint32_t step(uint32_t state, const unsigned char *p)
{
    return look_up(load_le32(p) ^ state, 12) ^ look_up(load_le32(p + 4), 8) ^
           look_up(load_le32(p + 8), 4) ^ look_up(load_le32(p + 12), 0);
}

uint32_t past_block(uint32_t state)
{
    return BLOCK_TABLES[0][state & 0xFFU] ^ BLOCK_TABLES[1][state >> 8 & 0xFFU] ^
           BLOCK_TABLES[2][state >> 16 & 0xFFU] ^ BLOCK_TABLES[3][state >> 24];
}

} // namespace

uint32_t crc32_update(uint32_t crc, const void *data, size_t len)
{
    const unsigned char *p = static_cast<const unsigned char *>(data);
    uint32_t state = ~crc;
    while (len >= 2 * BLOCK) {
        uint32_t second = 0;
        for (const unsigned char *end = p + BLOCK; p < end; p += STEP) {
            state = step(state, p);
            second = step(second, p + BLOCK);
        }
        state = past_block(state) ^ second;
        p += BLOCK;
        len -= 2 * BLOCK;
    }
    for (; len >= STEP; p += STEP, len -= STEP)
        state = step(state, p);
    for (; len > 0; p++, len--)
        state = (state >> 8) ^ crc32table[(state ^ *p) & 0xFFU];
    return ~state;
}

uint32_t linuxcrc32(char *blk_adr, uint32_t blk_len)
{
    return crc32_update(0, blk_adr, blk_len);
}
