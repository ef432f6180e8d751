// Building an update image from a directory tree.
#ifndef UPDATE_DTT_CREATE_CREATE_IMAGE_H
#define UPDATE_DTT_CREATE_CREATE_IMAGE_H

#include <cstdint>

// Packs the tree below the directory `updatedir` into the image file `updata_file`, which is
// created or emptied. `updatedir` may lose trailing '/' characters in place. `mode` is accepted and
// has no effect. `place_type` is stored as it is; with PLACE_COSTOM `to_dir` names the target
// directory, else it may be null. A null `version` gives "V1.0.0.0". Texts of the header are cut
// at 63 characters. Returns 0, or -1 with errno telling why, and without a message where there is
// nothing but that to tell; an image that was not finished is left as it stands, with a
// header that every reader refuses. Only a failure to compute the CRC leaves a whole image, without
// its CRC. One build at a time in a process.
[[nodiscard]] int do_create(char *updatedir, int mode, char *updata_file, int place_type,
                            char *to_dir, char *version);

// Stores the CRC of the body of the image open on `fd`, `ih_size` bytes long with its header, in
// `*crc_val`. Returns 0, or -1 with errno set and nothing stored: the image can't be mapped, or is
// shorter than a header.
[[nodiscard]] int crc32_img_body(int fd, uint32_t ih_size, uint32_t *crc_val);

#endif
