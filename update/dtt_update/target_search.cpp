// Where an image belongs on this device.
#include "update/dtt_update/target_search.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/platform_log.h"

#include <arpa/inet.h>
#include <cstring>
#include <dirent.h>

char *place2dir(int place)
{
    static char rootfs[] = "/";
    static char nandfs[] = "/nand";
    static char custom[] = "//";
    static char none[] = "";
    switch (place) {
    case PLACE_ROOTFS:
        return rootfs;
    case PLACE_NANDFS:
        return nandfs;
    case PLACE_COSTOM:
        return custom;
    default:
        return none;
    }
}

// Whether the item is a directory to look at. Its path is left in `ap->devpath` then. The listing
// tells the type on most file systems, which spares a system call for each of many thousand files.
static bool is_subdirectory(struct arena *ap, size_t len, size_t rem, const dirent *item)
{
    if (item->d_type != DT_DIR && item->d_type != DT_UNKNOWN)
        return false;
    if (strcmp(item->d_name, ".") == 0 || strcmp(item->d_name, "..") == 0)
        return false;
    if (!bounded_copy(ap->devpath + len, rem + 1, item->d_name))
        return false;
    return lstat(ap->devpath, &ap->st) == 0 && S_ISDIR(ap->st.st_mode);
}

// Cuts the path in front of the first place where the hit's name stands, which may be ahead of its
// last component.
static bool take_hit(struct arena *ap, const char *name, const char *dirname)
{
    if (strncmp(name, dirname, strlen(dirname)) != 0)
        return false;
    *strstr(ap->devpath, name) = '\0';
    return true;
}

static int search_listing(DIR *dir, struct arena *ap, char *dirname)
{
    size_t len = strlen(ap->devpath);
    if (len >= WALK_PATH_MAX)
        return -1;
    const size_t rem = WALK_PATH_MAX - len;
    if (last_char_is(ap->devpath, '/') == nullptr)
        ap->devpath[len++] = '/';

    bool has_subdirectories = false;
    while (const dirent *item = readdir(dir)) {
        if (!is_subdirectory(ap, len, rem, item))
            continue;
        if (take_hit(ap, item->d_name, dirname))
            return 0;
        has_subdirectories = true;
    }
    if (!has_subdirectories)
        return 1;
    rewinddir(dir);
    while (const dirent *item = readdir(dir)) {
        if (!is_subdirectory(ap, len, rem, item))
            continue;
        if (take_hit(ap, item->d_name, dirname) || _find_dir(ap, dirname) == 0)
            return 0;
    }
    return 1;
}

int _find_dir(struct arena *ap, char *dirname)
{
    DIR *const dir = opendir(ap->devpath);
    if (dir == nullptr)
        return -1;
    const int result = search_listing(dir, ap, dirname);
    closedir(dir);
    return result;
}

int find_dir(update_header_t *pheader, char *base_dir)
{
    if (pheader == nullptr) {
        PLATFORM_LOG("pheader is Null.");
        return -1;
    }
    struct arena ap = {};
    const char *const start = place2dir(static_cast<int>(ntohl(pheader->ih_place)));
    known_to_fit(bounded_copy(ap.devpath, sizeof ap.devpath, start));
    // The field may lack a terminator.
    char update_dir[IH_NMLEN + 1] = "";
    memcpy(update_dir, pheader->ih_update_dir, IH_NMLEN);
    const bool hit = _find_dir(&ap, update_dir) == 0;
    known_to_fit(bounded_copy(base_dir, PATH_SIZE, hit ? ap.devpath : start));
    PLATFORM_LOG("update dir is <%s>.", base_dir);
    return 0;
}
