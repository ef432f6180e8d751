// The directory that a run unpacks below.
#include "update/dtt_update/base_directory.h"

#include "update/dtt_update_common/bounded_text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

int enter_base_directory(base_directory *base)
{
    base->parent[0] = '\0';
    return chdir(base->path) == 0 && realpath(".", base->real) != nullptr ? 0 : -1;
}

static bool lies_below(const base_directory *base, const char *real)
{
    const size_t len = strlen(base->real);
    return strncmp(real, base->real, len) == 0 && (real[len] == '/' || real[len] == '\0');
}

// Goes on from the real directory `at` of PATH_MAX bytes by one component, which may be missing.
static bool step_into(char *at, const char *component)
{
    if (strcmp(component, ".") == 0)
        return true;
    if (strcmp(component, "..") == 0) {
        dirname(at);
        return true;
    }
    char next[PATH_MAX];
    struct stat st;
    if (!bounded_format(next, sizeof next, "%s/%s", at, component))
        return false;
    return lstat(next, &st) == 0 ? realpath(next, at) != nullptr : bounded_copy(at, PATH_MAX, next);
}

// The same for a directory that is not there yet: components that are missing will be plain
// directories, and links lead on from those that are not.
static bool would_lie_below(const base_directory *base, const char *directory)
{
    char rest[PATH_SIZE];
    char at[PATH_MAX];
    known_to_fit(bounded_copy(rest, sizeof rest,
                              directory + std::min(strlen(base->path), strlen(directory))));
    known_to_fit(bounded_copy(at, sizeof at, base->real));
    char *state = nullptr;
    for (const char *component = strtok_r(rest, "/", &state); component != nullptr;
         component = strtok_r(nullptr, "/", &state))
        if (!step_into(at, component) || !lies_below(base, at))
            return false;
    return true;
}

bool parent_lies_below(base_directory *base, const char *path)
{
    if (strcmp(base->real, "/") == 0)
        return true;
    char parent[PATH_SIZE];
    known_to_fit(bounded_copy(parent, sizeof parent, path));
    dirname(parent);
    if (base->parent[0] != '\0' && strcmp(parent, base->parent) == 0)
        return true;
    char real[PATH_MAX];
    const bool below =
        realpath(parent, real) != nullptr ? lies_below(base, real) : would_lie_below(base, parent);
    if (below)
        known_to_fit(bounded_copy(base->parent, sizeof base->parent, parent));
    return below;
}

void links_have_changed(base_directory *base)
{
    base->parent[0] = '\0';
}
