// An image against what stands on the device.
#include "companions/compare/comparison.h"

#include "companions/compare/kernel_partition.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/entry_paths.h"
#include "update/dtt_update_common/raw_io.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

static constexpr struct {
    const char *key;
    const char *words;
} NAMES[] = {
    {"same", "same"},
    {"missing", "missing"},
    {"content", "other content"},
    {"kind", "other kind"},
    {"target", "other target"},
    {"unreadable", "can't be read"},
    {"no_place", "can't stand there"},
    {"partition", "not on its partition"},
    {"extra", "not of the image"},
};
static_assert(sizeof NAMES / sizeof NAMES[0] == FOUND_KINDS, "a row for each kind");

const char *finding_key(finding_kind kind)
{
    return NAMES[kind].key;
}

const char *finding_words(finding_kind kind)
{
    return NAMES[kind].words;
}

const char *finding_detail(const finding *found)
{
    if (found->detail != nullptr)
        return found->detail;
    return found->kind == FOUND_UNREADABLE ? strerror(found->error) : nullptr;
}

bool start_comparison(comparison *c, const image_file *img, const char *dir, int what)
{
    *c = {};
    c->img = img;
    c->dir = dir;
    c->what = what;
    c->kernel_fd = -1;
    start_walk(&c->walk, img);
    if (!build_index(&c->index, img))
        c->fault = "there is no memory for its paths";
    return c->fault == nullptr;
}

void end_comparison(comparison *c)
{
    release_index(&c->index);
    if (c->listing != nullptr)
        closedir(c->listing);
    c->listing = nullptr;
    if (c->kernel_fd >= 0)
        close(c->kernel_fd);
    c->kernel_fd = -1;
}

// Compares the entry's data with the beginning of the file open on `fd`. An image that can't be
// read ends the comparison.
static finding_kind compare_data(comparison *c, const image_entry *entry, int fd, int *error)
{
    static char data[128 * 1024];
    static char there[sizeof data];
    const size_t size = static_cast<size_t>(entry->file_size);
    for (size_t done = 0; done < size;) {
        const size_t len = std::min(sizeof data, size - done);
        const off_t at = static_cast<off_t>(done);
        if (full_pread(c->img->fd, data, len, static_cast<off_t>(entry->data_offset) + at) != len) {
            c->fault = "the image can't be read any more";
            c->broken = entry->number;
            return FOUND_UNREADABLE;
        }
        errno = 0;
        const size_t got = full_pread(fd, there, len, at);
        *error = errno;
        if (got != len && *error != 0)
            return FOUND_UNREADABLE;
        if (got != len || memcmp(data, there, len) != 0)
            return FOUND_OTHER_CONTENT;
        done += len;
    }
    return FOUND_SAME;
}

static finding_kind compare_file(comparison *c, const image_entry *entry, finding *found)
{
    if (!S_ISREG(found->there.st_mode))
        return FOUND_OTHER_KIND;
    if (found->there.st_size != entry->file_size)
        return FOUND_OTHER_CONTENT;
    if ((c->what & COMPARE_CONTENTS) == 0)
        return FOUND_SAME;
    const int fd = open(found->path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        found->error = errno;
        return FOUND_UNREADABLE;
    }
    const finding_kind kind = compare_data(c, entry, fd, &found->error);
    close(fd);
    return kind;
}

static finding_kind compare_link(const image_entry *entry, finding *found)
{
    if (!S_ISLNK(found->there.st_mode))
        return FOUND_OTHER_KIND;
    const size_t path_len = entry_path_length(entry);
    const char *const target = entry->name[path_len] != '\0' ? entry->name + path_len + 1 : "";
    char there[PATH_SIZE];
    const ssize_t len = readlink(found->path, there, sizeof there);
    found->error = errno;
    if (len < 0)
        return FOUND_UNREADABLE;
    const size_t target_len = strlen(target);
    return static_cast<size_t>(len) == target_len && memcmp(there, target, target_len) == 0
               ? FOUND_SAME
               : FOUND_OTHER_TARGET;
}

