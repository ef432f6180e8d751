// The walk over the tree that becomes an image.
#ifndef UPDATE_DTT_CREATE_TREE_WALK_H
#define UPDATE_DTT_CREATE_TREE_WALK_H

#include "update/dtt_update_common/arena.h"

// Entries written and directories entered since the build began. One build at a time.
extern int total_file_nums;
extern int total_dir_nums;

// Appends everything in the directory `ap->devpath` and below it to `dst_fd`, in the order in which
// the file system lists it. Returns 0, or -1 if this very directory can't be listed or the image
// is broken. A subdirectory that can't be listed ends the listing of the one that holds it,
// and what can't be looked at is left out; neither is told.
[[nodiscard]] int get_dirs_and_files(int dst_fd, struct arena *ap);

// The target of the symbolic link `path` as a new zero-terminated heap string, which the caller
// frees, or null.
[[nodiscard]] char *xreadlink(const char *path);

#endif
