// Bringing the entries of an image to the file system.
#include "update/dtt_update/unpack.h"

#include "update/dtt_update/card_table.h"
#include "update/dtt_update/directories_and_links.h"
#include "update/dtt_update/installer.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/copy_file.h"
#include "update/dtt_update_common/entry_fault.h"
#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static void damaged_entry(const update_run *run, const image_entry *entry, const char *fault)
{
    RUN_TRACE(run, "image is damaged at entry %u: %s\n", entry->number, fault);
}

// Reads the next entry and tests it; nothing is touched yet. Returns 0, or -1 with a trace line
// that tells the fault; `basename` then names what comes closest to the path.
static int take_entry(update_run *run, entry_walk *walk, image_entry *entry, entry_place *place)
{
    const char *fault = read_entry(walk, entry);
    if (fault == nullptr)
        fault = entry_fault(&run->base, entry, place);
    else // it would have gone somewhere below this directory
        fixed_copy(place->basename, run->base.path);
    if (fault == nullptr)
        return 0;
    damaged_entry(run, entry, fault);
    return -1;
}

// Makes way at `path` for a new file. A process that runs from the old one goes on with the old
// bytes. Returns 0, or -1 if something other than a file stands there that can't be unlinked.
static int make_way(const char *path)
{
    struct stat st;
    if (unlink(path) == 0 || errno == ENOENT || lstat(path, &st) != 0)
        return 0;
    // That it is a directory is told when it can't be opened for writing.
    if (!S_ISREG(st.st_mode))
        return S_ISDIR(st.st_mode) ? 0 : -1;
    // A mount point, say: its old end would stand behind the new data.
    const int fd = open(path, O_WRONLY | O_TRUNC | O_NOFOLLOW | O_CLOEXEC);
    if (fd >= 0)
        close(fd);
    return 0;
}

static void announce(const update_run *run, const image_entry *entry, const char *basename)
{
    const int number = static_cast<int>(entry->number);
    // Standard error is not buffered: what stands in standard output's buffer happened earlier.
    fflush(stdout);
    fprintf(stderr, "(num-%d)%s type(%d), size(%d)\n", number, basename, entry->type,
            entry->file_size);
    RUN_LOG(run, "(num-%d)%s type(%d), size(%d)", number, basename, entry->type, entry->file_size);
}

// Returns 0, or -1 if the directory is not there then. A link that leads to one serves as well.
static int unpack_directory(update_run *run, const image_entry *entry, const char *basename)
{
    _mkdir(basename);
    announce(run, entry, basename);
    run->progress->cur_percent = run->percent_written;
    struct stat st;
    if (stat(basename, &st) == 0 && S_ISDIR(st.st_mode))
        return 0;
    RUN_TRACE(run, "directory not made: %s\n", basename);
    return -1;
}

// A file that has been cut short reads as zeros from its new end to the end of that page: what has
// been written from there is not the image's data.
static bool still_holds(const image_file *img, const image_entry *entry)
{
    struct stat st;
    const off_t end = static_cast<off_t>(entry->data_offset) + entry->file_size;
    return fstat(img->fd, &st) == 0 && st.st_size >= end;
}

// Writes the data to a new file; a link gets an empty one in its place. Returns 0 or -1.
static int unpack_file(update_run *run, const image_entry *entry, const char *basename)
{
    announce(run, entry, basename);
    const int way = make_way(basename);
    run->progress->cur_percent = run->percent_written;
    if (way != 0)
        RUN_TRACE(run, "in the way and not to be removed: %s\n", basename);
    if (way != 0 || copy_file(run->mapping + entry->data_offset, basename, entry->file_size) != 0)
        return -1;
    if (still_holds(&run->img, entry))
        return 0;
    damaged_entry(run, entry, "the image has shrunk");
    return -1;
}

// Returns 0, or -1 if the entry is damaged or can't be brought to its place.
static int bring_entry(update_run *run, entry_walk *walk, image_entry *entry, entry_place *place)
{
    if (take_entry(run, walk, entry, place) != 0) {
        run->progress->cur_percent = run->percent_written;
        return -1;
    }
    mkdir_base_dir(run->base.path, entry->name);
    if (note_file_system(&run->base, place->parent) < 0)
        return -1;
    switch (form_of(entry->type)) {
    case entry_form::file:
    case entry_form::link:
        return unpack_file(run, entry, place->basename);
    case entry_form::directory:
        break;
    }
    return unpack_directory(run, entry, place->basename);
}

int unpack_entry(update_run *run, entry_walk *walk)
{
    image_entry entry;
    entry_place place;
    char *const basename = place.basename;
    if (bring_entry(run, walk, &entry, &place) != 0) {
        say_copy_failed(run, basename);
        return UPDATE_COPY_FAILED;
    }
    const int ret = update_LinuxFile(entry.type, basename);
    if (ret < 0)
        return ret;
    if (save_UserFile_patch(entry.type, basename) != 0)
        run->progress->cur_nums++;
    switch (form_of(entry.type)) {
    case entry_form::file:
    case entry_form::directory:
        return 0;
    case entry_form::link:
        break;
    }
    // Whether the command has made it is not looked at, only which link it is.
    creat_link_file(basename, entry.name);
    if (note_link(&run->base, basename) == 0)
        return 0;
    say_copy_failed(run, basename);
    return UPDATE_COPY_FAILED;
}
