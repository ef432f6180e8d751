// Appending entries to an image that is being built.
#include "update/dtt_update_common/entry_writer.h"

#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/image_layout.h"
#include "update/dtt_update_common/path_operations.h"
#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_header.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

// Most lines of this file name the operation that was called.
static constexpr char OPERATION[] = "write_file";

// The image that is being built. One build at a time: write_file is given no more than its file.
struct image_build {
    long long length; // bytes so far
    bool broken;
};

static image_build build;

unsigned int left_out[LEFT_OUT_CAUSES];

void begin_image(void)
{
    memset(left_out, 0, sizeof left_out);
    build = {sizeof(update_header_t), false};
}

bool image_is_broken(void)
{
    return build.broken;
}

char *first_char_is(const char *s, int c)
{
    const char *found = strchr(s, c);
    while (found != nullptr && found[1] == '.')
        found = strchr(found + 1, c);
    return found != nullptr ? const_cast<char *>(found + 1) : nullptr;
}

// The end of the path in a link's text: at the ';' behind `path`, whatever the target holds, or at
// the last one of a text that tells of another path.
static const char *link_path_end(const char *text, const char *path)
{
    const size_t len = strlen(path);
    const char *end = text + len;
    if (strncmp(text, path, len) != 0 || *end != LINK_DIVIDER)
        end = strrchr(text, LINK_DIVIDER);
    return end != nullptr ? end : text + strlen(text);
}

// The name under which an entry is stored, in `text`, whose path ends at `end`. A hidden file
// directly below a one-component root has no '/' that a name follows: it keeps its last component.
// The same holds for a link there, whose target must not be taken for its name.
static const char *entry_name(const char *text, const char *end)
{
    const char *name = first_char_is(text, '/');
    if (name != nullptr && name <= end)
        return name;
    while (end > text && end[-1] != '/')
        end--;
    return end;
}

int break_image(const char *func, const char *path, int error)
{
    TRACE_AS(func, "image is incomplete at `%s': %s\n", path, strerror(error));
    build.broken = true;
    errno = error;
    return -1;
}

static int break_entry(const char *path, int error)
{
    return break_image(OPERATION, path, error);
}

static int append_data(int dst_fd, int fd, const char *path, off_t size)
{
    const size_t len = static_cast<size_t>(size);
    void *data = mmap(nullptr, len, PROT_READ, MAP_SHARED, fd, 0);
    if (data == MAP_FAILED) {
        const int error = errno;
        OPERATION_TRACE("mmap failed `%s(size=%d)'\n", path, static_cast<int>(size));
        return break_entry(path, error);
    }
    int status = 0;
    if (bb_full_write(dst_fd, data, len) < 0) {
        const int error = errno;
        OPERATION_TRACE("bb_full_write failed `%s(size=%d)'\n", path, static_cast<int>(size));
        status = break_entry(path, error);
    }
    munmap(data, len);
    // From its new end on, a file that has been cut meanwhile was read as zeros.
    struct stat st;
    if (status == 0 && (fstat(fd, &st) != 0 || st.st_size < size))
        status = break_entry(path, EIO);
    return status;
}

static int append_entry(int dst_fd, int fd, int type, const char *path, const char *filename,
                        off_t size)
{
    const char *name = nullptr;
    off_t data_size = 0;
    switch (form_of(type)) {
    case entry_form::file:
    case entry_form::directory: // none is built, but a caller may ask for any type
        name = entry_name(path, path + strlen(path));
        data_size = size;
        break;
    case entry_form::link:
        name = entry_name(filename, link_path_end(filename, path));
        break;
    }
    const size_t name_len = strlen(name) + 1;
    char head[PATH_SIZE + TYPE_AND_SIZE];
    if (name_len > PATH_SIZE)
        return break_entry(path, ENAMETOOLONG);
    const size_t head_len = name_len + TYPE_AND_SIZE;
    if (data_size > IMAGE_SIZE_MAX - build.length - static_cast<long long>(head_len))
        return break_entry(path, EFBIG);

    memcpy(head, name, name_len);
    store_type_and_size(head + name_len, type, static_cast<uint32_t>(data_size));
    if (bb_full_write(dst_fd, head, head_len) < 0)
        return break_entry(path, errno);
    if (data_size > 0 && append_data(dst_fd, fd, path, data_size) != 0)
        return -1;
    build.length += static_cast<long long>(head_len) + data_size;
    return 0;
}

// Why what could not be opened is left out. Of a device without a driver and of a socket it is said
// that there is no such device.
static left_out_cause unopened_cause(int type, int error)
{
    if (form_of(type) != entry_form::link)
        return LEFT_UNREADABLE;
    return error == ENXIO || error == ENODEV ? LEFT_LINK_TO_DEVICE : LEFT_LINK_TO_NOWHERE;
}

static left_out_cause sizeless_cause(int type, mode_t mode)
{
    if (form_of(type) != entry_form::link)
        return LEFT_EMPTY_FILE;
    return S_ISREG(mode) ? LEFT_LINK_TO_EMPTY_FILE : LEFT_LINK_TO_DEVICE;
}

int write_file(int dst_fd, int type, const char *path, const char *filename)
{
    // Without O_NONBLOCK a link to a pipe would wait for a writer.
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        left_out[unopened_cause(type, errno)]++;
        TRACE("unable to open `%s'\n", path);
        return -1;
    }
    int status = -1;
    struct stat st;
    if (fstat(fd, &st) != 0)
        left_out[LEFT_UNREADABLE]++;
    else if (st.st_size > 0)
        status = append_entry(dst_fd, fd, type, path, filename, st.st_size);
    else
        left_out[sizeless_cause(type, st.st_mode)]++;
    if (close(fd) < 0) {
        const int error = errno;
        TRACE("unable to close `%s'\n", path);
        // The caller does not count an entry that failed, so it must not stand in the image.
        return status == 0 ? break_entry(path, error) : -1;
    }
    return status;
}
