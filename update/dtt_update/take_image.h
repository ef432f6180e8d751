// From an image's path to an accepted header and the directory to unpack into: the opening of an
// apply run, the same in both engines.
#ifndef UPDATE_DTT_UPDATE_TAKE_IMAGE_H
#define UPDATE_DTT_UPDATE_TAKE_IMAGE_H

#include "update/dtt_update/update_run.h"

enum image_refusal {
    IMAGE_ACCEPTED,
    IMAGE_NO_NAME,
    IMAGE_MISSING,
    IMAGE_NOT_OPEN,
    IMAGE_SHORT_HEADER,
    IMAGE_BAD_MAGIC,
    IMAGE_BAD_SIZE,
    IMAGE_NO_BASE_DIR // none can be found, or the run can't move into it
};

// Opens and tests the image `update_file`, whose text is cut in place at a line feed, makes
// `force_base_dir` or the directory that the image asks for (`force_base_dir` null) the working
// directory and the run's, and reports the header. The caller closes the image, after a refusal
// too, unless its descriptor is -1.
[[nodiscard]] image_refusal take_image(update_run *run, char *update_file, char *force_base_dir);

#endif
