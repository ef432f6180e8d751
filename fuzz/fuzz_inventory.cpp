// The inventory of the USB disks over any output of its commands. The input is the outputs, with
// PART between them: the mount list, the list of block devices, which every disk asks for, and then
// one for each command. An output of NO_COMMAND alone is a command that could not be run.
#include "fuzz/stub.h"

#include "platform/platform.h"
#include "update_service.h"

#include <cstring>
#include <dirent.h>
#include <memory>
#include <string>
#include <vector>

static constexpr char PART = 0x1f;
static constexpr char NO_COMMAND[] = "\x1e";
// To a shell, and behind a '$'.
static constexpr char SPECIAL[] = "|&;<>()'\"\\` \t\n";
static constexpr char PARAMETERS[] = "_{(@*#?$!-0123456789"
                                     "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz";

static std::vector<std::string> outputs;
static size_t next_output;
static int open_streams;

// Whether `cmd` is `head` and `tail` with a word between them that a shell leaves alone, or, for a
// mount path that ends in '/', with none.
static bool is_command(const std::string &cmd, const std::string &head, const std::string &tail)
{
    if (cmd.size() < head.size() + tail.size() || cmd.compare(0, head.size(), head) != 0 ||
        cmd.compare(cmd.size() - tail.size(), tail.size(), tail) != 0)
        return false;
    const std::string word = cmd.substr(head.size(), cmd.size() - head.size() - tail.size());
    for (size_t at = 0; at + 1 < word.size(); at++)
        if (word[at] == '$' && strchr(PARAMETERS, word[at + 1]) != nullptr)
            return false;
    return word.find_first_of(SPECIAL) == std::string::npos && word.find_first_of("-~#") != 0;
}

static void check_command(const std::string &cmd)
{
    bool known = is_command(cmd, "ls -l /dev/disk/by-label/ |grep ", " |awk '{print $9}'");
    for (const char *pattern : {"*.img", "*.ubck", "*.rcfgx"})
        known = known || is_command(cmd, "/usr/bin/find ",
                                    " -maxdepth 1 -name '" + std::string(pattern) + "'");
    check(known, "a command line has a word in the place of the path or the device");
}

FILE *my_popen(const char *cmd, const char *)
{
    size_t number = 0;
    if (strcmp(cmd, "/bin/cat /proc/diskstats |grep sd|awk '{print $3}'") == 0) {
        number = 1;
    } else if (strcmp(cmd, "/bin/mount |grep /mnt/sd |awk '{print $3}'") != 0) {
        check_command(cmd);
        number = next_output++;
    }
    const std::string output = number < outputs.size() ? outputs[number] : "";
    if (output == NO_COMMAND)
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

int LLVMFuzzerInitialize(int *, char ***)
{
    return 0;
}

template <size_t size> static void check_text(const char (&field)[size])
{
    check(memchr(field, '\0', size) != nullptr, "a text has an end");
}

template <size_t size> static void check_files(int count, const char (&files)[UDISK_FILE_MAX][size])
{
    check(count >= 0 && count <= UDISK_FILE_MAX, "there are eight files of a kind at most");
    for (int i = 0; i < count; i++)
        check_text(files[i]);
}

static void check_disks(const udisk_info_t *info)
{
    check(info->upath_num >= 0 && info->upath_num <= UDISK_MAX, "there are four disks at most");
    for (int i = 0; i < info->upath_num; i++) {
        const udisk_list_t *const disk = &info->upath[i];
        check_text(disk->udisk_path);
        check_text(disk->udisk_name);
        check_files(disk->imgfile.uimgfile_num, disk->imgfile.uimgfile);
        check_files(disk->backfile.ubackfile_num, disk->backfile.ubackfile);
        check_files(disk->rcfgfile.urcfgfile_num, disk->rcfgfile.urcfgfile);
    }
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    outputs.assign(1, "");
    for (size_t i = 0; i < size; i++) {
        if (static_cast<char>(data[i]) == PART)
            outputs.emplace_back();
        else
            outputs.back() += static_cast<char>(data[i]);
    }
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
    if (result == 0)
        check_disks(info.get());
    else
        check(result == -1 && info->upath_num == 0x55555555, "a failure leaves the count alone");
    return 0;
}
