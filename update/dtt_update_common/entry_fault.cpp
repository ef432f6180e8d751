// Whether an entry can be applied.
#include "update/dtt_update_common/entry_fault.h"

#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/shell_words.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <unistd.h>

// What this lets through fits the buffers of a link, and its command leaves it as it is.
static const char *link_fault(const image_entry *entry, const char *path)
{
    link_texts link;
    if (!take_link_texts(path, entry->name, &link))
        return "its path and target are too long for a link";
    return is_shell_safe_word(path) && is_shell_safe_word(link.name) &&
                   is_shell_safe_word(link.target)
               ? nullptr
               : "its path or target would be taken apart by a command";
}

static const char *command_fault(const image_entry *entry, const entry_place *place,
                                 bool made_is_there)
{
    static constexpr char NOT_TO_BE_MADE[] = "its directory can't be made by a command";
    if (!made_is_there && !can_be_made(place->made))
        return NOT_TO_BE_MADE;
    switch (form_of(entry->type)) {
    case entry_form::directory:
        return can_be_made(place->basename) ? nullptr : NOT_TO_BE_MADE;
    case entry_form::link:
        return link_fault(entry, place->basename);
    case entry_form::file:
        break;
    }
    return installs(entry->type, place->basename) && !is_shell_safe_word(place->basename)
               ? "its path would be taken apart by a command"
               : nullptr;
}

const char *entry_fault(base_directory *base, const image_entry *entry, entry_place *place)
{
    if (!find_place(base->path, entry, place))
        return "its path is too long";
    if (climbs_out(entry))
        return "its name leads out of the directory";
    if (!stays_below(base, place->parent))
        return "a link leads it out of the directory, or nowhere";
    const int there = base->top != nullptr ? note_file_system(base, place->parent) : 0;
    if (there < 0)
        return strerror(ENOMEM);
    const bool made_is_there = strcmp(place->made, place->parent) == 0
                                   ? there != 0
                                   : base->top != nullptr && access(place->made, F_OK) == 0;
    return command_fault(entry, place, made_is_there);
}

// Whether the path names no file: what stands there is a directory, or nothing.
static bool names_directory(const char *path)
{
    const char *const name = last_component(path);
    return name[0] == '\0' || strcmp(name, ".") == 0 || strcmp(name, "..") == 0;
}

static bool has_long_component(const char *path)
{
    for (; *path != '\0'; path += strspn(path, "/")) {
        const size_t len = strcspn(path, "/");
        if (len > NAME_MAX)
            return true;
        path += len;
    }
    return false;
}

const char *step_fault(const image_entry *entry, const entry_place *place)
{
    char cmd[INSTALL_COMMAND_SIZE];
    if (has_long_component(place->basename))
        return "a part of its path has more than 255 characters";
    if (strcmp(place->made, place->parent) != 0)
        return "the name of its directory is cut at its ';', as a link's would be";
    if (installs(entry->type, place->basename) &&
        !install_command(entry->type, place->basename, cmd))
        return "its path is too long for the command that installs it";
    switch (form_of(entry->type)) {
    case entry_form::directory:
        return nullptr;
    case entry_form::link:
        if (link_target(entry)[0] == '\0')
            return "it is a link without a target";
        break;
    case entry_form::file:
        break;
    }
    return names_directory(place->basename) ? "its name is that of a directory" : nullptr;
}
