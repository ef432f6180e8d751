// An image that is tested ahead of its run. The file that was tested is the one that is handed on:
// the name may stand for another one by then.
#ifndef COMPANIONS_TESTED_IMAGE_H
#define COMPANIONS_TESTED_IMAGE_H

#include "update/dtt_update_common/image_reader.h"

#include <sys/stat.h>

struct tested_image {
    const char *name; // for messages
    image_file img;
    char path[32];  // of the open file, for the operations of this process
    struct stat at; // when it was tested
};

// Opens the image `name` and tests what a run needs, and with `verify` the CRC of its body. Returns
// false with a sentence. Closed with the process.
bool take_tested_image(const char *name, bool verify, tested_image *image);

// Whether the file has been written to since.
bool has_changed(const tested_image *image);

#endif
