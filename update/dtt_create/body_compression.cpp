// Compressing the body of an image in place, and expanding it again.
#include "update/dtt_create/body_compression.h"

#include "update/dtt_update_common/copy_file.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <algorithm>
#include <arpa/inet.h>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr char PLAIN_BODY[] = "/tmp/tmppfile";
static constexpr char COMPRESSED_BODY[] = "/tmp/tmppfile.gz";

// Room for a body on the heap, which the caller frees; null if it is longer than an image can be.
static char *allocate_body(size_t data_len)
{
    return data_len <= INT_MAX ? static_cast<char *>(malloc(data_len + 1)) : nullptr;
}

// What these files hold is taken from a plain file of our own alone, and none is written through a
// link: /tmp is shared with the neighbours on the board.
static bool is_own(const struct stat *st)
{
    return S_ISREG(st->st_mode) && st->st_uid == geteuid();
}

// The length of the plain file of our own at `path`, or -1 if there is none.
static off_t own_length(const char *path)
{
    struct stat st;
    return lstat(path, &st) == 0 && is_own(&st) ? st.st_size : -1;
}

static int open_own(const char *path, int access_mode)
{
    // Without O_NONBLOCK a pipe in its place would be waited for.
    const int fd = open(path, access_mode | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    struct stat st;
    if (fd < 0 || (fstat(fd, &st) == 0 && is_own(&st)))
        return fd;
    close(fd);
    return -1;
}

// Makes an empty file in the place of what stands at `path`. Nobody else can then replace it.
static bool make_own(const char *path)
{
    unlink(path);
    const int fd = open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0) {
        TRACE_AS("copy_file", "unable to open `%s'\n", path);
        return false;
    }
    close(fd);
    return true;
}

static int body_not_there()
{
    TRACE_AS("cut_file", "fread /update_fd falid.\n");
    return -1;
}

static int copy_body(int fd, size_t head_len, size_t data_len, char *buffer, const char *tmp_file)
{
    lseek(fd, static_cast<off_t>(head_len), SEEK_SET);
    if (full_pread(fd, buffer, data_len, static_cast<off_t>(head_len)) != data_len)
        return body_not_there();
    return copy_file(buffer, tmp_file, static_cast<int>(data_len));
}

int cut_file(int cut_file_fd, size_t head_len, size_t data_len, const char *tmp_file)
{
    char *const buffer = allocate_body(data_len);
    if (buffer == nullptr) {
        TRACE(" gzip: malloc buff falid.\n");
        return -1;
    }
    const int status = copy_body(cut_file_fd, head_len, data_len, buffer, tmp_file);
    free(buffer);
    // A body that stays where it is shows in the length of the combined image.
    if (status == 0)
        static_cast<void>(!ftruncate(cut_file_fd, static_cast<off_t>(head_len)));
    return status;
}

static int append_mapped(int cut_file_fd, size_t head_len, int tmp_fd, size_t tmp_len)
{
    void *const data = mmap(nullptr, tmp_len, PROT_READ, MAP_SHARED, tmp_fd, 0);
    if (data == MAP_FAILED) {
        TRACE_AS("combine_file", "mmap failed `(size=%zu)'\n", tmp_len);
        return -1;
    }
    int status = 0;
    lseek(cut_file_fd, static_cast<off_t>(head_len), SEEK_SET);
    if (bb_full_write(cut_file_fd, data, tmp_len) < 0) {
        TRACE_AS("combine_file", "bb_full_write failed `(size=%zu)'\n", tmp_len);
        status = -1;
    } else {
        TRACE_AS("combine_file", "   Data Size(compressed): %d Bytes\n",
                 static_cast<int>(lseek(cut_file_fd, 0, SEEK_END)));
    }
    munmap(data, tmp_len);
    return status;
}

