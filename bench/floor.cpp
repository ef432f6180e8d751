// floor: the least that building or applying an image takes: the same calls that move data, the
// same shell commands, the two lines that every applied entry has to write, and nothing else that
// is looked at, logged or told to anyone.
//
// Usage: floor build DIR IMAGE | floor apply IMAGE DIR COMMANDS | floor commands COMMANDS
// COMMANDS is a file of the shell commands of a run, one a line, in its order: those up to the one
// that makes a missing directory are run when it is missed, one behind each link, the others at the
// end. The image of a build can be applied here, not by the update tool.
#include "update_header.h"

#include <arpa/inet.h>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <ftw.h>
#include <libdeflate.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

static constexpr int DESCRIPTORS = 64; // that the walk may have open

static int image_fd;

[[noreturn]] static void fail(const char *what)
{
    perror(what);
    exit(1);
}

static void write_whole(int fd, const void *data, size_t size, const char *path)
{
    if (write(fd, data, size) != static_cast<ssize_t>(size))
        fail(path);
}

static void write_head(const char *path, char type, size_t data_size)
{
    char head[PATH_MAX + 6];
    const size_t len = static_cast<size_t>(stpcpy(head, path) - head) + 1;
    head[len] = type;
    const uint32_t size = htonl(static_cast<uint32_t>(data_size));
    memcpy(head + len + 1, &size, sizeof size);
    write_whole(image_fd, head, len + 1 + sizeof size, path);
}

static void *map(int fd, size_t size, const char *path)
{
    void *const data = mmap(nullptr, size, PROT_READ, MAP_SHARED, fd, 0);
    if (data == MAP_FAILED)
        fail(path);
    return data;
}

static int add_item(const char *path, const struct stat *, int type, FTW *)
{
    if (type == FTW_SL)
        write_head(path, ENTRY_LINK, 0);
    if (type != FTW_F)
        return 0;
    const int fd = open(path, O_RDONLY);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0)
        fail(path);
    const size_t size = static_cast<size_t>(st.st_size);
    write_head(path, ENTRY_FILE, size);
    void *const data = map(fd, size, path);
    write_whole(image_fd, data, size, path);
    munmap(data, size);
    close(fd);
    return 0;
}

static int build(const char *dir, const char *image)
{
    update_header_t header = {};
    struct stat st;
    image_fd = open(image, O_RDWR | O_CREAT | O_TRUNC, 0666);
    if (image_fd < 0)
        fail(image);
    write_whole(image_fd, &header, sizeof header, image);
    if (nftw(dir, add_item, DESCRIPTORS, FTW_PHYS) != 0 || fstat(image_fd, &st) != 0)
        fail(dir);
    const size_t size = static_cast<size_t>(st.st_size);
    char *const body = static_cast<char *>(map(image_fd, size, image));
    header.ih_crc = htonl(libdeflate_crc32(0, body + sizeof header, size - sizeof header));
    munmap(body, size);
    if (pwrite(image_fd, &header, sizeof header, 0) != sizeof header || close(image_fd) != 0)
        fail(image);
    return 0;
}

static FILE *open_commands(const char *path)
{
    FILE *const commands = fopen(path, "re");
    if (commands == nullptr)
        fail(path);
    return commands;
}

// Returns whether there was one.
static bool run_next(FILE *commands)
{
    static char *line = nullptr;
    static size_t size = 0;
    const ssize_t len = getline(&line, &size, commands);
    if (len <= 0)
        return false;
    if (line[len - 1] == '\n')
        line[len - 1] = '\0';
    if (system(line) != 0) {
        fprintf(stderr, "failed: %s\n", line);
        exit(1);
    }
    return true;
}

static int run_commands(const char *path)
{
    FILE *const commands = open_commands(path);
    while (run_next(commands))
        ;
    fclose(commands);
    return 0;
}

static void make_missing(const char *directory, FILE *commands)
{
    while (access(directory, F_OK) != 0)
        if (!run_next(commands))
            fail(directory);
}

// As in the update tool: one write to standard error, one message to the log.
static void announce(int number, const char *path, int type, int size)
{
    dprintf(STDERR_FILENO, "(num-%d)%s type(%d), size(%d)\n", number, path, type, size);
    syslog(LOG_INFO, "%08x %s: (num-%d)%s type(%d), size(%d)", 0, "do_update", number, path, type,
           size);
}

static void write_file(const char *path, const char *data, size_t size)
{
    unlink(path);
    const int fd = open(path, O_WRONLY | O_CREAT, 0755);
    if (fd < 0)
        fail(path);
    if (size > 0)
        write_whole(fd, data, size, path);
    close(fd);
}

// Unpacks the entry `name` of the directory `path`, which ends at `top`. Returns its end.
static const char *apply_entry(int number, const char *name, char *path, char *top, FILE *commands)
{
    const char *data = strchr(name, '\0') + 1;
    const char type = *data++;
    uint32_t size;
    memcpy(&size, data, sizeof size);
    size = ntohl(size);
    data += sizeof size;

    stpcpy(top, name);
    char *const divider = type == ENTRY_LINK ? strrchr(top, ';') : nullptr;
    if (divider != nullptr)
        *divider = '\0';
    char *const slash = strrchr(path, '/');
    *slash = '\0';
    make_missing(path, commands);
    *slash = '/';
    announce(number, path, type, static_cast<int>(size));
    write_file(path, data, size); // an empty one in the place of a link, too
    if (type == ENTRY_LINK)
        run_next(commands);
    return data + size;
}

static int apply(const char *image, const char *dir, const char *commands_path)
{
    FILE *const commands = open_commands(commands_path);
    const int fd = open(image, O_RDONLY);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0)
        fail(image);
    const size_t size = static_cast<size_t>(st.st_size);
    const char *const data = static_cast<const char *>(map(fd, size, image));
    char path[2 * PATH_MAX];
    char *const top = stpcpy(stpcpy(path, dir), "/");
    openlog("imgdeploy", LOG_PID, LOG_DAEMON);
    int number = 0;
    for (const char *at = data + sizeof(update_header_t); at < data + size;)
        at = apply_entry(number++, at, path, top, commands);
    while (run_next(commands))
        ;
    munmap(const_cast<char *>(data), size);
    fclose(commands);
    return 0;
}

int main(int argc, char **argv)
{
    if (argc == 4 && strcmp(argv[1], "build") == 0)
        return build(argv[2], argv[3]);
    if (argc == 5 && strcmp(argv[1], "apply") == 0)
        return apply(argv[2], argv[3], argv[4]);
    if (argc == 3 && strcmp(argv[1], "commands") == 0)
        return run_commands(argv[2]);
    fprintf(stderr, "Usage: %s build DIR IMAGE | apply IMAGE DIR COMMANDS | commands COMMANDS\n",
            argv[0]);
    return 2;
}
