// Joining and cutting paths. These are the system's own operations; `dirname` is not the one of
// the C library.
#ifndef UPDATE_DTT_UPDATE_COMMON_PATH_OPERATIONS_H
#define UPDATE_DTT_UPDATE_COMMON_PATH_OPERATIONS_H

#include <cstddef>

// Size of every buffer that holds a path, terminator included.
constexpr size_t PATH_SIZE = 1024;

// Joins `path` and `filename`, less its leading '/' characters, with exactly one '/' added where
// `path` does not end in one, into `outbuf` of PATH_SIZE bytes. A null `path` is the empty text.
// Returns `outbuf`, which holds the empty text if the joined path does not fit.
char *concat_path_file(const char *path, const char *filename, char *outbuf);

// A pointer to the last character of `s` if it is `c`, else null; null for a null `s`.
char *last_char_is(const char *s, int c);

// Cuts `s` in place at its last '/', if there is one. A null `s` is left alone.
void dirname(const char *s);

// What follows the last '/' of `path`, inside `path`; all of it where there is none.
const char *last_component(const char *path);

// The last component of `s`, inside `s`. Trailing '/' characters are cut off in place, so `s` must
// be writable if it has any. A text of nothing but '/' gives the empty text, null gives null.
char *get_dirname(const char *s);

#endif
