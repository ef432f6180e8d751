// The inventory of the USB disks over any output of its commands. The input is the outputs, with
// the byte 1f between them: the mount list, the list of block devices, which every disk asks for,
// and then one for each command. An output of the byte 1e alone is a command that could not be run.
#include "fuzz/harness.h"

#include "platform/platform.h"
#include "update_service.h"

#include <cstring>
#include <dirent.h>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

static std::vector<std::string> outputs;
static size_t next_output;
static int open_streams;

// Whether the word that is put into the command is one that a shell leaves alone.
static bool is_good(const std::string &cmd)
{
    static const std::string word =
        R"((?![-~#])([^|&;<>()'"\\` \t\n$]|\$(?![_{(@*#?$!\-0-9A-Za-z]))*)";
    static const std::regex pattern("ls -l /dev/disk/by-label/ \\|grep " + word +
                                    " \\|awk '\\{print \\$9\\}'|/usr/bin/find " + word +
                                    " -maxdepth 1 -name '\\*\\.(img|ubck|rcfgx)'");
    return std::regex_match(cmd, pattern);
}

FILE *my_popen(const char *cmd, const char *)
{
    size_t number = 0;
    if (strcmp(cmd, "/bin/cat /proc/diskstats |grep sd|awk '{print $3}'") == 0) {
        number = 1;
    } else if (strcmp(cmd, "/bin/mount |grep /mnt/sd |awk '{print $3}'") != 0) {
        check(is_good(cmd), "a command line has a word in the place of the path or the device");
        number = next_output++;
    }
    const std::string output = number < outputs.size() ? outputs[number] : "";
    if (output == "\x1e")
        return nullptr;
    open_streams++;
    FILE *const stream = fmemopen(nullptr, output.size() + 1, "w+");
    fwrite(output.data(), 1, output.size(), stream);
    rewind(stream);
    return stream;
}

int my_pclose(FILE *stream)
{
    open_streams--;
    return fclose(stream);
}

extern "C" {
DIR *__real_opendir(const char *path);
DIR *__wrap_opendir(const char *path);

// Every disk is mounted but those whose path has an 'x'.
DIR *__wrap_opendir(const char *path)
{
    if (!under_test)
        return __real_opendir(path);
    return strchr(path, 'x') == nullptr ? __real_opendir("/") : nullptr;
}
}

template <size_t size> static void check_files(int count, const char (&files)[UDISK_FILE_MAX][size])
{
    check(count >= 0 && count <= UDISK_FILE_MAX, "there are eight files of a kind at most");
    for (int i = 0; i < count; i++)
        check(strnlen(files[i], size) < size, "a file's path has an end");
}

static void check_disk(const udisk_list_t *disk)
{
    check(strnlen(disk->udisk_path, 16) < 16, "a disk's path has an end");
    check(strnlen(disk->udisk_name, 32) < 32, "a disk's name has an end");
    check_files(disk->imgfile.uimgfile_num, disk->imgfile.uimgfile);
    check_files(disk->backfile.ubackfile_num, disk->backfile.ubackfile);
    check_files(disk->rcfgfile.urcfgfile_num, disk->rcfgfile.urcfgfile);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    outputs.clear();
    std::istringstream parts(std::string(data, data + size));
    for (std::string part; std::getline(parts, part, '\x1f');)
        outputs.push_back(part);
    next_output = 2;
    open_streams = 0;
    // Filled, so that a field which should have been written shows.
    const std::unique_ptr<udisk_info_t> info(new udisk_info_t);
    memset(static_cast<void *>(info.get()), 0x55, sizeof *info);
    under_test = true;
    const int result = get_udisk_all_info(info.get());
    under_test = false;
    check(open_streams == 0, "every stream is closed");
    check(info->event.ev == 0x55555555, "the event keeps its content");
    check(result == 0 || info->upath_num == 0x55555555, "a failure leaves the count alone");
    check(result != 0 || (info->upath_num >= 0 && info->upath_num <= UDISK_MAX), "four disks");
    for (int i = 0; result == 0 && i < info->upath_num; i++)
        check_disk(&info->upath[i]);
    return 0;
}
