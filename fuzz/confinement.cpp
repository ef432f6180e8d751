// The system calls and shell commands of an apply run, kept below its base directory.
#include "fuzz/confinement.h"

#include "fuzz/stub.h"
#include "platform/platform.h"
#include "update_header.h"
#include "upgrade_info.h"

#include <algorithm>
#include <climits>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

namespace fs = std::filesystem;

confinement confined;

void confine()
{
    // A link and its command have to fit 127 characters, so the names are short.
    const char *const place = getenv("TMPDIR");
    confined.dir = fs::canonical(place != nullptr ? place : "/tmp").string() + "/XXXXXX";
    check(mkdtemp(confined.dir.data()) != nullptr, "there is room for temporary files");
    confined.base = confined.dir + "/b";
    fs::create_directories(confined.dir + "/root/nand/bin/tools");
    fs::create_directories(confined.dir + "/root/usr/nand");
}

static bool is_below_base(const std::string &path)
{
    return path == confined.base || path.rfind(confined.base + "/", 0) == 0;
}

// The item `path` is about to be made or removed. Neither its name nor a link on its way may take
// it elsewhere, be it a link that an earlier entry has made.
static void check_place(const std::string &path)
{
    check(is_below_base(fs::path(path).lexically_normal()), "an entry stays below the directory");
    char parent[PATH_MAX];
    check(path == confined.base ||
              realpath(fs::path(path).parent_path().c_str(), parent) == nullptr ||
              is_below_base(parent),
          "no link leads an entry out of the directory");
}

// A shell would put what a pattern matches in its place.
static void check_word(const std::string &word)
{
    if (word.find_first_of("*?[") == std::string::npos)
        return;
    glob_t found;
    const bool matched = glob(word.c_str(), GLOB_NOESCAPE, nullptr, &found) == 0;
    check(!matched || (found.gl_pathc == 1 && word == found.gl_pathv[0]), "a word means itself");
    globfree(&found);
}

// One of the calls that the bytes of the image can change ahead of: another task writes to it.
static void pass_call()
{
    if (!under_test || confined.calls_to_change == 0 || --confined.calls_to_change != 0)
        return;
    const std::string &body = confined.new_body;
    check(pwrite(confined.image_fd, body.data(), body.size(), sizeof(update_header_t)) >= 0 &&
              ftruncate(confined.image_fd,
                        static_cast<off_t>(sizeof(update_header_t) + body.size())) == 0,
          "the image can be changed");
}

static void make_directories(const std::string &path)
{
    check_word(path);
    size_t end = confined.base.size();
    while (end != std::string::npos) {
        const std::string part = path.substr(0, end);
        if (access(part.c_str(), F_OK) != 0) {
            check_place(part);
            if (mkdir(part.c_str(), 0755) != 0)
                return;
        }
        end =
            end == path.size() ? std::string::npos : std::min(path.find('/', end + 1), path.size());
    }
}

// "DIR/ && /bin/ln -sf TARGET NAME"
static void make_link(const std::string &text)
{
    static const std::string ln = "/ && /bin/ln -sf ";
    const size_t command = text.rfind(ln);
    const size_t space = text.rfind(' ');
    if (command == std::string::npos || space < command + ln.size())
        return;
    const std::string directory = text.substr(0, command);
    const std::string name = text.substr(space + 1);
    const std::string target = text.substr(command + ln.size(), space - command - ln.size());
    check_word(directory);
    check_place(directory + "/" + name);
    if (chdir(directory.c_str()) != 0)
        return;
    check_word(target);
    check_word(name);
    unlink(name.c_str());
    (void)!symlink(target.c_str(), name.c_str());
    check(chdir(confined.base.c_str()) == 0, "the base directory is there");
}

// The effect of the commands that make directories and links, without a shell: an entry's name can
// hold any text.
int my_system(const char *cmd)
{
    static const std::string mkdir_p = "/bin/mkdir -p ";
    static const std::string cd = "cd /";
    pass_call();
    const bool was_under_test = under_test;
    under_test = false;
    const std::string text = cmd;
    int result = 0;
    if (text.rfind(mkdir_p, 0) == 0)
        make_directories(text.substr(mkdir_p.size()));
    else if (text.rfind(cd, 0) == 0)
        make_link(text.substr(cd.size()));
    else
        result = confined.commands_fail ? -1 : 0;
    under_test = was_under_test;
    return result;
}

extern "C" {

// What open(2) is called where file offsets have 64 bits.
int __real_open(const char *path, int flags, ...);
int __wrap_open(const char *path, int flags, ...);
ssize_t __real_pread(int fd, void *data, size_t size, off_t at);
ssize_t __wrap_pread(int fd, void *data, size_t size, off_t at);
int __real_unlink(const char *path);
int __wrap_unlink(const char *path);
int __wrap_usleep(useconds_t us);
int __wrap_shmget(int key, size_t size, int flags);
void *__wrap_shmat(int id, const void *address, int flags);

int __wrap_open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    const unsigned int mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned int) : 0;
    va_end(args);
    pass_call();
    if (under_test && (flags & O_CREAT) != 0) {
        check_place(path);
        std::error_code none;
        check(!fs::is_symlink(path, none), "no file is written through a link");
    }
    // The target search begins at the root directory.
    if (under_test && (flags & O_DIRECTORY) != 0 && !is_below_base(path))
        return __real_open((confined.dir + "/root" + path).c_str(), flags);
    return __real_open(path, flags, mode);
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

static upgrade_info_t progress_block;

int __wrap_shmget(int, size_t, int)
{
    return 5;
}

void *__wrap_shmat(int, const void *, int)
{
    return &progress_block;
}
}
