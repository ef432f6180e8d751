// One run at a time, whoever starts it: a lock (flock(2)) on a file that all programs know. A run
// holds it alone; looks at the kernel partition share it while their mount is up.
#ifndef UPDATE_DTT_UPDATE_COMMON_RUN_LOCK_H
#define UPDATE_DTT_UPDATE_COMMON_RUN_LOCK_H

// In place of a descriptor.
enum {
    RUN_LOCK_NONE = -1, // there is no place for the file: what asks goes on without
    RUN_LOCK_BUSY = -2  // somebody else has it
};

// Takes the lock for a run. Waits 10 seconds for looks alone, and a second for another run, whose
// commands may outlive it by a moment. Returns its descriptor or RUN_LOCK_.... The commands that
// the run starts inherit it, and hold it when the run has been killed; a process with other
// commands of its own sets FD_CLOEXEC.
[[nodiscard]] int take_run_lock();

// Takes the lock for a look. Waits a second. Returns the same; it is close-on-exec.
[[nodiscard]] int take_look_lock();

// Whether a run is at work now.
[[nodiscard]] bool run_is_at_work();

// Ends what take_... has begun, also for commands that still hold the descriptor. `lock` may be
// RUN_LOCK_....
void release_lock(int lock);

#endif
