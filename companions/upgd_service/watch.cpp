// Watching a run in another process, through its lock and its progress block.
#include "companions/upgd_service/byte_progress.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/run_state.h"
#include "update/dtt_update_common/run_lock.h"

#include <unistd.h>

static constexpr useconds_t WAIT_US = 10000; // a run takes twice as long at least
static constexpr int PATIENCE = 10;          // looks, ahead of a word on what is seen

static const char *step_of(const run_state &run)
{
    return is_over(run) ? "ended" : run.result == RUN_STARTED ? "starting" : "unpacking";
}

static void say_waiting(const run_state &run)
{
    if (!run.known)
        say("no run so far, waiting for one");
    else
        say("no run at work; the last one %s; waiting for one", !is_over(run) ? "did not end"
                                                                : run.result == RUN_DONE
                                                                    ? "went well"
                                                                    : "has failed");
}

// Waits until there is a run to be watched: one at work or killed at work, or one that has been so
// short that only the flag file tells of it. What else stands in the block is the run before's.
// Returns null with a sentence if the block can't be read.
static const upgrade_info_t *wait_for_run()
{
    const timespec since = flag_time();
    const upgrade_info_t *block = nullptr;
    bool told = false;
    for (int busy = 0;; usleep(WAIT_US)) {
        if (block == nullptr && !attach_progress_block(&block))
            return nullptr;
        const bool at_work = run_is_at_work();
        const run_state run = look_at_run(block);
        const timespec now = flag_time();
        const bool came = now.tv_sec != since.tv_sec || now.tv_nsec != since.tv_nsec;
        if (run.known && (is_over(run) ? !at_work && came : !at_work || run.attended))
            return block;
        if (!told && !at_work)
            say_waiting(run);
        told = told || !at_work;
        busy = at_work ? busy + 1 : 0;
        if (busy == PATIENCE)
            say("a service update is at work, which shows its progress itself; waiting for its "
                "end");
    }
}

int watch_command(const service_call * /*call*/)
{
    const upgrade_info_t *const block = wait_for_run();
    if (block == nullptr)
        return SERVICE_FAILED;
    run_state run;
    int last = RUN_DONE;
    for (int alone = 0; alone <= PATIENCE; usleep(LOOK_US)) {
        run = look_at_run(block);
        if (run.result != last && !is_over(run))
            say("%s", step_of(run));
        last = run.result;
        const int permille = run.total > 0 ? static_cast<int>(int64_t{1000} * run.done / run.total)
                                           : (run.result == RUN_DONE ? 1000 : 0);
        show_progress(step_of(run), permille, run.done, run.total);
        if (is_over(run)) {
            end_progress();
            const bool well = run.result == RUN_DONE;
            say("the run %s: %d of %d entries", well ? "went well" : "has failed", run.done,
                run.total);
            return well ? SERVICE_WELL : SERVICE_FAILED;
        }
        alone = run_is_at_work() ? 0 : alone + 1;
    }
    end_progress();
    return fail("nobody is at work on this run any more, which has not ended: %d of %d entries; "
                "apply the image again",
                run.done, run.total);
}
