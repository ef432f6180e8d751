// The directory that a run unpacks below.
#include "update/dtt_update_common/base_directory.h"

#include "update/dtt_update_common/bounded_text.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static constexpr int LINKS_MAX = 40; // that Linux follows in one path

static bool same_file(const struct stat *a, const struct stat *b)
{
    return a->st_dev == b->st_dev && a->st_ino == b->st_ino;
}

// Whether the directory `path` is one of `tops` or lies below one: goes up from it to the root,
// which is its own parent.
static bool lies_below(const char *path, const struct stat (&tops)[2])
{
    char up[PATH_MAX];
    struct stat st;
    struct stat child = {};
    size_t len = strlen(path);
    if (!bounded_copy(up, sizeof up, path))
        return false;
    for (; stat(up, &st) == 0 && !same_file(&st, &child); child = st) {
        if (same_file(&st, &tops[0]) || same_file(&st, &tops[1]))
            return true;
        if (len + sizeof "/.." > sizeof up)
            return false;
        memcpy(up + len, "/..", sizeof "/..");
        len += strlen("/..");
    }
    return false;
}

static bool is_made(const base_directory *base, const struct stat *st)
{
    for (size_t i = 0; i < base->link_count; i++)
        if (base->links[i].device == st->st_dev && base->links[i].inode == st->st_ino)
            return true;
    return false;
}

// Whether the link at `path`, whose last component begins at `start`, is one of this run or leads
// through one. No lookup passes more than the `*left` links that the system allows.
static bool leads_through_made(const base_directory *base, const char *path, size_t start,
                               int *left)
{
    struct stat st;
    if (lstat(path, &st) != 0 || !S_ISLNK(st.st_mode))
        return false;
    char way[PATH_MAX];
    char step[PATH_MAX];
    const ssize_t len = readlink(path, step, sizeof step);
    if (is_made(base, &st) || (*left)-- == 0 || len <= 0)
        return true;
    if (step[0] == '/')
        start = 0;
    if (start + static_cast<size_t>(len) >= sizeof way)
        return true;
    memcpy(way, path, start);
    memcpy(way + start, step, static_cast<size_t>(len));
    way[start + static_cast<size_t>(len)] = '\0';
    for (size_t at = start; way[at] != '\0';) {
        const size_t from = at + strspn(way + at, "/");
        at = from + strcspn(way + from, "/");
        memcpy(step, way, at);
        step[at] = '\0';
        if (leads_through_made(base, step, from, left))
            return true;
    }
    return false;
}

// Whether `parent` is the directory of the entry before, and nothing has changed since.
static bool is_known_parent(const base_directory *base, const char *parent)
{
    return base->parent[0] != '\0' && strcmp(parent, base->parent) == 0;
}

bool stays_below(const base_directory *base, const char *parent)
{
    if (is_known_parent(base, parent) ||
        (base->link_count == 0 && strstr(parent, "..") == nullptr) || base->top == nullptr)
        return true;
    char path[PATH_SIZE];
    // The base directory, and what the device's own links lead to in its place.
    struct stat tops[2] = {};
    static_cast<void>(stat(base->top, &tops[0]));
    bool through_link = false;
    for (size_t at = std::min(strlen(base->path), strlen(parent)); parent[at] != '\0';) {
        const size_t start = at + strspn(parent + at, "/");
        at = start + strcspn(parent + start, "/");
        memcpy(path, parent, at);
        path[at] = '\0';
        // Behind a link ".." leads elsewhere than the name says, and a shell's cd goes.
        if (through_link && strcmp(path + start, "..") == 0)
            return false;
        struct stat st;
        if (lstat(path, &st) != 0 || !S_ISLNK(st.st_mode))
            continue;
        through_link = true;
        int left = LINKS_MAX;
        if (!leads_through_made(base, path, start, &left))
            static_cast<void>(stat(path, &tops[1]));
        else if (!lies_below(path, tops))
            return false;
    }
    return true;
}

int note_file_system(base_directory *base, const char *parent)
{
    struct stat st;
    if (is_known_parent(base, parent))
        return 1;
    if (stat(parent, &st) != 0)
        return 0;
    size_t i = 0;
    while (i < base->system_count && base->systems[i].device != st.st_dev)
        i++;
    if (i == base->system_count) {
        void *const grown = realloc(base->systems, (i + 1) * sizeof *base->systems);
        if (grown == nullptr)
            return -1;
        base->systems = static_cast<written_system *>(grown);
        base->systems[i] = {st.st_dev, open(parent, O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
        base->system_count++;
    }
    memcpy(base->parent, parent, strlen(parent) + 1);
    return 1;
}

int note_link(base_directory *base, const char *path)
{
    struct stat st;
    base->parent[0] = '\0'; // may lead through it now
    if (lstat(path, &st) != 0 || !S_ISLNK(st.st_mode))
        return 0;
    void *const grown = realloc(base->links, (base->link_count + 1) * sizeof *base->links);
    if (grown == nullptr)
        return -1;
    base->links = static_cast<made_link *>(grown);
    base->links[base->link_count++] = {st.st_dev, st.st_ino};
    return 0;
}

int sync_systems(const base_directory *base)
{
    for (size_t i = 0; i < base->system_count; i++)
        if (base->systems[i].fd >= 0 && syncfs(base->systems[i].fd) != 0 && errno != ENOSYS)
            return -1;
    sync();
    return 0;
}

void release_base_directory(base_directory *base)
{
    for (size_t i = 0; i < base->system_count; i++)
        if (base->systems[i].fd >= 0)
            close(base->systems[i].fd);
    free(base->systems);
    free(base->links);
    *base = {};
}
