// The kernel partition, to be looked at.
#include "companions/compare/kernel_partition.h"

#include "update/dtt_update_common/device_paths.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

static bool is_mounted(const char *place)
{
    struct stat here;
    struct stat root;
    return stat(place, &here) == 0 && stat("/", &root) == 0 && here.st_dev != root.st_dev;
}

// Has mount(8) find out the kind of file system. What it says is told in our words.
static bool mount_partition(const char *place)
{
    const pid_t pid = fork();
    if (pid == 0) {
        const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
        if (nowhere >= 0)
            dup2(nowhere, STDERR_FILENO);
        execl("/bin/mount", "/bin/mount", "-o", "ro", KERNEL_PARTITION, place, nullptr);
        _exit(127);
    }
    int status = -1;
    while (pid > 0 && waitpid(pid, &status, 0) < 0)
        if (errno != EINTR)
            return false;
    return status == 0;
}

// The mount is taken off its place as soon as its directory is open, which keeps it up.
static descriptor open_unseen()
{
    char place[] = "/tmp/kernel.XXXXXX";
    if (mkdtemp(place) == nullptr)
        return descriptor();
    descriptor top;
    if (mount_partition(place)) {
        top = descriptor(open(place, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        umount2(place, MNT_DETACH);
    }
    rmdir(place);
    return top;
}

const char *open_kernel_partition(descriptor *top)
{
    if (is_mounted(KERNEL_MOUNT_POINT)) {
        *top = descriptor(open(KERNEL_MOUNT_POINT, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        return top->is_open() ? nullptr : KERNEL_MOUNT_POINT " can't be opened";
    }
    // An interrupt must not leave the mount behind.
    sigset_t all;
    sigset_t mask;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, &mask);
    *top = open_unseen();
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
    if (top->is_open())
        return nullptr;
    return access(KERNEL_PARTITION, F_OK) != 0 ? "there is no kernel partition " KERNEL_PARTITION
                                               : "the kernel partition can't be mounted";
}
