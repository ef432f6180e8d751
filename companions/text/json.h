// JSON, as RFC 8259 has it.
#ifndef COMPANIONS_TEXT_JSON_H
#define COMPANIONS_TEXT_JSON_H

#include <cstddef>
#include <cstdio>

// Writes the `len` bytes at `text` to `out` as a string. A byte that is no part of UTF-8 stands as
// \u00XX.
void print_json_text(FILE *out, const char *text, size_t len);

// Writes `before`, and behind it the text up to its terminator as a string.
void print_json_text(FILE *out, const char *before, const char *text);

#endif
