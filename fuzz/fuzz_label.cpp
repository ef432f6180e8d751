// Any label, decoded in the buffer that its caller has to provide.
#include "fuzz/stub.h"

#include "update/dtt_create/disk_labels.h"

#include <algorithm>
#include <cstring>
#include <iconv.h>
#include <memory>

static iconv_t from_utf8;

int LLVMFuzzerInitialize(int *, char ***)
{
    from_utf8 = iconv_open("UCS-4LE", "UTF-8");
    const iconv_t from_label = iconv_open("utf-8", "gb2312");
    check(from_utf8 != reinterpret_cast<iconv_t>(-1) && from_label != reinterpret_cast<iconv_t>(-1),
          "the system has the conversions");
    iconv_close(from_label);
    return 0;
}

static bool is_utf8(char *text)
{
    char wide[4 * LABEL_SIZE];
    char *out = wide;
    size_t in_left = strlen(text);
    size_t out_left = sizeof wide;
    iconv(from_utf8, nullptr, nullptr, nullptr, nullptr);
    return iconv(from_utf8, &text, &in_left, &out, &out_left) != static_cast<size_t>(-1);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // On the heap, where the bytes behind it are guarded.
    const std::unique_ptr<char[]> label(new char[LABEL_SIZE]());
    memcpy(label.get(), data, std::min(size, LABEL_SIZE - 1));
    const size_t len = strlen(label.get());
    memset(label.get() + len, 0, LABEL_SIZE - len);
    const bool has_escape = strstr(label.get(), "\\x") != nullptr;

    const int decode = check_is_gbk(label.get());
    check(decode == 1 || !has_escape, "a label with an escape is to be decoded");
    check(get_udisk_real_name(label.get()) == 0, "a label is decoded");

    char *const end = static_cast<char *>(memchr(label.get(), '\0', LABEL_SIZE));
    check(end != nullptr, "the label has an end");
    check(std::all_of(end, label.get() + LABEL_SIZE, [](char c) { return c == '\0'; }),
          "the buffer is zero behind the label");
    check(!has_escape || is_utf8(label.get()), "a label that had an escape is UTF-8");
    return 0;
}
