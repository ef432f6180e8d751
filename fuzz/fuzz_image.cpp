// A whole apply run of any image, in a directory of its own. The first byte of the input tells what
// the rest is: with 0 in its low bits an image, with 1 one whose magic number and size are mended,
// with 2 the body behind a header, with 3 the same behind an entry that ends where the walk has to
// read anew.
#include "fuzz/harness.h"

#include "platform/platform.h"
#include "update/dtt_update/apply_engine.h"
#include "update_service.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <glob.h>
#include <unistd.h>

namespace fs = std::filesystem;

static constexpr size_t WINDOW_SIZE = 16384; // that the walk reads at a time
static constexpr size_t IN_WINDOW = 96;      // bytes of the body in front of its end

static bool commands_fail; // those that have no effect here
static int image_fd;
static int calls_to_change; // until the image's body becomes `new_body`; 0 for never
static std::string new_body;

// In it are the image "i", the base directory "b", an empty "out", and "root" with what the target
// search sees in the place of the root directory. A link and its command have to fit 127
// characters, so the name is short.
static const std::string &place()
{
    static std::string dir;
    if (dir.empty()) {
        const char *const parent = getenv("TMPDIR");
        dir = fs::canonical(parent != nullptr ? parent : "/tmp").string() + "/XXXXXX";
        check(mkdtemp(dir.data()) != nullptr, "there is room for temporary files");
        for (const char *part : {"/root/nand/bin/tools", "/root/usr/nand", "/out"})
            fs::create_directories(dir + part);
        image_fd = open((dir + "/i").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    }
    return dir;
}

static bool is_below(const fs::path &path, const std::string &directory)
{
    return (path.lexically_normal() / "").string().rfind(directory + "/", 0) == 0;
}

// The item is about to be made or removed. Neither its name nor a link on its way may take it
// elsewhere, be it a link that an earlier entry has made.
static void check_place(const fs::path &path)
{
    std::error_code none;
    const fs::path parent = fs::weakly_canonical(path.parent_path(), none);
    check(is_below(path, place() + "/b") && (none || is_below(parent / "x", place() + "/b") ||
                                             path.lexically_normal() == place() + "/b"),
          "an entry stays below the directory");
}

// A shell would put what a pattern matches in its place.
static void check_word(const char *word)
{
    glob_t found;
    if (strpbrk(word, "*?[") == nullptr || glob(word, GLOB_NOESCAPE, nullptr, &found) != 0)
        return;
    check(found.gl_pathc == 1 && strcmp(word, found.gl_pathv[0]) == 0, "a word means itself");
    globfree(&found);
}

// One of the calls that the bytes of the image can change ahead of: another task writes to it.
static void pass_call()
{
    if (!under_test || calls_to_change == 0 || --calls_to_change != 0)
        return;
    const ssize_t written = pwrite(image_fd, new_body.data(), new_body.size(), 488);
    check(written >= 0 && ftruncate(image_fd, static_cast<off_t>(488 + new_body.size())) == 0,
          "the image can be changed");
}

// The effect of the commands that make directories and links, without a shell: an entry's name can
// hold any text. A link that leads out of everything here leads to "out" instead.
int my_system(const char *cmd)
{
    char path[4096], target[4096], name[4096];
    std::error_code error;
    pass_call();
    under_test = false;
    int result = 0;
    if (sscanf(cmd, "/bin/mkdir -p %4095[^\n]", path) == 1) {
        check_word(path);
        check_place(path);
        fs::create_directories(path, error);
    } else if (sscanf(cmd, "cd /%4095s && /bin/ln -sf %4095s %4095s", path, target, name) == 3) {
        const fs::path start = fs::current_path();
        check_word(path);
        check_place(fs::path(path) / name);
        const bool inside = is_below(fs::path(path) / target, place());
        // A shell takes ".." by the text.
        if (chdir(fs::path(path).lexically_normal().c_str()) == 0) {
            check_word(target);
            check_word(name);
            fs::remove(name, error);
            fs::create_symlink(inside ? target : place() + "/out", name, error);
        }
        fs::current_path(start);
    } else {
        result = commands_fail ? -1 : 0;
    }
    under_test = true;
    return result;
}

extern "C" {
int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, mode_t mode);
ssize_t __real_pread(int fd, void *data, size_t size, off_t at);
ssize_t __wrap_pread(int fd, void *data, size_t size, off_t at);
int __real_unlink(const char *path);
int __wrap_unlink(const char *path);
int __wrap_usleep(useconds_t us);
int __wrap_syncfs(int fd);
void __wrap_sync(void);
upgrade_info_t *__wrap_get_upgrade_info(void);
void __wrap_free_upgrade_info(upgrade_info_t *info);

// The target search begins at the root directory.
int __wrap_open(const char *path, int flags, mode_t mode)
{
    pass_call();
    const bool search = under_test && (flags & O_DIRECTORY) != 0 && !is_below(path, place() + "/b");
    if (under_test && (flags & O_CREAT) != 0) {
        std::error_code none;
        check_place(path);
        check(!fs::is_symlink(path, none), "no file is written through a link");
    }
    return __real_open(((search ? place() + "/root" : "") + path).c_str(), flags, mode);
}

ssize_t __wrap_pread(int fd, void *data, size_t size, off_t at)
{
    pass_call();
    return __real_pread(fd, data, size, at);
}

int __wrap_unlink(const char *path)
{
    pass_call();
    if (under_test)
        check_place(path);
    return __real_unlink(path);
}

int __wrap_usleep(useconds_t)
{
    return 0;
}

// Nothing has to outlive a power cut here.
int __wrap_syncfs(int)
{
    return 0;
}

void __wrap_sync(void)
{
}

static upgrade_info_t progress;

upgrade_info_t *__wrap_get_upgrade_info(void)
{
    return &progress;
}

void __wrap_free_upgrade_info(upgrade_info_t *)
{
}
}

