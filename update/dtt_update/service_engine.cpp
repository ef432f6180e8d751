// Applying an update image for the resident service: with events, a watch on the USB disk, and the
// card stage.
#include "update/dtt_update/card_sequencer.h"
#include "update/dtt_update/card_table.h"
#include "update/dtt_update/installer.h"
#include "update/dtt_update/run_steps.h"
#include "update/dtt_update/service_run.h"
#include "update/dtt_update/take_image.h"
#include "update/dtt_update/unpack.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <arpa/inet.h>
#include <unistd.h>

// Every line of this engine names it, whichever of the functions below writes it.
static constexpr char ENGINE[] = "do_update_upgrade";
#define ENGINE_LOG(...) PLATFORM_LOG_AS(ENGINE, __VA_ARGS__)
#define ENGINE_TRACE(...) TRACE_AS(ENGINE, __VA_ARGS__)

static constexpr int UNPACKING_FAILED = -1;
static constexpr int NOT_MAPPED = -3;
static constexpr int REFUSED = -10;

static constexpr unsigned int UNPACKING_PERCENT = 100; // of the run's 1000
static constexpr int RUN_PERCENT = 1000;

// How the walk over the entries has ended.
enum walk_end { WALK_DONE, WALK_STOPPED, WALK_COPY_FAILED };

static int refusal_code(image_refusal refusal)
{
    switch (refusal) {
    case IMAGE_NO_NAME:
    case IMAGE_MISSING:
        return UPGD_ERROR_FILENOTEXIST;
    case IMAGE_NOT_OPEN:
        return UPGD_ERROR_FILECHECK;
    default:
        return UPGD_ERROR_FILEPARSE;
    }
}

static walk_end apply_entry(aptid_t uid, upgrade_msg_t *upgd_msg, const image *img,
                            const char *filedata, entry_walk *walk, char *u_base_dir)
{
    upgrade_info_t *const update_info = &upgd_msg->upgrade_info;
    image_entry entry;
    char basename[PATH_SIZE];
    const bool taken = take_entry(ENGINE, walk, u_base_dir, &entry, basename) == 0;
    if (taken)
        prepare_entry(ENGINE, u_base_dir, &entry, basename);
    update_info->cur_percent =
        static_cast<int>(UNPACKING_PERCENT * static_cast<unsigned int>(update_info->cur_nums) /
                         ntohl(img->header.ih_filenum));
    if (!taken || write_entry(ENGINE, img, filedata, &entry, basename) != 0) {
        copy_failed(ENGINE, update_info, basename);
        report_failure(uid, upgd_msg, UPGD_ERROR_COPY);
        return WALK_COPY_FAILED;
    }
    const int ret = update_LinuxFile(entry.type, basename);
    if (ret < 0) {
        send_result(uid, upgd_msg,
                    ret == INSTALL_BOOT_FAILED ? UPGD_ERROR_BOOT : UPGD_ERROR_KERNEL);
        return WALK_STOPPED;
    }
    if (save_UserFile_patch(entry.type, basename) != 0)
        update_info->cur_nums++;
    if (entry.type == ENTRY_LINK)
        creat_link_file(basename, entry.name);
    return WALK_DONE;
}

// Returns whether the disk is gone, and has said so then.
static bool disk_is_gone(aptid_t uid, upgrade_msg_t *upgd_msg)
{
    if (get_usb_status())
        return false;
    send_result(uid, upgd_msg, UPGD_ERROR_NODISK);
    ENGINE_TRACE("UPGD_ERROR_NODISK\n");
    return true;
}

static walk_end walk_entries(aptid_t uid, upgrade_msg_t *upgd_msg, const image *img,
                             const char *filedata, char *u_base_dir)
{
    entry_walk walk;
    start_walk(&walk, img);
    const uint32_t count = ntohl(img->header.ih_filenum);
    for (uint32_t i = 0; i < count; i++) {
        if (disk_is_gone(uid, upgd_msg))
            return WALK_STOPPED;
        const walk_end end = apply_entry(uid, upgd_msg, img, filedata, &walk, u_base_dir);
        if (end != WALK_DONE)
            return end;
    }
    return WALK_DONE;
}

