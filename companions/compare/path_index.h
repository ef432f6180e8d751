// The paths of an image's entries in order, to ask which entry has a path last, and what of a
// directory the image has.
#ifndef COMPANIONS_PATH_INDEX_H
#define COMPANIONS_PATH_INDEX_H

#include "update/dtt_update_common/image_reader.h"

struct indexed_path {
    size_t at; // in the texts
    uint32_t number;
};

struct path_index {
    char *texts; // zero-terminated; a directory's ends in '/'
    size_t texts_used;
    size_t texts_size;
    indexed_path *paths; // sorted
    size_t count;
    size_t room;
};

// Takes the paths of all entries that can be read. Returns false if there is no memory for them.
// The index is released in either case.
bool build_index(path_index *index, const image_file *img);
void release_index(path_index *index);

const char *indexed_text(const path_index *index, size_t i);

// Whether an entry behind the entry `number` has the same path.
bool comes_again(const path_index *index, const char *path, uint32_t number);

// Whether the image has the path as an entry or as a directory that entries lie in.
bool has_path(const path_index *index, const char *path);

#endif
