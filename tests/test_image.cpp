// Images written out by hand.
#include "tests/test_image.h"

std::string be32(uint32_t value)
{
    std::string text;
    for (int shift = 24; shift >= 0; shift -= 8)
        text += static_cast<char>(value >> shift & 0xFF);
    return text;
}

static std::string field(std::string text, size_t width)
{
    text.resize(width, '\0');
    return text;
}

std::string entry_bytes(const test_entry &entry)
{
    return entry.name + '\0' + static_cast<char>(entry.type) +
           be32(static_cast<uint32_t>(entry.data.size())) + entry.data;
}

std::string image_around(const std::string &body, uint32_t count, const test_header &h)
{
    const uint32_t size = static_cast<uint32_t>(488 + body.size());
    return be32(h.magic) + be32(h.crc) + be32(h.dirs) + be32(size) + be32(h.time) + be32(count) +
           be32(h.comp) + be32(0) + be32(h.place) + be32(0) + field(h.dest_dir, 256) +
           field(h.update_dir, 64) + field("Vorn Video Systems firmware package", 64) +
           field(h.version, 64) + body;
}

std::string image_bytes(const std::vector<test_entry> &entries, const test_header &header)
{
    std::string body;
    for (const test_entry &entry : entries)
        body += entry_bytes(entry);
    return image_around(body, static_cast<uint32_t>(entries.size()), header);
}

std::vector<test_entry> parse_entries(const std::string &image)
{
    std::vector<test_entry> entries;
    for (size_t pos = 488; pos < image.size();) {
        test_entry entry = {image.c_str() + pos, 0, ""};
        pos += entry.name.size() + 1;
        entry.type = static_cast<unsigned char>(image.at(pos));
        size_t size = 0;
        for (size_t i = 1; i <= 4; i++)
            size = size << 8 | static_cast<unsigned char>(image.at(pos + i));
        entry.data = image.substr(pos + 5, size);
        pos += 5 + size;
        entries.push_back(entry);
    }
    return entries;
}

uint32_t reference_crc(const std::string &text, uint32_t crc)
{
    uint32_t state = ~crc;
    for (const char c : text) {
        state ^= static_cast<unsigned char>(c);
        for (int bit = 0; bit < 8; bit++)
            state = (state & 1) != 0 ? state >> 1 ^ 0xEDB88320 : state >> 1;
    }
    return ~state;
}
