// The raw system calls that move data.
#include "update/dtt_update_common/raw_io.h"

#include <cerrno>
#include <sys/statvfs.h>
#include <unistd.h>

ssize_t safe_write(int fd, const void *buf, size_t count)
{
    ssize_t n;
    do {
        n = write(fd, buf, count);
    } while (n < 0 && errno == EINTR);
    return n;
}

ssize_t write_some(int fd, const char **pos, size_t *len)
{
    const ssize_t n = safe_write(fd, *pos, *len);
    if (n == 0) {
        // A target that takes nothing and reports no error would hold the run up for ever.
        errno = EIO;
        return -1;
    }
    if (n > 0) {
        *pos += n;
        *len -= static_cast<size_t>(n);
    }
    return n;
}

ssize_t bb_full_write(int fd, const void *buf, size_t len)
{
    const char *pos = static_cast<const char *>(buf);
    const size_t total = len;
    while (len != 0) {
        const ssize_t n = write_some(fd, &pos, &len);
        if (n < 0)
            return n;
    }
    return static_cast<ssize_t>(total);
}

size_t full_pread(int fd, void *buf, size_t len, off_t offset)
{
    char *pos = static_cast<char *>(buf);
    size_t total = 0;
    while (total < len) {
        errno = 0;
        const ssize_t n = pread(fd, pos + total, len - total, offset + static_cast<off_t>(total));
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        total += static_cast<size_t>(n);
    }
    return total;
}

bool is_full(const char *directory)
{
    struct statvfs fs;
    return statvfs(directory, &fs) == 0 && (fs.f_bfree == 0 || (fs.f_files > 0 && fs.f_ffree == 0));
}

int safe_fsync(int fd)
{
    int result;
    do {
        result = fsync(fd);
    } while (result != 0 && errno == EINTR);
    return result;
}
