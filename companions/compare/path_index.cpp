// Texts of an image's entries in order.
#include "companions/compare/path_index.h"

#include "update/dtt_update_common/path_operations.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

path_index::~path_index()
{
    stream_.reset();
    free(items_);
    free(memory_);
}

void path_index::add(const char *text, uint32_t number)
{
    if (stream_ == nullptr)
        return;
    fwrite(&number, sizeof number, 1, stream_.get());
    fwrite(text, strlen(text) + 1, 1, stream_.get());
    count_++;
}

bool path_index::precedes(const item &a, const item &b)
{
    const int order = strcmp(a.text, b.text);
    return order != 0 ? order < 0 : a.number < b.number;
}

bool path_index::finish()
{
    items_ = static_cast<item *>(calloc(count_ + 1, sizeof *items_));
    if (stream_ == nullptr || fclose(stream_.release()) != 0 || items_ == nullptr)
        return false;
    const char *next = memory_;
    for (item *i = items_; i < items_ + count_; i++) {
        memcpy(&i->number, next, sizeof i->number);
        i->text = next + sizeof i->number;
        next = i->text + strlen(i->text) + 1;
    }
    std::sort(items_, items_ + count_, precedes);
    return true;
}

const path_index::item *path_index::find(const char *text, uint32_t number) const
{
    return std::lower_bound(items_, items_ + count_, item{text, number}, precedes);
}

bool path_index::comes_again(const char *text, uint32_t number) const
{
    const item *const later = find(text, number + 1);
    return later < items_ + count_ && strcmp(later->text, text) == 0;
}

bool path_index::has_path(const char *path) const
{
    char directory[PATH_SIZE + 1];
    const size_t len = strlen(path);
    if (len >= PATH_SIZE)
        return false;
    memcpy(directory, path, len);
    memcpy(directory + len, "/", 2);
    // Paths like "a.b" stand between "a" and what lies in it.
    const item *const end = items_ + count_;
    const item *const same = find(path, 0);
    const item *const below = find(directory, 0);
    return (same < end && strcmp(same->text, path) == 0) ||
           (below < end && strncmp(below->text, directory, len + 1) == 0);
}
