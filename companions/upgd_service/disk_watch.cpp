// Whether the disk that holds an image is still there.
#include "companions/upgd_service/disk_watch.h"

#include "companions/owners.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mntent.h>
#include <unistd.h>

static_assert(sizeof watched_image::path >= PATH_MAX, "realpath(3) fills it");
static_assert(sizeof watched_image::mount_point >= PATH_MAX, "so does what is looked up");

static constexpr char USB_MOUNTS[] = "/mnt/sd";

static bool lies_below(const char *path, const char *directory)
{
    const size_t len = strlen(directory);
    return strncmp(path, directory, len) == 0 && (path[len] == '/' || path[len] == '\0');
}

// Finds the mount point of the USB disk on which the absolute path lies; an empty text if there is
// none. `mount_point` has PATH_MAX bytes.
static void find_mount_point(const char *path, char *mount_point)
{
    mount_point[0] = '\0';
    FILE *const mounts = setmntent("/proc/self/mounts", "re");
    if (mounts == nullptr)
        return;
    mntent entry;
    char text[3 * PATH_MAX];
    // Two threads look at the mounts; getmntent(3) has one buffer for all.
    while (getmntent_r(mounts, &entry, text, sizeof text) != nullptr)
        if (strncmp(entry.mnt_dir, USB_MOUNTS, strlen(USB_MOUNTS)) == 0 &&
            lies_below(path, entry.mnt_dir))
            snprintf(mount_point, PATH_MAX, "%s", entry.mnt_dir);
    endmntent(mounts);
}

void find_disk(const char *file, watched_image *image)
{
    if (realpath(file, image->path) == nullptr)
        snprintf(image->path, sizeof image->path, "%s", file);
    find_mount_point(image->path, image->mount_point);
}

static bool is_mounted(const char *mount_point)
{
    char found[PATH_MAX];
    find_mount_point(mount_point, found);
    return strcmp(found, mount_point) == 0;
}

// The mount point is named after the device.
static bool device_is_listed(const char *mount_point)
{
    const file_stream stats(fopen("/proc/diskstats", "re"));
    const char *const device = strrchr(mount_point, '/') + 1;
    char line[512];
    char name[128];
    while (stats != nullptr && fgets(line, sizeof line, stats.get()) != nullptr)
        if (sscanf(line, "%*u %*u %127s", name) == 1 && strcmp(name, device) == 0)
            return true;
    return false;
}

bool disk_is_there(const watched_image *image)
{
    if (image->mount_point[0] != '\0')
        return is_mounted(image->mount_point) && device_is_listed(image->mount_point);
    return descriptor(open(image->path, O_RDONLY | O_NONBLOCK | O_CLOEXEC)).is_open();
}
