// Joining and cutting paths.
#include "update/dtt_update_common/path_operations.h"

#include "update/dtt_update_common/bounded_text.h"

#include <cstring>

char *concat_path_file(const char *path, const char *filename, char *outbuf)
{
    if (path == nullptr)
        path = "";
    while (*filename == '/')
        filename++;
    const char *divider = last_char_is(path, '/') != nullptr ? "" : "/";
    // What does not fit is told by the empty text.
    static_cast<void>(bounded_format(outbuf, PATH_SIZE, "%s%s%s", path, divider, filename));
    return outbuf;
}

char *last_char_is(const char *s, int c)
{
    if (s == nullptr || *s == '\0')
        return nullptr;
    const char *last = s + strlen(s) - 1;
    return *last == static_cast<char>(c) ? const_cast<char *>(last) : nullptr;
}

void dirname(const char *s)
{
    char *slash = s != nullptr ? const_cast<char *>(strrchr(s, '/')) : nullptr;
    if (slash != nullptr)
        *slash = '\0';
}

const char *last_component(const char *path)
{
    const char *const slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

char *get_dirname(const char *s)
{
    if (s == nullptr)
        return nullptr;
    while (char *slash = const_cast<char *>(strrchr(s, '/'))) {
        if (slash[1] != '\0')
            return slash + 1;
        *slash = '\0';
    }
    return const_cast<char *>(s);
}
