// Building an update image from a directory tree.
#include "update/dtt_create/create_image.h"

#include "update/dtt_create/tree_walk.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/crc32.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update/dtt_update_common/header_report.h"
#include "update/dtt_update_common/path_operations.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_header.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

static constexpr char BANNER[] = "Vorn Video Systems firmware package";
static constexpr char DEFAULT_VERSION[] = "V1.0.0.0";
static_assert(sizeof BANNER - 1 == 35, "the banner has 35 characters in every image");

// Cuts at the field's last character but one: the field keeps its terminator.
static void store_text(void *field, const char *text)
{
    memcpy(field, text, strnlen(text, IH_NMLEN - 1));
}

// The header while the body grows: its size is no size, so that every reader refuses the file.
static update_header_t first_header(int place_type, const char *version)
{
    update_header_t header = {};
    header.ih_magic = htonl(IH_MAGIC);
    header.ih_size = htonl(IH_MAGIC);
    header.ih_time = htonl(static_cast<uint32_t>(time(nullptr)));
    header.ih_place = htonl(static_cast<uint32_t>(place_type));
    store_text(header.ih_name, BANNER);
    store_text(header.ih_version, version != nullptr ? version : DEFAULT_VERSION);
    return header;
}

static void finish_header(update_header_t *header, uint32_t size, const char *updatedir,
                          int place_type, const char *to_dir)
{
    const char *top = ".";
    if (place_type == PLACE_COSTOM || strlen(updatedir) >= 2)
        top = get_dirname(updatedir);
    store_text(header->ih_update_dir, top[0] != '\0' ? top : ".");
    if (place_type == PLACE_COSTOM)
        store_text(header->ih_dest_dir, to_dir);
    header->ih_dirs = htonl(static_cast<uint32_t>(total_dir_nums));
    header->ih_filenum = htonl(static_cast<uint32_t>(total_file_nums));
    header->ih_size = htonl(size);
}

int crc32_img_body(int fd, uint32_t ih_size, uint32_t *crc_val)
{
    int status = 0;
    PLATFORM_LOG(" start");
    PLATFORM_LOG(" mmap");
    void *image = MAP_FAILED;
    if (ih_size >= sizeof(update_header_t))
        image = mmap(nullptr, ih_size, PROT_READ, MAP_SHARED, fd, 0);
    else
        errno = EINVAL;
    const int error = errno;
    if (image == MAP_FAILED) {
        status = -1;
        PLATFORM_LOG("mmap error!!\n");
    } else {
        PLATFORM_LOG(" linuxcrc32");
        *crc_val = linuxcrc32(static_cast<char *>(image) + sizeof(update_header_t),
                              ih_size - static_cast<uint32_t>(sizeof(update_header_t)));
        PLATFORM_LOG(" munmap");
        munmap(image, ih_size);
    }
    PLATFORM_LOG(" end");
    errno = error;
    return status;
}

static int build_image(int ifd, struct arena *ap, const char *updatedir, int place_type,
                       const char *to_dir, const char *version)
{
    update_header_t header = first_header(place_type, version);
    if (bb_full_write(ifd, &header, sizeof header) < 0)
        return -1;
    if (!bounded_copy(ap->devpath, sizeof ap->devpath, updatedir)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    struct stat st;
    if (get_dirs_and_files(ifd, ap) != 0 || lseek(ifd, 0, SEEK_SET) < 0 || fstat(ifd, &st) != 0)
        return -1;
    const uint32_t size = static_cast<uint32_t>(st.st_size);
    finish_header(&header, size, updatedir, place_type, to_dir);
    uint32_t crcval = 0;
    const int status = crc32_img_body(ifd, size, &crcval);
    const int error = errno;
    header.ih_crc = htonl(crcval);
    if (bb_full_write(ifd, &header, sizeof header) < 0)
        return -1;
    print_image_hdr(&header);
    errno = error;
    return status;
}

int do_create(char *updatedir, int /*mode*/, char *updata_file, int place_type, char *to_dir,
              char *version)
{
    // A walk outside of a build counts as well.
    total_file_nums = 0;
    total_dir_nums = 0;
    struct arena ap = {};
    if (lstat(updatedir, &ap.st) != 0)
        return -1;
    if (!S_ISDIR(ap.st.st_mode)) {
        PLATFORM_LOG("error: not Directories %s ", updatedir);
        errno = ENOTDIR;
        return -1;
    }
    if (place_type == PLACE_COSTOM && to_dir == nullptr) {
        TRACE("error: no target directory for place %d\n", place_type);
        errno = EINVAL;
        return -1;
    }
    const int ifd = open(updata_file, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    if (ifd < 0) {
        const int error = errno;
        PLATFORM_LOG("Can't open %s: %s", updata_file, strerror(error));
        errno = error;
        return -1;
    }
    int status = build_image(ifd, &ap, updatedir, place_type, to_dir, version);
    const int error = errno;
    // A disk that is reached over a network may say only now that it is full.
    if (close(ifd) != 0) {
        TRACE("unable to close `%s': %s\n", updata_file, strerror(errno));
        status = -1;
    } else {
        errno = error;
    }
    total_file_nums = 0;
    total_dir_nums = 0;
    return status;
}
