// Texts of an image's entries in order, to ask which entry has one last, and what of a directory
// the image has.
#ifndef COMPANIONS_COMPARE_PATH_INDEX_H
#define COMPANIONS_COMPARE_PATH_INDEX_H

#include "companions/owners.h"

#include <cstddef>
#include <cstdint>

class path_index
{
  public:
    ~path_index();

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
        return items_[i].text;
    }

    // Whether an entry behind the entry `number` has the same text.
    bool comes_again(const char *text, uint32_t number) const;

    // Where the text of the entry `number` stands.
    size_t place_of(const char *text, uint32_t number) const
    {
        return static_cast<size_t>(find(text, number) - items_);
    }

    // Whether the image has the path as an entry or as a directory that entries lie in.
    bool has_path(const char *path) const;

  private:
    struct item {
        const char *text;
        uint32_t number;
    };
    static bool precedes(const item &a, const item &b);
    const item *find(const char *text, uint32_t number) const; // or what follows it

    char *memory_ = nullptr; // numbers, each with its text behind it
    size_t size_ = 0;
    file_stream stream_{open_memstream(&memory_, &size_)}; // that fills it
    item *items_ = nullptr;
    size_t count_ = 0;
};

#endif
