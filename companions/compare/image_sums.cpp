// The checksums of an image.
#include "companions/compare/image_sums.h"

#include "update/dtt_update_common/crc32.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

void image_sums::end_entry()
{
    // The room doubles at each power of two.
    if ((count_ & (count_ - 1)) == 0) {
        const size_t room = count_ == 0 ? 1 : size_t{2} * count_;
        void *const grown = realloc(entries_, room * sizeof *entries_);
        if (grown == nullptr) {
            part_ = BROKEN;
            return;
        }
        entries_ = static_cast<entry_sums *>(grown);
    }
    entries_[count_++] = sums_;
    sums_ = {};
    part_ = IN_NAME;
    got_ = 0;
}

// Takes what the entry at hand has of the bytes. Returns how many these are.
size_t image_sums::take(const char *bytes, size_t len)
{
    if (part_ == IN_NAME) {
        const void *const end = memchr(bytes, '\0', std::min(len, PATH_SIZE - got_));
        const size_t n =
            end == nullptr ? len : static_cast<size_t>(static_cast<const char *>(end) - bytes) + 1;
        sums_.head = crc32_update(sums_.head, bytes, n);
        if (end == nullptr) {
            got_ += len;
            part_ = got_ < PATH_SIZE ? IN_NAME : BROKEN;
            return len;
        }
        part_ = IN_HEAD;
        got_ = 0;
        return n;
    }
    if (part_ == IN_HEAD) {
        head_[got_++] = bytes[0];
        if (got_ < TYPE_AND_SIZE)
            return 1;
        int type;
        load_type_and_size(head_, &type, &left_);
        sums_.head = crc32_update(sums_.head, head_, TYPE_AND_SIZE);
        part_ = IN_DATA;
        if (left_ == 0)
            end_entry();
        return 1;
    }
    if (part_ == BROKEN)
        return len;
    const size_t n = std::min<size_t>(len, left_);
    sums_.data = crc32_update(sums_.data, bytes, n);
    left_ -= static_cast<uint32_t>(n);
    if (left_ == 0)
        end_entry();
    return n;
}

void image_sums::add(const char *bytes, size_t len)
{
    const size_t header =
        at_ < sizeof(update_header_t) ? std::min(len, sizeof(update_header_t) - at_) : 0;
    at_ += static_cast<uint32_t>(len);
    body_ = crc32_update(body_, bytes + header, len - header);
    for (size_t done = header; done < len;)
        done += take(bytes + done, len - done);
}

bool image_sums::has_head_of(const image_entry *entry) const
{
    char head[TYPE_AND_SIZE];
    store_type_and_size(head, entry->type, static_cast<uint32_t>(entry->file_size));
    const uint32_t name = crc32_update(0, entry->name, strlen(entry->name) + 1);
    return entry->number < count_ &&
           crc32_update(name, head, sizeof head) == entries_[entry->number].head;
}

const char *sum_image(const image_file *img, image_sums *sums)
{
    return read_through(img, [sums](const char *block, size_t len, uint32_t) -> const char * {
        sums->add(block, len);
        return nullptr;
    });
}

bool sum_file(int fd, off_t size, uint32_t *sum)
{
    static char block[256 * 1024];
    *sum = 0;
    if (fdatasync(fd) != 0 && errno != EROFS && errno != EINVAL)
        return false;
    posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    for (off_t at = 0; at < size;) {
        const size_t len = static_cast<size_t>(std::min<off_t>(sizeof block, size - at));
        if (full_pread(fd, block, len, at) != len)
            return false;
        *sum = crc32_update(*sum, block, len);
        at += static_cast<off_t>(len);
    }
    return true;
}
