// Where an image belongs on this device: the directory in front of one whose name begins with the
// image's top directory.
#ifndef UPDATE_DTT_UPDATE_TARGET_SEARCH_H
#define UPDATE_DTT_UPDATE_TARGET_SEARCH_H

#include "update/dtt_update_common/arena.h"
#include "update_header.h"

// Searches from the directory of the header's place code and leaves the path in front of the hit,
// with its trailing '/', in `base_dir` of PATH_SIZE bytes; without a hit, the place's own
// directory, which is the empty text for a place that has none. Returns 0, or -1 for a null
// `pheader`.
int find_dir(update_header_t *pheader, char *base_dir);

// Searches below `ap->devpath` for a directory whose name begins with `dirname`, the direct
// subdirectories first. Returns 0 with the path in front of the hit in `ap->devpath`, 1 if nothing
// matched, or -1 if the directory can't be listed or its path is too long. A subdirectory that
// can't be listed holds nothing. Links are not followed; one directory is open a level.
[[nodiscard]] int _find_dir(struct arena *ap, char *dirname);

// The directory of a place code in host order as a constant text, empty if it has none.
char *place2dir(int place);

#endif
