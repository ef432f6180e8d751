// An image that is tested ahead of its run. The file that was tested is the one that is handed on:
// the name may stand for another one by then.
#ifndef COMPANIONS_UPGD_SERVICE_TESTED_IMAGE_H
#define COMPANIONS_UPGD_SERVICE_TESTED_IMAGE_H

#include "companions/owners.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/gate.h"
#include "update/dtt_update_common/image_reader.h"

#include <sys/stat.h>

struct tested_image {
    const char *name; // for messages
    descriptor file;
    image_file img;
    char path[32];  // of the open file, for the operations of this process
    struct stat at; // when it was tested
    update_gate gate;
};

// Opens the image `name` and tests what a run needs and what `how` says. One whose signature is
// checked is read once, into a file without a name on the device, and `image` is that file: a disk
// could answer a second read in another way. Returns false with a sentence.
[[nodiscard]] bool take_tested_image(const char *name, const test_options *how,
                                     tested_image *image);

// Whether the file has been written to since.
[[nodiscard]] bool has_changed(const tested_image *image);

#endif
