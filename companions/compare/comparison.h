// An image against what stands on the device, one finding at a time. Everything is read with read
// calls, never from a mapping: the image's disk may go away meanwhile.
#ifndef COMPANIONS_COMPARISON_H
#define COMPANIONS_COMPARISON_H

#include "companions/compare/path_index.h"

#include <dirent.h>
#include <sys/stat.h>

enum finding_kind {
    FOUND_SAME,
    FOUND_MISSING,
    FOUND_OTHER_CONTENT,
    FOUND_OTHER_KIND,
    FOUND_OTHER_TARGET, // of a link
    FOUND_UNREADABLE,
    FOUND_NO_PLACE,         // a path that fits nowhere, or leads out of the directory
    FOUND_NOT_ON_PARTITION, // of the boot loader or the kernel
    FOUND_EXTRA,
    FOUND_KINDS
};

struct finding {
    finding_kind kind;
    bool of_entry;      // `entry` and `there` hold something
    int error;          // errno of FOUND_UNREADABLE
    const char *detail; // in words, or null
    char path[PATH_SIZE];
    image_entry entry;
    struct stat there; // of the path; `st_mode` is 0 if nothing stands there
};

enum {
    COMPARE_CONTENTS = 1, // else a file of the same length counts as the same
    COMPARE_DEVICE = 2,   // the partitions as well
    COMPARE_EXTRA = 4     // what the image's directories hold beside its entries
};

struct comparison {
    const image_file *img;
    const char *dir;
    int what;          // COMPARE_...
    const char *fault; // why it can't go on, in words
    uint32_t broken;   // number of the entry that it can't go on at
    uint32_t entries;  // that have been compared
    entry_walk walk;
    path_index index;
    bool on_partition;     // the entry of the last finding is still to be looked for there
    image_entry installed; // that entry
    int kernel_fd;
    bool lists;      // has come to the listings
    size_t extra_at; // in the index: whose directories are being listed
    size_t extra_from;
    DIR *listing;
    char listed[PATH_SIZE]; // path below `dir` of the directory that is listed
};

// Begins to compare `img` with what stands below `dir`. Returns false with `c->fault`. The caller
// ends it in either case.
bool start_comparison(comparison *c, const image_file *img, const char *dir, int what);
void end_comparison(comparison *c);

// Goes on by one entry or one thing beside them. Returns false at the end, with `c->fault` set if
// it came too early.
bool next_finding(comparison *c, finding *found);

// A word for programs, and words for a person.
const char *finding_key(finding_kind kind);
const char *finding_words(finding_kind kind);

// What there is to say beside the words, or null.
const char *finding_detail(const finding *found);

#endif
