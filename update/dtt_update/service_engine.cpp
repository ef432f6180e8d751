// Applying an update image for the resident service: with events, a watch on the USB disk, and the
// card stage.
#include "update/dtt_update/card_sequencer.h"
#include "update/dtt_update/installer.h"
#include "update/dtt_update/service_run.h"
#include "update/dtt_update/take_image.h"
#include "update/dtt_update/unpack.h"
#include "update/dtt_update/update_run.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <arpa/inet.h>
#include <unistd.h>

static constexpr unsigned int UNPACKING_PERCENT = 100; // of the run's 1000
static constexpr int RUN_PERCENT = 1000;

static int refusal_code(image_refusal refusal)
{
    switch (refusal) {
    case IMAGE_NO_NAME:
    case IMAGE_MISSING:
        return UPGD_ERROR_FILENOTEXIST;
    case IMAGE_NOT_OPEN:
        return UPGD_ERROR_FILECHECK;
    case IMAGE_ACCEPTED:
    case IMAGE_SHORT_HEADER:
    case IMAGE_BAD_MAGIC:
    case IMAGE_BAD_SIZE:
    case IMAGE_NO_BASE_DIR:
        break;
    }
    return UPGD_ERROR_FILEPARSE;
}

// Tells the receiver about an entry that has failed with `ret`.
static void report_entry(aptid_t uid, int ret)
{
    if (ret == UPDATE_COPY_FAILED)
        report_failure(uid, get_upgd_msg(), UPGD_ERROR_COPY);
    else
        send_result(uid, get_upgd_msg(),
                    ret == UPDATE_BOOT_FAILED ? UPGD_ERROR_BOOT : UPGD_ERROR_KERNEL);
}

// Returns 0 if all entries are on the medium, the result of the first that failed, or UPDATE_FAILED
// if the disk is gone.
static int walk_entries(aptid_t uid, update_run *run)
{
    entry_walk walk;
    start_walk(&walk, &run->img);
    const uint32_t count = ntohl(run->img.header.ih_filenum);
    for (uint32_t i = 0; i < count; i++) {
        if (!get_usb_status()) {
            send_result(uid, get_upgd_msg(), UPGD_ERROR_NODISK);
            RUN_TRACE(run, "UPGD_ERROR_NODISK\n");
            return UPDATE_FAILED;
        }
        run->percent_written = static_cast<int>(
            UNPACKING_PERCENT * static_cast<unsigned int>(run->progress->cur_nums) / count);
        const int ret = unpack_entry(run, &walk);
        if (ret < 0) {
            report_entry(uid, ret);
            return ret;
        }
    }
    const int ret = sync_unpacked(run);
    if (ret < 0)
        report_entry(uid, ret);
    return ret;
}

static void unmount_kernel_partition(const update_run *run)
{
    if (ker_img_num <= 0)
        return;
    my_system("/bin/sync; /bin/umount /mntker/");
    ker_img_num = 0;
    RUN_TRACE(run, "  umount kernel dir: /mntker/ \n");
}

static int unpack_image(aptid_t uid, update_run *run)
{
    if (map_image(run) != 0) {
        report_failure(uid, get_upgd_msg(), UPGD_ERROR_MMAP);
        return UPDATE_NOT_MAPPED;
    }
    get_upgd_msg()->update_param.value = UPGD_CTRL;
    ker_img_num = 0;
    run->progress->cur_percent = 0;
    send_run_event(uid, get_upgd_msg());
    begin_unpacking(run);

    const int ret = walk_entries(uid, run);
    if (ret != UPDATE_COPY_FAILED)
        unmount_kernel_partition(run);
    end_unpacking(run);
    if (ret < 0) {
        // The walk ends with its first failure, so there is one.
        RUN_TRACE(run, "result = 2, update %d file error !! \n", 1);
        return UPDATE_FAILED;
    }
    run->progress->cur_nums = run->progress->file_nums;
    RUN_TRACE(run, "result = UPGD_SUCCESS, update successful !! \n");
    record_image(run);
    return 0;
}

static int apply_image(aptid_t uid, update_run *run, char *update_file, char *force_base_dir)
{
    const image_refusal refusal = take_image(run, update_file, force_base_dir);
    if (refusal == IMAGE_ACCEPTED)
        return unpack_image(uid, run);
    report_failure(uid, get_upgd_msg(), refusal_code(refusal));
    return UPDATE_REFUSED;
}

int do_update_upgrade(aptid_t uid, char *update_file, int mode, char *force_base_dir)
{
    upgrade_msg_t *const upgd_msg = get_upgd_msg();
    update_run run = start_run(__func__);
    run.progress = &upgd_msg->upgrade_info;
    upgd_msg->update_param.value = UPGD_START;
    start_progress(&run, UPGD_NORNAL);

    int ret = apply_image(uid, &run, update_file, force_base_dir);
    if (run.img.fd >= 0)
        close(run.img.fd);
    RUN_TRACE(&run, "\n\n\n\n\rround 2 --------update user file ....\n");
    if (ret >= 0)
        ret = update_all_UserFile(uid, upgd_msg);
    RUN_TRACE(&run, "end upgrade !! \n");
    usleep(1000000);
    if (ret < 0) {
        say_failed(&run);
    } else {
        run.progress->cur_percent = RUN_PERCENT;
        RUN_TRACE(&run, "result = UPGD_SUCCESS, update successful !! \n");
    }
    end_run(&run, mode);
    return ret;
}
