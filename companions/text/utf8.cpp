// Characters of UTF-8 texts.
#include "companions/text/utf8.h"

size_t utf8_length(const char *text, size_t len)
{
    const unsigned char *const bytes = reinterpret_cast<const unsigned char *>(text);
    const unsigned char lead = bytes[0];
    const size_t size = lead < 0x80                   ? 1
                        : lead >= 0xC2 && lead < 0xE0 ? 2
                        : lead >= 0xE0 && lead < 0xF0 ? 3
                        : lead >= 0xF0 && lead < 0xF5 ? 4
                                                      : 0;
    if (size == 0 || size > len)
        return 0;
    for (size_t i = 1; i < size; i++)
        if ((bytes[i] & 0xC0U) != 0x80)
            return 0;
    if ((lead == 0xE0 && bytes[1] < 0xA0) || (lead == 0xED && bytes[1] >= 0xA0) ||
        (lead == 0xF0 && bytes[1] < 0x90) || (lead == 0xF4 && bytes[1] >= 0x90))
        return 0;
    return size;
}
