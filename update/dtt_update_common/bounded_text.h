// Copying and formatting into buffers of fixed size, where a text that does not fit is an error.
#ifndef UPDATE_DTT_UPDATE_COMMON_BOUNDED_TEXT_H
#define UPDATE_DTT_UPDATE_COMMON_BOUNDED_TEXT_H

#include <cstddef>
#include <cstring>

// Both return false and leave the empty text if the text and its terminator take more than `size`
// bytes: half a path names another file, and half a command line is another command.
[[nodiscard]] bool bounded_copy(char *buf, size_t size, const char *text);
[[nodiscard]] bool bounded_format(char *buf, size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// Copies the text in `from` to a buffer that is known to hold it.
template <size_t N, size_t M> void fixed_copy(char (&to)[N], const char (&from)[M])
{
    static_assert(M <= N, "holds any text of the other");
    memcpy(to, from, M);
}

#endif
