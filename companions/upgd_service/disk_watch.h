// Whether the disk that holds an image is still there.
#ifndef COMPANIONS_UPGD_SERVICE_DISK_WATCH_H
#define COMPANIONS_UPGD_SERVICE_DISK_WATCH_H

#include <string>

struct watched_image {
    std::string path;        // absolute
    std::string mount_point; // of the USB disk, empty if the image lies on none
};

// Finds the disk of the image `file`. One whose path is not known, because nothing but an open file
// is left of it, lies on none.
void find_disk(const char *file, watched_image *image);

// A USB disk is gone when its file system is unmounted or its device has left the kernel's list; an
// image on no USB disk counts as present while it can be opened.
[[nodiscard]] bool disk_is_there(const watched_image *image);

#endif
