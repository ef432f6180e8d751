// System V shared memory, and the progress block in it.
#include "update/dtt_update_common/shared_memory.h"

#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <algorithm>
#include <cstdint>
#include <sys/ipc.h>
#include <sys/shm.h>

char *attach_shm(int shmkey, int shmsize)
{
    PLATFORM_LOG("  start.");
    size_t size = static_cast<size_t>(shmsize);
    int id = shmget(shmkey, size, 0);
    if (id < 0) {
        // Readers ask for the progress record less its last field. A block of our own is made for
        // the whole record all the same, so that every field lies inside it.
        if (shmkey == UPGRADE_INFO_SHM_KEY)
            size = std::max(size, sizeof(upgrade_info_t));
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
