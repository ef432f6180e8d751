// An image against what stands on the device.
#include "companions/compare/comparison.h"

#include "companions/compare/kernel_look.h"
#include "companions/compare/path_index.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/entry_fault.h"
#include "update/dtt_update_common/entry_form.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace
{
struct comparison {
    const image_file *img;
    const image_sums *sums;
    base_directory base;
    int what; // COMPARE_...
    finding_visitor visit;
    compared state;
    finding found; // that is being made
    path_index paths;
    path_index partitions; // what goes to them: a partition_text for each such entry
    kernel_look look;      // a file for each of the latter
    const char *look_fault;
    const char *index_fault; // of the entry behind those of `paths`
};
} // namespace

const finding_name FINDING_NAMES[] = {
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

static finding_kind unreadable(finding *found)
{
    found->detail = strerror(errno);
    return FOUND_UNREADABLE;
}

// Compares the checksum of the entry's data with that of the beginning of the file open on `fd`.
static finding_kind compare_data(comparison *c, int fd)
{
    const image_entry *const entry = &c->found.entry;
    const uint32_t *const wanted = c->sums->entry(entry->number);
    uint32_t sum;
    if (wanted == nullptr) {
        c->state.fault = "its checksum is not known";
        return FOUND_UNREADABLE;
    }
    if (!sum_file(fd, entry->file_size, &sum))
        return errno != 0 ? unreadable(&c->found) : FOUND_OTHER_CONTENT;
    return sum == *wanted ? FOUND_SAME : FOUND_OTHER_CONTENT;
}

static finding_kind compare_file(comparison *c)
{
    finding *const found = &c->found;
    if (!S_ISREG(found->there.st_mode))
        return FOUND_OTHER_KIND;
    if (found->there.st_size != found->entry.file_size)
        return FOUND_OTHER_CONTENT;
    if ((c->what & COMPARE_CONTENTS) == 0)
        return FOUND_SAME;
    const descriptor file(open(found->path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    return file.is_open() ? compare_data(c, file.get()) : unreadable(found);
}

static finding_kind compare_link(finding *found)
{
    if (!S_ISLNK(found->there.st_mode))
        return FOUND_OTHER_KIND;
    const char *const target = link_target(&found->entry);
    char there[PATH_SIZE];
    const ssize_t len = readlink(found->path, there, sizeof there);
    if (len < 0)
        return unreadable(found);
    const size_t target_len = strlen(target);
    return static_cast<size_t>(len) == target_len && memcmp(there, target, target_len) == 0
               ? FOUND_SAME
               : FOUND_OTHER_TARGET;
}

// Looks at what stands in the entry's place. A link that leads to a directory serves as one.
static int look(finding *found)
{
    switch (form_of(found->entry.type)) {
    case entry_form::directory:
        return stat(found->path, &found->there);
    case entry_form::file:
    case entry_form::link:
        break;
    }
    return lstat(found->path, &found->there);
}

static finding_kind compare_entry(comparison *c)
{
    finding *const found = &c->found;
    entry_place place;
    const char *fault = entry_fault(&c->base, &found->entry, &place);
    if (fault == nullptr)
        fault = step_fault(&found->entry, &place);
    found->detail = nullptr;
    // What has a place can stand there all the same, by whatever way it came.
    const bool has_place =
        find_place(c->base.path, &found->entry, &place) && !climbs_out(&found->entry);
    fixed_copy(found->path, has_place ? place.basename : found->entry.name);
    if (!has_place || look(found) != 0) {
        found->there.st_mode = 0;
        if (has_place && errno != ENOENT && errno != ENOTDIR)
            return unreadable(found);
        found->detail = fault;
        return fault != nullptr ? FOUND_NO_PLACE : FOUND_MISSING;
    }
    switch (form_of(found->entry.type)) {
    case entry_form::file:
        break;
    case entry_form::directory:
        return S_ISDIR(found->there.st_mode) ? FOUND_SAME : FOUND_OTHER_KIND;
    case entry_form::link:
        return compare_link(found);
    }
    return compare_file(c);
}

// By what entries that go to one place of a partition are told to be the same: the boot loader's,
// or files of one name.
static const char *partition_text(const image_entry *entry)
{
    return entry->type == ENTRY_BOOT ? "/" : last_component(entry->name);
}

// A partition goes on behind the boot loader.
static finding_kind compare_boot_loader(comparison *c)
{
    finding *const found = &c->found;
    fixed_copy(found->path, BOOT_PARTITION);
    const descriptor partition(open(BOOT_PARTITION, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    if (!partition.is_open())
        found->detail = strerror(errno);
    else if (compare_data(c, partition.get()) == FOUND_OTHER_CONTENT)
        found->detail = "other content stands there";
    return found->detail == nullptr ? FOUND_SAME : FOUND_NOT_ON_PARTITION;
}

static finding_kind compare_kernel_file(comparison *c)
{
    finding *const found = &c->found;
    const char *const name = partition_text(&found->entry);
    const kernel_file *const file =
        &c->look.files[c->partitions.place_of(name, found->entry.number)];
    const uint32_t *const wanted = c->sums->entry(found->entry.number);
    snprintf(found->path, sizeof found->path, KERNEL_PARTITION ":%s", name);
    if (c->look_fault != nullptr)
        found->detail = c->look_fault;
    else if (file->error != 0)
        found->detail = strerror(file->error);
    else if (file->st.st_size < found->entry.file_size)
        found->detail = "what stands there is cut short";
    else if (file->st.st_size != found->entry.file_size || wanted == nullptr ||
             file->sum != *wanted)
        found->detail = "other content stands there";
    return found->detail == nullptr ? FOUND_SAME : FOUND_NOT_ON_PARTITION;
}

static finding_kind compare_installed(comparison *c)
{
    c->found.detail = nullptr;
    c->found.there = {};
    return c->found.entry.type == ENTRY_BOOT ? compare_boot_loader(c) : compare_kernel_file(c);
}

// Returns whether the comparison goes on, as all below.
static bool tell(comparison *c, finding_kind kind)
{
    c->found.kind = kind;
    return c->state.fault == nullptr && c->visit(c->found);
}

static bool visit_entry(comparison *c)
{
    finding *const found = &c->found;
    char path[PATH_SIZE];
    copy_entry_path(&found->entry, path);
    // The last entry of a path is what stands there, and so on a partition.
    if (c->paths.comes_again(path, found->entry.number))
        return true;
    found->there = {};
    const finding_kind kind = compare_entry(c);
    const bool installed =
        (c->what & COMPARE_DEVICE) != 0 && kind != FOUND_NO_PLACE &&
        installs(found->entry.type, found->path) &&
        !c->partitions.comes_again(partition_text(&found->entry), found->entry.number);
    return tell(c, kind) && (!installed || tell(c, compare_installed(c)));
}

static bool visit_entries(comparison *c)
{
    entry_walk walk;
    start_walk(&walk, c->img);
    bool goes_on = true;
    for (uint32_t i = ntohl(c->img->header.ih_filenum); i > 0 && goes_on; i--) {
        c->state.fault =
            walk.number < c->paths.count() ? read_entry(&walk, &c->found.entry) : c->index_fault;
        c->state.broken = walk.number;
        if (c->state.fault == nullptr && !c->sums->has_head_of(&c->found.entry))
            c->state.fault = "its name, type or size is not what was tested";
        if (c->state.fault != nullptr)
            return false;
        c->state.entries++;
        goes_on = visit_entry(c);
    }
    return goes_on;
}

static bool visit_extra(comparison *c, const char *name)
{
    finding *const found = &c->found;
    concat_path_file(c->base.path, name, found->path);
    found->there = {};
    found->detail = lstat(found->path, &found->there) == 0 && S_ISDIR(found->there.st_mode)
                        ? "a directory"
                        : nullptr;
    return tell(c, FOUND_EXTRA);
}

// Looks at what the directory `below`, a path below the top, holds beside the entries.
static bool visit_listing(comparison *c, const char *below)
{
    finding *const found = &c->found;
    concat_path_file(c->base.path, below, found->path);
    found->there = {};
    const directory_stream list(opendir(found->path));
    // One that is missing has been told by its entries.
    if (list == nullptr)
        return errno == ENOENT || errno == ENOTDIR || tell(c, unreadable(found));
    while (const dirent *const item = readdir(list.get())) {
        char path[PATH_SIZE];
        if (strcmp(item->d_name, ".") == 0 || strcmp(item->d_name, "..") == 0)
            continue;
        concat_path_file(below, item->d_name, path);
        const char *const name = path[0] == '/' ? path + 1 : path;
        if (path[0] != '\0' && !c->paths.has_path(name) && !visit_extra(c, name))
            return false;
    }
    return true;
}

// Whether an entry lies in the top directory itself.
static bool uses_top(const comparison *c)
{
    for (size_t i = 0; i < c->paths.count(); i++)
        if (strchr(c->paths.text(i), '/') == nullptr)
            return true;
    return false;
}

// Paths with the same beginning follow one another in the index, so each directory is new where the
// path ahead does not have it.
static bool visit_listings(comparison *c)
{
    if (uses_top(c) && !visit_listing(c, ""))
        return false;
    const char *former = "";
    for (size_t i = 0; i < c->paths.count(); i++) {
        const char *const path = c->paths.text(i);
        for (const char *end = path; (end = strchr(end, '/')) != nullptr; end++) {
            const size_t len = static_cast<size_t>(end - path);
            if (strncmp(path, former, len + 1) == 0)
                continue;
            char below[PATH_SIZE];
            memcpy(below, path, len);
            below[len] = '\0';
            if (!visit_listing(c, below))
                return false;
        }
        former = path;
    }
    return true;
}

// Returns false if there is no memory.
static bool build_indices(comparison *c)
{
    entry_walk walk;
    start_walk(&walk, c->img);
    image_entry entry;
    for (uint32_t i = ntohl(c->img->header.ih_filenum); i > 0; i--) {
        c->index_fault = read_entry(&walk, &entry);
        if (c->index_fault != nullptr)
            break;
        entry_place place;
        if (find_place(c->base.path, &entry, &place) && installs(entry.type, place.basename))
            c->partitions.add(partition_text(&entry), entry.number);
        char path[PATH_SIZE + 1];
        copy_entry_path(&entry, path);
        switch (form_of(entry.type)) {
        case entry_form::file:
        case entry_form::link:
            break;
        case entry_form::directory:
            memcpy(path + strlen(path), "/", 2);
        }
        c->paths.add(path, entry.number);
    }
    return c->paths.finish() && c->partitions.finish();
}

// Looks at the kernel partition once, and lets go of it ahead of the first finding.
static void look_at_kernel(comparison *c)
{
    const size_t count = c->partitions.count();
    bool kernel = false;
    if (!begin_look(&c->look, count)) {
        c->look_fault = strerror(ENOMEM);
        return;
    }
    for (size_t i = 0; i < count; i++) {
        const char *const name = c->partitions.text(i);
        kernel = kernel || name[0] != '/';
        snprintf(c->look.files[i].name, sizeof c->look.files[i].name, "%s", name);
    }
    c->look.in_run = (c->what & COMPARE_IN_RUN) != 0;
    if (kernel)
        c->look_fault = take_look(&c->look);
}

compared compare_with_device(const image_file *img, const image_sums *sums, const char *dir,
                             int what, const finding_visitor &visit)
{
    comparison c = {img, sums, {}, what, visit, {}, {}, {}, {}, {}, nullptr, nullptr};
    c.base.top = c.base.path;
    if (!bounded_copy(c.base.path, sizeof c.base.path, dir))
        c.state.fault = "the path of the directory is too long";
    else if (!build_indices(&c))
        c.state.fault = "there is no memory for its paths";
    if (c.state.fault == nullptr && (what & COMPARE_DEVICE) != 0)
        look_at_kernel(&c);
    if (c.state.fault == nullptr && visit_entries(&c) && (what & COMPARE_EXTRA) != 0)
        visit_listings(&c);
    release_base_directory(&c.base);
    end_look(&c.look);
    return c.state;
}
