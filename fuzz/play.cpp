// Plays seeds with a fuzz target in an ordinary build: each file of a directory, in the order of
// their names. Prints how many there were; the first that the target does not stand ends it.
// Usage: play_TARGET DIRECTORY
#include "fuzz/harness.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

namespace fs = std::filesystem;

int main(int argc, char **argv)
{
    if (argc != 2)
        return 2;
    std::vector<fs::path> seeds;
    for (const auto &seed : fs::directory_iterator(argv[1]))
        seeds.push_back(seed.path());
    std::sort(seeds.begin(), seeds.end());
    // What a target makes goes with it. Its paths are to be short.
    std::string scratch = "/tmp/playXXXXXX";
    check(mkdtemp(scratch.data()) != nullptr, "there is room for temporary files");
    setenv("TMPDIR", scratch.c_str(), 1);
    for (const fs::path &seed : seeds) {
        std::ifstream file(seed, std::ios::binary);
        const std::string bytes((std::istreambuf_iterator<char>(file)), {});
        // Of exactly this size, so that a byte read behind it shows.
        const std::unique_ptr<uint8_t[]> data(new uint8_t[bytes.size()]);
        std::copy(bytes.begin(), bytes.end(), data.get());
        fprintf(stderr, "%s\n", seed.c_str());
        LLVMFuzzerTestOneInput(data.get(), bytes.size());
    }
    fs::remove_all(scratch);
    printf("%zu seeds\n", seeds.size());
    return seeds.empty() ? 1 : 0;
}
