// What can be seen of runs from outside, without touching one: the lock, the progress block, the
// flag file, and the configuration.
#ifndef COMPANIONS_UPGD_SERVICE_RUN_STATE_H
#define COMPANIONS_UPGD_SERVICE_RUN_STATE_H

#include "upgrade_info.h"

#include <ctime>
#include <string>

// Attaches the progress block, which the first run of img_deploy makes and which outlives every
// run; null if there is none. Returns false with a sentence if it can't be read.
[[nodiscard]] bool attach_progress_block(const upgrade_info_t **block);

// One look at it, or at none.
struct run_state {
    bool known = false;
    int result = RUN_DONE;
    int done = 0;
    int total = 0;
    bool attended = false; // somebody beside the looker has the block attached, as its writer does
};
run_state look_at_run(const upgrade_info_t *block);

inline bool is_over(const run_state &run)
{
    return run.result != RUN_STARTED && run.result != RUN_UNPACKING;
}

// What is at work now, in words; empty if nothing is.
std::string run_at_work(const run_state &run);

// The value of the flag file, empty if there is none, and when it was written.
std::string flag_value();
timespec flag_time();

#endif
