// JSON, as RFC 8259 has it.
#include "companions/text/json.h"

#include "companions/text/utf8.h"

#include <cstring>

void print_json_text(FILE *out, const char *text, size_t len)
{
    fputc('"', out);
    for (size_t i = 0; i < len;) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        const size_t size = utf8_length(text + i, len - i);
        if (c == '"' || c == '\\')
            fprintf(out, "\\%c", c);
        else if (size == 0 || c < ' ' || c == 0x7F)
            fprintf(out, "\\u%04x", static_cast<unsigned int>(c));
        else
            fwrite(text + i, 1, size, out);
        i += size > 0 ? size : 1;
    }
    fputc('"', out);
}

void print_json_text(FILE *out, const char *before, const char *text)
{
    fputs(before, out);
    print_json_text(out, text, strlen(text));
}
