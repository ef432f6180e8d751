// Reading an image that may be damaged, and whose disk may be pulled while it is read. Everything
// is read with pread into local memory: a load from a mapping whose disk is gone would kill the
// process with SIGBUS. The mapping serves as a source for write(2) alone, which merely fails then.
#ifndef UPDATE_DTT_UPDATE_COMMON_IMAGE_READER_H
#define UPDATE_DTT_UPDATE_COMMON_IMAGE_READER_H

#include "update/dtt_update_common/path_operations.h"
#include "update_header.h"

#include <cstddef>
#include <cstdint>

struct image_file {
    int fd;                 // -1 while it is not open
    uint32_t size;          // bytes of the whole file, once the header has been accepted
    update_header_t header; // numbers in network order
};

// One entry of an image.
struct image_entry {
    uint32_t number;      // from 0
    char name[PATH_SIZE]; // with ';' and the target in a link
    int type;             // ENTRY_..., or any other byte
    int file_size;        // bytes of data, 0 or more
    uint32_t data_offset; // of the data, from the image's start
};

// A walk over the entries from the front. It reads ahead of the entry that it is at: the heads of
// small entries come several at a time.
struct entry_walk {
    const image_file *source;
    uint32_t number; // of the next entry
    uint32_t next;   // offset of the next entry
    uint32_t window_offset;
    size_t window_size;
    char window[16384];
};

void start_walk(entry_walk *walk, const image_file *source);

// Reads the next entry and moves the walk behind it. Returns null, or in words why there is no such
// entry; nothing behind the image's size is ever read.
[[nodiscard]] const char *read_entry(entry_walk *walk, image_entry *entry);

// The bytes of the entry's name that are its path: in a link, those ahead of the last ';'.
size_t entry_path_length(const image_entry *entry);

// Copies the entry's path to `path` of PATH_SIZE bytes.
void copy_entry_path(const image_entry *entry, char *path);

// The link's target, inside of its entry's name; empty if it has none, or if the entry is no link.
const char *link_target(const image_entry *entry);

// Whether the entry's path leads above the directory that it is relative to, be it only on its way.
[[nodiscard]] bool climbs_out(const image_entry *entry);

#endif
