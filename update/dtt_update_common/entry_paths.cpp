// Where an entry goes below a base directory, and whether commands leave its path as it is.
#include "update/dtt_update_common/entry_paths.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/image_layout.h"
#include "update/dtt_update_common/shell_words.h"

#include <cstring>
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
const char *command_fault(const image_entry *entry, const char *path, const char *parent,
                          bool parent_is_there)
{
    if ((!parent_is_there && !can_be_made(parent)) ||
        (entry->type == ENTRY_DIRECTORY && !can_be_made(path)))
        return "its directory can't be made by a command";
    link_texts link;
    if (entry->type == ENTRY_LINK) {
        if (!take_link_texts(path, entry->name, &link))
            return "its path and target are too long for a link";
        if (!is_shell_safe_word(path) || !is_shell_safe_word(link.name) ||
            !is_shell_safe_word(link.target))
            return "its path or target would be taken apart by a command";
    }
    if (installs(entry->type, path) && !is_shell_safe_word(path))
        return "its path would be taken apart by a command";
    return nullptr;
}

bool can_be_made(const char *path)
{
    return strlen(path) <= MKDIR_PATH_MAX && is_shell_safe_word(path);
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
