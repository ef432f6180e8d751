// Steps of a run that both apply engines take alike.
#include "update/dtt_update/run_steps.h"

#include "update/dtt_update/installer.h"
#include "update/dtt_update_common/command_words.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"

#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

void show_result(const char *engine, const upgrade_info_t *update_info)
{
    PLATFORM_LOG_AS(engine, "\n now update_info->result = %d ", update_info->result);
    TRACE_AS(engine, "\n now update_info->result = %d \n", update_info->result);
}

const char *map_image(const image *img)
{
    void *const filedata = mmap(nullptr, img->size, PROT_READ, MAP_SHARED, img->fd, 0);
    return filedata != MAP_FAILED ? static_cast<const char *>(filedata) : nullptr;
}

void unmap_image(const image *img, const char *filedata)
{
    munmap(const_cast<char *>(filedata), img->size);
}

void begin_unpacking(const char *engine, upgrade_info_t *update_info)
{
    show_result(engine, update_info);
    TRACE_AS(engine,
             "\n\n\n\n\rround 1 --------unpress ***.img file and update Linux files ....\n");
    update_info->cur_nums = 0;
}

void record_image(const char *engine, image *img)
{
    char version[IH_NMLEN + 1] = "";
    // The field may lack a terminator.
    memcpy(version, img->header.ih_version, IH_NMLEN);
    if (means_itself(version))
        update_fw_version(&img->header);
    else
        PLATFORM_LOG_AS(engine, "version <%s> has no place in a command: not recorded", version);
    my_system("/bin/sync");
    PLATFORM_LOG_AS(engine, " run rsync ok.");
}

void end_run(const char *engine, int mode)
{
    if (mode == REBOOT_MODE) {
        PLATFORM_LOG_AS(engine, " mode = 1; reboot !");
        sleep(6);
        my_system("reboot -f");
    }
    PLATFORM_LOG_AS(engine, " end");
}
