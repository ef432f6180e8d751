// The opening of an apply run.
#include "update/dtt_update/take_image.h"

#include "update/dtt_update/directories_and_links.h"
#include "update/dtt_update/target_search.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/header_report.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/trace_log.h"

#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static image_refusal find_file(const update_run *run, char *update_file, off_t *length)
{
    if (update_file == nullptr) {
        RUN_LOG(run, " filename invalid filename %s", "(null)");
        RUN_TRACE(run, "error, update_file is \n");
        return IMAGE_NO_NAME;
    }
    // The path may come from a line that was read with its line feed.
    char *rest = nullptr;
    strtok_r(update_file, "\n", &rest);
    if (access(update_file, F_OK) != 0) {
        RUN_LOG(run, " file not exist filename %s", update_file);
        RUN_TRACE(run, "error, access.\n");
        return IMAGE_MISSING;
    }
    struct stat st = {};
    stat(update_file, &st);
    *length = st.st_size;
    RUN_TRACE(run, "update file: %s , img_size = %d \n", update_file, static_cast<int>(*length));
    RUN_LOG(run, "<do_update> update_file:%s", update_file);
    return IMAGE_ACCEPTED;
}

static image_refusal open_file(update_run *run, const char *update_file)
{
    // A named pipe would wait for its writer without O_NONBLOCK.
    run->img.fd = open(update_file, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (run->img.fd < 0) {
        RUN_LOG(run, "open error filename %s", update_file);
        RUN_TRACE(run, "open error filename.\n");
        return IMAGE_NOT_OPEN;
    }
    return IMAGE_ACCEPTED;
}

static image_refusal check_header(update_run *run, off_t length)
{
    image_file *const img = &run->img;
    RUN_LOG(run, "fread update_file ...");
    if (full_pread(img->fd, &img->header, sizeof img->header, 0) != sizeof img->header) {
        RUN_LOG(run, "fread update_header error.");
        RUN_TRACE(run, "fread update_header error.\n");
        return IMAGE_SHORT_HEADER;
    }
    RUN_LOG(run, "check img : magic_number; img_size; body_crc ...");
    const uint32_t ih_magic = ntohl(img->header.ih_magic);
    if (ih_magic != IH_MAGIC) {
        RUN_LOG(run, "Image Magic Number Error . ih_magic = 0x%08x .", ih_magic);
        RUN_TRACE(run, "error, update_header.ih_magic.\n");
        return IMAGE_BAD_MAGIC;
    }
    // Compared in full width: a file of 4 GiB more than `ih_size` is not of that size.
    const uint32_t ih_size = ntohl(img->header.ih_size);
    if (static_cast<off_t>(ih_size) != length) {
        const int img_size = static_cast<int>(length);
        RUN_LOG(run, "Image size Error . img_size = %d , ih_size = %d.", img_size,
                static_cast<int>(ih_size));
        RUN_TRACE(run, "error, update_header.ih_size. img_size = %d , ih_size = %d.\n", img_size,
                  static_cast<int>(ih_size));
        return IMAGE_BAD_SIZE;
    }
    RUN_LOG(run, "check img ok !");
    RUN_TRACE(run, "check img ok !");
    img->size = ih_size;
    return IMAGE_ACCEPTED;
}

static image_refusal enter_base_dir(update_run *run, const char *force_base_dir)
{
    char *const u_base_dir = run->base.path;
    if (ntohl(run->img.header.ih_place) == PLACE_COSTOM) {
        fixed_copy(run->base.path, text_of(run->img.header.ih_dest_dir).text);
    } else if (find_dir(&run->img.header, u_base_dir) != 0) {
        RUN_LOG(run, "find_dir Failed");
        RUN_TRACE(run, "error, update_header.ih_place.\n");
        return IMAGE_NO_BASE_DIR;
    }
    if (force_base_dir != nullptr) {
        if (!bounded_copy(u_base_dir, PATH_SIZE, force_base_dir)) {
            RUN_LOG(run, "chdir(%s) Failed", force_base_dir);
            return IMAGE_NO_BASE_DIR;
        }
        _mkdir(u_base_dir);
    }
    RUN_LOG(run, "get u_base_dir:%s ", u_base_dir);
    RUN_TRACE(run, "get u_base_dir:%s \n", u_base_dir);
    if (chdir(u_base_dir) != 0) {
        RUN_LOG(run, "chdir(%s) Failed", u_base_dir);
        return IMAGE_NO_BASE_DIR;
    }
    return IMAGE_ACCEPTED;
}

image_refusal take_image(update_run *run, char *update_file, char *force_base_dir)
{
    off_t length = 0;
    image_refusal refusal = find_file(run, update_file, &length);
    if (refusal == IMAGE_ACCEPTED)
        refusal = open_file(run, update_file);
    if (refusal == IMAGE_ACCEPTED)
        refusal = check_header(run, length);
    if (refusal == IMAGE_ACCEPTED)
        refusal = enter_base_dir(run, force_base_dir);
    if (refusal != IMAGE_ACCEPTED)
        return refusal;

    RUN_TRACE(run, "print_image_header.\n");
    RUN_LOG(run, "print_image_header.");
    print_image_hdr(&run->img.header);
    RUN_LOG(run, "start creat img.");
    RUN_TRACE(run, "start creat img.\n");
    return IMAGE_ACCEPTED;
}
