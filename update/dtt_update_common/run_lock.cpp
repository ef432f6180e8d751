// One run at a time.
#include "update/dtt_update_common/run_lock.h"

#include "update/dtt_update_common/device_paths.h"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr useconds_t TRY_EVERY = 20000;      // microseconds
static constexpr useconds_t RUN_PATIENCE = 1000000; // with another run, and of a look
static constexpr useconds_t LOOK_PATIENCE = 10000000;

static int open_lock()
{
    const int fd = open(RUN_LOCK_PATH, O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600);
    return fd >= 0 ? fd : RUN_LOCK_NONE;
}

// Whether somebody else has the lock in a way that keeps this one out.
static bool is_kept_out(int lock, int way)
{
    return flock(lock, way | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

static int give_up(int lock)
{
    close(lock);
    return RUN_LOCK_BUSY;
}

int take_run_lock()
{
    const int lock = open_lock();
    if (lock < 0)
        return lock;
    useconds_t runs = 0;
    useconds_t looks = 0;
    while (is_kept_out(lock, LOCK_EX)) {
        const bool run = is_kept_out(lock, LOCK_SH);
        flock(lock, LOCK_UN);
        useconds_t &waited = run ? runs : looks;
        waited += TRY_EVERY;
        if (waited > (run ? RUN_PATIENCE : LOOK_PATIENCE))
            return give_up(lock);
        usleep(TRY_EVERY);
    }
    fcntl(lock, F_SETFD, 0);
    return lock;
}

int take_look_lock()
{
    const int lock = open_lock();
    for (useconds_t waited = 0; lock >= 0 && is_kept_out(lock, LOCK_SH); waited += TRY_EVERY) {
        if (waited >= RUN_PATIENCE)
            return give_up(lock);
        usleep(TRY_EVERY);
    }
    return lock;
}

// Looks for a run in the system's list of locks, for who may not open the file.
static bool run_is_listed()
{
    struct stat st;
    FILE *const list = stat(RUN_LOCK_PATH, &st) == 0 ? fopen("/proc/locks", "re") : nullptr;
    if (list == nullptr)
        return false;
    char line[256];
    bool found = false;
    while (!found && fgets(line, sizeof line, list) != nullptr) {
        unsigned long inode = 0;
        found =
            sscanf(line, "%*s FLOCK %*s WRITE %*s %*x:%*x:%lu", &inode) == 1 && inode == st.st_ino;
    }
    fclose(list);
    return found;
}

bool run_is_at_work()
{
    const int lock = open(RUN_LOCK_PATH, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
    if (lock < 0)
        return errno == EACCES && run_is_listed();
    const bool busy = is_kept_out(lock, LOCK_SH);
    close(lock);
    return busy;
}

void release_lock(int lock)
{
    if (lock < 0)
        return;
    flock(lock, LOCK_UN);
    close(lock);
}
