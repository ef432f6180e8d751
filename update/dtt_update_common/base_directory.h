// The directory that a run unpacks below: the file systems that it has written to there, and the
// links that it has made, through which no later entry may leave it (path traversal).
#ifndef UPDATE_DTT_UPDATE_COMMON_BASE_DIRECTORY_H
#define UPDATE_DTT_UPDATE_COMMON_BASE_DIRECTORY_H

#include "update/dtt_update_common/path_operations.h"

#include <sys/types.h>

struct made_link {
    dev_t device;
    ino_t inode;
};

struct written_system {
    dev_t device;
    int fd; // of a directory on it, or -1
};

// Zeroed, it is one that nothing has been unpacked below.
struct base_directory {
    char path[PATH_SIZE];   // as it was given
    const char *top;        // where it is found now; null if this machine is not to be looked at
    char parent[PATH_SIZE]; // of the entry before, if it is known to be there; else empty
    made_link *links;
    size_t link_count;
    written_system *systems;
    size_t system_count;
};

// Whether an entry in the directory `parent` stays below the base directory. Links that the device
// had before are its own and are followed; those of this run must not lead out, and behind none of
// them ".." is taken.
[[nodiscard]] bool stays_below(const base_directory *base, const char *parent);

// Remembers the file system of the directory `parent` ahead of the first write to it: a failure to
// write something back is told to who has had it open by then. Returns 1, 0 if there is no such
// directory, or -1 if there is no memory.
[[nodiscard]] int note_file_system(base_directory *base, const char *parent);

// Remembers the link that has been made at `path`, if it has been. Returns 0, or -1 if there is no
// memory.
[[nodiscard]] int note_link(base_directory *base, const char *path);

// Brings everything that was written to the medium. Returns 0, or -1 with errno set.
[[nodiscard]] int sync_systems(const base_directory *base);

// Forgets all of it.
void release_base_directory(base_directory *base);

#endif
