// Bringing the entries of an image to the file system.
#include "update/dtt_update/unpack.h"

#include "update/dtt_update_common/bounded_text.h"
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

// Builds the command that makes a link. Returns false if a text does not fit its buffer.
static bool link_command(const char *basename, const char *filename, char *cmd)
{
    char dircname[LINK_TEXT_SIZE];
    char tmpname[LINK_TEXT_SIZE];
    const char *link_a = "";
    const char *link_b = "";
    if (!copy_text(dircname, sizeof dircname, basename) ||
        !copy_text(tmpname, sizeof tmpname, filename))
        return false;
    char *const divider = strrchr(tmpname, ';');
    if (divider != nullptr && divider[1] != '\0') {
        *divider = '\0';
        link_b = divider + 1;
        link_a = get_dirname(tmpname);
    }
    dirname(dircname);
    return format_text(cmd, LINK_TEXT_SIZE, "cd /%s/ && /bin/ln -sf %s %s", dircname, link_b,
                       link_a);
}

int creat_link_file(char *basename, char *filename)
{
    char cmd[LINK_TEXT_SIZE];
    if (!link_command(basename, filename, cmd))
        return -1;
    return my_system(cmd);
}

static void copy_failed(const char *engine, upgrade_info_t *update_info, const char *basename)
{
    update_info->failed_nums++;
    PLATFORM_LOG_AS(engine, "copy_file ----------  %s --------- failed.", basename);
    TRACE_AS(engine, "copy_file failed :---------- %s ---------- \n", basename);
}

static void damaged_entry(const char *engine, const image_entry *entry, const char *fault)
{
    TRACE_AS(engine, "image is damaged at entry %u: %s\n", entry->number, fault);
}

int next_entry(const char *engine, upgrade_info_t *update_info, entry_walk *walk,
               const char *u_base_dir, image_entry *entry)
{
    const char *const fault = read_entry(walk, entry);
    if (fault == nullptr)
        return 0;
    damaged_entry(engine, entry, fault);
    // An entry without a name would have gone somewhere below this directory.
    copy_failed(engine, update_info, u_base_dir);
    return -1;
}

// The full path of the entry's file or link, into `basename` of PATH_SIZE bytes, empty if it does
// not fit.
static void target_path(const char *u_base_dir, const image_entry *entry, char *basename)
{
    concat_path_file(u_base_dir, entry->name, basename);
    if (entry->type == ENTRY_LINK)
        cut_link_filename(basename);
}

// A missing directory is made by a shell, which takes the path apart at such a character: what it
// made then would be other directories, wherever they are.
static bool directory_can_be_made(const char *path)
{
    const bool fits_command =
        strlen(path) <= MKDIR_PATH_MAX && strpbrk(path, " \t\n|&;<>()$`\"'\\") == nullptr;
    return fits_command || access(path, F_OK) == 0;
}

// Why the entry can't be unpacked to `basename` below `u_base_dir`, or null.
static const char *entry_fault(const char *u_base_dir, const image_entry *entry,
                               const char *basename)
{
    if (basename[0] == '\0')
        return "its path is too long";
    if (climbs_out(entry))
        return "its name leads out of the directory";

    char parent[PATH_SIZE];
    parent_directory(u_base_dir, entry->name, parent);
    if (!directory_can_be_made(parent) ||
        (entry->type == ENTRY_DIRECTORY && !directory_can_be_made(basename)))
        return "its directory can't be made by a command";
    char cmd[LINK_TEXT_SIZE];
    if (entry->type == ENTRY_LINK && !link_command(basename, entry->name, cmd))
        return "its path and target are too long for a link";
    return nullptr;
}

int check_entries(const char *engine, upgrade_info_t *update_info, const image *img,
                  const char *u_base_dir)
{
    entry_walk walk;
    start_walk(&walk, img);
    const uint32_t count = ntohl(img->header.ih_filenum);
    for (uint32_t i = 0; i < count; i++) {
        image_entry entry;
        if (next_entry(engine, update_info, &walk, u_base_dir, &entry) != 0)
            return -1;
        char basename[PATH_SIZE];
        target_path(u_base_dir, &entry, basename);
        const char *const fault = entry_fault(u_base_dir, &entry, basename);
        if (fault != nullptr) {
            damaged_entry(engine, &entry, fault);
            copy_failed(engine, update_info, basename[0] != '\0' ? basename : entry.name);
            return -1;
        }
    }
    return 0;
}

void prepare_entry(const char *engine, char *u_base_dir, image_entry *entry, char *basename)
{
    mkdir_base_dir(u_base_dir, entry->name);
    target_path(u_base_dir, entry, basename);
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

int write_entry(const char *engine, upgrade_info_t *update_info, const image *img,
                const char *filedata, const image_entry *entry, const char *basename)
{
    const bool directory = entry->type == ENTRY_DIRECTORY;
    if (directory && !is_in_the_way(basename))
        return 0;
    int status =
        directory ? -1 : copy_file(filedata + entry->data_offset, basename, entry->file_size);
    if (status == 0 && !still_holds(img, entry)) {
        damaged_entry(engine, entry, "the image has shrunk");
        status = -1;
    }
    if (status != 0)
        copy_failed(engine, update_info, basename);
    return status;
}
