// An image that is tested ahead of its run, in one pass over its bytes. The file that was tested is
// the one that is handed on: the name may stand for another one by then.
#ifndef COMPANIONS_UPGD_SERVICE_TESTED_IMAGE_H
#define COMPANIONS_UPGD_SERVICE_TESTED_IMAGE_H

#include "companions/compare/image_sums.h"
#include "companions/owners.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/gate.h"

// What an image is wanted for.
enum image_use { USE_UPDATE, USE_RESTORE, USE_LOOK };

struct tested_image {
    const char *name = nullptr; // for messages
    descriptor file;
    image_file img = {};
    image_sums sums;    // of what was tested
    char path[32] = ""; // of the open file, for the operations of this process
    update_gate gate = {};
};

// Opens the image `call->words[0]` and tests what its use asks for: below `dir`, if it is restored.
// One whose signature is checked, and one that is restored, is copied meanwhile into a file without
// a name on the device, and `image` is that file: a disk could answer a second read in another way.
// With --force a wrong CRC and another kind of image are told, and no more. Returns false with a
// sentence.
[[nodiscard]] bool take_tested_image(const service_call *call, image_use use, const char *dir,
                                     tested_image *image);

#endif
