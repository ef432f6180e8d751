// A look at the files of the kernel partition.
#include "companions/compare/kernel_look.h"

#include "companions/compare/image_sums.h"
#include "companions/owners.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/run_lock.h"

#include <csignal>
#include <fcntl.h>
#include <sched.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>

// What the child tells by its exit status.
enum { LOOK_WELL, LOOK_NO_MOUNT, LOOK_BUSY };

static size_t size_of(const kernel_look *look)
{
    return sizeof(kernel_look) + look->count * sizeof *look->files;
}

// The child writes to it.
bool begin_look(kernel_look *look, size_t count)
{
    *look = {};
    look->count = count;
    void *const room =
        mmap(nullptr, size_of(look), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED)
        return false;
    look->files = reinterpret_cast<kernel_file *>(static_cast<kernel_look *>(room) + 1);
    return true;
}

static kernel_look *shared_part(const kernel_look *look)
{
    return reinterpret_cast<kernel_look *>(look->files) - 1;
}

void end_look(kernel_look *look)
{
    if (look->files != nullptr)
        munmap(shared_part(look), size_of(look));
    *look = {};
}

static bool is_mounted(const char *place)
{
    struct stat here;
    struct stat root;
    return stat(place, &here) == 0 && stat("/", &root) == 0 && here.st_dev != root.st_dev;
}

// Has mount(8) find out the kind of file system. What it says is told in our words.
static bool mount_partition(const char *place)
{
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return false;
    const char *const argv[] = {"/bin/mount", "-o", "ro", KERNEL_PARTITION, place, nullptr};
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0)
        return false;
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid;
    const int error =
        posix_spawn(&pid, argv[0], &actions, nullptr, const_cast<char *const *>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    while (error == 0 && waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            return false;
    return status == 0;
}

static void look_at_file(int directory, kernel_file *file)
{
    file->error = 0;
    file->st = {};
    if (fstatat(directory, file->name, &file->st, AT_SYMLINK_NOFOLLOW) != 0) {
        file->error = errno;
        return;
    }
    const descriptor open_file(
        openat(directory, file->name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (!open_file.is_open() || !sum_file(open_file.get(), file->st.st_size, &file->sum))
        file->error = errno != 0 ? errno : EIO;
}

// In the child. Everything that it opens goes with it.
[[noreturn]] static void look_and_exit(kernel_look *look)
{
    const int lock = look->in_run ? RUN_LOCK_NONE : take_look_lock();
    if (lock == RUN_LOCK_BUSY)
        _exit(LOOK_BUSY);
    // The command that mounts may outlive this process by a moment, and the mount with it.
    if (lock >= 0)
        fcntl(lock, F_SETFD, 0);
    const char *place = KERNEL_MOUNT_POINT;
    if (!is_mounted(place)) {
        place = "/tmp"; // any directory will do: nobody else sees it
        if (!mount_partition(place))
            _exit(LOOK_NO_MOUNT);
    }
    const int directory = open(place, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    struct stat st;
    if (directory < 0 || fstatvfs(directory, &look->fs) != 0 || fstat(directory, &st) != 0)
        _exit(LOOK_NO_MOUNT);
    look->device = st.st_dev;
    for (size_t i = 0; i < look->count; i++)
        look_at_file(directory, &look->files[i]);
    _exit(LOOK_WELL);
}

const char *take_look(kernel_look *look)
{
    kernel_look *const shared = shared_part(look);
    *shared = *look;
    const pid_t parent = getpid();
    const pid_t child = fork();
    if (child < 0)
        return strerror(errno);
    if (child == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() == parent)
            look_and_exit(shared);
        _exit(LOOK_NO_MOUNT);
    }
    int status = -1;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR)
            return strerror(errno);
    look->fs = shared->fs;
    look->device = shared->device;
    switch (WIFEXITED(status) ? WEXITSTATUS(status) : LOOK_NO_MOUNT) {
    case LOOK_WELL:
        return nullptr;
    case LOOK_BUSY:
        return "an update is at work: look again when it has ended";
    default:
        return access(KERNEL_PARTITION, F_OK) != 0
                   ? "there is no kernel partition " KERNEL_PARTITION
                   : "the kernel partition can't be mounted";
    }
}
