// An image that is tested ahead of its run.
#include "companions/upgd_service/tested_image.h"

#include "companions/signature/check.h"
#include "companions/upgd_service/console.h"
#include "update/dtt_update_common/crc32.h"
#include "update/dtt_update_common/image_check.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/raw_io.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <pthread.h>
#include <sys/statvfs.h>

// Where an image is kept while it is applied: beside the directory that images go to by themselves.
static constexpr char KEEP_DIRECTORY[] = "/opt";

static constexpr char NO_ROOM[] = "there is no room for it";

static constexpr size_t BLOCK_SIZE = 1024 * 1024; // bytes

// Hashes a block while the next one is read, which takes about as long.
class background_hash
{
  public:
    background_hash()
    {
        start_hash(&hash_);
    }
    background_hash(const background_hash &) = delete;
    background_hash &operator=(const background_hash &) = delete;
    ~background_hash()
    {
        finish();
    }
    // The block is left alone until the next one is added.
    void add(const char *block, size_t len)
    {
        finish();
        block_ = block;
        len_ = len;
        runs_ = pthread_create(&thread_, nullptr, hash_block, this) == 0;
        if (!runs_)
            hash_block(this);
    }
    image_hash *finish()
    {
        if (runs_)
            pthread_join(thread_, nullptr);
        runs_ = false;
        return &hash_;
    }

  private:
    static void *hash_block(void *argument)
    {
        background_hash *const work = static_cast<background_hash *>(argument);
        add_to_hash(&work->hash_, work->block_, work->len_);
        return nullptr;
    }

    image_hash hash_;
    pthread_t thread_ = {};
    bool runs_ = false;
    const char *block_ = nullptr;
    size_t len_ = 0;
};

// What is made of an image's bytes while they are read.
struct image_pass {
    std::optional<background_hash> hash = {}; // if it is asked for
    uint32_t crc = 0;                         // of the body
    int copy = -1;                            // descriptor
};

// The block of `len` bytes at `offset`. Returns null, or what is wrong with the copy.
static const char *take_block(image_pass *pass, const char *block, size_t len, uint32_t offset)
{
    if (pass->hash)
        pass->hash->add(block, len);
    const size_t header =
        offset < sizeof(update_header_t) ? std::min(len, sizeof(update_header_t) - offset) : 0;
    pass->crc = crc32_update(pass->crc, block + header, len - header);
    if (pass->copy >= 0 && bb_full_write(pass->copy, block, len) < 0)
        return errno == ENOSPC ? NO_ROOM : strerror(errno);
    return nullptr;
}

// Reads the image once, never from a mapping: its disk may go away meanwhile. Returns null, or what
// is wrong.
static const char *read_through(const image_file *img, image_pass *pass)
{
    static char blocks[2][BLOCK_SIZE]; // one is hashed while the other one is filled
    char *block = blocks[1];
    for (uint32_t at = 0; at < img->size;) {
        char step[64];
        snprintf(step, sizeof step, "reading, %u of %u MiB", at >> 20, img->size >> 20);
        show_progress(step, 0, 0, 0);
        block = block == blocks[0] ? blocks[1] : blocks[0];
        const size_t len = std::min<size_t>(BLOCK_SIZE, img->size - at);
        if (full_pread(img->fd, block, len, at) != len)
            return "can't be read to its end";
        const char *const fault = take_block(pass, block, len, at);
        if (fault != nullptr)
            return fault;
        at += static_cast<uint32_t>(len);
    }
    return nullptr;
}

// Opens a file without a name that has room for the image. Returns none with a sentence if it can't
// be had.
static descriptor open_keep(const tested_image *image)
{
    descriptor keep(open(KEEP_DIRECTORY, O_TMPFILE | O_EXCL | O_RDWR | O_CLOEXEC, 0600));
    struct statvfs fs;
    const char *fault;
    if (!keep.is_open())
        // What kernels without such files say, and file systems.
        fault = errno == EISDIR || errno == EOPNOTSUPP ? "its file system has no unnamed files"
                                                       : strerror(errno);
    else if (fstatvfs(keep.get(), &fs) != 0)
        fault = strerror(errno);
    else if (uint64_t{fs.f_bavail} * fs.f_frsize < image->img.size)
        fault = NO_ROOM;
    else
        return keep;
    complain("%s: can't be kept below %s while it is applied: %s: nothing was touched; mend that, "
             "or apply it from where it lies with --in-place",
             image->name, KEEP_DIRECTORY, fault);
    return descriptor();
}

