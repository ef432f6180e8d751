// Bringing the entries of an image to the file system.
#include "update/dtt_update/unpack.h"

#include "update/dtt_update/installer.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/command_words.h"
#include "update/dtt_update_common/copy_file.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

static constexpr size_t LINK_TEXT_SIZE = 128; // each buffer of a link's texts and its command
static constexpr size_t MKDIR_COMMAND_SIZE = 512;
static constexpr char MKDIR_COMMAND[] = "/bin/mkdir -p ";
static constexpr size_t MKDIR_PATH_MAX = MKDIR_COMMAND_SIZE - sizeof MKDIR_COMMAND;

int _mkdir(const char *str)
{
    char cmd[MKDIR_COMMAND_SIZE];
    if (format_text(cmd, sizeof cmd, "%s%s", MKDIR_COMMAND, str))
        my_system(cmd);
    else
        TRACE("path too long for a directory: %s\n", str);
    return 0;
}

void cut_link_filename(const char *s)
{
    char *const divider = s != nullptr ? const_cast<char *>(strrchr(s, ';')) : nullptr;
    if (divider != nullptr)
        *divider = '\0';
}

// The directory that the entry's file or link lies in, into `path` of PATH_SIZE bytes.
static void parent_directory(const char *force_dir, const char *filename, char *path)
{
    concat_path_file(force_dir, filename, path);
    cut_link_filename(path);
    dirname(path);
}

void mkdir_base_dir(char *force_dir, char *filename)
{
    char path[PATH_SIZE];
    parent_directory(force_dir, filename, path);
    if (access(path, F_OK) != 0)
        _mkdir(path);
}

// What the command that makes a link is built from.
struct link_texts {
    char directory[LINK_TEXT_SIZE]; // that the link lies in
    char path[LINK_TEXT_SIZE];      // the entry's name, cut at the ';'
    const char *name;               // the link's own last component, empty without a target
    const char *target;
};

// Returns false if a text does not fit its buffer.
static bool take_link_texts(const char *basename, const char *filename, link_texts *link)
{
    link->name = "";
    link->target = "";
    if (!copy_text(link->directory, sizeof link->directory, basename) ||
        !copy_text(link->path, sizeof link->path, filename))
        return false;
    dirname(link->directory);
    char *const divider = strrchr(link->path, ';');
    if (divider != nullptr && divider[1] != '\0') {
        *divider = '\0';
        link->target = divider + 1;
        link->name = get_dirname(link->path);
    }
    return true;
}

// Builds the command in `cmd` of LINK_TEXT_SIZE bytes. Returns false if it does not fit.
static bool link_command(const link_texts *link, char *cmd)
{
    return format_text(cmd, LINK_TEXT_SIZE, "cd /%s/ && /bin/ln -sf %s %s", link->directory,
                       link->target, link->name);
}

int creat_link_file(char *basename, char *filename)
{
    link_texts link;
    char cmd[LINK_TEXT_SIZE];
    if (!take_link_texts(basename, filename, &link) || !link_command(&link, cmd))
        return -1;
    return my_system(cmd);
}

void copy_failed(const char *engine, upgrade_info_t *update_info, const char *basename)
{
    update_info->failed_nums++;
    PLATFORM_LOG_AS(engine, "copy_file ----------  %s --------- failed.", basename);
    TRACE_AS(engine, "copy_file failed :---------- %s ---------- \n", basename);
}

static void damaged_entry(const char *engine, const image_entry *entry, const char *fault)
{
    TRACE_AS(engine, "image is damaged at entry %u: %s\n", entry->number, fault);
}

// Whether a command can make the directory `path`.
static bool can_be_made(const char *path)
{
    return strlen(path) <= MKDIR_PATH_MAX && means_itself(path);
}

// Why the entry can't be unpacked to `basename` below `u_base_dir`, or null. What this lets through
// fits every buffer behind it, and every command that it is put into leaves it as it is.
static const char *entry_fault(const char *u_base_dir, const image_entry *entry,
                               const char *basename)
{
    if (climbs_out(entry))
        return "its name leads out of the directory";
    char parent[PATH_SIZE];
    parent_directory(u_base_dir, entry->name, parent);
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

int take_entry(const char *engine, entry_walk *walk, const char *u_base_dir, image_entry *entry,
               char *basename)
{
    const char *fault = read_entry(walk, entry);
    if (fault != nullptr) {
        // It has no path: it would have gone somewhere below this directory.
        copy_text(basename, PATH_SIZE, u_base_dir);
    } else {
        concat_path_file(u_base_dir, entry->name, basename);
        if (basename[0] == '\0') {
            fault = "its path is too long";
            copy_text(basename, PATH_SIZE, entry->name);
        } else {
            if (entry->type == ENTRY_LINK)
                cut_link_filename(basename);
            fault = entry_fault(u_base_dir, entry, basename);
        }
    }
    if (fault == nullptr)
        return 0;
    damaged_entry(engine, entry, fault);
    return -1;
}

void prepare_entry(const char *engine, char *u_base_dir, image_entry *entry, const char *basename)
{
    mkdir_base_dir(u_base_dir, entry->name);
    if (entry->type == ENTRY_DIRECTORY)
        _mkdir(basename);
    // Standard error is not buffered: what stands in standard output's buffer happened earlier.
    fflush(stdout);
    fprintf(stderr, "(num-%d)%s type(%d), size(%d)\n", static_cast<int>(entry->number), basename,
            entry->type, entry->file_size);
    PLATFORM_LOG_AS(engine, "(num-%d)%s type(%d), size(%d)", static_cast<int>(entry->number),
                    basename, entry->type, entry->file_size);
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

int write_entry(const char *engine, const image *img, const char *filedata,
                const image_entry *entry, const char *basename)
{
    if (entry->type == ENTRY_DIRECTORY)
        return is_in_the_way(basename) ? -1 : 0;
    if (copy_file(filedata + entry->data_offset, basename, entry->file_size) != 0)
        return -1;
    if (still_holds(img, entry))
        return 0;
    damaged_entry(engine, entry, "the image has shrunk");
    return -1;
}