static std::string header_bytes(unsigned int entries, size_t body_size)
{
    update_header_t header = {};
    header.ih_magic = htonl(IH_MAGIC);
    header.ih_size = htonl(static_cast<uint32_t>(sizeof header + body_size));
    header.ih_filenum = htonl(entries);
    header.ih_place = htonl(PLACE_COSTOM);
    return {reinterpret_cast<const char *>(&header), sizeof header};
}

static std::string make_image(unsigned int first, std::string rest)
{
    const unsigned int entries = first >> 2 & 31;
    if ((first & 3) == 0)
        return rest;
    if ((first & 3) == 1) {
        rest.resize(std::max(rest.size(), sizeof(update_header_t)));
        const std::string mended = header_bytes(0, rest.size() - sizeof(update_header_t));
        return rest.replace(0, 4, mended, 0, 4).replace(12, 4, mended, 12, 4);
    }
    if ((first & 3) == 2)
        return header_bytes(entries, rest.size()) + rest;
    constexpr size_t size = WINDOW_SIZE - IN_WINDOW - 7;
    const char head[] = {'f', 0, 0, 0, 0, static_cast<char>(size >> 8), static_cast<char>(size)};
    rest = std::string(head, sizeof head) + std::string(size, 'f') + rest;
    return header_bytes(entries + 1, rest.size()) + rest;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    std::string path = place() + "/i";
    std::string base = place() + "/b";
    std::string rest(data + 1, data + size);
    // A whole image leaves the bits for a number of entries to the number of calls after which its
    // body is no more the first half of the input's, but the second.
    calls_to_change = (data[0] & 3) <= 1 && rest.size() > 488 ? data[0] >> 2 & 31 : 0;
    if (calls_to_change != 0) {
        const size_t half = 488 + (rest.size() - 488) / 2;
        new_body = rest.substr(half);
        rest.resize(half);
    }
    const bool changes = calls_to_change != 0;
    const std::string image = make_image(data[0], rest);
    const fs::path start = fs::current_path();
    std::ofstream(path, std::ios::binary) << image;
    commands_fail = data[0] >= 128;
    under_test = true;
    const int result = do_update(path.data(), ONLINE_MODE, base.data());
    under_test = false;
    fs::current_path(start);
    check(progress.result == (result == 0 ? 1 : 2), "the progress has the result");
    fs::remove_all(base);
    check(std::distance(fs::directory_iterator(place()), {}) == 3 && fs::is_empty(place() + "/out"),
          "nothing is made beside the base directory");
    check(changes || fs::file_size(path) == image.size(), "the image stays as it is");
    return 0;
}
