// Texts of an image's entries in order.
#include "companions/compare/path_index.h"

#include "update/dtt_update_common/path_operations.h"

#include <algorithm>
#include <cstring>

void path_index::add(const char *text, uint32_t number)
{
    if (text_stream_.file() == nullptr || item_stream_.file() == nullptr)
        return;
    const size_t len = strlen(text) + 1;
    const item added = {size_, number};
    size_ += fwrite(text, 1, len, text_stream_.file());
    count_ += fwrite(&added, sizeof added, 1, item_stream_.file());
}

bool path_index::finish()
{
    texts_ = text_stream_.finish();
    items_ = reinterpret_cast<item *>(item_stream_.finish());
    if (texts_ == nullptr || items_ == nullptr)
        return false;
    std::sort(items_, items_ + count_, [this](const item &a, const item &b) {
        const int order = strcmp(texts_ + a.at, texts_ + b.at);
        return order != 0 ? order < 0 : a.number < b.number;
    });
    return true;
}

size_t path_index::find(const char *text, uint32_t number) const
{
    const item *const found =
        std::lower_bound(items_, items_ + count_, number, [this, text](const item &a, uint32_t b) {
            const int order = strcmp(texts_ + a.at, text);
            return order != 0 ? order < 0 : a.number < b;
        });
    return static_cast<size_t>(found - items_);
}

bool path_index::comes_again(const char *text, uint32_t number) const
{
    const size_t i = find(text, number + 1);
    return i < count_ && strcmp(this->text(i), text) == 0;
}

bool path_index::has_path(const char *path) const
{
    const size_t i = find(path, 0);
    if (i < count_ && strcmp(text(i), path) == 0)
        return true;
    // Paths like "a.b" stand between "a" and what lies in it.
    char directory[PATH_SIZE + 1];
    const size_t len = strlen(path);
    if (len >= PATH_SIZE)
        return false;
    memcpy(directory, path, len);
    memcpy(directory + len, "/", 2);
    const size_t below = find(directory, 0);
    return below < count_ && strncmp(text(below), directory, len + 1) == 0;
}
