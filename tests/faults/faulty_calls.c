/*
 * Preloaded into a program, makes one of its calls go wrong: number FAULT_AT of the calls below, in
 * the way FAULT_KIND: "fail", or for data that is moved also "short" and "interrupted".
 * FAULT_REPORT is the file that names it; a program that makes fewer calls leaves none. What the C
 * library calls for itself is not seen. Waits return at once, and the time stands still, so that
 * images are the same byte for byte.
 */
#include <dirent.h>
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <spawn.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/shm.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <time.h>
#include <unistd.h>

#define REAL(call) ((__typeof__(&call))dlsym(RTLD_NEXT, #call))

/* A call that fails with `result`. */
#define CALL(type, call, parameters, arguments, detail, result) \
    type call parameters \
    { \
        return strike(#call, detail) ? (errno = EIO, result) : REAL(call) arguments; \
    }

/* A call that moves `size` bytes. */
#define MOVE(call, parameters, arguments) \
    ssize_t call parameters \
    { \
        const char fault = strike(#call, path_of(fd)); \
        size = fault == 's' ? (size + 1) / 2 : size; \
        return fault == 0 || fault == 's' ? REAL(call) arguments \
                                          : (errno = fault == 'i' ? EINTR : EIO, -1); \
    }

#define FDS 1024

static int *calls; /* so far, also those of a child */
static char unconfirmed[FDS]; /* by descriptor: it has been written to since the last fsync */

__attribute__((constructor)) static void begin(void)
{
    /* The shell commands of the program run as they are. */
    unsetenv("LD_PRELOAD");
    closefrom(3);
    calls = REAL(mmap)(NULL, sizeof *calls, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
}

/* The first letter of the kind if this call is to go wrong, else 0. */
static char strike(const char *call, const char *detail)
{
    const char *const at = getenv("FAULT_AT");
    if (at == NULL || ++*calls != atoi(at))
        return 0;
    FILE *const report = REAL(fopen)(getenv("FAULT_REPORT"), "we");
    fprintf(report, "%s %s", call, detail);
    fclose(report);
    return getenv("FAULT_KIND")[0];
}

static const char *path_of(int fd)
{
    static char path[4096];
    char name[64];
    snprintf(name, sizeof name, "/proc/self/fd/%d", fd);
    const ssize_t len = REAL(readlink)(name, path, sizeof path - 1);
    path[len > 0 ? len : 0] = '\0';
    return path;
}

/* Says what the program still holds when it ends, beside the log and the socket to its daemon:
 * descriptors, and mappings of files other than those of the C library. */
__attribute__((destructor)) static void report_held(void)
{
    for (int fd = 3; fd < FDS; fd++) {
        const char *const path = path_of(fd);
        if (path[0] != '\0' && strstr(path, "/var/log/") == NULL && strstr(path, "socket:") == NULL)
            fprintf(stderr, "held: %s\n", path);
    }
    char line[4200];
    FILE *const maps = REAL(fopen)("/proc/self/maps", "re");
    while (fgets(line, sizeof line, maps) != NULL)
        if (strstr(line, " r--s ") != NULL && strstr(line, "/usr/lib/") == NULL)
            fprintf(stderr, "held: %s", line);
    fclose(maps);
}

static int wrote(int fd)
{
    unconfirmed[fd % FDS] = 1;
    return fd;
}

MOVE(read, (int fd, void *data, size_t size), (fd, data, size))
MOVE(pread, (int fd, void *data, size_t size, off_t at), (fd, data, size, at))
MOVE(write, (int fd, const void *data, size_t size), (wrote(fd), data, size))

CALL(void *, mmap, (void *place, size_t size, int access, int flags, int fd, off_t at),
     (place, size, access, flags, fd, at), path_of(fd), MAP_FAILED)
CALL(off_t, lseek, (int fd, off_t at, int from), (fd, at, from), path_of(fd), -1)
CALL(int, fstat, (int fd, struct stat *st), (fd, st), path_of(fd), -1)
CALL(int, ftruncate, (int fd, off_t size), (fd, size), path_of(fd), -1)
CALL(int, stat, (const char *path, struct stat *st), (path, st), path, -1)
CALL(int, lstat, (const char *path, struct stat *st), (path, st), path, -1)
CALL(int, fstatat, (int dir, const char *path, struct stat *st, int flags), (dir, path, st, flags),
     path, -1)
CALL(int, mkdir, (const char *path, mode_t mode), (path, mode), path, -1)
CALL(int, mkdirat, (int dir, const char *path, mode_t mode), (dir, path, mode), path, -1)
CALL(int, symlinkat, (const char *to, int dir, const char *path), (to, dir, path), path, -1)
CALL(ssize_t, readlink, (const char *path, char *to, size_t size), (path, to, size), path, -1)
CALL(char *, getcwd, (char *path, size_t size), (path, size), "", NULL)
CALL(int, fstatvfs, (int fd, struct statvfs *st), (fd, st), path_of(fd), -1)
CALL(int, statvfs, (const char *path, struct statvfs *st), (path, st), path, -1)
CALL(int, fdatasync, (int fd), (fd), path_of(fd), -1)
CALL(int, dup, (int fd), (fd), path_of(fd), -1)
CALL(int, memfd_create, (const char *name, unsigned int flags), (name, flags), name, -1)
CALL(ssize_t, pwrite, (int fd, const void *data, size_t size, off_t at), (fd, data, size, at),
     path_of(fd), -1)
CALL(FILE *, fopen, (const char *path, const char *mode), (path, mode), path, NULL)
CALL(FILE *, open_memstream, (char **text, size_t *size), (text, size), "", NULL)
CALL(FILE *, fdopen, (int fd, const char *mode), (fd, mode), mode, NULL)
CALL(DIR *, fdopendir, (int fd), (fd), path_of(fd), NULL)
CALL(void *, shmat, (int id, const void *at, int flags), (id, at, flags), "", (void *)-1)
CALL(pid_t, fork, (void), (), "", -1)
CALL(int, pthread_create,
     (pthread_t * thread, const pthread_attr_t *attributes, void *(*body)(void *), void *argument),
     (thread, attributes, body, argument), "", EAGAIN)
CALL(int, unlink, (const char *path), (path), path, -1)
CALL(int, rename, (const char *from, const char *to), (from, to), to, -1)
CALL(DIR *, opendir, (const char *path), (path), path, NULL)
CALL(FILE *, popen, (const char *command, const char *mode), (command, mode), command, NULL)
CALL(int, posix_spawn,
     (pid_t * pid, const char *path, const posix_spawn_file_actions_t *actions,
      const posix_spawnattr_t *attributes, char *const argv[], char *const envp[]),
     (pid, path, actions, attributes, argv, envp), argv[2], EAGAIN)

/* The mode is there or not. */
#define OPEN(call, parameters, arguments, path) \
    int call parameters \
    { \
        va_list args; \
        va_start(args, flags); \
        const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(args, mode_t) : 0; \
        va_end(args); \
        return strike(#call, path) ? (errno = EIO, -1) : REAL(call) arguments; \
    }

OPEN(open, (const char *path, int flags, ...), (path, flags, mode), path)
OPEN(openat, (int dir, const char *path, int flags, ...), (dir, path, flags, mode), path)

int fsync(int fd)
{
    if (strike("fsync", path_of(fd)))
        return errno = EIO, -1;
    unconfirmed[fd % FDS] = 0;
    return REAL(fsync)(fd);
}

int close(int fd)
{
    const char fault = strike("close", path_of(fd));
    /* A failure says that what was written has not reached the disk. */
    if (fault && unconfirmed[fd % FDS])
        (void)!REAL(ftruncate)(fd, 0);
    unconfirmed[fd % FDS] = 0;
    const int result = REAL(close)(fd);
    errno = fault ? EIO : errno;
    return fault ? -1 : result;
}

unsigned int sleep(unsigned int seconds) { return 0; }
int usleep(useconds_t us) { return 0; }
int select(int n, fd_set *in, fd_set *out, fd_set *bad, struct timeval *limit) { return 0; }
time_t time(time_t *now) { return 0; }
