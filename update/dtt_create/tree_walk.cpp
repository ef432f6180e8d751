// The walk over the tree that becomes an image.
#include "update/dtt_create/tree_walk.h"

#include "update/dtt_create/card_file_names.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_header.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <unistd.h>

// The lines of the walk name the operation that was called.
#define WALK_TRACE(...) TRACE_AS("get_dirs_and_files", __VA_ARGS__)

int total_file_nums = 0;
int total_dir_nums = 0;

char *xreadlink(const char *path)
{
    constexpr size_t GROWBY = 80;
    char *buf = nullptr;
    for (size_t bufsize = GROWBY;; bufsize += GROWBY) {
        char *grown = static_cast<char *>(realloc(buf, bufsize));
        const ssize_t len = grown != nullptr ? readlink(path, grown, bufsize) : -1;
        if (len < 0) {
            TRACE("%s  ", path);
            free(grown != nullptr ? grown : buf);
            return nullptr;
        }
        buf = grown;
        if (static_cast<size_t>(len) + 1 <= bufsize) {
            buf[len] = '\0';
            return buf;
        }
    }
}

// A card file's name decides before the directory it lies in.
static int file_type(char *name, const char *directory)
{
    int type = ENTRY_FILE;
    if (check_type_SelfFile(name, &type) == 0) {
        printf("    file name is %s \n", name);
        printf("    find self files ,type is %d \n", type);
    } else if (strcmp(directory, "vorn-uboot") == 0) {
        type = ENTRY_BOOT;
        puts("  find uboot bin... ");
    } else if (strcmp(directory, "vorn-kernel") == 0) {
        type = ENTRY_KERNEL;
        puts("  find kernel bin... ");
    }
    return type;
}

static void add_file(int dst_fd, struct arena *ap, char *name)
{
    if (write_file(dst_fd, file_type(name, ap->path), ap->devpath, name) == 0)
        total_file_nums++;
}

static void add_link(int dst_fd, struct arena *ap)
{
    char *target = xreadlink(ap->devpath);
    if (target == nullptr) {
        left_out[LEFT_UNREADABLE]++;
        return;
    }
    char link_name[LINK_NAME_SIZE];
    if (!bounded_format(link_name, sizeof link_name, "%s;%s", ap->devpath, target)) {
        left_out[LEFT_LONG_LINK]++;
        WALK_TRACE("link left out, path and target too long: `%s;%s'\n", ap->devpath, target);
    } else if (write_file(dst_fd, ENTRY_LINK, ap->devpath, link_name) == 0)
        total_file_nums++;
    free(target);
}

static int walk_directory(int dst_fd, struct arena *ap);

static int add_directory(int dst_fd, struct arena *ap, const char *name)
{
    char own_name[NAME_MAX + 1];
    if (!bounded_copy(own_name, sizeof own_name, ap->path) ||
        !bounded_copy(ap->path, sizeof ap->path, name))
        return break_image("get_dirs_and_files", ap->devpath, ENAMETOOLONG);
    total_dir_nums++;
    const int status = walk_directory(dst_fd, ap);
    fixed_copy(ap->path, own_name);
    return status;
}

// Returns 0, or a negative value if the listing that holds the item ends here.
static int add_item(int dst_fd, struct arena *ap, char *name)
{
    if (lstat(ap->devpath, &ap->st) != 0) {
        left_out[LEFT_UNREADABLE]++;
        return 0;
    }
    if (S_ISDIR(ap->st.st_mode))
        return add_directory(dst_fd, ap, name);
    if (S_ISREG(ap->st.st_mode))
        add_file(dst_fd, ap, name);
    else if (S_ISLNK(ap->st.st_mode))
        add_link(dst_fd, ap);
    else
        left_out[LEFT_DEVICE]++;
    return 0;
}

static int walk_listing(DIR *dir, int dst_fd, struct arena *ap)
{
    name_place place;
    if (!begin_listing(ap, &place)) {
        errno = ENAMETOOLONG;
        return -1;
    }

    for (bool empty = true;;) {
        errno = 0;
        dirent *item = readdir(dir);
        if (item == nullptr) {
            ap->devpath[place.len] = '\0';
            if (errno != 0)
                return break_image("get_dirs_and_files", ap->devpath, errno);
            left_out[LEFT_EMPTY_DIRECTORY] += empty;
            return 0;
        }
        if (strcmp(item->d_name, ".") == 0 || strcmp(item->d_name, "..") == 0)
            continue;
        empty = false;
        // What has too long a path for the walk is passed over like what can't be looked at.
        if (!bounded_copy(ap->devpath + place.len, place.rem + 1, item->d_name)) {
            left_out[LEFT_UNREADABLE]++;
            continue;
        }
        const int status = add_item(dst_fd, ap, item->d_name);
        if (image_is_broken())
            return -1;
        if (status < 0) {
            left_out[LEFT_UNREADABLE]++;
            return 0;
        }
    }
}

static int walk_directory(int dst_fd, struct arena *ap)
{
    DIR *dir = opendir(ap->devpath);
    if (dir == nullptr)
        return -1;
    const int status = walk_listing(dir, dst_fd, ap);
    closedir(dir);
    return status;
}

int get_dirs_and_files(int dst_fd, struct arena *ap)
{
    begin_image();
    return walk_directory(dst_fd, ap);
}
