// crc_bench: the throughput of the CRC's two ways beside libdeflate's, on the same data in turn.
#include "update/dtt_update_common/crc32.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <libdeflate.h>
#include <vector>

static constexpr size_t MIB = 16;
static constexpr int ROUNDS = 101;

static uint32_t fastest(uint32_t crc, const void *data, size_t len)
{
    return libdeflate_crc32(crc, data, len);
}

static double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

int main()
{
    std::vector<unsigned char> data(MIB << 20);
    uint32_t noise = 1;
    for (unsigned char &byte : data)
        byte = static_cast<unsigned char>((noise = noise * 1664525U + 1013904223U) >> 24);

    struct {
        const char *name;
        uint32_t (*update)(uint32_t, const void *, size_t);
        std::vector<double> speed, ratio;
        uint32_t crc;
    } ways[] = {{"libdeflate", fastest, {}, {}, 0},
                {"crc32_update", crc32_update, {}, {}, 0},
                {"its tables", crc32_update_by_tables, {}, {}, 0}};
    for (int round = 0; round < ROUNDS; round++) {
        for (auto &way : ways) {
            const auto start = std::chrono::steady_clock::now();
            way.crc = way.update(0, data.data(), data.size());
            const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
            way.speed.push_back(MIB / time.count());
            way.ratio.push_back(way.speed.back() / ways[0].speed.back());
        }
    }
    printf("CRC-32 of %zu MiB, median of %d rounds:", MIB, ROUNDS);
    for (const auto &way : ways)
        printf(" %s %.0f MiB/s (%.2f)", way.name, median(way.speed), median(way.ratio));
    printf("\n");
    return ways[0].crc == ways[1].crc && ways[1].crc == ways[2].crc ? 0 : 1;
}
