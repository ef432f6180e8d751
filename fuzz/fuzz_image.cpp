// A whole apply run of any image, in a directory of its own. The first byte of the input tells what
// the rest is: with 0 in its low bits an image, with 1 one whose magic number and size are mended,
// else the body behind a header.
#include "fuzz/harness.h"

#include "platform/platform.h"
#include "update/dtt_update/apply_engine.h"
#include "update_service.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

// In it are the image "i", the base directory "b", an empty "out", and "root" with what the target
// search sees in the place of the root directory. A link and its command have to fit 127
// characters, so the name is short.
struct scratch {
    std::string dir = fs::canonical(fs::temp_directory_path()) / "XXXXXX";

    scratch()
    {
        check(mkdtemp(dir.data()) != nullptr, "there is room for temporary files");
        for (const char *part : {"/root/nand/bin/tools", "/root/usr/nand", "/out"})
            fs::create_directories(dir + part);
    }

    ~scratch()
    {
        fs::remove_all(dir);
    }
};

static const scratch place;
static const std::string base = place.dir + "/b";
static int calls_to_change; // until the image becomes `other_image`; 0 for never
static std::string other_image;

static bool is_below(const fs::path &path, const std::string &directory)
{
    return (path.lexically_normal() / "").string().rfind(directory + "/", 0) == 0;
}

// The item is about to be made or removed. Neither its name nor a link on its way may take it
// elsewhere, be it a link that an earlier entry has made.
static void check_place(const fs::path &path)
{
    std::error_code none;
    const fs::path real = fs::weakly_canonical(path.parent_path(), none) / path.filename();
    check(is_below(path, base) && (none || is_below(real, base)), "an entry stays below");
}

static void write_image(const std::string &image)
{
    std::ofstream(place.dir + "/i", std::ios::binary) << image;
}

// One of the calls that the bytes of the image can change ahead of: another task writes to it.
static void pass_call()
{
    if (under_test && calls_to_change != 0 && --calls_to_change == 0)
        write_image(other_image);
}

// The effect of the commands that make directories and links, without a shell: an entry's name can
// hold any text. A link that leads out of everything here leads to "out" instead.
int my_system(const char *cmd)
{
    char path[4096], target[4096], name[4096];
    std::error_code error;
    pass_call();
    under_test = false;
    if (sscanf(cmd, "/bin/mkdir -p %4095[^\n]", path) == 1) {
        check_place(path);
        fs::create_directories(path, error);
    } else if (sscanf(cmd, "cd /%4095s && /bin/ln -sf %4095s %4095s", path, target, name) == 3) {
        check_place(fs::path(path) / name);
        // A shell takes ".." by the text.
        const fs::path link = fs::path(path).lexically_normal() / name;
        const bool inside = is_below(fs::path(path) / target, place.dir);
        fs::remove(link, error);
        fs::create_symlink(inside ? target : place.dir + "/out", link, error);
    }
    under_test = true;
    return 0;
}

// Nothing waits here, or has to outlive a power cut.
int usleep(useconds_t)
{
    return 0;
}

int syncfs(int) noexcept
{
    return 0;
}

void sync() noexcept
{
}

extern "C" {
int __real_open(const char *path, int flags, ...);
int __real_unlink(const char *path);

// The target search begins at the root directory.
int __wrap_open(const char *path, int flags, mode_t mode)
{
    pass_call();
    const bool search = under_test && (flags & O_DIRECTORY) != 0 && !is_below(path, base);
    if (under_test && (flags & O_CREAT) != 0) {
        std::error_code none;
        check_place(path);
        check(!fs::is_symlink(path, none), "no file is written through a link");
    }
    return __real_open(((search ? place.dir + "/root" : "") + path).c_str(), flags, mode);
}

int __wrap_unlink(const char *path)
{
    pass_call();
    if (under_test)
        check_place(path);
    return __real_unlink(path);
}

static upgrade_info_t progress;

void *__wrap_get_upgrade_info()
{
    return &progress;
}
}

static std::string make_image(unsigned int first, std::string rest)
{
    const unsigned int kind = first & 3;
    if (kind == 0)
        return rest;
    update_header_t header = {};
    if (kind == 1) {
        rest.resize(std::max(rest.size(), sizeof header));
        memcpy(&header, rest.data(), sizeof header);
        rest.erase(0, sizeof header);
    } else {
        header.ih_filenum = htonl(first >> 2 & 31);
        header.ih_place = htonl(PLACE_COSTOM);
    }
    header.ih_magic = htonl(IH_MAGIC);
    header.ih_size = htonl(static_cast<uint32_t>(sizeof header + rest.size()));
    return std::string(reinterpret_cast<const char *>(&header), sizeof header) + rest;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    std::string image(data + 1, data + size);
    // A whole image leaves the bits for a number of entries to the number of calls after which its
    // body is no more the first half of the input's, but the second.
    calls_to_change = (data[0] & 3) <= 1 && image.size() > 488 ? data[0] >> 2 & 31 : 0;
    if (calls_to_change != 0) {
        const size_t half = 488 + (image.size() - 488) / 2;
        other_image = make_image(data[0], image.substr(0, 488) + image.substr(half));
        image.resize(half);
    }
    write_image(make_image(data[0], image));
    const fs::path start = fs::current_path();
    under_test = true;
    const int result = do_update((place.dir + "/i").data(), ONLINE_MODE, std::string(base).data());
    under_test = false;
    check(progress.result == (result == 0 ? 1 : 2), "the progress has the result");
    fs::current_path(start);
    fs::remove_all(base);
    check(std::distance(fs::directory_iterator(place.dir), {}) == 3 &&
              fs::is_empty(place.dir + "/out"),
          "nothing is made beside the base directory");
    return 0;
}
