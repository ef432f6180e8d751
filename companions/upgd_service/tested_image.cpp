// An image that is tested ahead of its run.
#include "companions/upgd_service/tested_image.h"

#include "companions/upgd_service/console.h"
#include "update/dtt_update_common/image_check.h"
#include "update/dtt_update_common/platform_log.h"

#include <cstdio>

// Returns null, or what is wrong with the body.
static const char *body_fault(const image_file *img)
{
    body_sum sum;
    start_sum(&sum);
    while (sum.at < img->size) {
        char step[64];
        snprintf(step, sizeof step, "testing, %u of %u MiB", sum.at >> 20, img->size >> 20);
        show_progress(step, 0, 0, 0);
        if (!sum_block(img, &sum))
            return "can't be read to its end";
    }
    return crc_fault(img, sum.crc);
}

bool take_tested_image(const char *name, bool verify, tested_image *image)
{
    image->name = name;
    const char *fault = open_image(name, &image->img);
    if (fault != nullptr) {
        complain("%s: %s", name, fault);
        return false;
    }
    fstat(image->img.fd, &image->at);
    fault = verify ? body_fault(&image->img) : nullptr;
    if (fault != nullptr) {
        complain("%s: %s: nothing was touched; get it anew, or take it as it is with --no-verify",
                 name, fault);
        return false;
    }
    snprintf(image->path, sizeof image->path, "/proc/self/fd/%d", image->img.fd);
    PLATFORM_LOG("%s is <%s>", image->path, name);
    return true;
}

bool has_changed(const tested_image *image)
{
    struct stat now;
    return fstat(image->img.fd, &now) != 0 || now.st_size != image->at.st_size ||
           now.st_mtim.tv_sec != image->at.st_mtim.tv_sec ||
           now.st_mtim.tv_nsec != image->at.st_mtim.tv_nsec;
}
