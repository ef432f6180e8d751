// Characters of UTF-8 texts.
#ifndef COMPANIONS_TEXT_UTF8_H
#define COMPANIONS_TEXT_UTF8_H

#include <cstddef>

// Bytes of the UTF-8 character at the beginning of the `len` bytes at `text`, more than none, or 0
// if there is none: a longer form than needed, a surrogate, or what lies behind the last character.
size_t utf8_length(const char *text, size_t len);

#endif
