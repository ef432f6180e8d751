// Text for people.
#include "companions/text/shown_text.h"

#include "companions/text/utf8.h"

// Whether the character of `size` bytes commands a terminal: among them the 32 behind ASCII, U+0080
// to U+009F.
static bool is_control(const unsigned char *bytes, size_t size)
{
    return size == 1 ? bytes[0] < ' ' || bytes[0] == 0x7F
                     : size == 2 && bytes[0] == 0xC2 && bytes[1] < 0xA0;
}

void print_shown(FILE *out, const char *text, size_t len)
{
    const unsigned char *const bytes = reinterpret_cast<const unsigned char *>(text);
    for (size_t i = 0; i < len;) {
        const size_t size = utf8_length(text + i, len - i);
        if (size > 0 && !is_control(bytes + i, size)) {
            fwrite(text + i, 1, size, out);
            i += size;
            continue;
        }
        const size_t end = i + (size > 0 ? size : 1);
        for (; i < end; i++)
            fprintf(out, "\\x%02x", static_cast<unsigned int>(bytes[i]));
    }
}
