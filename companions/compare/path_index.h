// Texts of an image's entries in order, to ask which entry has one last, and what of a directory
// the image has.
#ifndef COMPANIONS_PATH_INDEX_H
#define COMPANIONS_PATH_INDEX_H

#include "companions/owners.h"

#include <cstddef>
#include <cstdint>

class path_index
{
  public:
    // A text of the entry `number`: its path, with '/' at the end of a directory's.
    void add(const char *text, uint32_t number);

    // Puts in order what has been added; to be called ahead of everything below. Returns false if
    // there is no memory for it.
    [[nodiscard]] bool finish();

    size_t count() const
    {
        return count_;
    }
    const char *text(size_t i) const
    {
        return texts_ + items_[i].at;
    }

    // Whether an entry behind the entry `number` has the same text.
    bool comes_again(const char *text, uint32_t number) const;

    // Whether the image has the path as an entry or as a directory that entries lie in.
    bool has_path(const char *path) const;

  private:
    struct item {
        size_t at; // in the texts
        uint32_t number;
    };

    // The first item that is not ahead of this one.
    size_t find(const char *text, uint32_t number) const;

    memory_stream text_stream_;
    memory_stream item_stream_;
    size_t size_ = 0; // of the texts
    size_t count_ = 0;
    const char *texts_ = nullptr;
    item *items_ = nullptr;
};

#endif
