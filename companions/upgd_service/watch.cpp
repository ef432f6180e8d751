// Watching an apply run of the command-line tool in another process, through its progress block.
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/exit_status.h"
#include "upgrade_info.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <glob.h>
#include <sys/shm.h>
#include <unistd.h>

static constexpr int WATCH_US = 100000;
// How the kernel names the mapping of a segment: by its key.
static constexpr char BLOCK_MAPPING[] = "/SYSV00600001";
static_assert(UPGRADE_INFO_SHM_KEY == 0x600001, "the key in the name above");
static constexpr int PATIENCE = 10; // looks at a block without a writer before it is given up

// Waits for the block, which a first run makes. Its four first fields are there in any case.
static const upgrade_info_t *attach_block(int *id)
{
    bool waiting = false;
    while ((*id = shmget(UPGRADE_INFO_SHM_KEY, UPGRADE_INFO_SHM_SIZE, 0)) < 0) {
        if (!waiting)
            say("no run so far, waiting for one");
        waiting = true;
        usleep(WATCH_US);
    }
    const void *const block = shmat(*id, nullptr, SHM_RDONLY);
    return reinterpret_cast<intptr_t>(block) == -1 ? nullptr
                                                   : static_cast<const upgrade_info_t *>(block);
}

static int field(const int *value)
{
    return __atomic_load_n(value, __ATOMIC_RELAXED);
}

// Whether the process has the block attached for writing; `maps` is its list of mappings.
static bool writes_block(const char *maps)
{
    FILE *const list = fopen(maps, "re");
    if (list == nullptr)
        return errno == EACCES; // another user's: it may
    char line[512];
    bool writes = false;
    while (!writes && fgets(line, sizeof line, list) != nullptr) {
        char permissions[8];
        writes = strstr(line, BLOCK_MAPPING) != nullptr &&
                 sscanf(line, "%*s %7s", permissions) == 1 && permissions[1] == 'w';
    }
    fclose(list);
    return writes;
}

// Whether a run has the block attached, as it does up to its end. Watchers attach it as well, but
// only to read: two of them must not wait for each other.
static bool has_writer(int id)
{
    shmid_ds state;
    if (shmctl(id, IPC_STAT, &state) != 0 || state.shm_nattch <= 1)
        return false;
    glob_t processes;
    bool found = false;
    if (glob("/proc/[0-9]*/maps", GLOB_NOSORT, nullptr, &processes) == 0)
        for (size_t i = 0; i < processes.gl_pathc && !found; i++)
            found = writes_block(processes.gl_pathv[i]);
    globfree(&processes);
    return found;
}

int watch_command()
{
    int id = -1;
    const upgrade_info_t *const info = attach_block(&id);
    if (info == nullptr) {
        complain("the progress block can't be read");
        return SERVICE_FAILED;
    }
    int last = -2;
    for (int alone = 0;; usleep(WATCH_US)) {
        const int result = field(&info->result);
        const int total = field(&info->file_nums);
        const int done = field(&info->cur_nums);
        const bool over = result != RUN_STARTED && result != RUN_UNPACKING;
        const int permille = result == RUN_DONE
                                 ? 1000
                                 : static_cast<int>(total > 0 ? int64_t{1000} * done / total : 0);
        show_progress(result == RUN_STARTED ? "starting"
                      : over                ? "ended"
                                            : "unpacking",
                      permille, done, total);
        if (result != last && !over)
            say("%s", result == RUN_STARTED ? "starting" : "unpacking");
        last = result;
        if (over) {
            end_progress();
            say(result == RUN_DONE ? "the run went well: %d of %d entries"
                                   : "the run has failed: %d of %d entries",
                done, total);
            return result == RUN_DONE ? SERVICE_WELL : SERVICE_FAILED;
        }
        alone = has_writer(id) ? 0 : alone + 1;
        if (alone > PATIENCE) {
            end_progress();
            complain("no writer is alive behind this run, which has not ended: %d of %d entries",
                     done, total);
            return SERVICE_FAILED;
        }
    }
}
