// The directory that a run unpacks below.
#include "update/dtt_update/base_directory.h"

#include "update/dtt_update_common/bounded_text.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

static bool same_file(const struct stat *a, const struct stat *b)
{
    return a->st_dev == b->st_dev && a->st_ino == b->st_ino;
}

// Whether the directory `path` is the working directory, which is the base directory, or lies below
// it: goes up from it to the root, which is its own parent.
static bool lies_below(const char *path)
{
    char up[PATH_SIZE];
    struct stat top;
    struct stat st;
    struct stat child = {};
    size_t len = strlen(path);
    if (stat(".", &top) != 0 || !bounded_copy(up, sizeof up, path))
        return false;
    for (; stat(up, &st) == 0 && !same_file(&st, &child); child = st) {
        if (same_file(&st, &top))
            return true;
        if (len + sizeof "/.." > sizeof up)
            return false;
        memcpy(up + len, "/..", sizeof "/..");
        len += strlen("/..");
    }
    return false;
}

static bool is_made_link(const base_directory *base, const char *path)
{
    struct stat st;
    if (lstat(path, &st) != 0 || !S_ISLNK(st.st_mode))
        return false;
    for (size_t i = 0; i < base->link_count; i++)
        if (base->links[i].device == st.st_dev && base->links[i].inode == st.st_ino)
            return true;
    return false;
}

// Whether `parent` is the directory of the entry before, and nothing has changed since.
static bool is_known_parent(const base_directory *base, const char *parent)
{
    return base->parent[0] != '\0' && strcmp(parent, base->parent) == 0;
}

bool stays_below(const base_directory *base, const char *parent)
{
    if (base->link_count == 0 || is_known_parent(base, parent))
        return true;
    char path[PATH_SIZE];
    bool through_link = false;
    for (size_t at = std::min(strlen(base->path), strlen(parent)); parent[at] != '\0';) {
        const size_t start = at + strspn(parent + at, "/");
        at = start + strcspn(parent + start, "/");
        memcpy(path, parent, at);
        path[at] = '\0';
        const bool link = is_made_link(base, path);
        through_link = through_link || link;
        // Behind a link ".." leads elsewhere than the name says.
        const bool up = through_link && strcmp(path + start, "..") == 0;
        if ((link || up) && !lies_below(path))
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
