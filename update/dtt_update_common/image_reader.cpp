// Reading an image that may be damaged, and whose disk may be pulled while it is read.
#include "update/dtt_update_common/image_reader.h"

#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/image_layout.h"
#include "update/dtt_update_common/raw_io.h"

#include <algorithm>
#include <cstring>

static_assert(sizeof entry_walk::window >= PATH_SIZE + TYPE_AND_SIZE, "holds the longest head");

void start_walk(entry_walk *walk, const image_file *source)
{
    walk->source = source;
    walk->number = 0;
    walk->next = sizeof(update_header_t);
    walk->window_offset = walk->next;
    walk->window_size = 0;
}

// The bytes of the window from the next entry on.
static size_t bytes_ahead(const entry_walk *walk)
{
    const uint32_t skipped = walk->next - walk->window_offset;
    return skipped < walk->window_size ? walk->window_size - skipped : 0;
}

static const char *window_at_next(const entry_walk *walk)
{
    return walk->window + (walk->next - walk->window_offset);
}

// Bytes of the entry's name and its terminator, or 0 if the window does not hold the whole head.
static size_t name_size_in_window(const entry_walk *walk)
{
    const size_t ahead = bytes_ahead(walk);
    if (ahead == 0)
        return 0;
    const char *const name = window_at_next(walk);
    const void *const end = memchr(name, '\0', std::min(ahead, PATH_SIZE));
    if (end == nullptr)
        return 0;
    const size_t size = static_cast<size_t>(static_cast<const char *>(end) - name) + 1;
    return size + TYPE_AND_SIZE <= ahead ? size : 0;
}

static void move_window(entry_walk *walk)
{
    const size_t size = std::min<size_t>(sizeof walk->window, walk->source->size - walk->next);
    walk->window_offset = walk->next;
    walk->window_size = full_pread(walk->source->fd, walk->window, size, walk->next);
}

// Why the window, freshly read, holds no entry.
static const char *head_fault(const entry_walk *walk)
{
    if (walk->next == walk->source->size)
        return "there are fewer entries than the header says";
    if (walk->window_size < std::min<size_t>(sizeof walk->window, walk->source->size - walk->next))
        return "the image can't be read there";
    if (memchr(walk->window, '\0', walk->window_size) == nullptr && walk->window_size < PATH_SIZE)
        return "its name has no end";
    if (memchr(walk->window, '\0', std::min(walk->window_size, PATH_SIZE)) == nullptr)
        return "its name is too long";
    return "it runs past the end of the image";
}

const char *read_entry(entry_walk *walk, image_entry *entry)
{
    entry->number = walk->number;
    size_t name_size = name_size_in_window(walk);
    if (name_size == 0) {
        move_window(walk);
        name_size = name_size_in_window(walk);
        if (name_size == 0)
            return head_fault(walk);
    }
    const char *const head = window_at_next(walk);
    uint32_t data_size;
    load_type_and_size(head + name_size, &entry->type, &data_size);
    const uint32_t data_offset = walk->next + static_cast<uint32_t>(name_size + TYPE_AND_SIZE);
    if (data_size > walk->source->size - data_offset || data_size > IMAGE_SIZE_MAX)
        return "it runs past the end of the image";

    memcpy(entry->name, head, name_size);
    entry->file_size = static_cast<int>(data_size);
    entry->data_offset = data_offset;
    walk->number++;
    walk->next = data_offset + data_size;
    return nullptr;
}

size_t entry_path_length(const image_entry *entry)
{
    switch (form_of(entry->type)) {
    case entry_form::file:
    case entry_form::directory:
        break;
    case entry_form::link:
        if (const char *const divider = strrchr(entry->name, LINK_DIVIDER))
            return static_cast<size_t>(divider - entry->name);
    }
    return strlen(entry->name);
}

void copy_entry_path(const image_entry *entry, char *path)
{
    const size_t len = entry_path_length(entry);
    memcpy(path, entry->name, len);
    path[len] = '\0';
}

const char *link_target(const image_entry *entry)
{
    const char *const end = entry->name + entry_path_length(entry);
    return *end != '\0' ? end + 1 : end;
}

bool climbs_out(const image_entry *entry)
{
    const char *path = entry->name;
    const char *const end = path + entry_path_length(entry);
    int depth = 0;
    while (path < end) {
        const size_t len = std::min(strcspn(path, "/"), static_cast<size_t>(end - path));
        if (len == 2 && path[0] == '.' && path[1] == '.')
            depth--;
        else if (len > 0 && !(len == 1 && path[0] == '.'))
            depth++;
        if (depth < 0)
            return true;
        path += len + strspn(path + len, "/");
    }
    return false;
}