int combine_file(int cut_file_fd, size_t head_len, const char *tmp_file)
{
    const int tmp_fd = open_own(tmp_file, O_RDWR);
    if (tmp_fd < 0) {
        TRACE("unable to open `%s'\n", tmp_file);
        return -1;
    }
    const off_t end = lseek(tmp_fd, 0, SEEK_END);
    const size_t tmp_len = end > 0 ? static_cast<size_t>(end) : 0;
    TRACE(" tmp_len = %zu,", tmp_len);
    lseek(tmp_fd, 0, SEEK_SET);
    int status = append_mapped(cut_file_fd, head_len, tmp_fd, tmp_len);
    if (close(tmp_fd) != 0) {
        TRACE("unable to close `%s'\n", tmp_file);
        status = -1;
    }
    return status;
}

// Whether what the image holds behind its header is the beginning of our file at `path`, and not
// all of it: the file was being written there when that was cut off.
static bool is_being_put_back(int update_fd, off_t head_len, const char *path)
{
    struct stat st;
    const off_t length = own_length(path);
    if (length <= 0 || fstat(update_fd, &st) != 0 || st.st_size - head_len >= length)
        return false;
    const int fd = open_own(path, O_RDONLY);
    bool same = fd >= 0;
    for (off_t at = 0; same && at < st.st_size - head_len;) {
        char mine[4096];
        char theirs[4096];
        const size_t len =
            std::min<size_t>(sizeof mine, static_cast<size_t>(st.st_size - head_len - at));
        same = full_pread(update_fd, mine, len, head_len + at) == len &&
               full_pread(fd, theirs, len, at) == len && memcmp(mine, theirs, len) == 0;
        at += static_cast<off_t>(len);
    }
    if (fd >= 0)
        close(fd);
    return same;
}

// The bytes of body that the image's header tells of, or -1 if it is no image's.
static off_t promised_length(int update_fd)
{
    update_header_t header;
    if (full_pread(update_fd, &header, sizeof header, 0) != sizeof header ||
        ntohl(header.ih_magic) != IH_MAGIC)
        return -1;
    return static_cast<off_t>(ntohl(header.ih_size)) - static_cast<off_t>(sizeof header);
}

// The file with the body of an image that lacks it, because an earlier call was killed behind the
// cut; null if the image has what is to be compressed. The caller's `data_len` may be what the file
// holds now: the header knows better.
static const char *left_body(int update_fd, off_t head_len, off_t data_len)
{
    struct stat st;
    if (fstat(update_fd, &st) != 0)
        return nullptr;
    const off_t held = std::max<off_t>(st.st_size - head_len, 0);
    const off_t promised = promised_length(update_fd);
    const bool lacks = held < (promised >= 0 ? promised : data_len);
    // An expanded body that was left behind may begin like another image's.
    if (lacks && is_being_put_back(update_fd, head_len, PLAIN_BODY) &&
        (held == 0 || promised == own_length(PLAIN_BODY)))
        return PLAIN_BODY;
    const bool compressed = is_being_put_back(update_fd, head_len, COMPRESSED_BODY);
    return compressed && (lacks || held > 0) ? COMPRESSED_BODY : nullptr;
}

// Compresses what has been cut off and gives it to the image. Returns whether it holds it now, on
// the medium, so that the files with the body can go.
static bool compress_body(int update_fd, size_t head_len)
{
    my_system("rm /tmp/tmppfile.gz -rf");
    my_system("gzip /tmp/tmppfile");
    // gzip removes the plain file as soon as the compressed one is complete, and not before.
    const bool complete = own_length(PLAIN_BODY) < 0;
    if (!complete)
        unlink(COMPRESSED_BODY);
    const off_t length = own_length(COMPRESSED_BODY);
    struct stat st;
    return combine_file(update_fd, head_len, COMPRESSED_BODY) == 0 && complete &&
           fstat(update_fd, &st) == 0 && st.st_size == static_cast<off_t>(head_len) + length &&
           safe_fsync(update_fd) == 0;
}

