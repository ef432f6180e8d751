// The bytes of an entry, for the reader and the writer of images. update_header.h tells the format.
#ifndef UPDATE_DTT_UPDATE_COMMON_IMAGE_LAYOUT_H
#define UPDATE_DTT_UPDATE_COMMON_IMAGE_LAYOUT_H

#include <arpa/inet.h>
#include <cstddef>
#include <cstdint>
#include <cstring>

// Largest image in bytes: sizes are handled as signed 32-bit numbers by every reader.
constexpr long long IMAGE_SIZE_MAX = 0x7FFFFFFF;

// Divides a link's path from its target.
constexpr char LINK_DIVIDER = ';';

// Bytes between an entry's name, with its terminator, and its data: the type and the size.
constexpr size_t TYPE_AND_SIZE = 5;

inline void store_type_and_size(char *at, int type, uint32_t size)
{
    const uint32_t be_size = htonl(size);
    at[0] = static_cast<char>(type);
    memcpy(at + 1, &be_size, sizeof be_size);
}

inline void load_type_and_size(const char *at, int *type, uint32_t *size)
{
    uint32_t be_size;
    memcpy(&be_size, at + 1, sizeof be_size);
    *type = static_cast<unsigned char>(at[0]);
    *size = ntohl(be_size);
}

#endif
