// Catches: a CRC that is off for some length, alignment or division of its text.
#include "update/dtt_update_common/crc32.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

// One bit a step.
static uint32_t reference_crc(uint32_t crc, char c)
{
    crc = ~crc ^ static_cast<unsigned char>(c);
    for (int bit = 0; bit < 8; bit++)
        crc = (crc & 1) != 0 ? crc >> 1 ^ 0xEDB88320 : crc >> 1;
    return ~crc;
}

// Both ways on every length, alignment and division.
TEST(Crc, EqualsOneBitAStep)
{
    constexpr size_t longest = 4096;
    std::string text;
    std::mt19937 random(1);
    while (text.size() < longest + 16)
        text += static_cast<char>(random());
    for (const auto update : {crc32_update, crc32_update_by_tables})
        for (size_t at = 0; at < 16; at++) {
            uint32_t expected = 0;
            const uint32_t whole = update(0, text.data() + at, longest);
            for (size_t len = 0; len <= longest; len++) {
                const char *const rest = text.data() + at + len;
                ASSERT_EQ(update(0, text.data() + at, len), expected) << at << ' ' << len;
                ASSERT_EQ(update(expected, rest, longest - len), whole) << at << ' ' << len;
                expected = reference_crc(expected, *rest);
            }
        }
}
