// Where an entry goes below a base directory, and whether commands leave its path as it is.
#include "update/dtt_update_common/entry_paths.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/image_layout.h"
#include "update/dtt_update_common/shell_words.h"

#include <cstring>
#include <initializer_list>

static constexpr size_t MKDIR_PATH_MAX = MKDIR_COMMAND_SIZE - sizeof MKDIR_COMMAND;

bool find_place(const char *base, const image_entry *entry, entry_place *place)
{
    concat_path_file(base, entry->name, place->basename);
    parent_directory(base, entry->name, place->made);
    switch (form_of(entry->type)) {
    case entry_form::file:
    case entry_form::directory:
        break;
    case entry_form::link:
        cut_link_filename(place->basename);
        break;
    }
    const bool fits = place->basename[0] != '\0';
    if (!fits)
        fixed_copy(place->basename, entry->name);
    fixed_copy(place->parent, place->basename);
    dirname(place->parent);
    return fits;
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
               ? bounded_format(cmd, INSTALL_COMMAND_SIZE, "dd if=%s of=" BOOT_PARTITION, filename)
               : bounded_format(cmd, INSTALL_COMMAND_SIZE, "/bin/cp %s " KERNEL_MOUNT_POINT "/ -rf",
                                filename);
}
