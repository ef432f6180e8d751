// Unpacking an image below a directory with system calls alone: no command is run, nothing that
// stands there is touched, and no link is followed, so that nothing lands anywhere else.
#include "companions/img_info/img_info.h"

#include "companions/compare/image_sums.h"
#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/image_check.h"
#include "update/dtt_update_common/raw_io.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static bool is_wanted(const char *path, char **names)
{
    if (*names == nullptr)
        return true;
    for (; *names != nullptr; names++) {
        const size_t len = strlen(*names);
        if (strncmp(path, *names, len) == 0 && (path[len] == '\0' || path[len] == '/'))
            return true;
    }
    return false;
}

// One that is there already is as good.
static bool make_directory(int parent, const char *name)
{
    return mkdirat(parent, name, 0755) == 0 || errno == EEXIST;
}

// Opens the directory that holds the last component of `path`, below the one open on `top`, and
// makes those on the way. `*last` is that component. Returns none with errno set if it can't be
// had.
static descriptor open_parent(int top, char *path, char **last)
{
    descriptor parent(dup(top));
    char *component = path;
    for (char *slash; parent.is_open() && (slash = strchr(component, '/')) != nullptr;
         component = slash + 1) {
        *slash = '\0';
        if (component[0] == '\0')
            continue;
        if (!make_directory(parent.get(), component))
            return descriptor();
        parent = descriptor(
            openat(parent.get(), component, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    }
    *last = component;
    return parent;
}

// Returns 0, or an errno.
static int copy_data(const image_file *img, const image_entry *entry, int fd)
{
    static char block[256 * 1024];
    const size_t size = static_cast<size_t>(entry->file_size);
    for (size_t done = 0, len; done < size; done += len) {
        len = std::min(sizeof block, size - done);
        if (full_pread(img->fd, block, len, static_cast<off_t>(entry->data_offset + done)) != len)
            return EIO;
        if (bb_full_write(fd, block, len) < 0)
            return errno;
    }
    return 0;
}

// Returns 0, or -1 with errno set and no file left.
static int extract_file(const image_file *img, const image_entry *entry, int parent,
                        const char *name)
{
    const int fd = openat(parent, name, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0755);
    if (fd < 0)
        return -1;
    int error = copy_data(img, entry, fd);
    // On a network disk it is here that a full disk shows.
    if (close(fd) != 0 && error == 0)
        error = errno;
    if (error != 0)
        unlinkat(parent, name, 0);
    errno = error;
    return error == 0 ? 0 : -1;
}

static int extract_entry(const image_file *img, const image_entry *entry, int parent,
                         const char *name)
{
    switch (form_of(entry->type)) {
    case entry_form::file:
        break;
    case entry_form::directory:
        return make_directory(parent, name) ? 0 : -1;
    case entry_form::link:
        return symlinkat(link_target(entry), parent, name);
    }
    return extract_file(img, entry, parent, name);
}

// A ".." that stays below the directory would be harmless by itself, but not behind a link.
static bool goes_upwards(const char *path)
{
    for (const char *at = path; (at = strstr(at, "..")) != nullptr; at += 2)
        if ((at == path || at[-1] == '/') && (at[2] == '\0' || at[2] == '/'))
            return true;
    return false;
}

// Returns whether the entry `path`, which is cut up, is there now.
static bool take_entry(const named_image *opened, const image_entry *entry, int top, char *path)
{
    const int path_len = static_cast<int>(entry_path_length(entry));
    if (goes_upwards(path)) {
        complain(opened->name, "left out: %s: leads upwards", path);
        return false;
    }
    char *name = nullptr;
    const descriptor parent = open_parent(top, path, &name);
    if (parent.is_open() && extract_entry(&opened->img, entry, parent.get(), name) == 0)
        return true;
    complain(opened->name, "left out: %.*s: %s", path_len, entry->name, strerror(errno));
    return false;
}

// A changed byte of a file is seen by nobody else. Said behind the rest, since what is there may
// still serve.
static bool has_its_crc(const named_image *opened)
{
    image_sums sums;
    const uint32_t promised = ntohl(opened->img.header.ih_crc);
    const char *const fault = sum_image(&opened->img, &sums);
    if (fault != nullptr)
        complain(opened->name, "%s", fault);
    else if (sums.body() != promised)
        complain(opened->name, CRC_SENTENCE ": it is damaged", promised, sums.body());
    return fault == nullptr && sums.body() == promised;
}

int extract_image(const named_image *opened, const char *dir, char **names)
{
    const descriptor top(
        make_directory(AT_FDCWD, dir) ? open(dir, O_RDONLY | O_DIRECTORY | O_CLOEXEC) : -1);
    if (!top.is_open())
        return complain(dir, "%s", strerror(errno));
    int status = INFO_WELL;
    entry_walk walk;
    start_walk(&walk, &opened->img);
    const uint32_t count = ntohl(opened->img.header.ih_filenum);
    uint32_t wanted = 0;
    for (uint32_t i = 0; i < count; i++) {
        image_entry entry;
        const char *const fault = read_entry(&walk, &entry);
        if (fault != nullptr) {
            complain(opened->name, "entry %u at offset %u: %s", walk.number, walk.next, fault);
            status = INFO_FINDINGS;
            break;
        }
        char path[PATH_SIZE]; // which is cut up
        copy_entry_path(&entry, path);
        if (!is_wanted(path, names))
            continue;
        wanted++;
        if (!take_entry(opened, &entry, top.get(), path))
            status = INFO_FINDINGS;
    }
    if (wanted == 0 && names[0] != nullptr) {
        complain(opened->name, "holds nothing of these names");
        status = INFO_FINDINGS;
    }
    return has_its_crc(opened) ? status : INFO_FINDINGS;
}
