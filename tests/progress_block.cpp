// progress_block: prints the shared progress block of an apply run, as a reader in another process
// sees it: the four fields that every segment holds.
#include "upgrade_info.h"

#include <cstdint>
#include <cstdio>
#include <sys/shm.h>

int main()
{
    const int id = shmget(UPGRADE_INFO_SHM_KEY, UPGRADE_INFO_SHM_SIZE, 0);
    const void *const block = id < 0 ? nullptr : shmat(id, nullptr, SHM_RDONLY);
    if (block == nullptr || reinterpret_cast<intptr_t>(block) == -1) {
        perror("progress_block");
        return 1;
    }
    const upgrade_info_t *const info = static_cast<const upgrade_info_t *>(block);
    printf("file_nums=%d cur_nums=%d result=%d cur_percent=%d\n", info->file_nums, info->cur_nums,
           info->result, info->cur_percent);
    return 0;
}
