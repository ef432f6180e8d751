// The steps of an apply run that both engines take alike.
#include "update/dtt_update/update_run.h"

#include "update/dtt_update/installer.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/shell_words.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <sys/mman.h>
#include <unistd.h>

static void show_result(const update_run *run)
{
    RUN_LOG(run, "\n now update_info->result = %d ", run->progress->result);
    RUN_TRACE(run, "\n now update_info->result = %d \n", run->progress->result);
}

update_run start_run(const char *engine)
{
    update_run run = {};
    run.engine = engine;
    run.img.fd = -1;
    run.base.top = "."; // once it is the working directory
    // The line is the same in both engines; the function in its prefix tells them apart.
    RUN_TRACE(&run, "in fun do_update  ! \n");
    RUN_LOG(&run, " start");
    ker_img_num = 0;
    return run;
}

void start_progress(update_run *run, int result)
{
    RUN_LOG(run, "get_upgrade_info success!! ");
    *run->progress = {};
    run->progress->result = result;
    show_result(run);
}

int map_image(update_run *run)
{
    void *const mapping = mmap(nullptr, run->img.size, PROT_READ, MAP_SHARED, run->img.fd, 0);
    if (mapping == MAP_FAILED)
        return -1;
    run->mapping = static_cast<const char *>(mapping);
    return 0;
}

void begin_unpacking(update_run *run)
{
    run->progress->file_nums = static_cast<int>(ntohl(run->img.header.ih_filenum));
    run->progress->result = RUN_UNPACKING;
    show_result(run);
    RUN_TRACE(run, "\n\n\n\n\rround 1 --------unpress ***.img file and update Linux files ....\n");
    run->progress->cur_nums = 0;
    // One that can't be opened is not synchronised by itself.
    static_cast<void>(note_file_system(&run->base, "."));
}

void say_copy_failed(update_run *run, const char *path)
{
    run->progress->failed_nums++;
    RUN_LOG(run, "copy_file ----------  %s --------- failed.", path);
    RUN_TRACE(run, "copy_file failed :---------- %s ---------- \n", path);
}

int sync_unpacked(update_run *run)
{
    if (sync_systems(&run->base) == 0)
        return 0;
    RUN_TRACE(run, "not brought to the medium: %s\n", strerror(errno));
    say_copy_failed(run, run->base.path);
    return UPDATE_COPY_FAILED;
}

void end_unpacking(update_run *run)
{
    release_base_directory(&run->base);
    munmap(const_cast<char *>(run->mapping), run->img.size);
    run->mapping = nullptr;
    RUN_LOG(run, " update_info->result = %d (1:ok, 2:error). \n", run->progress->result);
}

void record_image(update_run *run)
{
    const header_text version = text_of(run->img.header.ih_version);
    if (is_shell_safe_text(version.text))
        update_fw_version(&run->img.header);
    else
        RUN_LOG(run, "version <%s> has no place in a command: not recorded", version.text);
    my_system("/bin/sync");
    RUN_LOG(run, " run rsync ok.");
}

void say_failed(const update_run *run)
{
    RUN_TRACE(run, "result = 2, update error !! \n");
    RUN_LOG(run, " result = 2, update error !!");
}

void end_run(const update_run *run, int mode)
{
    if (mode == REBOOT_MODE) {
        RUN_LOG(run, " mode = 1; reboot !");
        sleep(6);
        my_system("reboot -f");
    }
    RUN_LOG(run, " end");
}
