// The paths of an image's entries in order.
#include "companions/compare/path_index.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>

const char *indexed_text(const path_index *index, size_t i)
{
    return index->texts + index->paths[i].at;
}

// Makes room for `need` more items of `size` bytes. Returns false if there is no memory.
static bool grow(void **items, size_t size, size_t used, size_t need, size_t *room)
{
    if (need <= *room - used)
        return true;
    const size_t grown = 2 * *room + need + 64;
    void *const moved = realloc(*items, grown * size);
    if (moved == nullptr)
        return false;
    *items = moved;
    *room = grown;
    return true;
}

static bool add_path(path_index *index, const image_entry *entry)
{
    const size_t len = entry_path_length(entry);
    void *texts = index->texts;
    void *paths = index->paths;
    const bool fits = grow(&texts, 1, index->texts_used, len + 2, &index->texts_size) &&
                      grow(&paths, sizeof *index->paths, index->count, 1, &index->room);
    index->texts = static_cast<char *>(texts);
    index->paths = static_cast<indexed_path *>(paths);
    if (!fits)
        return false;
    char *const text = index->texts + index->texts_used;
    memcpy(text, entry->name, len);
    const size_t end = entry->type == ENTRY_DIRECTORY ? len + 1 : len;
    text[len] = '/';
    text[end] = '\0';
    index->paths[index->count++] = {index->texts_used, entry->number};
    index->texts_used += end + 1;
    return true;
}

bool build_index(path_index *index, const image_file *img)
{
    *index = {};
    entry_walk walk;
    start_walk(&walk, img);
    image_entry entry;
    for (uint32_t i = ntohl(img->header.ih_filenum); i > 0 && read_entry(&walk, &entry) == nullptr;
         i--)
        if (!add_path(index, &entry))
            return false;
    std::sort(index->paths, index->paths + index->count,
              [index](const indexed_path &a, const indexed_path &b) {
                  const int order = strcmp(index->texts + a.at, index->texts + b.at);
                  return order != 0 ? order < 0 : a.number < b.number;
              });
    return true;
}

void release_index(path_index *index)
{
    free(index->texts);
    free(index->paths);
    *index = {};
}

// The first path that is not ahead of `text`.
static size_t find_text(const path_index *index, const char *text)
{
    const indexed_path *const found =
        std::lower_bound(index->paths, index->paths + index->count, text,
                         [index](const indexed_path &a, const char *b) {
                             return strcmp(index->texts + a.at, b) < 0;
                         });
    return static_cast<size_t>(found - index->paths);
}

bool comes_again(const path_index *index, const char *path, uint32_t number)
{
    for (size_t i = find_text(index, path);
         i < index->count && strcmp(indexed_text(index, i), path) == 0; i++)
        if (index->paths[i].number > number)
            return true;
    return false;
}

bool has_path(const path_index *index, const char *path)
{
    size_t i = find_text(index, path);
    if (i < index->count && strcmp(indexed_text(index, i), path) == 0)
        return true;
    char directory[PATH_SIZE + 1];
    const size_t len = strlen(path);
    if (len >= PATH_SIZE)
        return false;
    memcpy(directory, path, len);
    memcpy(directory + len, "/", 2);
    i = find_text(index, directory);
    return i < index->count && strncmp(indexed_text(index, i), directory, len + 1) == 0;
}
