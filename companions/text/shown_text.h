// Text for people. Names come from whoever made an image or a disk: what would move the cursor of a
// terminal, or change its colours, is shown by its code.
#ifndef COMPANIONS_TEXT_SHOWN_TEXT_H
#define COMPANIONS_TEXT_SHOWN_TEXT_H

#include <cstddef>
#include <cstdio>

// Writes the `len` bytes at `text` to `out`. A byte of a control character, and one that is no part
// of UTF-8, stands as \xNN.
void print_shown(FILE *out, const char *text, size_t len);

#endif
