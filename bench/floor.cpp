// floor: the least that building or applying an image takes: the same calls that move data, the
// same shell commands, and nothing that is looked at, logged or told to anyone.
//
// Usage: floor build DIR IMAGE | floor apply IMAGE DIR COMMANDS | floor commands COMMANDS
// COMMANDS is a file of shell commands, one a line, which are run by the same means as in the
// update tool. The image of a build can be applied here, not by the update tool.
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

static int run_commands(const char *path)
{
    FILE *const file = fopen(path, "re");
    if (file == nullptr)
        fail(path);
    char *line = nullptr;
    size_t size = 0;
    ssize_t len;
    while ((len = getline(&line, &size, file)) > 0) {
        if (line[len - 1] == '\n')
            line[len - 1] = '\0';
        if (system(line) != 0) {
            fprintf(stderr, "failed: %s\n", line);
            return 1;
        }
    }
    free(line);
    fclose(file);
    return 0;
}

static int apply(const char *image, const char *dir, const char *commands)
{
    const int status = run_commands(commands);
    const int fd = open(image, O_RDONLY);
    struct stat st;
    if (fd < 0 || fstat(fd, &st) != 0)
        fail(image);
    const size_t size = static_cast<size_t>(st.st_size);
    const char *const data = static_cast<const char *>(map(fd, size, image));
    if (chdir(dir) != 0)
        fail(dir);
    for (size_t at = sizeof(update_header_t); at < size;) {
        const char *const name = data + at;
        at += strlen(name) + 1;
        const char type = data[at];
        uint32_t data_size;
        memcpy(&data_size, data + at + 1, sizeof data_size);
        data_size = ntohl(data_size);
        at += 1 + sizeof data_size;
        if (type != ENTRY_LINK) {
            const int out = open(name, O_WRONLY | O_CREAT, 0755);
            if (out < 0)
                fail(name);
            write_whole(out, data + at, data_size, name);
            close(out);
        }
        at += data_size;
    }
    munmap(const_cast<char *>(data), size);
    return status;
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
