// Applying an update image for the resident service: with events, a watch on the USB disk, and the
// card stage.
#include "update/dtt_update/card_sequencer.h"
#include "update/dtt_update/installer.h"
#include "update/dtt_update/service_run.h"
#include "update/dtt_update/take_image.h"
#include "update/dtt_update/unpack.h"
#include "update/dtt_update/update_run.h"
#include "update/dtt_update_common/device_paths.h"
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

// A run of the service: what both engines have, and who is told of it.
struct service_run {
    update_run run;
    event_receiver to;
};

// Tells the receiver about an entry that has failed with `ret`.
static void report_entry(const event_receiver *to, int ret)
{
    if (ret == UPDATE_COPY_FAILED)
        report_failure(to, UPGD_ERROR_COPY);
    else
        send_result(to, ret == UPDATE_BOOT_FAILED ? UPGD_ERROR_BOOT : UPGD_ERROR_KERNEL);
}

// Returns 0 if all entries are on the medium, the result of the first that failed, or UPDATE_FAILED
// if the disk is gone.
static int walk_entries(service_run *service)
{
    update_run *const run = &service->run;
    entry_walk walk;
    start_walk(&walk, &run->img);
    const uint32_t count = ntohl(run->img.header.ih_filenum);
    for (uint32_t i = 0; i < count; i++) {
        if (!get_usb_status()) {
            send_result(&service->to, UPGD_ERROR_NODISK);
            RUN_TRACE(run, "UPGD_ERROR_NODISK\n");
            return UPDATE_FAILED;
        }
        run->percent_written = static_cast<int>(
            UNPACKING_PERCENT * static_cast<unsigned int>(run->progress->cur_nums) / count);
        const int ret = unpack_entry(run, &walk);
        if (ret < 0) {
            report_entry(&service->to, ret);
            return ret;
        }
    }
    const int ret = sync_unpacked(run);
    if (ret < 0)
        report_entry(&service->to, ret);
    return ret;
}

static void unmount_kernel_partition(const update_run *run)
{
    if (ker_img_num <= 0)
        return;
    my_system("/bin/sync; /bin/umount " KERNEL_MOUNT_POINT "/");
    ker_img_num = 0;
    RUN_TRACE(run, "  umount kernel dir: " KERNEL_MOUNT_POINT "/ \n");
}

static int unpack_image(service_run *service)
{
    update_run *const run = &service->run;
    if (map_image(run) != 0) {
        report_failure(&service->to, UPGD_ERROR_MMAP);
        return UPDATE_NOT_MAPPED;
    }
    ker_img_num = 0;
    run->progress->cur_percent = 0;
    send_step(&service->to, UPGD_CTRL);
    begin_unpacking(run);

    const int ret = walk_entries(service);
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

static int apply_image(service_run *service, char *update_file, char *force_base_dir)
{
    const image_refusal refusal = take_image(&service->run, update_file, force_base_dir);
    if (refusal == IMAGE_ACCEPTED)
        return unpack_image(service);
    report_failure(&service->to, refusal_code(refusal));
    return UPDATE_REFUSED;
}

int do_update_upgrade(aptid_t uid, char *update_file, int mode, char *force_base_dir)
{
    upgrade_msg_t *const upgd_msg = get_upgd_msg();
    service_run service = {start_run(__func__), {uid, upgd_msg}};
    update_run *const run = &service.run;
    run->progress = &upgd_msg->upgrade_info;
    upgd_msg->update_param.value = UPGD_START;
    start_progress(run, UPGD_NORNAL);

    int ret = apply_image(&service, update_file, force_base_dir);
    if (run->img.fd >= 0)
        close(run->img.fd);
    RUN_TRACE(run, "\n\n\n\n\rround 2 --------update user file ....\n");
    if (ret >= 0)
        ret = update_all_UserFile(uid, upgd_msg);
    RUN_TRACE(run, "end upgrade !! \n");
    usleep(1000000);
    if (ret < 0) {
        say_failed(run);
    } else {
        run->progress->cur_percent = RUN_PERCENT;
        RUN_TRACE(run, "result = UPGD_SUCCESS, update successful !! \n");
    }
    end_run(run, mode);
    return ret;
}
