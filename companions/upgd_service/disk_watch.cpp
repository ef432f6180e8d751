// Whether the disk that holds an image is still there.
#include "companions/upgd_service/disk_watch.h"

#include "companions/owners.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mntent.h>

// The mount point of the USB disk on which the absolute path lies; empty if there is none.
static std::string find_mount_point(const std::string &path)
{
    std::string found;
    FILE *const mounts = setmntent("/proc/self/mounts", "re");
    mntent entry;
    char text[3 * PATH_MAX];
    // Two threads look at the mounts; getmntent(3) has one buffer for all.
    while (mounts != nullptr && getmntent_r(mounts, &entry, text, sizeof text) != nullptr) {
        const std::string point = entry.mnt_dir;
        const bool usb = point.compare(0, strlen("/mnt/sd"), "/mnt/sd") == 0;
        if (usb && (path + "/").compare(0, point.size() + 1, point + "/") == 0)
            found = point;
    }
    if (mounts != nullptr)
        endmntent(mounts);
    return found;
}

void find_disk(const char *file, watched_image *image)
{
    char path[PATH_MAX];
    image->path = realpath(file, path) != nullptr ? path : file;
    image->mount_point = find_mount_point(image->path);
}

// The mount point is named after the device.
static bool device_is_listed(const std::string &mount_point)
{
    const file_stream stats(fopen("/proc/diskstats", "re"));
    const char *const device = strrchr(mount_point.c_str(), '/') + 1;
    char line[512];
    char name[128];
    while (stats != nullptr && fgets(line, sizeof line, stats.get()) != nullptr)
        if (sscanf(line, "%*u %*u %127s", name) == 1 && strcmp(name, device) == 0)
            return true;
    return false;
}

bool disk_is_there(const watched_image *image)
{
    if (!image->mount_point.empty())
        return find_mount_point(image->mount_point) == image->mount_point &&
               device_is_listed(image->mount_point);
    return descriptor(open(image->path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)).is_open();
}
