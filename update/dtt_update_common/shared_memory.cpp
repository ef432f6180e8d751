// System V shared memory, and the progress block in it.
#include "update/dtt_update_common/shared_memory.h"

#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <cerrno>
#include <cstdint>
#include <sys/ipc.h>
#include <sys/shm.h>

// Any user can make a progress block, and one that is too small would keep all runs from working.
// One that nobody has attached makes way, if this user may remove it.
static void remove_small_block()
{
    const int id = shmget(UPGRADE_INFO_SHM_KEY, 0, 0);
    shmid_ds state;
    if (id >= 0 && shmctl(id, IPC_STAT, &state) == 0 && state.shm_nattch == 0)
        shmctl(id, IPC_RMID, nullptr);
}

char *attach_shm(int shmkey, int shmsize)
{
    PLATFORM_LOG("  start.");
    int id = shmget(shmkey, static_cast<size_t>(shmsize), 0);
    if (id < 0 && errno == EINVAL && shmkey == UPGRADE_INFO_SHM_KEY)
        remove_small_block();
    if (id < 0) {
        // Readers ask for the progress record less its last field. A block of our own is made for
        // the whole record all the same, so that every field lies inside it.
        const size_t size =
            shmkey == UPGRADE_INFO_SHM_KEY ? sizeof(upgrade_info_t) : static_cast<size_t>(shmsize);
        id = shmget(shmkey, size, IPC_CREAT | 0600);
    }
    if (id < 0)
        return nullptr;
    void *addr = shmat(id, nullptr, 0);
    return reinterpret_cast<intptr_t>(addr) == -1 ? nullptr : static_cast<char *>(addr);
}

int detach_shm(void *addr)
{
    return shmdt(addr);
}

void *get_upgrade_info(void)
{
    constexpr int size = UPGRADE_INFO_SHM_SIZE;
    TRACE("upgrade_info_t-4 size is %dBytes \n", size);
    return attach_shm(UPGRADE_INFO_SHM_KEY, size);
}

void free_upgrade_info(void *info)
{
    if (info != nullptr)
        detach_shm(info);
}
