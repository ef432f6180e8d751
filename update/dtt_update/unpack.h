// Bringing the entries of an image to the file system.
#ifndef UPDATE_DTT_UPDATE_UNPACK_H
#define UPDATE_DTT_UPDATE_UNPACK_H

#include "update/dtt_update/update_run.h"

// Reads the next entry of the walk, tests it, and brings it to the file system; boot loader and
// kernel files are installed, card firmware is recorded. The test: that the entry can be read,
// stays below the base directory, fits every buffer, and that no command would take it apart.
// Returns 0, or UPDATE_COPY_FAILED for an entry that is damaged or can't be written, which is
// counted in the progress ahead of its lines, or what the installer returned. The link of a link
// entry is the last step; where its command fails, nothing else does, and its empty file stands.
[[nodiscard]] int unpack_entry(update_run *run, entry_walk *walk);

#endif