// Gives the image the plain body again after a failure behind the cut. One of the two files holds
// it. Returns whether the image is whole.
static bool put_body_back(int update_fd, size_t head_len, size_t data_len)
{
    const off_t length = static_cast<off_t>(data_len);
    if (own_length(PLAIN_BODY) != length && own_length(COMPRESSED_BODY) > 0)
        my_system("gunzip /tmp/tmppfile.gz");
    return own_length(PLAIN_BODY) == length &&
           (length == 0 || combine_file(update_fd, head_len, PLAIN_BODY) == 0) &&
           ftruncate(update_fd, static_cast<off_t>(head_len) + length) == 0 &&
           safe_fsync(update_fd) == 0;
}

int gzip_dirs_and_files(int update_fd, struct tagupdate_header * /*update_header*/, size_t head_len,
                        size_t data_len)
{
    const char *const left =
        left_body(update_fd, static_cast<off_t>(head_len), static_cast<off_t>(data_len));
    if (left != nullptr) {
        const int status = body_not_there();
        fputs("step1:cut_file faild.\n", stderr);
        PLATFORM_LOG("the image lacks its body, and %s may hold it: move it away first", left);
        return status;
    }
    int status = 0;
    if (!make_own(PLAIN_BODY) || cut_file(update_fd, head_len, data_len, PLAIN_BODY) < 0) {
        status = -1;
        fputs("step1:cut_file faild.\n", stderr);
    } else if (!compress_body(update_fd, head_len)) {
        status = -1;
        fputs("combine_file faild.\n", stderr);
        if (!put_body_back(update_fd, head_len, data_len)) {
            const bool plain = own_length(PLAIN_BODY) == static_cast<off_t>(data_len);
            if (plain || own_length(COMPRESSED_BODY) > 0) {
                // The only copy of the body must not be removed.
                PLATFORM_LOG("the body could not be put back into the image: move %s away before "
                             "anything else is compressed",
                             plain ? PLAIN_BODY : COMPRESSED_BODY);
                return status;
            }
            PLATFORM_LOG("the image has lost its body: gzip has left nothing of it");
        }
    }
    my_system("rm /tmp/tmppfile.gz /tmp/tmppfile -rf");
    return status;
}

// Copies the compressed body to its file. Returns 0 or -1.
static int extract_body(FILE *infile, size_t data_len)
{
    char *const buffer = allocate_body(data_len);
    if (buffer == nullptr)
        return -1;
    int status = -1;
    fseek(infile, sizeof(update_header_t), SEEK_SET);
    // What the stream has read ahead may be older than the file; a stream on memory has none.
    const int fd = fileno(infile);
    const size_t len = fd >= 0 ? full_pread(fd, buffer, data_len, sizeof(update_header_t))
                               : fread(buffer, 1, data_len, infile);
    if (len == data_len)
        status = copy_file(buffer, COMPRESSED_BODY, static_cast<int>(data_len));
    free(buffer);
    return status;
}

// A failure code in the place of a stream.
static FILE *failure(intptr_t code)
{
    return reinterpret_cast<FILE *>(code);
}

FILE *open_gunzip_file(FILE *infile, size_t data_len)
{
    my_system("rm /tmp/tmppfile.gz -rf");
    // A file that is not ours must be neither touched nor expanded.
    const bool own = make_own(COMPRESSED_BODY);
    if (own)
        my_system("touch /tmp/tmppfile.gz");
    if (!own || extract_body(infile, data_len) != 0)
        PLATFORM_LOG("copy_file </tmp/tmppfile.gz> failed.\n");
    my_system("rm /tmp/tmppfile -rf");
    if (own)
        my_system("gunzip /tmp/tmppfile.gz");
    if (access(PLAIN_BODY, F_OK) != 0) {
        PLATFORM_LOG(" file not exist filename </tmp/tmppfile>.\n");
        return failure(1);
    }
    const int fd = open_own(PLAIN_BODY, O_RDONLY);
    FILE *const stream = fd >= 0 ? fdopen(fd, "rb") : nullptr;
    if (stream == nullptr) {
        if (fd >= 0)
            close(fd);
        PLATFORM_LOG("open error  filename </tmp/tmppfile>.\n");
        my_system("rm /tmp/tmppfile.gz -rf");
        return failure(2);
    }
    return stream;
}