static finding_kind compare_entry(comparison *c, finding *found)
{
    const image_entry *const entry = &found->entry;
    entry_target(c->dir, entry, found->path);
    found->detail = climb_fault(entry);
    if (found->path[0] == '\0')
        found->detail = "its path is too long";
    if (found->detail != nullptr) {
        known_to_fit(bounded_copy(found->path, sizeof found->path, entry->name));
        return FOUND_NO_PLACE;
    }
    // A link that leads to a directory serves as one.
    const bool directory = entry->type == ENTRY_DIRECTORY;
    if ((directory ? stat : lstat)(found->path, &found->there) != 0) {
        found->error = errno;
        found->there.st_mode = 0;
        return errno == ENOENT || errno == ENOTDIR ? FOUND_MISSING : FOUND_UNREADABLE;
    }
    if (directory)
        return S_ISDIR(found->there.st_mode) ? FOUND_SAME : FOUND_OTHER_KIND;
    return entry->type == ENTRY_LINK ? compare_link(entry, found) : compare_file(c, entry, found);
}

static const char *last_component(const char *path)
{
    const char *const slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

// Whether a later entry goes to the same place on a partition: the last one stands there.
static bool is_installed_over(const comparison *c, const image_entry *entry)
{
    entry_walk ahead = c->walk;
    image_entry later;
    for (uint32_t i = ahead.number; i < ntohl(c->img->header.ih_filenum); i++) {
        if (read_entry(&ahead, &later) != nullptr)
            return false;
        char path[PATH_SIZE];
        entry_target(c->dir, &later, path);
        if (later.type == entry->type && installs(later.type, path) &&
            (entry->type == ENTRY_BOOT ||
             strcmp(last_component(later.name), last_component(entry->name)) == 0))
            return true;
    }
    return false;
}

static finding_kind compare_installed(comparison *c, finding *found)
{
    const image_entry *const entry = &found->entry;
    int fd = -1;
    if (entry->type == ENTRY_BOOT) {
        known_to_fit(bounded_copy(found->path, sizeof found->path, BOOT_PARTITION));
        fd = open(BOOT_PARTITION, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    } else {
        const char *const name = last_component(entry->name);
        known_to_fit(bounded_format(found->path, sizeof found->path, "%.15s:%.1000s",
                                    KERNEL_PARTITION, name));
        if (c->kernel_fd < 0)
            found->detail = open_kernel_partition(&c->kernel_fd);
        if (found->detail != nullptr)
            return FOUND_NOT_ON_PARTITION;
        fd = openat(c->kernel_fd, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    }
    if (fd < 0) {
        found->error = errno;
        found->detail = strerror(errno);
        return FOUND_NOT_ON_PARTITION;
    }
    struct stat st = {};
    finding_kind kind = compare_data(c, entry, fd, &found->error);
    // A partition goes on behind the boot loader, a file does not behind the kernel.
    if (entry->type == ENTRY_KERNEL && (fstat(fd, &st) != 0 || st.st_size != entry->file_size))
        kind = FOUND_OTHER_CONTENT;
    close(fd);
    if (kind != FOUND_SAME)
        found->detail = kind == FOUND_UNREADABLE ? strerror(found->error)
                        : entry->type == ENTRY_KERNEL && st.st_size < entry->file_size
                            ? "what stands there is cut short"
                            : "other content stands there";
    return kind == FOUND_SAME ? FOUND_SAME : FOUND_NOT_ON_PARTITION;
}

// Returns false if there is no entry left.
static bool find_entry(comparison *c, finding *found)
{
    while (c->walk.number < ntohl(c->img->header.ih_filenum)) {
        c->fault = read_entry(&c->walk, &found->entry);
        c->broken = c->walk.number;
        if (c->fault != nullptr)
            return false;
        c->entries++;
        char path[PATH_SIZE];
        const size_t len = entry_path_length(&found->entry);
        memcpy(path, found->entry.name, len);
        path[len] = '\0';
        if (comes_again(&c->index, path, found->entry.number))
            continue;
        found->of_entry = true;
        found->kind = compare_entry(c, found);
        c->on_partition = (c->what & COMPARE_DEVICE) != 0 && found->kind != FOUND_NO_PLACE &&
                          installs(found->entry.type, found->path) &&
                          !is_installed_over(c, &found->entry);
        if (c->on_partition)
            c->installed = found->entry;
        return c->fault == nullptr;
    }
    return false;
}

// Opens the listing of the next directory that entries lie in. Paths with the same beginning follow
// one another in the index, so each directory is new where the path ahead does not have it.
static bool list_next_directory(comparison *c)
{
    for (; c->extra_at < c->index.count; c->extra_at++, c->extra_from = 0) {
        const char *const path = indexed_text(&c->index, c->extra_at);
        const char *const former = c->extra_at > 0 ? indexed_text(&c->index, c->extra_at - 1) : "";
        const char *slash;
        while ((slash = strchr(path + c->extra_from, '/')) != nullptr) {
            const size_t len = static_cast<size_t>(slash - path);
            c->extra_from = len + 1;
            if (strncmp(path, former, len + 1) == 0)
                continue;
            memcpy(c->listed, path, len);
            c->listed[len] = '\0';
            return true;
        }
    }
    return false;
}

// Whether an entry lies in the top directory itself.
static bool uses_top(const comparison *c)
{
    for (size_t i = 0; i < c->index.count; i++)
        if (strchr(indexed_text(&c->index, i), '/') == nullptr)
            return true;
    return false;
}

static bool open_listing(comparison *c, finding *found)
{
    const bool top = !c->lists && uses_top(c);
    c->lists = true;
    c->listed[0] = '\0';
    if (!top && !list_next_directory(c))
        return false;
    concat_path_file(c->dir, c->listed, found->path);
    c->listing = opendir(found->path);
    found->kind = FOUND_SAME;
    // One that is missing has been told by its entries.
    if (c->listing == nullptr && errno != ENOENT && errno != ENOTDIR) {
        found->kind = FOUND_UNREADABLE;
        found->error = errno;
    }
    return true;
}

// Looks at one name of a listing, or opens the next listing.
static bool find_extra(comparison *c, finding *found)
{
    if (c->listing == nullptr)
        return open_listing(c, found);
    const dirent *const item = readdir(c->listing);
    found->kind = FOUND_SAME;
    if (item == nullptr) {
        closedir(c->listing);
        c->listing = nullptr;
        return true;
    }
    char path[PATH_SIZE];
    if (strcmp(item->d_name, ".") == 0 || strcmp(item->d_name, "..") == 0)
        return true;
    concat_path_file(c->listed[0] != '\0' ? c->listed : nullptr, item->d_name, path);
    const char *const name = path[0] == '/' ? path + 1 : path;
    if (path[0] == '\0' || has_path(&c->index, name))
        return true;
    concat_path_file(c->dir, name, found->path);
    if (lstat(found->path, &found->there) == 0 && S_ISDIR(found->there.st_mode))
        found->detail = "a directory";
    found->kind = FOUND_EXTRA;
    return true;
}

bool next_finding(comparison *c, finding *found)
{
    found->of_entry = false;
    found->error = 0;
    found->detail = nullptr;
    found->there = {};
    if (c->on_partition) {
        c->on_partition = false;
        found->entry = c->installed;
        found->kind = compare_installed(c, found);
        return c->fault == nullptr;
    }
    if (find_entry(c, found))
        return true;
    return c->fault == nullptr && (c->what & COMPARE_EXTRA) != 0 && find_extra(c, found);
}