// From here on the copy is the image, and what was found out about the other's header counts only
// if it has the same. Returns null, or what is wrong.
static const char *turn_to_copy(tested_image *image, descriptor copy)
{
    const update_header_t seen = image->img.header;
    image->file = std::move(copy);
    const char *const fault = examine_image(image->file.get(), &image->img);
    if (fault != nullptr)
        return fault;
    fstat(image->file.get(), &image->at);
    return memcmp(&seen, &image->img.header, sizeof seen) == 0 ? nullptr
                                                               : "was changed while it was read";
}

// Reads an image whose signature is asked for. It becomes the copy `keep`, if there is one. Returns
// null, or what is wrong.
static const char *signed_fault(tested_image *image, descriptor keep, image_pass *pass)
{
    pass->hash.emplace();
    pass->copy = keep.get();
    const char *fault = read_through(&image->img, pass);
    if (fault == nullptr && keep.is_open())
        fault = turn_to_copy(image, std::move(keep));
    const update_gate *const gate = &image->gate;
    return fault == nullptr ? signature_fault(&gate->key, &gate->signature, pass->hash->finish())
                            : fault;
}

// Returns null, or what is wrong with the bytes of the image.
static const char *reading_fault(tested_image *image, bool verify, descriptor keep)
{
    image_pass pass;
    const char *fault = nullptr;
    if (image->gate.closed)
        fault = signed_fault(image, std::move(keep), &pass);
    else if (verify)
        fault = read_through(&image->img, &pass);
    return fault == nullptr && verify ? crc_fault(&image->img, pass.crc) : fault;
}

static void tell_of_signature(const tested_image *image, const test_options *how)
{
    if (!image->gate.closed)
        return;
    const signature_line line = describe_signature(&image->gate.signature, nullptr);
    say("%s", line.text);
    PLATFORM_LOG("%s: %s", image->name, line.text);
    if (how->look || how->in_place == 0)
        return;
    complain("%s: applied from where it lies (--in-place): a disk that answers the second read in "
             "another way would have that applied",
             image->name);
    PLATFORM_LOG("%s: applied from where it lies (--in-place)", image->name);
}

bool take_tested_image(const char *name, const test_options *how, tested_image *image)
{
    image->name = name;
    const char *fault = open_image(name, &image->img);
    image->file = descriptor(image->img.fd);
    if (fault != nullptr)
        return complain("%s: %s", name, fault);
    if (!prepare_gate(name, &image->img.header, how->allow_unsigned != 0, &image->gate))
        return false;
    const bool kept = image->gate.closed && !how->look && how->in_place == 0;
    descriptor keep = kept ? open_keep(image) : descriptor();
    if (kept && !keep.is_open())
        return false;
    fstat(image->file.get(), &image->at);
    fault = reading_fault(image, how->no_verify == 0, std::move(keep));
    if (fault != nullptr)
        return complain("%s: %s: nothing was touched; get it anew%s", name, fault,
                        image->gate.closed ? "" : ", or take it as it is with --no-verify");
    snprintf(image->path, sizeof image->path, "/proc/self/fd/%d", image->img.fd);
    PLATFORM_LOG("%s is <%s>", image->path, name);
    tell_of_signature(image, how);
    return true;
}

bool has_changed(const tested_image *image)
{
    struct stat now;
    return fstat(image->img.fd, &now) != 0 || now.st_size != image->at.st_size ||
           now.st_mtim.tv_sec != image->at.st_mtim.tv_sec ||
           now.st_mtim.tv_nsec != image->at.st_mtim.tv_nsec;
}
