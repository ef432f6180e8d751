// Bringing the entries of an image to the file system.
#include "update/dtt_update/unpack.h"

#include "update/dtt_update/card_table.h"
#include "update/dtt_update/directories_and_links.h"
#include "update/dtt_update/installer.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/command_words.h"
#include "update/dtt_update_common/copy_file.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

static void damaged_entry(const update_run *run, const image_entry *entry, const char *fault)
{
    RUN_TRACE(run, "image is damaged at entry %u: %s\n", entry->number, fault);
}

// Why the entry can't be unpacked to `basename` in this run, or null. What this lets through
// fits every buffer behind it, and every command that it is put into leaves it as it is.
static const char *entry_fault(const update_run *run, const image_entry *entry,
                               const char *basename)
{
    if (climbs_out(entry))
        return "its name leads out of the directory";
    char parent[PATH_SIZE];
    parent_directory(run->base_dir, entry->name, parent);
    if ((access(parent, F_OK) != 0 && !can_be_made(parent)) ||
        (entry->type == ENTRY_DIRECTORY && !can_be_made(basename)))
        return "its directory can't be made by a command";
    link_texts link;
    char cmd[LINK_TEXT_SIZE];
    if (entry->type == ENTRY_LINK) {
        if (!take_link_texts(basename, entry->name, &link) || !link_command(&link, cmd))
            return "its path and target are too long for a link";
        if (!means_itself(basename) || !means_itself(link.target) || !means_itself(link.name))
            return "its path or target would be taken apart by a command";
    }
    if (installs(entry->type, basename) && !means_itself(basename))
        return "its path would be taken apart by a command";
    return nullptr;
}

// The full path of the entry, a link's own, into `basename` of PATH_SIZE bytes, empty if it does
// not fit.
static void target_path(const update_run *run, const image_entry *entry, char *basename)
{
    concat_path_file(run->base_dir, entry->name, basename);
    if (entry->type == ENTRY_LINK)
        cut_link_filename(basename);
}

// Reads the next entry and tests it; nothing is touched yet. Its path is left in `basename` of
// PATH_SIZE bytes. Returns 0, or -1 with a trace line that tells the fault; `basename` then names
// what comes closest to the path.
static int take_entry(const update_run *run, entry_walk *walk, image_entry *entry, char *basename)
{
    const char *fault = read_entry(walk, entry);
    if (fault != nullptr) {
        // It would have gone somewhere below this directory.
        copy_text(basename, PATH_SIZE, run->base_dir);
    } else {
        target_path(run, entry, basename);
        if (basename[0] != '\0') {
            fault = entry_fault(run, entry, basename);
        } else {
            fault = "its path is too long";
            copy_text(basename, PATH_SIZE, entry->name);
        }
    }
    if (fault == nullptr)
        return 0;
    damaged_entry(run, entry, fault);
    return -1;
}

// Makes the parent directory, announces the entry, and makes way for its file. A directory entry is
// made here whole.
static void prepare_entry(update_run *run, image_entry *entry, const char *basename)
{
    mkdir_base_dir(run->base_dir, entry->name);
    if (entry->type == ENTRY_DIRECTORY)
        _mkdir(basename);
    const int number = static_cast<int>(entry->number);
    // Standard error is not buffered: what stands in standard output's buffer happened earlier.
    fflush(stdout);
    fprintf(stderr, "(num-%d)%s type(%d), size(%d)\n", number, basename, entry->type,
            entry->file_size);
    RUN_LOG(run, "(num-%d)%s type(%d), size(%d)", number, basename, entry->type, entry->file_size);
    // A link that leads to a directory serves as one.
    if (entry->type == ENTRY_DIRECTORY)
        return;
    // A process that runs from the old file goes on with the old bytes. A file that can't be
    // unlinked, a mount point say, is emptied: its old end would stand behind the new data. What
    // can't be emptied can't be opened for writing either, which is told then.
    if (unlink(basename) != 0 && errno != ENOENT) {
        const int emptied = truncate(basename, 0);
        static_cast<void>(emptied);
    }
}

// A file that has been cut short reads as zeros from its new end to the end of that page: what has
// been written from there is not the image's data.
static bool still_holds(const image *img, const image_entry *entry)
{
    struct stat st;
    const off_t end = static_cast<off_t>(entry->data_offset) + entry->file_size;
    return fstat(img->fd, &st) == 0 && st.st_size >= end;
}

// Whether something else stands in a directory's place.
static bool is_in_the_way(const char *path)
{
    struct stat st;
    return stat(path, &st) == 0 && !S_ISDIR(st.st_mode);
}

// Writes the entry's data to its new file; a link gets an empty file in its place. Returns 0 or -1.
static int write_entry(const update_run *run, const image_entry *entry, const char *basename)
{
    if (entry->type == ENTRY_DIRECTORY)
        return is_in_the_way(basename) ? -1 : 0;
    if (copy_file(run->mapping + entry->data_offset, basename, entry->file_size) != 0)
        return -1;
    if (still_holds(&run->img, entry))
        return 0;
    damaged_entry(run, entry, "the image has shrunk");
    return -1;
}

int unpack_entry(update_run *run, entry_walk *walk, int percent)
{
    image_entry entry;
    char basename[PATH_SIZE];
    const bool taken = take_entry(run, walk, &entry, basename) == 0;
    if (taken)
        prepare_entry(run, &entry, basename);
    run->progress->cur_percent = percent;
    if (!taken || write_entry(run, &entry, basename) != 0) {
        run->progress->failed_nums++;
        RUN_LOG(run, "copy_file ----------  %s --------- failed.", basename);
        RUN_TRACE(run, "copy_file failed :---------- %s ---------- \n", basename);
        return UPDATE_COPY_FAILED;
    }
    const int ret = update_LinuxFile(entry.type, basename);
    if (ret < 0)
        return ret;
    if (save_UserFile_patch(entry.type, basename) != 0)
        run->progress->cur_nums++;
    if (entry.type == ENTRY_LINK)
        creat_link_file(basename, entry.name);
    return 0;
}
