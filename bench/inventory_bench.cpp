// inventory_bench SCRIPT SCRIPT: the USB disk inventory in turn with two shell scripts that run the
// same commands, the second one each in a shell of its own, as popen(3) does. bench/inventory.sh
// lays out the disks and calls it in the sandbox.
#include "update_service.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

static constexpr int ROUNDS = 21;

int main(int argc, char **argv)
{
    if (argc != 3) {
        fprintf(stderr, "Usage: inventory_bench SCRIPT SCRIPT\n");
        return 2;
    }
    const std::unique_ptr<udisk_info_t> info(new udisk_info_t{});
    std::vector<double> times[3];
    for (int round = 0; round < ROUNDS; round++) {
        for (int way = 0; way < 3; way++) {
            const auto start = std::chrono::steady_clock::now();
            const int result =
                way == 0 ? get_udisk_all_info(info.get())
                         : system((std::string("sh ") + argv[way] + " >/dev/null").c_str());
            const std::chrono::duration<double> time = std::chrono::steady_clock::now() - start;
            if (result != 0 || info->upath_num != UDISK_MAX) {
                fprintf(stderr, "inventory_bench: a run failed\n");
                return 1;
            }
            times[way].push_back(time.count());
        }
    }
    for (std::vector<double> &way : times)
        std::sort(way.begin(), way.end());
    const double inventory = times[0][ROUNDS / 2];
    fprintf(stderr, "inventory of 4 disks, median of %d: %.1f ms\n", ROUNDS, inventory * 1e3);
    const char *const names[] = {"", "its 21 commands in one shell", "each in a shell of its own"};
    for (int way = 1; way < 3; way++)
        fprintf(stderr, "%s: %.1f ms, ratio %.2f (target 1.10)\n", names[way],
                times[way][ROUNDS / 2] * 1e3, inventory / times[way][ROUNDS / 2]);
    return 0;
}
