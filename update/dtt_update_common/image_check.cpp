// What is wrong with a file as an image, in words.
#include "update/dtt_update_common/image_check.h"

#include "update/dtt_update_common/image_layout.h"
#include "update/dtt_update_common/raw_io.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

const char *examine_image(int fd, image_file *img)
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
        return errno != 0 ? strerror(errno) : "is too short for an update image";
    if (ntohl(img->header.ih_magic) != IH_MAGIC)
        return "is no update image";
    if (st.st_size > IMAGE_SIZE_MAX)
        return "is longer than an update image can be";
    img->size = static_cast<uint32_t>(st.st_size);
    return nullptr;
}

const char *crc_fault(const image_file *img, uint32_t crc)
{
    return crc == ntohl(img->header.ih_crc) ? nullptr : "has another CRC than its header says";
}

static const char *length_fault(const image_file *img)
{
    return ntohl(img->header.ih_size) == img->size
               ? nullptr
               : "has another length than its header says: it is cut off, or was never finished";
}

const char *open_image(const char *name, image_file *img)
{
    *img = {};
    // Without O_NONBLOCK a named pipe would wait for its writer.
    const int fd = open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        img->fd = -1;
        return strerror(errno);
    }
    const char *fault = examine_image(fd, img);
    if (fault == nullptr)
        fault = length_fault(img);
    if (fault != nullptr) {
        close(fd);
        img->fd = -1;
    }
    return fault;
}

const char *image_fault(const char *name)
{
    image_file img;
    const char *const fault = open_image(name, &img);
    if (fault == nullptr)
        close(img.fd);
    return fault;
}
