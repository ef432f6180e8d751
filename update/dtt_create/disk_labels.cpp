// Labels of USB disks.
#include "update/dtt_create/disk_labels.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iconv.h>

static constexpr char hexdigit_number[] = "0123456789abcdefABCDEF";
static constexpr char ESCAPE[] = "\\x";
static constexpr size_t ESCAPE_LENGTH = 2;
static constexpr size_t DIGITS = 2;

int check_is_gbk(char *str)
{
    if (str == nullptr)
        return 0;
    const size_t len = strlen(str);
    printf("check_is_gbk:%d\n", static_cast<int>(len));
    for (size_t i = 0; i < len; i++)
        printf("%x ", static_cast<unsigned int>(static_cast<unsigned char>(str[i])));
    puts("~~");
    // An escape holds a backslash, which is no hexadecimal digit.
    return str[strspn(str, hexdigit_number)] != '\0' ? 1 : 0;
}

int code_convert(char *from_charset, char *to_charset, char *inbuf, int inlen, char *outbuf,
                 int outlen)
{
    const iconv_t conversion = iconv_open(to_charset, from_charset);
    if (conversion == reinterpret_cast<iconv_t>(-1))
        return -1;
    size_t in_left = static_cast<size_t>(inlen);
    size_t out_left = static_cast<size_t>(outlen);
    memset(outbuf, 0, out_left);
    const size_t result = iconv(conversion, &inbuf, &in_left, &outbuf, &out_left);
    iconv_close(conversion);
    return result == static_cast<size_t>(-1) ? -1 : 0;
}

static char gb2312[] = "gb2312";
static char utf8[] = "utf-8";

int g2u(char *inbuf, size_t inlen, char *outbuf, size_t outlen)
{
    return code_convert(gb2312, utf8, inbuf, static_cast<int>(inlen), outbuf,
                        static_cast<int>(outlen));
}

int u2g(char *inbuf, int inlen, char *outbuf, int outlen)
{
    return code_convert(utf8, gb2312, inbuf, inlen, outbuf, outlen);
}

// Resolves the escapes of the `len` bytes at `lable` into the cleared `bytes`. Returns whether
// there was one.
static bool resolve_escapes(const char *lable, size_t len, char (&bytes)[LABEL_SIZE])
{
    bool obvious = false;
    const size_t end = std::min(len, LABEL_SIZE);
    size_t j = 0;
    for (size_t i = 0; i < end; j++) {
        if (i + ESCAPE_LENGTH > end || strncmp(lable + i, ESCAPE, ESCAPE_LENGTH) != 0) {
            bytes[j] = lable[i++];
            printf("2 hex_temp[%d]=%02x\n", static_cast<int>(j),
                   static_cast<unsigned int>(static_cast<unsigned char>(bytes[j])));
            continue;
        }
        // A label may end in the middle of an escape.
        i += ESCAPE_LENGTH;
        char digits[DIGITS + 1] = "";
        if (i < end)
            memcpy(digits, lable + i, std::min(DIGITS, end - i));
        i += DIGITS;
        // What is no pair of digits is the byte 0, where the text will end.
        const bool pair = isxdigit(static_cast<unsigned char>(digits[0])) != 0 &&
                          isxdigit(static_cast<unsigned char>(digits[1])) != 0;
        bytes[j] = pair ? static_cast<char>(strtoul(digits, nullptr, 16)) : '\0';
        obvious = true;
        printf("1 hex_temp[%d]=%02x\n", static_cast<int>(j),
               static_cast<unsigned int>(static_cast<unsigned char>(bytes[j])));
    }
    return obvious;
}

int get_udisk_real_name(char *lable)
{
    if (lable == nullptr)
        return -1;
    printf("--get_udisk_real_name:%s\n", lable);
    const size_t len = strlen(lable) + 1;
    char hex_temp[LABEL_SIZE] = "";
    const bool obvious = resolve_escapes(lable, len, hex_temp);

    // The last byte is kept back for the terminator. The zeros behind the text convert to zeros, or
    // find no room; the text before them is whole all the same.
    char name[LABEL_SIZE] = "";
    g2u(hex_temp, sizeof hex_temp, name, sizeof name - 1);
    const size_t name_len = strlen(name);
    printf("strlen(name)=%d\n", static_cast<int>(name_len));
    if (obvious || (name_len > 0 && name_len >= (len - 1) / 2)) {
        memset(lable, 0, len);
        memcpy(lable, name, name_len);
    }
    printf("get_udisk_real_name:%s\n", lable);
    return 0;
}
