// Directories and links, which are made by shell commands.
#include "update/dtt_update/directories_and_links.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/trace_log.h"

#include <unistd.h>

int _mkdir(const char *str)
{
    char cmd[MKDIR_COMMAND_SIZE];
    if (bounded_format(cmd, sizeof cmd, "%s%s", MKDIR_COMMAND, str))
        my_system(cmd);
    else
        TRACE("path too long for a directory: %s\n", str);
    return 0;
}

void mkdir_base_dir(char *force_dir, char *filename)
{
    char path[PATH_SIZE];
    parent_directory(force_dir, filename, path);
    if (access(path, F_OK) != 0)
        _mkdir(path);
}

int creat_link_file(char *basename, char *filename)
{
    link_texts link;
    char cmd[LINK_COMMAND_SIZE];
    if (!take_link_texts(basename, filename, &link) ||
        !bounded_format(cmd, sizeof cmd, LINK_COMMAND, link.directory, link.target, link.name))
        return -1;
    return my_system(cmd);
}
