// Any label, decoded in the buffer that its caller has to provide.
#include "fuzz/harness.h"

#include "update/dtt_create/disk_labels.h"

#include <algorithm>
#include <cstring>
#include <iconv.h>
#include <memory>
#include <string>

static bool is_utf8(char *text)
{
    static const iconv_t from_utf8 = iconv_open("UCS-4LE", "UTF-8");
    check(from_utf8 != reinterpret_cast<iconv_t>(-1), "the system has the conversions");
    char wide[4 * LABEL_SIZE];
    char *out = wide;
    size_t in_left = strlen(text);
    size_t out_left = sizeof wide;
    return iconv(from_utf8, &text, &in_left, &out, &out_left) != static_cast<size_t>(-1);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // On the heap, where the bytes behind it are guarded.
    const std::unique_ptr<char[]> label(new char[LABEL_SIZE]());
    strncpy(label.get(), std::string(data, data + size).c_str(), LABEL_SIZE - 1);
    const bool has_escape = strstr(label.get(), "\\x") != nullptr;
    const int decode = check_is_gbk(label.get());
    check(decode == 1 || !has_escape, "a label with an escape is to be decoded");
    check(get_udisk_real_name(label.get()) == 0, "a label is decoded");
    const char *const behind = label.get() + LABEL_SIZE;
    const char *const end = std::find<const char *>(label.get(), behind, '\0');
    check(end < behind, "the label has an end");
    check(std::count(end, behind, '\0') == behind - end, "the buffer is zero behind the label");
    check(!has_escape || is_utf8(label.get()), "a label that had an escape is UTF-8");
    return 0;
}
