// play_TARGET FILE...: a fuzz target's inputs in an ordinary build. The last name printed is that
// of one that the target does not stand.
#include "fuzz/harness.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

int main(int argc, char **argv)
{
    for (int i = 1; i < argc; i++) {
        std::ifstream file(argv[i], std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), {});
        fprintf(stderr, "%s\n", argv[i]);
        // Of exactly this size, so that a byte read behind it shows.
        LLVMFuzzerTestOneInput(std::vector<uint8_t>(bytes.begin(), bytes.end()).data(),
                               bytes.size());
    }
    return argc > 1 ? 0 : 1;
}
