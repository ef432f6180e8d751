// State of a walk over a directory tree, handed down through the recursion. The image builder and
// the target search use it, each for itself.
#ifndef UPDATE_DTT_UPDATE_COMMON_ARENA_H
#define UPDATE_DTT_UPDATE_COMMON_ARENA_H

#include "update/dtt_update_common/path_operations.h"

#include <cstring>
#include <sys/stat.h>

struct arena {
    struct stat st;          // of the item that the walk looked at last
    char path[PATH_SIZE];    // builder: name of the directory being listed, empty at the top
    char devpath[PATH_SIZE]; // the path being visited
};

// A path of this length is not listed any more: one '/' and at least one character have to fit.
constexpr size_t WALK_PATH_MAX = PATH_SIZE - 2;

// Where the names of the directory `ap->devpath` are put: behind its first `len` characters, the
// last of them a '/' that is added if it is missing, and at most `rem` of them.
struct name_place {
    size_t len;
    size_t rem;
};

// Returns false if the path is too long to be listed.
[[nodiscard]] inline bool begin_listing(struct arena *ap, name_place *place)
{
    const size_t len = strlen(ap->devpath);
    if (len >= WALK_PATH_MAX)
        return false;
    *place = {len, WALK_PATH_MAX - len};
    if (last_char_is(ap->devpath, '/') == nullptr) {
        ap->devpath[place->len++] = '/';
        ap->devpath[place->len] = '\0';
    }
    return true;
}

#endif
