// The device's configuration.
#include "platform/configuration.h"

#include "platform/platform.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <string_view>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

// A writer holds the lock for one small write. One that never lets go, because it was stopped or
// its disk hangs, must not hold up an update for ever.
static constexpr int LOCK_WAIT_MS = 30000;
static constexpr int LOCK_POLL_MS = 10;

// The bytes of a file, on the heap.
struct file_text {
    char *data;
    size_t size;
};

// One line of the file: [begin, end) without its line feed. `key` is empty in a comment.
struct config_line {
    size_t begin;
    size_t end;
    std::string_view key;
    std::string_view value;
};

struct config_paths {
    char directory[PATH_MAX];
    char lock[PATH_MAX];
    char fresh[PATH_MAX];
};

static bool is_key(std::string_view text)
{
    constexpr std::string_view allowed = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                         "abcdefghijklmnopqrstuvwxyz0123456789_.-";
    return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

// The characters [begin, end) of `text`, which has them: substr would test that, and take the C++
// library along for its exception.
static std::string_view part(std::string_view text, size_t begin, size_t end)
{
    return {text.data() + begin, end - begin};
}

static config_line line_at(std::string_view text, size_t begin)
{
    const size_t end = std::min(text.find('\n', begin), text.size());
    const size_t equals = text.find('=', begin);
    if (equals >= end || !is_key(part(text, begin, equals)))
        return {begin, end, {}, {}};
    return {begin, end, part(text, begin, equals), part(text, equals + 1, end)};
}

// The line of `key`, or an empty one behind the end of the text.
static config_line find_line(std::string_view text, std::string_view key)
{
    for (size_t begin = 0; begin < text.size();) {
        const config_line line = line_at(text, begin);
        if (line.key == key)
            return line;
        begin = line.end + 1;
    }
    return {text.size(), text.size(), {}, {}};
}

static int read_text(int fd, file_text *text)
{
    struct stat st;
    if (fstat(fd, &st) != 0)
        return -errno;
    const size_t room = static_cast<size_t>(st.st_size);
    // An empty file has a text too.
    *text = {static_cast<char *>(malloc(room + 1)), 0};
    if (text->data == nullptr)
        return -ENOMEM;
    while (text->size < room) {
        const ssize_t n = read(fd, text->data + text->size, room - text->size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -errno;
        if (n == 0)
            break;
        text->size += static_cast<size_t>(n);
    }
    return 0;
}

// Reads the file to `text`, whose data the caller frees in any case.
static int load(const char *path, file_text *text)
{
    *text = {nullptr, 0};
    const int fd = open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -errno;
    const int result = read_text(fd, text);
    close(fd);
    return result;
}

static int copy_value(std::string_view text, const char *key, char *value, size_t size)
{
    const config_line line = find_line(text, key);
    if (line.key.empty())
        return -ENOENT;
    if (line.value.size() >= size)
        return -EOVERFLOW;
    memcpy(value, line.value.data(), line.value.size());
    value[line.value.size()] = '\0';
    return 0;
}

int configuration_get(const char *path, const char *key, char *value, size_t size)
{
    if (key == nullptr || !is_key(key))
        return -EINVAL;
    file_text text;
    int result = load(path, &text);
    if (result == 0)
        result = copy_value({text.data, text.size}, key, value, size);
    free(text.data);
    return result;
}

int configuration_list(const char *path, FILE *out)
{
    file_text file;
    const int result = load(path, &file);
    const std::string_view text(file.data, file.size);
    for (size_t begin = 0; result == 0 && begin < text.size();) {
        const config_line line = line_at(text, begin);
        if (!line.key.empty()) {
            fwrite(text.data() + line.begin, 1, line.end - line.begin, out);
            fputc('\n', out);
        }
        begin = line.end + 1;
    }
    free(file.data);
    return result;
}

static int build_paths(const char *path, config_paths *paths)
{
    const char *const slash = strrchr(path, '/');
    if (slash == nullptr || strlen(path) + sizeof ".lock" > PATH_MAX)
        return -EINVAL;
    // An empty directory part is the root.
    const int len = std::max(static_cast<int>(slash - path), 1);
    snprintf(paths->directory, sizeof paths->directory, "%.*s", len, path);
    snprintf(paths->lock, sizeof paths->lock, "%s.lock", path);
    snprintf(paths->fresh, sizeof paths->fresh, "%s.new", path);
    return 0;
}

static int make_directory(const char *path)
{
    if (mkdir(path, 0755) != 0)
        return errno == EEXIST ? 0 : -errno;
    // Every task reads the configuration, whatever mask its writer runs under.
    return chmod(path, 0755) == 0 ? 0 : -errno;
}

// Returns a descriptor whose closing ends the lock, or a negative errno.
static int take_lock(const char *path)
{
    const int fd = open(path, O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (fd < 0)
        return -errno;
    for (int waited_ms = 0; flock(fd, LOCK_EX | LOCK_NB) != 0; waited_ms += LOCK_POLL_MS) {
        const int error = errno;
        if ((error != EWOULDBLOCK && error != EINTR) || waited_ms >= LOCK_WAIT_MS) {
            close(fd);
            return -error;
        }
        usleep(LOCK_POLL_MS * 1000);
    }
    return fd;
}

static int sync_descriptor(int fd)
{
    int result;
    do {
        result = fsync(fd);
    } while (result != 0 && errno == EINTR);
    return result == 0 ? 0 : -errno;
}

static int write_parts(int fd, std::initializer_list<std::string_view> parts)
{
    if (fchmod(fd, 0644) != 0)
        return -errno;
    for (std::string_view part : parts) {
        while (!part.empty()) {
            const ssize_t n = write(fd, part.data(), part.size());
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return n < 0 ? -errno : -EIO;
            part.remove_prefix(static_cast<size_t>(n));
        }
    }
    return sync_descriptor(fd);
}

static int sync_directory(const char *path)
{
    const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return -errno;
    const int result = sync_descriptor(fd);
    close(fd);
    return result;
}

// Puts a file of `parts`, one behind the other, in place of the one at `path`.
static int replace_file(const char *path, const config_paths *paths,
                        std::initializer_list<std::string_view> parts)
{
    const int fd = open(paths->fresh, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0)
        return -errno;
    int result = write_parts(fd, parts);
    // Nothing is left for close to report: the disk has confirmed the data.
    close(fd);
    if (result == 0 && rename(paths->fresh, path) != 0)
        result = -errno;
    if (result != 0) {
        unlink(paths->fresh);
        return result;
    }
    return sync_directory(paths->directory);
}

static int set_locked(const char *path, const config_paths *paths, const char *key,
                      const char *value)
{
    file_text file;
    int result = load(path, &file);
    if (result == 0 || result == -ENOENT) {
        const std::string_view text(file.data, file.size);
        const config_line old = find_line(text, key);
        const std::string_view head = part(text, 0, old.begin);
        const std::string_view tail = part(text, std::min(old.end + 1, text.size()), text.size());
        // Someone's editor may have left the last line without a line feed.
        const bool open_end = !head.empty() && head.back() != '\n';
        result =
            replace_file(path, paths, {head, open_end ? "\n" : "", key, "=", value, "\n", tail});
    }
    free(file.data);
    return result;
}

int configuration_set(const char *path, const char *key, const char *value)
{
    if (key == nullptr || !is_key(key) || value == nullptr || strchr(value, '\n') != nullptr)
        return -EINVAL;
    if (strlen(value) >= CONFIGURATION_VALUE_SIZE)
        return -EOVERFLOW;
    config_paths paths;
    int result = build_paths(path, &paths);
    if (result == 0)
        result = make_directory(paths.directory);
    if (result != 0)
        return result;
    // A value must not reach the medium ahead of what it tells of. It takes as long as it takes, so
    // no other writer is to wait for it.
    sync();
    const int lock = take_lock(paths.lock);
    if (lock < 0)
        return lock;
    result = set_locked(path, &paths, key, value);
    close(lock);
    return result;
}

int sysconf_openenv(void)
{
    const int fd = open(CONFIGURATION_PATH, O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return -errno;
    close(fd);
    return 0;
}

char *sysconf_getenv(const char *key)
{
    thread_local char value[CONFIGURATION_VALUE_SIZE];
    const bool found = configuration_get(CONFIGURATION_PATH, key, value, sizeof value) == 0;
    return found ? value : nullptr;
}
