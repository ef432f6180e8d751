// Images written out by hand, field by field, for the tests to read and to compare with.
#ifndef TESTS_TEST_IMAGE_H
#define TESTS_TEST_IMAGE_H

#include <cstdint>
#include <string>
#include <vector>

struct test_entry {
    std::string name; // without its terminator
    int type;
    std::string data;
};

struct test_header {
    uint32_t magic = 0x27051966;
    uint32_t crc = 0;
    uint32_t dirs = 0;
    uint32_t time = 0;
    uint32_t comp = 0;
    uint32_t place = 2;
    std::string dest_dir;
    std::string update_dir = "nand";
    std::string version = "V1.0.0.0";
};

std::string be32(uint32_t value);
std::string entry_bytes(const test_entry &entry);

// The whole file. Count and size are those of the entries.
std::string image_bytes(const std::vector<test_entry> &entries, const test_header &header = {});

// The file with `count` and the file's length in the header, around any body.
std::string image_around(const std::string &body, uint32_t count, const test_header &header = {});

// The entries of a well-formed image, in its order.
std::vector<test_entry> parse_entries(const std::string &image);

// CRC-32, one bit a step, of a text whose beginning has the CRC `crc`.
uint32_t reference_crc(const std::string &text, uint32_t crc = 0);

#endif
