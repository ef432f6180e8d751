// The directory that a run unpacks below, and which paths lie below it.
#ifndef DTT_UPDATE_BASE_DIRECTORY_H
#define DTT_UPDATE_BASE_DIRECTORY_H

#include "update/dtt_update_common/path_operations.h"

#include <climits>

struct base_directory {
    char path[PATH_SIZE];   // as it was given
    char real[PATH_MAX];    // without links
    char parent[PATH_SIZE]; // of the last path found to lie below; empty while that is not known
};

// Makes `base->path` the working directory and finds its real path. Returns 0, or -1.
int enter_base_directory(base_directory *base);

// Whether the directory that holds `path` lies below the base directory, whatever links lead there:
// a link that an entry has made must not lead a later one out. A directory that is missing is
// looked at as it would be made.
bool parent_lies_below(base_directory *base, const char *path);

// Forgets what has been found out: a link has been made since.
void links_have_changed(base_directory *base);

#endif
