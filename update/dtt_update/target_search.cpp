// Where an image belongs on this device.
//
// The search of a board's whole file system costs more than many an image. So each listing is read
// once, and a directory whose link count shows that it holds no subdirectory is not opened.
#include "update/dtt_update/target_search.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/platform_log.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

static constexpr size_t LISTING_SIZE = 4096; // bytes of a listing that are read at a time

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

namespace
{

// What one search keeps beside the path.
struct search {
    struct arena *ap;
    const char *dirname;
    size_t dirname_len;
    // The names of the directories that are still to be entered, at all levels that are open.
    char *names;
    size_t names_used;
    size_t names_size;
    // The file system that was asked last, and whether its directories count their subdirectories.
    dev_t device;
    bool counts_links;
    // Of the directory at hand: no level reads on in its listing once it has entered another.
    alignas(dirent64) char listing[LISTING_SIZE];
};

// A directory that is being searched.
struct level {
    int fd;
    name_place place;
    dev_t device;
    // What is known of the subdirectories that the listing has still to tell of.
    bool counted;
    nlink_t ahead;
};

} // namespace

// Where each subdirectory is one more link of its parent, which begins with two. Elsewhere the
// number tells something else, or too little, as in /proc; a file system that stands on others
// hands on what they say.
static bool file_system_counts_links(int fd)
{
    constexpr uint32_t UBIFS_MAGIC = 0x24051905;
    struct statfs fs;
    if (fstatfs(fd, &fs) != 0)
        return false;
    switch (static_cast<uint32_t>(fs.f_type)) {
    case EXT4_SUPER_MAGIC: // and those ahead of it
    case F2FS_SUPER_MAGIC:
    case RAMFS_MAGIC:
    case SQUASHFS_MAGIC:
    case SYSFS_MAGIC:
    case TMPFS_MAGIC:
    case UBIFS_MAGIC:
    case XFS_SUPER_MAGIC:
        return true;
    default:
        return false;
    }
}

// Both of an open directory: what is found through a path may be another one by then.
static void count_subdirectories(search *s, level *here)
{
    struct stat st;
    if (fstat(here->fd, &st) != 0)
        return;
    if (st.st_dev != s->device) {
        s->device = st.st_dev;
        s->counts_links = file_system_counts_links(here->fd);
    }
    here->device = st.st_dev;
    // Below 2 a file system says that it has stopped counting.
    here->counted = s->counts_links && st.st_nlink >= 2;
    here->ahead = here->counted ? st.st_nlink - 2 : 0;
}

// A name for which there is no memory is not entered, like a directory that can't be listed.
static void keep_name(search *s, const char *name)
{
    const size_t size = strlen(name) + 1;
    if (size > s->names_size - s->names_used) {
        const size_t grown_size = 2 * s->names_size + LISTING_SIZE;
        char *const grown = static_cast<char *>(realloc(s->names, grown_size));
        if (grown == nullptr)
            return;
        s->names = grown;
        s->names_size = grown_size;
    }
    memcpy(s->names + s->names_used, name, size);
    s->names_used += size;
}

// Looks at one name of the listing. Returns whether it is a hit, with the path in front of it in
// `devpath`: in front of the first place where the name stands, which may be ahead of the last
// component. The listing tells the type on most file systems, which spares a system call for each
// of many thousand files, and for each directory that neither is a hit nor may be left out.
static bool look_at(search *s, level *here, const char *name, unsigned char type)
{
    struct arena *const ap = s->ap;
    if ((type != DT_DIR && type != DT_UNKNOWN) || strcmp(name, ".") == 0 ||
        strcmp(name, "..") == 0 ||
        !bounded_copy(ap->devpath + here->place.len, here->place.rem + 1, name))
        return false;
    const bool hit = strncmp(name, s->dirname, s->dirname_len) == 0;
    if ((hit || here->counted || type != DT_DIR) &&
        (fstatat(here->fd, name, &ap->st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(ap->st.st_mode)))
        return false;
    if (hit) {
        *strstr(ap->devpath, name) = '\0';
        return true;
    }
    if (here->ahead > 0)
        here->ahead--;
    // Where another file system is mounted, its own directory is asked once it is open.
    const bool leaf = here->counted && ap->st.st_dev == here->device && ap->st.st_nlink == 2;
    if (!leaf)
        keep_name(s, name);
    return false;
}

// Reads the listing, as far as there are subdirectories in it, and keeps the names of those to
// enter. Returns whether there was a hit.
static bool look_for_hit(search *s, level *here)
{
    while (!here->counted || here->ahead > 0) {
        // Another C library takes a record, and not any memory.
        auto *const listing = reinterpret_cast<dirent64 *>(s->listing);
        const ssize_t size = getdents64(here->fd, listing, sizeof s->listing);
        if (size <= 0)
            break;
        for (ssize_t at = 0; at < size;) {
            const auto *const item = reinterpret_cast<const dirent64 *>(s->listing + at);
            if (look_at(s, here, item->d_name, item->d_type))
                return true;
            at += item->d_reclen;
        }
    }
    return false;
}

static int search_directory(search *s, int fd);

// None of the names is a hit, or it would have ended the search.
static bool enter_subdirectories(search *s, const level *here, size_t first_name)
{
    const size_t end = s->names_used;
    for (size_t at = first_name; at < end; at += strlen(s->names + at) + 1) {
        const char *const name = s->names + at;
        if (!bounded_copy(s->ap->devpath + here->place.len, here->place.rem + 1, name))
            continue;
        const int fd = openat(here->fd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0)
            continue;
        const int result = search_directory(s, fd);
        close(fd);
        if (result == 0)
            return true;
    }
    return false;
}

// Searches the directory `devpath`, open as `fd`.
static int search_directory(search *s, int fd)
{
    level here = {};
    here.fd = fd;
    if (!begin_listing(s->ap, &here.place))
        return -1;
    count_subdirectories(s, &here);

    const size_t first_name = s->names_used;
    const bool hit = look_for_hit(s, &here) || enter_subdirectories(s, &here, first_name);
    s->names_used = first_name;
    return hit ? 0 : 1;
}

int _find_dir(struct arena *ap, char *dirname)
{
    const int fd = open(ap->devpath, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return -1;
    search s = {};
    s.ap = ap;
    s.dirname = dirname;
    s.dirname_len = strlen(dirname);
    const int result = search_directory(&s, fd);
    free(s.names);
    close(fd);
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
    header_text update_dir = text_of(pheader->ih_update_dir);
    const bool hit =
        bounded_copy(ap.devpath, sizeof ap.devpath, start) && _find_dir(&ap, update_dir.text) == 0;
    const bool fits = bounded_copy(base_dir, PATH_SIZE, hit ? ap.devpath : start);
    PLATFORM_LOG("update dir is <%s>.", base_dir);
    return fits ? 0 : -1;
}
