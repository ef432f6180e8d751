// Copying and formatting into buffers of fixed size, where a text that does not fit is an error.
#ifndef DTT_UPDATE_COMMON_BOUNDED_TEXT_H
#define DTT_UPDATE_COMMON_BOUNDED_TEXT_H

#include <cassert>
#include <cstddef>

// Both return false and leave the empty text if the text and its terminator take more than `size`
// bytes: half a path names another file, and half a command line is another command.
[[nodiscard]] bool bounded_copy(char *buf, size_t size, const char *text);
[[nodiscard]] bool bounded_format(char *buf, size_t size, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// For a text that fits by what its caller has tested or by the sizes of its parts.
inline void known_to_fit(bool fits)
{
    assert(fits);
    static_cast<void>(fits);
}

#endif
