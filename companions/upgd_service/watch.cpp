// Watching an apply run of the command-line tool in another process, through its progress block.
#include "companions/owners.h"
#include "companions/upgd_service/byte_progress.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/image_check.h"
#include "upgrade_info.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <glob.h>
#include <string>
#include <sys/shm.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

static constexpr int WAIT_US = 10000; // a run takes twice as long at least
// How the kernel names the mapping of a segment: by its key.
static constexpr char BLOCK_MAPPING[] = "/SYSV00600001";
static_assert(UPGRADE_INFO_SHM_KEY == 0x600001, "the key in the name above");
static constexpr int PATIENCE = 10; // looks at a block without a writer before it is given up

// Whether the process has the block attached for writing; `maps` is its list of mappings.
static bool writes_block(const char *maps)
{
    const file_stream list(fopen(maps, "re"));
    if (list == nullptr)
        return errno == EACCES; // another user's: it may
    char line[512];
    char permissions[8];
    while (fgets(line, sizeof line, list.get()) != nullptr)
        if (strstr(line, BLOCK_MAPPING) != nullptr && sscanf(line, "%*s %7s", permissions) == 1 &&
            permissions[1] == 'w')
            return true;
    return false;
}

// The files of a pattern of /proc.
static std::vector<std::string> files_of(const std::string &pattern)
{
    glob_t found;
    std::vector<std::string> files;
    if (glob(pattern.c_str(), GLOB_NOSORT, nullptr, &found) == 0)
        files.assign(found.gl_pathv, found.gl_pathv + found.gl_pathc);
    globfree(&found);
    return files;
}

// The process that has the block attached for writing, as a run does up to its end, or 0. Watchers
// attach it as well, but only to read: two of them must not wait for each other.
static int find_writer(int id)
{
    shmid_ds state;
    if (shmctl(id, IPC_STAT, &state) != 0 || state.shm_nattch <= 1)
        return 0;
    for (const std::string &maps : files_of("/proc/[0-9]*/maps"))
        if (writes_block(maps.c_str()))
            return atoi(maps.c_str() + strlen("/proc/"));
    return 0;
}

// Opens the image that the process has open. Returns false if it has none, or it is another user's.
static bool find_image(int pid, image_file *img)
{
    for (const std::string &file : files_of("/proc/" + std::to_string(pid) + "/fd/*"))
        if (open_image(file.c_str(), img) == nullptr)
            return true;
    return false;
}

// A progress block, which the first run makes and which outlives every run.
struct watched_block {
    int id;
    const upgrade_info_t *info; // its four first fields are there in any case
    bool had_run;               // there was one when the watch began
    pid_t last;                 // who had attached or left it last by then
};

static bool attach_block(watched_block *block)
{
    block->had_run = true;
    while ((block->id = shmget(UPGRADE_INFO_SHM_KEY, UPGRADE_INFO_SHM_SIZE, 0)) < 0) {
        if (block->had_run)
            say("no run so far, waiting for one");
        block->had_run = false;
        usleep(WAIT_US);
    }
    const void *const info = shmat(block->id, nullptr, SHM_RDONLY);
    block->info = static_cast<const upgrade_info_t *>(info);
    block->last = getpid();
    return reinterpret_cast<intptr_t>(info) != -1;
}

static bool is_over(int result)
{
    return result != RUN_STARTED && result != RUN_UNPACKING;
}

// When img_deploy last wrote down that a run has begun or ended.
static timespec flag_time()
{
    struct stat st = {};
    stat(UPDATE_FLAG_PATH, &st);
    return st.st_mtim;
}

// Whether a run has attached the block since the watch began, whose flag stood at `since`: one may
// be so short that no look finds it at work. Of two others that were gone before this look, a run
// is the one that has left its mark.
static bool run_has_come(watched_block *block, const timespec *since)
{
    shmid_ds state;
    if (shmctl(block->id, IPC_STAT, &state) != 0 || state.shm_lpid == block->last)
        return false;
    block->last = state.shm_lpid;
    const std::string maps = "/proc/" + std::to_string(state.shm_lpid) + "/maps";
    const timespec now = flag_time();
    return writes_block(maps.c_str()) ||
           (access(maps.c_str(), F_OK) != 0 &&
            (now.tv_sec != since->tv_sec || now.tv_nsec != since->tv_nsec));
}

// What stands in the block is the end of the run before, until a new one comes.
static void wait_for_run(watched_block *block)
{
    const int result = field(&block->info->result);
    if (!block->had_run || !is_over(result))
        return;
    say("no run at work; the last one %s; waiting for one",
        result == RUN_DONE ? "went well" : "has failed");
    const timespec since = flag_time();
    while (is_over(field(&block->info->result)) && !run_has_come(block, &since))
        usleep(WAIT_US);
    // It writes to the block a moment after it has attached it.
    usleep(LOOK_US);
}

// What one look has found.
struct run_state {
    int result;
    int done;
    int total;
};

static const char *step_of(const run_state &run)
{
    return is_over(run.result) ? "ended" : run.result == RUN_STARTED ? "starting" : "unpacking";
}

// By the bytes of the image `progress`, or by entries if it is null.
static void show_run(const run_state &run, byte_progress *progress)
{
    const uint32_t finished = static_cast<uint32_t>(run.done);
    const char *step = step_of(run);
    int permille = run.total > 0 ? static_cast<int>(int64_t{1000} * run.done / run.total) : 0;
    if (progress != nullptr && run.result == RUN_UNPACKING) {
        permille = unpacked_permille(progress, finished);
        if (is_unpacked(progress, finished))
            step = "bringing it to the medium";
    }
    show_progress(step, run.result == RUN_DONE ? 1000 : permille, run.done, run.total);
}

int watch_command(const service_call * /*call*/)
{
    watched_block block;
    if (!attach_block(&block))
        return fail("the progress block can't be read");
    wait_for_run(&block);
    run_state run = {};
    image_file img;
    descriptor image; // of the run, once it is known
    byte_progress progress;
    int last = -2;
    for (int alone = 0; alone <= PATIENCE; usleep(LOOK_US)) {
        const upgrade_info_t *const info = block.info;
        run = {field(&info->result), field(&info->cur_nums), field(&info->file_nums)};
        const bool over = is_over(run.result);
        if (run.result != last && !over)
            say("%s", step_of(run));
        last = run.result;
        const int writer = over ? 0 : find_writer(block.id);
        if (!image.is_open() && writer != 0 && run.result == RUN_UNPACKING &&
            find_image(writer, &img)) {
            image = descriptor(img.fd);
            start_byte_progress(&progress, &img);
        }
        show_run(run, image.is_open() ? &progress : nullptr);
        if (over) {
            end_progress();
            const bool well = run.result == RUN_DONE;
            say("the run %s: %d of %d entries", well ? "went well" : "has failed", run.done,
                run.total);
            return well ? SERVICE_WELL : SERVICE_FAILED;
        }
        alone = writer != 0 ? 0 : alone + 1;
    }
    end_progress();
    return fail("no writer is alive behind this run, which has not ended: %d of %d entries",
                run.done, run.total);
}
