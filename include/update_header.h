/*
 * The update image: one file with a header of 488 bytes and, directly behind it, a flat list of
 * entries up to the file's end. An entry is
 *
 *     name     n bytes and a terminating 0; a relative path without a leading '/'
 *     type     1 byte, one of ENTRY_...
 *     size     4 bytes, big-endian, on any byte boundary: the length of the data
 *     data     `size` bytes
 *
 * A symbolic link's name is the link's path, a ';' and the target, and it has no data. Entries
 * follow one another without padding; there is no index. All numbers of the header are unsigned,
 * 32 bits wide and big-endian, in the file and in memory alike; they are converted at each use.
 */
#ifndef INCLUDE_UPDATE_HEADER_H
#define INCLUDE_UPDATE_HEADER_H

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

#define IH_MAGIC 0x27051966U
#define IH_NMLEN 64 /* bytes of each short text field; 63 characters at most */

typedef struct tagupdate_header {
    uint32_t ih_magic;               /* IH_MAGIC */
    uint32_t ih_crc;                 /* checksum of the body: CRC-32 (IEEE 802.3) */
    uint32_t ih_dirs;                /* directories walked below the top directory */
    uint32_t ih_size;                /* bytes of the whole file, header included */
    uint32_t ih_time;                /* build time, seconds since 1970-01-01 00:00:00 UTC */
    uint32_t ih_filenum;             /* entries */
    uint32_t ih_comp;                /* COMP_... */
    uint32_t ih_offset;              /* 0 */
    uint32_t ih_place;               /* PLACE_... */
    uint32_t ih_reserve;             /* 0 */
    uint32_t ih_dest_dir[64];        /* text: target directory, PLACE_COSTOM only */
    uint8_t ih_update_dir[IH_NMLEN]; /* text: name of the packed tree's top directory */
    uint8_t ih_name[IH_NMLEN];       /* text: banner */
    uint8_t ih_version[IH_NMLEN];    /* text: firmware version */
} update_header_t;

static_assert(sizeof(update_header_t) == 488, "update_header_t is a record of the image file");
static_assert(offsetof(update_header_t, ih_magic) == 0, "ih_magic");
static_assert(offsetof(update_header_t, ih_crc) == 4, "ih_crc");
static_assert(offsetof(update_header_t, ih_dirs) == 8, "ih_dirs");
static_assert(offsetof(update_header_t, ih_size) == 12, "ih_size");
static_assert(offsetof(update_header_t, ih_time) == 16, "ih_time");
static_assert(offsetof(update_header_t, ih_filenum) == 20, "ih_filenum");
static_assert(offsetof(update_header_t, ih_comp) == 24, "ih_comp");
static_assert(offsetof(update_header_t, ih_offset) == 28, "ih_offset");
static_assert(offsetof(update_header_t, ih_place) == 32, "ih_place");
static_assert(offsetof(update_header_t, ih_reserve) == 36, "ih_reserve");
static_assert(offsetof(update_header_t, ih_dest_dir) == 40, "ih_dest_dir");
static_assert(offsetof(update_header_t, ih_update_dir) == 296, "ih_update_dir");
static_assert(offsetof(update_header_t, ih_name) == 360, "ih_name");
static_assert(offsetof(update_header_t, ih_version) == 424, "ih_version");

/* Entry types. Any other code is handled like ENTRY_FILE. */
enum {
    ENTRY_FILE = 0,
    ENTRY_DIRECTORY = 1, /* read, never written */
    ENTRY_LINK = 4,
    ENTRY_KERNEL = 5,
    ENTRY_BOOT = 7,
    ENTRY_INPUT_MCU = 22,
    ENTRY_OUTPUT_MCU = 23,
    ENTRY_VPU_MCU = 24,
    ENTRY_INPUT_FPGA = 25,
    ENTRY_OUTPUT_FPGA = 26,
    ENTRY_VPU_FPGA = 27,
    ENTRY_INPUT_GOLDEN = 28,
    ENTRY_OUTPUT_GOLDEN = 29,
    ENTRY_VPU_GOLDEN = 30,
    ENTRY_CARD_FIRST = ENTRY_INPUT_MCU, /* card firmware, this and all up to */
    ENTRY_CARD_LAST = ENTRY_VPU_GOLDEN
};

/* Where an image's tree belongs. */
enum {
    PLACE_ROOTFS = 1,
    PLACE_NANDFS = 2,
    PLACE_COSTOM = 3, /* the directory in ih_dest_dir */
    PLACE_NAND_AND_ROOT_FS = 4
};

/* Compression of the body. */
enum { COMP_NONE = 0, COMP_GZIP = 1, COMP_BZIP2 = 2 };

/* Run modes. Only REBOOT_MODE restarts the board; every other number runs like ONLINE_MODE. */
enum { REBOOT_MODE = 1, ONLINE_MODE = 2, UPDATE_MODE_MAX = 3 };

typedef enum { FALSE = 0, TRUE = 1 } BOOL;

#endif
