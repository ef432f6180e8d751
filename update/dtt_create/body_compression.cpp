// Compressing the body of an image in place, and expanding it again.
#include "update/dtt_create/body_compression.h"

#include "update/dtt_update_common/copy_file.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdlib>
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

static int copy_body(int fd, size_t head_len, size_t data_len, char *buffer, const char *tmp_file)
{
    if (full_pread(fd, buffer, data_len, static_cast<off_t>(head_len)) != data_len) {
        TRACE_AS("cut_file", "fread /update_fd falid.\n");
        return -1;
    }
    return copy_file(buffer, tmp_file, static_cast<int>(data_len));
}

int cut_file(int cut_file_fd, size_t head_len, size_t data_len, const char *tmp_file)
{
    char *const buffer = allocate_body(data_len);
    if (buffer == nullptr) {
        TRACE(" gzip: malloc buff falid.\n");
        return -1;
    }
    int status = copy_body(cut_file_fd, head_len, data_len, buffer, tmp_file);
    free(buffer);
    if (status == 0 && ftruncate(cut_file_fd, static_cast<off_t>(head_len)) != 0) {
        TRACE("unable to cut the image\n");
        status = -1;
    }
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
    // Where the position can't be set, the body would be written over the header.
    if (lseek(cut_file_fd, static_cast<off_t>(head_len), SEEK_SET) < 0 ||
        bb_full_write(cut_file_fd, data, tmp_len) < 0) {
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
    const int tmp_fd = open(tmp_file, O_RDWR | O_CLOEXEC);
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

// Whether the whole body stands in its plain file. A tool that was killed leaves a part of it.
static bool plain_body_is_whole(size_t data_len)
{
    struct stat st;
    return stat(PLAIN_BODY, &st) == 0 && st.st_size == static_cast<off_t>(data_len);
}

// Gives the image the plain body again after a failure behind the cut. gzip removes the plain file
// only when the compressed one is complete, so one of them holds the body. Returns whether the
// image is whole.
static bool put_body_back(int update_fd, size_t head_len, size_t data_len)
{
    if (!plain_body_is_whole(data_len))
        my_system("gunzip /tmp/tmppfile.gz");
    if (!plain_body_is_whole(data_len))
        return false;
    return (data_len == 0 || combine_file(update_fd, head_len, PLAIN_BODY) == 0) &&
           ftruncate(update_fd, static_cast<off_t>(head_len + data_len)) == 0;
}

// Compresses what has been cut off and gives it to the image. Returns 0 or -1.
static int compress_body(int update_fd, size_t head_len)
{
    my_system("rm /tmp/tmppfile.gz -rf");
    // One that ended before its time has left the plain file, and maybe a part of the other.
    if (my_system("gzip /tmp/tmppfile") != 0 && access(PLAIN_BODY, F_OK) == 0)
        unlink(COMPRESSED_BODY);
    return combine_file(update_fd, head_len, COMPRESSED_BODY);
}

int gzip_dirs_and_files(int update_fd, struct tagupdate_header * /*update_header*/, size_t head_len,
                        size_t data_len)
{
    int status = 0;
    // A longer leftover would keep its end behind the body.
    const bool no_leftover = unlink(PLAIN_BODY) == 0 || errno == ENOENT;
    if (!no_leftover || cut_file(update_fd, head_len, data_len, PLAIN_BODY) < 0) {
        status = -1;
        fputs("step1:cut_file faild.\n", stderr);
    } else if (compress_body(update_fd, head_len) < 0) {
        status = -1;
        fputs("combine_file faild.\n", stderr);
        if (!put_body_back(update_fd, head_len, data_len)) {
            // The only copy of the body must not be removed.
            PLATFORM_LOG("the image has lost its body: move %s or %s away before anything else "
                         "is compressed",
                         PLAIN_BODY, COMPRESSED_BODY);
            return status;
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
    if (fseek(infile, sizeof(update_header_t), SEEK_SET) == 0 &&
        fread(buffer, 1, data_len, infile) == data_len)
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
    my_system("touch /tmp/tmppfile.gz");
    if (extract_body(infile, data_len) != 0)
        PLATFORM_LOG("copy_file </tmp/tmppfile.gz> failed.\n");
    my_system("rm /tmp/tmppfile -rf");
    my_system("gunzip /tmp/tmppfile.gz");
    if (access(PLAIN_BODY, F_OK) != 0) {
        PLATFORM_LOG(" file not exist filename </tmp/tmppfile>.\n");
        return failure(1);
    }
    FILE *const stream = fopen(PLAIN_BODY, "rbe");
    if (stream == nullptr) {
        PLATFORM_LOG("open error  filename </tmp/tmppfile>.\n");
        my_system("rm /tmp/tmppfile.gz -rf");
        return failure(2);
    }
    return stream;
}
