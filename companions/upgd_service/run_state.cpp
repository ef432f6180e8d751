// What can be seen of runs from outside.
#include "companions/upgd_service/run_state.h"

#include "companions/owners.h"
#include "companions/upgd_service/byte_progress.h"
#include "companions/upgd_service/console.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/run_lock.h"

#include <cstring>
#include <sys/shm.h>
#include <sys/stat.h>

bool attach_progress_block(const upgrade_info_t **block)
{
    *block = nullptr;
    const int id = shmget(UPGRADE_INFO_SHM_KEY, UPGRADE_INFO_SHM_SIZE, 0);
    if (id < 0 && errno == ENOENT)
        return true;
    void *const place = id >= 0 ? shmat(id, nullptr, SHM_RDONLY) : reinterpret_cast<void *>(-1);
    if (place == reinterpret_cast<void *>(-1))
        return complain("the progress block, shared memory 0x%x, can't be read: %s",
                        UPGRADE_INFO_SHM_KEY, strerror(errno));
    *block = static_cast<const upgrade_info_t *>(place);
    return true;
}

// Its four first fields are there in any case.
run_state look_at_run(const upgrade_info_t *block)
{
    if (block == nullptr)
        return {};
    shmid_ds use = {};
    const int id = shmget(UPGRADE_INFO_SHM_KEY, UPGRADE_INFO_SHM_SIZE, 0);
    const bool attended = id >= 0 && shmctl(id, IPC_STAT, &use) == 0 && use.shm_nattch > 1;
    return {true, field(&block->result), field(&block->cur_nums), field(&block->file_nums),
            attended};
}

std::string run_at_work(const run_state &run)
{
    if (!run_is_at_work())
        return "";
    // What a killed run has left there is not what is at work now.
    if (is_over(run) || !run.attended)
        return "a service update, a restore, or flashing";
    return "img_deploy or a restore: " + std::to_string(run.done) + " of " +
           std::to_string(run.total) + " entries";
}

std::string flag_value()
{
    const file_stream file(fopen(UPDATE_FLAG_PATH, "re"));
    char text[8] = "";
    if (file == nullptr || fgets(text, sizeof text, file.get()) == nullptr)
        return "";
    return std::string(text, strcspn(text, "\n"));
}

timespec flag_time()
{
    struct stat st = {};
    stat(UPDATE_FLAG_PATH, &st);
    return st.st_mtim;
}
