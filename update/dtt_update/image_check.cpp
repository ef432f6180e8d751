// What is wrong with a file as an image, in words.
#include "update/dtt_update/image_check.h"

#include "update/dtt_update_common/raw_io.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

const char *take_opened(int fd, image *img)
{
    img->fd = fd;
    struct stat st;
    if (fstat(fd, &st) != 0)
        return strerror(errno);
    if (!S_ISREG(st.st_mode))
        return "is no plain file";
    if (st.st_size == 0)
        return "is empty";
    if (full_pread(fd, &img->header, sizeof img->header, 0) != sizeof img->header)
        return "is too short for an update image";
    if (ntohl(img->header.ih_magic) != IH_MAGIC)
        return "is no update image";
    if (st.st_size > INT_MAX)
        return "is longer than an update image can be";
    img->size = static_cast<uint32_t>(st.st_size);
    return nullptr;
}

const char *image_fault(const char *name)
{
    // Without O_NONBLOCK a named pipe would wait for its writer.
    const int fd = open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return strerror(errno);
    image img = {};
    const char *fault = take_opened(fd, &img);
    if (fault == nullptr && ntohl(img.header.ih_size) != img.size)
        fault = "has another length than its header says: it is cut off, or was never finished";
    close(fd);
    return fault;
}
