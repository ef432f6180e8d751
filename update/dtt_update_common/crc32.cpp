// CRC-32 by carry-less multiplication where the processor has it, else by tables.
//
// One byte a step waits for a table look-up on every byte. Sixteen look-ups that do not depend on
// each other (one table for each distance of a byte from the end of its step) overlap instead.
#include "update/dtt_update_common/crc32.h"

#ifdef __x86_64__
#include <immintrin.h>
#endif

namespace
{

constexpr uint32_t POLYNOMIAL = 0xEDB88320U;
constexpr size_t STEP = 16;

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

constexpr auto STEP_TABLES = step_tables();

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

} // namespace

uint32_t crc32_update_by_tables(uint32_t crc, const void *data, size_t len)
{
    const unsigned char *p = static_cast<const unsigned char *>(data);
    uint32_t state = ~crc;
    for (; len >= STEP; p += STEP, len -= STEP)
        state = step(state, p);
    for (; len > 0; p++, len--)
        state = (state >> 8) ^ crc32table[(state ^ *p) & 0xFFU];
    return ~state;
}

#ifdef __x86_64__

// A block of 16 bytes is a polynomial of 128 bits, and so is what all blocks ahead of it have come
// to. Moved on by some distance, which is a multiplication by a power of x, the one is added to the
// other: the remainder of the whole stays what it was. The two halves of what is moved are
// multiplied each by its own power, of which the remainder alone is needed.
namespace
{

// x to the power of `n` modulo the polynomial, the highest power in the lowest bit, as in the data.
// The product of two halves has 127 bits and not 128, so that it would come out one bit too low:
// the factor is shifted for that.
constexpr uint64_t power_of_x(unsigned int n)
{
    uint32_t c = 0x80000000U;
    for (; n > 0; n--)
        c = (c & 1U) != 0 ? (c >> 1) ^ POLYNOMIAL : c >> 1;
    return uint64_t{c} << 1;
}

// The factors that move the first and the second half of a block on by so many bits. The first half
// stands 64 bits ahead of the second; and both go on by 32 bits by themselves, as a factor's 32
// bits lie at the end of the high powers in its 64.
struct factors {
    uint64_t first, second;
};

constexpr factors moving_by(unsigned int bits)
{
    return {power_of_x(bits + 32), power_of_x(bits - 32)};
}

constexpr size_t BLOCK = 16;
constexpr size_t STREAMS = 4; // that do not wait for each other
constexpr factors BY_ALL_STREAMS = moving_by(8 * BLOCK * STREAMS);
constexpr factors BY_ONE_BLOCK = moving_by(8 * BLOCK);
static_assert(BY_ONE_BLOCK.first == 0x1751997D0U && BY_ONE_BLOCK.second == 0x0CCAA009EU,
              "powers of x");

} // namespace

#define CARRY_LESS __attribute__((target("pclmul")))

CARRY_LESS static inline __m128i load_block(const unsigned char *p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}

CARRY_LESS static inline __m128i move_block(__m128i block, __m128i by)
{
    return _mm_xor_si128(_mm_clmulepi64_si128(block, by, 0x00),
                         _mm_clmulepi64_si128(block, by, 0x11));
}

CARRY_LESS static inline __m128i pair(const factors &by)
{
    return _mm_set_epi64x(static_cast<long long>(by.second), static_cast<long long>(by.first));
}

// For STREAMS blocks at least. What is left of them all is a block and a rest for the tables.
CARRY_LESS static uint32_t update_by_multiplication(uint32_t crc, const unsigned char *p,
                                                    size_t len)
{
    __m128i stream[STREAMS];
    for (size_t i = 0; i < STREAMS; i++)
        stream[i] = load_block(p + i * BLOCK);
    stream[0] = _mm_xor_si128(stream[0], _mm_cvtsi32_si128(static_cast<int>(~crc)));
    p += sizeof stream;
    len -= sizeof stream;
    const __m128i by_all = pair(BY_ALL_STREAMS);
    for (; len >= sizeof stream; p += sizeof stream, len -= sizeof stream)
        for (size_t i = 0; i < STREAMS; i++)
            stream[i] = _mm_xor_si128(move_block(stream[i], by_all), load_block(p + i * BLOCK));

    const __m128i by_one = pair(BY_ONE_BLOCK);
    __m128i all = stream[0];
    for (size_t i = 1; i < STREAMS; i++)
        all = _mm_xor_si128(move_block(all, by_one), stream[i]);
    for (; len >= BLOCK; p += BLOCK, len -= BLOCK)
        all = _mm_xor_si128(move_block(all, by_one), load_block(p));

    unsigned char bytes[BLOCK];
    _mm_storeu_si128(reinterpret_cast<__m128i *>(bytes), all);
    return crc32_update_by_tables(~step(0, bytes), p, len);
}

uint32_t crc32_update(uint32_t crc, const void *data, size_t len)
{
    if (len >= STREAMS * BLOCK && __builtin_cpu_supports("pclmul"))
        return update_by_multiplication(crc, static_cast<const unsigned char *>(data), len);
    return crc32_update_by_tables(crc, data, len);
}

#else

uint32_t crc32_update(uint32_t crc, const void *data, size_t len)
{
    return crc32_update_by_tables(crc, data, len);
}

#endif

uint32_t linuxcrc32(char *blk_adr, uint32_t blk_len)
{
    return crc32_update(0, blk_adr, blk_len);
}
