// Directories and links, which are made by shell commands.
#include "update/dtt_update/directories_and_links.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/command_words.h"
#include "update/dtt_update_common/image_layout.h"
#include "update/dtt_update_common/trace_log.h"

#include <cstring>
#include <fnmatch.h>
#include <unistd.h>

static constexpr size_t MKDIR_COMMAND_SIZE = 512;
static constexpr char MKDIR_COMMAND[] = "/bin/mkdir -p ";
static constexpr size_t MKDIR_PATH_MAX = MKDIR_COMMAND_SIZE - sizeof MKDIR_COMMAND;

int _mkdir(const char *str)
{
    char cmd[MKDIR_COMMAND_SIZE];
    if (bounded_format(cmd, sizeof cmd, "%s%s", MKDIR_COMMAND, str))
        my_system(cmd);
    else
        TRACE("path too long for a directory: %s\n", str);
    return 0;
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

void mkdir_base_dir(char *force_dir, char *filename)
{
    char path[PATH_SIZE];
    parent_directory(force_dir, filename, path);
    if (access(path, F_OK) != 0)
        _mkdir(path);
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

int creat_link_file(char *basename, char *filename)
{
    link_texts link;
    char cmd[LINK_TEXT_SIZE];
    if (!take_link_texts(basename, filename, &link) || !link_command(&link, cmd))
        return -1;
    return my_system(cmd);
}

bool can_be_made(const char *path)
{
    return strlen(path) <= MKDIR_PATH_MAX && means_itself(path);
}
