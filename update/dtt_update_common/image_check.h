// What is wrong with a file as an image, in words for a person.
#ifndef UPDATE_DTT_UPDATE_COMMON_IMAGE_CHECK_H
#define UPDATE_DTT_UPDATE_COMMON_IMAGE_CHECK_H

#include "update/dtt_update_common/image_reader.h"

// Takes the file open on `fd` for an image: reads its header, and sets `img->size` to the file's
// own length, whatever the header says. Returns null, or what is wrong with the file.
[[nodiscard]] const char *examine_image(int fd, image_file *img);

// Opens the file `name`. Returns null if an update can begin with it, or what is wrong with it: an
// error of the system, what examine_image says, or another length than the header's. `img->fd` is
// -1 then, else the caller closes it.
[[nodiscard]] const char *open_image(const char *name, image_file *img);

// A wrong checksum in words: what the header says, and what the body has.
#define CRC_SENTENCE "the header says the CRC %08x, the body has %08x"

// Returns null if `crc` is what the header says, or what is wrong in words.
[[nodiscard]] const char *crc_fault(const image_file *img, uint32_t crc);

// What open_image says of the file `name`.
[[nodiscard]] const char *image_fault(const char *name);

#endif