static void unmount_kernel_partition()
{
    if (ker_img_num <= 0)
        return;
    my_system("/bin/sync; /bin/umount /mntker/");
    ker_img_num = 0;
    ENGINE_TRACE("  umount kernel dir: /mntker/ \n");
}

static int unpack_image(aptid_t uid, upgrade_msg_t *upgd_msg, image *img, char *u_base_dir)
{
    upgrade_info_t *const update_info = &upgd_msg->upgrade_info;
    const char *const filedata = map_image(img);
    if (filedata == nullptr) {
        report_failure(uid, upgd_msg, UPGD_ERROR_MMAP);
        return NOT_MAPPED;
    }
    upgd_msg->update_param.value = UPGD_CTRL;
    ker_img_num = 0;
    update_info->cur_percent = 0;
    send_event(uid, upgd_msg);
    update_info->file_nums = static_cast<int>(ntohl(img->header.ih_filenum));
    begin_unpacking(ENGINE, update_info);

    const walk_end end = walk_entries(uid, upgd_msg, img, filedata, u_base_dir);
    if (end != WALK_COPY_FAILED)
        unmount_kernel_partition();
    unmap_image(img, filedata);
    ENGINE_LOG(" update_info->result = %d (1:ok, 2:error). \n", update_info->result);
    if (end != WALK_DONE) {
        // The walk ends with its first failure, so there is one.
        ENGINE_TRACE("result = 2, update %d file error !! \n", 1);
        return UNPACKING_FAILED;
    }
    update_info->cur_nums = update_info->file_nums;
    ENGINE_TRACE("result = UPGD_SUCCESS, update successful !! \n");
    record_image(ENGINE, img);
    return 0;
}

static int apply_image(aptid_t uid, upgrade_msg_t *upgd_msg, char *update_file,
                       char *force_base_dir)
{
    image img;
    char u_base_dir[PATH_SIZE];
    int ret = REFUSED;
    const image_refusal refusal = take_image(ENGINE, update_file, force_base_dir, &img, u_base_dir);
    if (refusal == IMAGE_ACCEPTED)
        ret = unpack_image(uid, upgd_msg, &img, u_base_dir);
    else
        report_failure(uid, upgd_msg, refusal_code(refusal));
    if (img.fd >= 0)
        close(img.fd);
    return ret;
}

int do_update_upgrade(aptid_t uid, char *update_file, int mode, char *force_base_dir)
{
    upgrade_msg_t *const upgd_msg = get_upgd_msg();
    upgrade_info_t *const update_info = &upgd_msg->upgrade_info;
    ENGINE_TRACE("in fun do_update  ! \n");
    ENGINE_LOG(" start");
    ker_img_num = 0;
    upgd_msg->update_param.value = UPGD_START;
    // Only a line: the shared progress block belongs to the other engine.
    ENGINE_LOG("get_upgrade_info success!! ");
    *update_info = {};
    show_result(ENGINE, update_info);

    int ret = apply_image(uid, upgd_msg, update_file, force_base_dir);
    ENGINE_TRACE("\n\n\n\n\rround 2 --------update user file ....\n");
    if (ret >= 0)
        ret = update_all_UserFile(uid, upgd_msg);
    ENGINE_TRACE("end upgrade !! \n");
    usleep(1000000);
    if (ret < 0) {
        ENGINE_TRACE("result = 2, update error !! \n");
        ENGINE_LOG(" result = 2, update error !!");
    } else {
        update_info->cur_percent = RUN_PERCENT;
        ENGINE_TRACE("result = UPGD_SUCCESS, update successful !! \n");
    }
    end_run(ENGINE, mode);
    return ret;
}
