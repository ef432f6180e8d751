// The checksums (CRC-32) of an image: of its body, and of each entry's head and data. They are
// taken in the one pass over its bytes that tests it, and tell later what was tested.
#ifndef COMPANIONS_COMPARE_IMAGE_SUMS_H
#define COMPANIONS_COMPARE_IMAGE_SUMS_H

#include "update/dtt_update_common/image_layout.h"
#include "update/dtt_update_common/image_reader.h"
#include "update/dtt_update_common/raw_io.h"

#include <algorithm>
#include <cstdlib>

class image_sums
{
  public:
    image_sums() = default;
    image_sums(const image_sums &) = delete;
    image_sums &operator=(const image_sums &) = delete;
    ~image_sums()
    {
        free(entries_);
    }

    // Takes the next `len` bytes of the image, from its first one on.
    void add(const char *bytes, size_t len);

    uint32_t body() const
    {
        return body_;
    }

    // Returns null if there is no such entry: the bytes were no entries from there on, or there was
    // no memory.
    const uint32_t *entry(uint32_t number) const
    {
        return number < count_ ? &entries_[number].data : nullptr;
    }

    // Whether the entry has the name, the type and the size that were tested.
    bool has_head_of(const image_entry *entry) const;

  private:
    struct entry_sums {
        uint32_t head;
        uint32_t data;
    };
    enum { IN_NAME, IN_HEAD, IN_DATA, BROKEN };

    size_t take(const char *bytes, size_t len);
    void end_entry();

    uint32_t at_ = 0; // of the next byte
    uint32_t body_ = 0;
    int part_ = IN_NAME;
    size_t got_ = 0; // bytes of the name or the head
    char head_[TYPE_AND_SIZE] = {};
    uint32_t left_ = 0;    // bytes of data
    entry_sums sums_ = {}; // of the entry so far
    entry_sums *entries_ = nullptr;
    uint32_t count_ = 0;
};

// Reads the image once, block by block, never from a mapping: its disk may go away meanwhile. Each
// block is given to `take`, which returns null, or what is wrong with it. The header that was
// judged has to be there again. Returns null, or what is wrong.
template <typename Function> const char *read_through(const image_file *img, const Function &take)
{
    static char block[1024 * 1024];
    for (uint32_t at = 0; at < img->size;) {
        const size_t len = std::min<size_t>(sizeof block, img->size - at);
        if (full_pread(img->fd, block, len, at) != len)
            return "can't be read to its end";
        if (at == 0 && memcmp(block, &img->header, sizeof img->header) != 0)
            return "was changed while it was read";
        const char *const fault = take(block, len, at);
        if (fault != nullptr)
            return fault;
        at += static_cast<uint32_t>(len);
    }
    return nullptr;
}

// The same with nothing else to be made of the bytes.
[[nodiscard]] const char *sum_image(const image_file *img, image_sums *sums);

// Takes the checksum of the first `size` bytes of the file open on `fd`, as they stand on the
// medium where the file system lets its pages in memory go, having written back what it has to.
// Returns false with errno set, 0 if there are fewer bytes.
[[nodiscard]] bool sum_file(int fd, off_t size, uint32_t *sum);

#endif
