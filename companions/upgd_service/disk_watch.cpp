// Whether the disk that holds an image is still there.
#include "companions/upgd_service/disk_watch.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <mntent.h>
#include <unistd.h>

static_assert(sizeof watched_image::path >= PATH_MAX, "realpath(3) fills it");

static constexpr char USB_MOUNTS[] = "/mnt/sd";

static bool lies_below(const char *path, const char *directory)
{
    const size_t len = strlen(directory);
    return strncmp(path, directory, len) == 0 && (path[len] == '/' || path[len] == '\0');
}

void find_disk(const char *file, watched_image *image)
{
    if (realpath(file, image->path) == nullptr)
        snprintf(image->path, sizeof image->path, "%s", file);
    image->mount_point[0] = '\0';
    FILE *const mounts = setmntent("/proc/self/mounts", "re");
    while (mounts != nullptr) {
        mntent entry;
        char text[3 * PATH_MAX];
        // Two threads look at the mounts; getmntent(3) has one buffer for all.
        const mntent *const mount = getmntent_r(mounts, &entry, text, sizeof text);
        if (mount == nullptr)
            break;
        if (strncmp(mount->mnt_dir, USB_MOUNTS, strlen(USB_MOUNTS)) == 0 &&
            lies_below(image->path, mount->mnt_dir))
            snprintf(image->mount_point, sizeof image->mount_point, "%s", mount->mnt_dir);
    }
    if (mounts != nullptr)
        endmntent(mounts);
}

static bool is_mounted(const char *mount_point)
{
    FILE *const mounts = setmntent("/proc/self/mounts", "re");
    bool mounted = false;
    while (mounts != nullptr && !mounted) {
        mntent entry;
        char text[3 * PATH_MAX];
        const mntent *const mount = getmntent_r(mounts, &entry, text, sizeof text);
        if (mount == nullptr)
            break;
        mounted = strcmp(mount->mnt_dir, mount_point) == 0;
    }
    if (mounts != nullptr)
        endmntent(mounts);
    return mounted;
}

// The mount point is named after the device.
static bool device_is_listed(const char *mount_point)
{
    FILE *const stats = fopen("/proc/diskstats", "re");
    if (stats == nullptr)
        return false;
    const char *const device = strrchr(mount_point, '/') + 1;
    char line[512];
    char name[128];
    bool listed = false;
    while (!listed && fgets(line, sizeof line, stats) != nullptr)
        listed = sscanf(line, "%*u %*u %127s", name) == 1 && strcmp(name, device) == 0;
    fclose(stats);
    return listed;
}

bool disk_is_there(const watched_image *image)
{
    if (image->mount_point[0] != '\0')
        return is_mounted(image->mount_point) && device_is_listed(image->mount_point);
    const int fd = open(image->path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0)
        close(fd);
    return fd >= 0;
}
