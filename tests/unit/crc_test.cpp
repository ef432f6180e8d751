// The CRC against one bit a step.
#include "tests/test_image.h"
#include "update/dtt_update_common/crc32.h"

#include <gtest/gtest.h>
#include <random>

static std::string noise(size_t size)
{
    std::mt19937 random(1);
    std::string text(size, '\0');
    for (char &c : text)
        c = static_cast<char>(random());
    return text;
}

TEST(Crc, KnownValues)
{
    char abc[] = "abc";
    EXPECT_EQ(linuxcrc32(abc, 3), 0x352441C2U);
    EXPECT_EQ(linuxcrc32(abc, 0), 0U);
    EXPECT_EQ(crc32table[255], 0x2D02EF8DU);
}

// The lengths cross every border between the byte loop, the steps and the blocks of two streams.
TEST(Crc, EqualsOneBitAStepOnEveryLengthAndAlignment)
{
    std::string text = noise(4096 + 16);
    for (uint32_t len = 0; len <= 4096; len++) {
        const uint32_t at = len % 16;
        ASSERT_EQ(linuxcrc32(text.data() + at, len), reference_crc(text.substr(at, len))) << len;
    }
    for (uint32_t at = 0; at < 16; at++)
        for (const uint32_t len : {15U, 16U, 17U, 2047U, 2048U, 2049U, 4096U})
            ASSERT_EQ(linuxcrc32(text.data() + at, len), reference_crc(text.substr(at, len)));
}

TEST(Crc, GoesOnWhereItWasSplit)
{
    const std::string text = noise(4096);
    const uint32_t whole = reference_crc(text);
    for (size_t split = 0; split <= text.size(); split++) {
        const uint32_t head = crc32_update(0, text.data(), split);
        ASSERT_EQ(crc32_update(head, text.data() + split, text.size() - split), whole) << split;
    }
}
