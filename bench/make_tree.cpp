// make_tree: lays out a tree of files, the same one for the same arguments on every machine.
//
// Usage: make_tree DIR FILES MIN MAX POWER PER_DIRECTORY LINKS
// The sizes are spread over MIN to MAX bytes: evenly with POWER 1, with fewer large ones above it.
// Link n lies in directory n and leads to a file there. Neither the contents nor their order can be
// compressed, so that no file system saves on them.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

static uint64_t next_noise(uint64_t *state)
{
    *state ^= *state << 13;
    *state ^= *state >> 7;
    *state ^= *state << 17;
    return *state;
}

static std::string numbered(char letter, int number)
{
    char name[16];
    snprintf(name, sizeof name, "%c%04d", letter, number);
    return name;
}

static bool write_noise(const std::string &path, size_t size, uint64_t *state)
{
    std::vector<uint64_t> data(size / sizeof *state + 1);
    for (uint64_t &word : data)
        word = next_noise(state);
    FILE *const file = fopen(path.c_str(), "wb");
    if (file == nullptr)
        return false;
    const bool written = fwrite(data.data(), 1, size, file) == size;
    return fclose(file) == 0 && written;
}

int main(int argc, char **argv)
{
    if (argc != 8) {
        fprintf(stderr, "Usage: %s DIR FILES MIN MAX POWER PER_DIRECTORY LINKS\n", argv[0]);
        return 2;
    }
    const std::string top = argv[1];
    const int files = atoi(argv[2]);
    const double smallest = atof(argv[3]);
    const double range = atof(argv[4]) - smallest;
    const double power = atof(argv[5]);
    const int per_directory = atoi(argv[6]);
    const int links = atoi(argv[7]);

    uint64_t state = 88172645463325252U;
    for (int n = 0; n < files; n++) {
        const std::string directory = top + '/' + numbered('d', n / per_directory);
        if (n % per_directory == 0)
            std::filesystem::create_directories(directory);
        const double part = static_cast<double>(next_noise(&state) >> 11) / 0x1p53;
        const size_t size = static_cast<size_t>(smallest + range * pow(part, power));
        const std::string path = directory + '/' + numbered('f', n);
        if (!write_noise(path, size, &state)) {
            perror(path.c_str());
            return 1;
        }
    }
    for (int n = 0; n < links; n++)
        std::filesystem::create_symlink(numbered('f', n * per_directory),
                                        top + '/' + numbered('d', n) + '/' + numbered('l', n));
    return 0;
}
