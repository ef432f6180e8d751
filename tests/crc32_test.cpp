// Catches: a CRC that is off for some length, alignment or division of its text.
#include "update/dtt_update_common/crc32.h"

#include <gtest/gtest.h>
#include <random>
#include <string>

// Both ways, against a byte a step, whose CRC of the whole text is that of other programs.
TEST(Crc, IsTheSameForEveryLengthAlignmentAndDivision)
{
    constexpr size_t longest = 4096;
    std::string text(longest + 16, '\0');
    std::mt19937 random(1);
    for (char &c : text)
        c = static_cast<char>(random());
    for (const auto update : {crc32_update, crc32_update_by_tables}) {
        EXPECT_EQ(update(0, text.data(), longest), 0xF3B6C492);
        for (size_t at = 0; at < 16; at++) {
            uint32_t steps = 0;
            const uint32_t whole = update(0, text.data() + at, longest);
            for (size_t len = 0; len <= longest; len++) {
                const char *const rest = text.data() + at + len;
                ASSERT_EQ(update(0, text.data() + at, len), steps) << at << ' ' << len;
                ASSERT_EQ(update(steps, rest, longest - len), whole) << at << ' ' << len;
                steps = update(steps, rest, 1);
            }
        }
    }
}
