// Where an entry goes below a base directory, and whether commands leave its path as it is.
#include "update/dtt_update_common/entry_paths.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/command_words.h"
#include "update/dtt_update_common/image_layout.h"

#include <cstring>
#include <fnmatch.h>
#include <initializer_list>

static constexpr size_t MKDIR_PATH_MAX = MKDIR_COMMAND_SIZE - sizeof MKDIR_COMMAND;

void entry_target(const char *base, const image_entry *entry, char *path)
{
    concat_path_file(base, entry->name, path);
    if (entry->type == ENTRY_LINK)
        cut_link_filename(path);
}

void cut_link_filename(const char *s)
{
    char *const divider = s != nullptr ? const_cast<char *>(strrchr(s, LINK_DIVIDER)) : nullptr;
    if (divider != nullptr)
        *divider = '\0';
}

void parent_directory(const char *force_dir, const char *filename, char *path)
{
    concat_path_file(force_dir, filename, path);
    cut_link_filename(path);
    dirname(path);
}

const char *climb_fault(const image_entry *entry)
{
    return climbs_out(entry) ? "its name leads out of the directory" : nullptr;
}

// What this lets through fits every buffer behind it, and every command that it is put into leaves
// it as it is.
const char *command_fault(const char *base, const image_entry *entry, const char *path,
                          bool parent_is_there)
{
    char parent[PATH_SIZE];
    parent_directory(base, entry->name, parent);
    if ((!parent_is_there && !can_be_made(parent)) ||
        (entry->type == ENTRY_DIRECTORY && !can_be_made(path)))
        return "its directory can't be made by a command";
    link_texts link;
    char cmd[LINK_TEXT_SIZE];
    if (entry->type == ENTRY_LINK) {
        if (!take_link_texts(path, entry->name, &link) || !link_command(&link, cmd))
            return "its path and target are too long for a link";
        if (!means_itself(path) || !link_means_itself(&link))
            return "its path or target would be taken apart by a command";
    }
    if (installs(entry->type, path) && !means_itself(path))
        return "its path would be taken apart by a command";
    return nullptr;
}

bool can_be_made(const char *path)
{
    return strlen(path) <= MKDIR_PATH_MAX && means_itself(path);
}

bool take_link_texts(const char *basename, const char *filename, link_texts *link)
{
    link->name = "";
    link->target = "";
    if (!bounded_copy(link->directory, sizeof link->directory, basename) ||
        !bounded_copy(link->path, sizeof link->path, filename))
        return false;
    dirname(link->directory);
    char *const divider = strrchr(link->path, LINK_DIVIDER);
    if (divider != nullptr && divider[1] != '\0') {
        *divider = '\0';
        link->target = divider + 1;
        link->name = get_dirname(link->path);
    }
    return true;
}

// Whether the shell would put the link's own name in the target's place: an empty file of that name
// stands there when the command is run.
static bool target_matches_link(const link_texts *link)
{
    const char *const slash = strrchr(link->target, '/');
    const char *const last = slash != nullptr ? slash + 1 : link->target;
    return strcmp(last, link->name) != 0 && fnmatch(last, link->name, FNM_PERIOD) == 0;
}

bool link_means_itself(const link_texts *link)
{
    return means_itself(link->directory, "/") && means_itself(link->name, link->directory) &&
           means_itself(link->target, link->directory) && !target_matches_link(link);
}

bool link_command(const link_texts *link, char *cmd)
{
    return bounded_format(cmd, LINK_TEXT_SIZE, "cd /%s/ && /bin/ln -sf %s %s", link->directory,
                          link->target, link->name);
}

bool is_kernel_file(const char *filename)
{
    for (const char *name : {"rk3288-tyx.dtb", "zImage", "extlinux.conf"})
        if (strstr(filename, name) != nullptr)
            return true;
    return false;
}

bool installs(int type, const char *filename)
{
    return type == ENTRY_BOOT || (type == ENTRY_KERNEL && is_kernel_file(filename));
}

bool install_command(int type, const char *filename, char *cmd)
{
    return type == ENTRY_BOOT
               ? bounded_format(cmd, INSTALL_COMMAND_SIZE, "dd if=%s of=/dev/mmcblk0p1", filename)
               : bounded_format(cmd, INSTALL_COMMAND_SIZE, "/bin/cp %s /mntker/ -rf", filename);
}

const char *install_fault(int type, const char *filename)
{
    char cmd[INSTALL_COMMAND_SIZE];
    return !installs(type, filename) || install_command(type, filename, cmd)
               ? nullptr
               : "its path is too long for the command that installs it";
}
