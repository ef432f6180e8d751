// State of a walk over a directory tree, handed down through the recursion. The image builder and
// the target search use it, each for itself.
#ifndef DTT_UPDATE_COMMON_ARENA_H
#define DTT_UPDATE_COMMON_ARENA_H

#include "update/dtt_update_common/path_operations.h"

#include <sys/stat.h>

struct arena {
    struct stat st;          // of the item that the walk looked at last
    char path[PATH_SIZE];    // builder: name of the directory being listed, empty at the top
    char devpath[PATH_SIZE]; // the path being visited
};

// A path of this length is not listed any more: one '/' and at least one character have to fit.
constexpr size_t WALK_PATH_MAX = PATH_SIZE - 2;

#endif
