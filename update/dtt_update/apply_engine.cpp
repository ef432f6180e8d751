// Applying an update image, with its progress in the shared block.
#include "update/dtt_update/apply_engine.h"

#include "update/dtt_update/card_table.h"
#include "update/dtt_update/installer.h"
#include "update/dtt_update/run_steps.h"
#include "update/dtt_update/take_image.h"
#include "update/dtt_update/unpack.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <arpa/inet.h>
#include <unistd.h>

// Every line of this engine names it, whichever of the functions below writes it.
static constexpr char ENGINE[] = "do_update";
#define ENGINE_LOG(...) PLATFORM_LOG_AS(ENGINE, __VA_ARGS__)
#define ENGINE_TRACE(...) TRACE_AS(ENGINE, __VA_ARGS__)

enum { RESULT_STARTED = -1, RESULT_UNPACKING = 0, RESULT_DONE = 1, RESULT_FAILED = 2 };

// Returns the next entry's result.
static int apply_entry(const image *img, const char *filedata, entry_walk *walk, char *u_base_dir,
                       upgrade_info_t *update_info)
{
    image_entry entry;
    char basename[PATH_SIZE];
    update_info->cur_percent = 0;
    const bool taken = take_entry(ENGINE, walk, u_base_dir, &entry, basename) == 0;
    if (taken)
        prepare_entry(ENGINE, u_base_dir, &entry, basename);
    update_info->cur_percent = 100;
    if (!taken || write_entry(ENGINE, img, filedata, &entry, basename) != 0) {
        copy_failed(ENGINE, update_info, basename);
        return APPLY_COPY_FAILED;
    }
    const int ret = update_LinuxFile(entry.type, basename);
    if (ret < 0)
        return ret;
    if (save_UserFile_patch(entry.type, basename) != 0)
        update_info->cur_nums++;
    if (entry.type == ENTRY_LINK)
        creat_link_file(basename, entry.name);
    return 0;
}

// Returns the result of the first entry that failed, or 0.
static int walk_entries(const image *img, const char *filedata, char *u_base_dir,
                        upgrade_info_t *update_info)
{
    entry_walk walk;
    start_walk(&walk, img);
    const uint32_t count = ntohl(img->header.ih_filenum);
    for (uint32_t i = 0; i < count; i++) {
        const int ret = apply_entry(img, filedata, &walk, u_base_dir, update_info);
        if (ret < 0)
            return ret;
    }
    ENGINE_TRACE("\n\n\n\n\rround 2 --------update user file ....\n");
    return 0;
}

static int unpack_image(image *img, char *u_base_dir, upgrade_info_t *update_info)
{
    const char *const filedata = map_image(img);
    if (filedata == nullptr)
        return APPLY_NOT_MAPPED;
    update_info->file_nums = static_cast<int>(ntohl(img->header.ih_filenum));
    update_info->result = RESULT_UNPACKING;
    begin_unpacking(ENGINE, update_info);

    const int ret = walk_entries(img, filedata, u_base_dir, update_info);
    unmap_image(img, filedata);
    ENGINE_LOG(" update_info->result = %d (1:ok, 2:error). \n", update_info->result);
    if (ret < 0) {
        update_info->result = RESULT_FAILED;
        // The walk ends with its first failure, so there is one.
        ENGINE_TRACE("result = 2, update %d file error !! \n", 1);
        return ret;
    }
    update_info->cur_nums = update_info->file_nums;
    update_info->result = RESULT_DONE;
    ENGINE_TRACE("result = 1, update successful !! \n");
    record_image(ENGINE, img);
    return 0;
}

static int apply_image(char *update_file, char *force_base_dir, upgrade_info_t *update_info)
{
    image img;
    char u_base_dir[PATH_SIZE];
    int ret = APPLY_REFUSED;
    const image_refusal refusal = take_image(ENGINE, update_file, force_base_dir, &img, u_base_dir);
    if (refusal == IMAGE_ACCEPTED)
        ret = unpack_image(&img, u_base_dir, update_info);
    else if (refusal == IMAGE_BAD_MAGIC)
        ENGINE_TRACE("Image Magic Number Error . ih_magic = 0x%08x .", ntohl(img.header.ih_magic));
    if (img.fd >= 0)
        close(img.fd);
    return ret;
}

int do_update(char *update_file, int mode, char *force_base_dir)
{
    ENGINE_TRACE("in fun do_update  ! \n");
    ENGINE_LOG(" start");
    ker_img_num = 0;
    upgrade_info_t *const update_info = static_cast<upgrade_info_t *>(get_upgrade_info());
    if (update_info == nullptr) {
        ENGINE_LOG(" get_upgrade_info Error .\n");
        ENGINE_TRACE("update_info get from shm err!");
        return APPLY_REFUSED;
    }
    ENGINE_TRACE("shm get_upgrade_info success!!");
    ENGINE_LOG("get_upgrade_info success!! ");
    *update_info = {};
    update_info->result = RESULT_STARTED;
    show_result(ENGINE, update_info);

    const int ret = apply_image(update_file, force_base_dir, update_info);
    if (ret < 0) {
        update_info->result = RESULT_FAILED;
        ENGINE_TRACE("result = 2, update error !! \n");
        ENGINE_LOG(" result = 2, update error !!");
    }
    usleep(20000);
    end_run(ENGINE, mode);
    return ret;
}
