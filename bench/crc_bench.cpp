// crc_bench: the throughput of the CRC beside one byte a step, on the same 64 MiB in one run.
#include "update/dtt_update_common/crc32.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

static uint32_t one_byte_a_step(const unsigned char *data, size_t len)
{
    uint32_t state = 0xFFFFFFFFU;
    for (size_t i = 0; i < len; i++)
        state = (state >> 8) ^ crc32table[(state ^ data[i]) & 0xFFU];
    return ~state;
}

int main()
{
    std::vector<unsigned char> data(64 << 20);
    uint32_t noise = 1;
    for (unsigned char &byte : data)
        byte = static_cast<unsigned char>((noise = noise * 1664525U + 1013904223U) >> 24);

    constexpr int rounds = 5;
    double best[2] = {1e9, 1e9};
    uint32_t crc[2] = {0, 0};
    for (int round = 0; round < rounds; round++) {
        for (int way = 0; way < 2; way++) {
            const auto start = std::chrono::steady_clock::now();
            crc[way] = way == 0 ? one_byte_a_step(data.data(), data.size())
                                : crc32_update(0, data.data(), data.size());
            const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
            best[way] = std::min(best[way], time.count());
        }
    }
    const double mib = static_cast<double>(data.size() >> 20);
    printf("CRC-32 of %.0f MiB, best of %d: one byte a step %.0f MiB/s, crc32_update %.0f MiB/s, "
           "ratio %.2f\n",
           mib, rounds, mib / best[0], mib / best[1], best[0] / best[1]);
    return crc[0] == crc[1] ? 0 : 1;
}
