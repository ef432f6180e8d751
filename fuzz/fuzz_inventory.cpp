// The inventory of the USB disks over any output of its commands. The input is the outputs, with
// the byte 1f between them: the mount list, the list of block devices, which every disk asks for,
// and then one for each command. The byte 1e alone is a command that could not be run.
#include "fuzz/harness.h"

#include "platform/platform.h"
#include "update_service.h"

#include <cctype>
#include <cstring>
#include <dirent.h>
#include <map>
#include <sstream>
#include <string>

static std::map<size_t, std::string> outputs; // by number
static size_t next_output;

// What is left of the command without its own text has to be one word that a shell leaves alone.
static bool is_good(std::string cmd)
{
    for (const std::string text :
         {"ls -l /dev/disk/by-label/ |grep ", " |awk '{print $9}'", "/usr/bin/find ",
          " -maxdepth 1 -name '*.", "img'", "ubck'", "rcfgx'"})
        if (cmd.find(text) != std::string::npos)
            cmd.erase(cmd.find(text), text.size());
    for (size_t at = 0; (at = cmd.find('$', at)) != cmd.npos; at++)
        if (at + 1 < cmd.size() && (isalnum(static_cast<unsigned char>(cmd[at + 1])) != 0 ||
                                    strchr("_{([@*#?$!-", cmd[at + 1]) != nullptr))
            return false;
    return cmd.find_first_of("-~#") != 0 &&
           cmd.find_first_of("|&;<>()'\"\\` \t\n") == std::string::npos;
}

FILE *my_popen(const char *cmd, const char *)
{
    size_t number = 0;
    if (strcmp(cmd, "/bin/cat /proc/diskstats |grep sd|awk '{print $3}'") == 0) {
        number = 1;
    } else if (strcmp(cmd, "/bin/mount |grep /mnt/sd |awk '{print $3}'") != 0) {
        check(is_good(cmd), "a command has one word of its own");
        number = next_output++;
    }
    std::string &output = outputs[number];
    if (output == "\x1e")
        return nullptr;
    return fmemopen(output.data(), output.size(), "r");
}

int my_pclose(FILE *stream)
{
    return fclose(stream);
}

extern "C" {
DIR *__real_opendir(const char *path);

// Every disk is mounted but those whose path has an 'x'.
DIR *__wrap_opendir(const char *path)
{
    if (!under_test)
        return __real_opendir(path);
    return strchr(path, 'x') == nullptr ? __real_opendir("/") : nullptr;
}
}

template <size_t size> static void check_end(const char (&text)[size])
{
    check(strnlen(text, size) < size, "a text has an end");
}

template <size_t size> static void check_files(int count, const char (&files)[UDISK_FILE_MAX][size])
{
    check(count >= 0 && count <= UDISK_FILE_MAX, "there are eight files of a kind at most");
    for (int i = 0; i < count; i++)
        check_end(files[i]);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    outputs.clear();
    std::istringstream parts(std::string(data, data + size));
    for (std::string part; std::getline(parts, part, '\x1f');)
        outputs.emplace(outputs.size(), part);
    next_output = 2;
    // Filled, so that a field which should have been written shows.
    static udisk_info_t info;
    memset(&info, 0x55, sizeof info);
    under_test = true;
    const int result = get_udisk_all_info(&info);
    under_test = false;
    check(info.event.ev == 0x55555555, "the event keeps its content");
    check(result != 0 || (info.upath_num >= 0 && info.upath_num <= UDISK_MAX), "four disks");
    for (int i = 0; result == 0 && i < info.upath_num; i++) {
        const udisk_list_t &disk = info.upath[i];
        check_end(disk.udisk_path);
        check_end(disk.udisk_name);
        check_files(disk.imgfile.uimgfile_num, disk.imgfile.uimgfile);
        check_files(disk.backfile.ubackfile_num, disk.backfile.ubackfile);
        check_files(disk.rcfgfile.urcfgfile_num, disk.rcfgfile.urcfgfile);
    }
    return 0;
}
