// play_TARGET FILE...: a fuzz target's inputs in an ordinary build. The last name printed is that
// of one that the target does not stand.
#include "fuzz/harness.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <vector>

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; i++) {
        std::ifstream file(argv[i], std::ios::binary);
        std::vector<uint8_t> bytes(std::istreambuf_iterator<char>(file), {});
        bytes.shrink_to_fit(); // so that a byte read behind them shows
        fprintf(stderr, "%s\n", argv[i]);
        LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
    }
    return argc > 1 ? 0 : 1;
}
