// Copying and formatting into buffers of fixed size.
#include "update/dtt_update_common/bounded_text.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

bool bounded_copy(char *buf, size_t size, const char *text)
{
    const size_t len = strlen(text);
    if (len >= size) {
        buf[0] = '\0';
        return false;
    }
    memcpy(buf, text, len + 1);
    return true;
}

bool bounded_format(char *buf, size_t size, const char *format, ...)
{
    va_list args;
    va_start(args, format);
    const int len = vsnprintf(buf, size, format, args);
    va_end(args);
    if (len < 0 || static_cast<size_t>(len) >= size) {
        buf[0] = '\0';
        return false;
    }
    return true;
}
