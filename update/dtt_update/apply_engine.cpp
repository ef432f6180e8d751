// Applying an update image, with its progress in the shared block.
#include "update/dtt_update/apply_engine.h"

#include "update/dtt_update/take_image.h"
#include "update/dtt_update/unpack.h"
#include "update/dtt_update/update_run.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <arpa/inet.h>
#include <unistd.h>

static constexpr int ENTRY_WRITTEN = 100; // percent of the current entry

// Returns 0 if all entries are on the medium, or the result of the first that failed.
static int walk_entries(update_run *run)
{
    entry_walk walk;
    start_walk(&walk, &run->img);
    run->percent_written = ENTRY_WRITTEN;
    const uint32_t count = ntohl(run->img.header.ih_filenum);
    for (uint32_t i = 0; i < count; i++) {
        run->progress->cur_percent = 0;
        const int ret = unpack_entry(run, &walk);
        if (ret < 0)
            return ret;
    }
    RUN_TRACE(run, "\n\n\n\n\rround 2 --------update user file ....\n");
    return sync_unpacked(run);
}

static int unpack_image(update_run *run)
{
    if (map_image(run) != 0)
        return UPDATE_NOT_MAPPED;
    begin_unpacking(run);
    const int ret = walk_entries(run);
    end_unpacking(run);
    if (ret < 0) {
        run->progress->result = RUN_FAILED;
        // The walk ends with its first failure, so there is one.
        RUN_TRACE(run, "result = 2, update %d file error !! \n", 1);
        return ret;
    }
    run->progress->cur_nums = run->progress->file_nums;
    run->progress->result = RUN_DONE;
    RUN_TRACE(run, "result = 1, update successful !! \n");
    record_image(run);
    return 0;
}

static int apply_image(update_run *run, char *update_file, char *force_base_dir)
{
    const image_refusal refusal = take_image(run, update_file, force_base_dir);
    if (refusal == IMAGE_ACCEPTED)
        return unpack_image(run);
    if (refusal == IMAGE_BAD_MAGIC)
        RUN_TRACE(run, "Image Magic Number Error . ih_magic = 0x%08x .",
                  ntohl(run->img.header.ih_magic));
    return UPDATE_REFUSED;
}

int do_update(char *update_file, int mode, char *force_base_dir)
{
    update_run run = start_run(__func__);
    // It stays attached to the process's end.
    run.progress = static_cast<upgrade_info_t *>(get_upgrade_info());
    if (run.progress == nullptr) {
        RUN_LOG(&run, " get_upgrade_info Error .\n");
        RUN_TRACE(&run, "update_info get from shm err!");
        return UPDATE_REFUSED;
    }
    RUN_TRACE(&run, "shm get_upgrade_info success!!");
    start_progress(&run, RUN_STARTED);

    const int ret = apply_image(&run, update_file, force_base_dir);
    if (run.img.fd >= 0)
        close(run.img.fd);
    if (ret < 0) {
        run.progress->result = RUN_FAILED;
        say_failed(&run);
    }
    usleep(20000);
    end_run(&run, mode);
    return ret;
}
