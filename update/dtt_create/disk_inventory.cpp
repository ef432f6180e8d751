// Which USB disks are really there, what they are called, and which files they offer.
#include "update/dtt_create/disk_inventory.h"

#include "update/dtt_create/command_output.h"
#include "update/dtt_create/disk_labels.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/path_operations.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/shell_words.h"
#include "update_service.h"

#include <cstdlib>
#include <cstring>
#include <dirent.h>

// The lines of the inventory name the operation that was called.
static constexpr char OPERATION[] = "get_udisk_all_info";

static constexpr size_t COMMAND_SIZE = 128;
static constexpr int DEVICE_MAX = 12; // block devices that are looked at
static constexpr size_t DEVICE_SIZE = 128;

// The names of the block devices that the kernel knows. Returns their number.
static int list_devices(FILE *stream, char (*devices)[DEVICE_SIZE])
{
    char *line = nullptr;
    size_t size = 0;
    int count = 0;
    while (count < DEVICE_MAX && getline(&line, &size, stream) >= 0) {
        chomp(line);
        snprintf(devices[count++], DEVICE_SIZE, "%s", line);
    }
    free(line);
    return count;
}

int check_udisk_mount_status(char *path)
{
    if (path == nullptr)
        return 0;
    FILE *const stream = my_popen("/bin/cat /proc/diskstats |grep sd|awk '{print $3}'", "r");
    if (stream == nullptr)
        return 0;
    char devices[DEVICE_MAX][DEVICE_SIZE];
    const int count = list_devices(stream, devices);
    my_pclose(stream);
    printf("path=%s\n", path);

    chomp(path);
    char *rest = nullptr;
    strtok_r(path, "/", &rest);
    const char *res_stat = strtok_r(nullptr, "/", &rest);
    if (res_stat == nullptr)
        res_stat = "";
    // The caller's path is taken apart to its end.
    while (strtok_r(nullptr, "/", &rest) != nullptr)
        continue;
    for (int i = 0; i < count && devices[i][0] != '\0'; i++) {
        printf("stat=%s, res_stat=%s\n", devices[i], res_stat);
        if (strcmp(devices[i], res_stat) == 0) {
            puts("find");
            return 1;
        }
    }
    return 0;
}

static FILE *open_command(const char *cmd)
{
    FILE *const stream = my_popen(cmd, "r");
    if (stream == nullptr)
        OPERATION_LOG("popen read_device_info");
    return stream;
}

// Cuts at the end of a character, so that half of one never reaches the field.
static void copy_name(char *field, size_t size, const char *name)
{
    size_t len = strlen(name);
    if (len >= size) {
        len = size - 1;
        // A character has at most three bytes behind its first; more are no UTF-8 anyway.
        for (int back = 0; back < 3 && (static_cast<unsigned char>(name[len]) & 0xC0U) == 0x80U;
             back++)
            len--;
    }
    memset(field, 0, size);
    memcpy(field, name, len);
}

// Reads the label from the output of the search for it, or puts a name in its place.
static void take_label(FILE *stream, int number, char *label)
{
    if (!read_output_line(stream, label)) {
        OPERATION_LOG("get udisk label is null, use UsbDisk instead.");
        snprintf(label, LABEL_SIZE, "UsbDisk%d", number);
    } else if (label[0] == '\0') {
        OPERATION_LOG("get udisk_label empaty.");
    } else if (check_is_gbk(label) != 0) {
        OPERATION_LOG("get udisk_name is chinese, use english instead.");
        get_udisk_real_name(label);
    }
}

// The commands below fit: a mount path that can_be_stored has at most 15 characters.
static int find_label(const char *device, int number, udisk_list_t *disk)
{
    static_assert(LABEL_SIZE == OUTPUT_LINE_SIZE, "a label is decoded where it has been read");
    char cmd[COMMAND_SIZE];
    if (!bounded_format(cmd, sizeof cmd, "ls -l /dev/disk/by-label/ |grep %s |awk '{print $9}'",
                        device))
        return -1;
    FILE *const stream = open_command(cmd);
    if (stream == nullptr)
        return -1;
    char label[LABEL_SIZE];
    take_label(stream, number, label);
    copy_name(disk->udisk_name, sizeof disk->udisk_name, label[0] != '\0' ? label : "UNKNOWNNAME");
    OPERATION_LOG("get udisk_label = %s", disk->udisk_name);
    my_pclose(stream);
    return 0;
}

// One of a disk's three lists of files.
enum list_kind { IMAGES, BACKUPS, SETTINGS };
struct file_list {
    list_kind kind;
    const char *pattern;
    int *num;
    char (*files)[sizeof uimgfile_info_t::uimgfile[0]];
};

static int fill_list(const char *udisk_path, const file_list *list)
{
    char cmd[COMMAND_SIZE];
    if (!bounded_format(cmd, sizeof cmd, "/usr/bin/find %s -maxdepth 1 -name '%s'", udisk_path,
                        list->pattern))
        return -1;
    OPERATION_LOG("cmd=%s", cmd);
    FILE *const stream = open_command(cmd);
    if (stream == nullptr)
        return -1;
    int num = 0;
    char line[OUTPUT_LINE_SIZE];
    while (read_output_line(stream, line)) {
        if (strlen(line) <= 1)
            continue;
        if (num == UDISK_FILE_MAX) {
            OPERATION_LOG("<%s>: no room for %s", udisk_path, line);
            continue;
        }
        fixed_copy(list->files[num++], line);
        OPERATION_LOG(list->kind == BACKUPS ? "<%s>: %s" : "<%s>:%s", udisk_path, line);
    }
    *list->num = num;
    OPERATION_LOG(list->kind == IMAGES    ? "<%s>: uimg_num = %d"
                  : list->kind == BACKUPS ? "<%s>: uback_num = %d"
                                          : "<%s>: urcfg_num = %d",
                  udisk_path, num);
    my_pclose(stream);
    return 0;
}

static int fill_lists(udisk_list_t *disk)
{
    const file_list lists[] = {
        {IMAGES, "*.img", &disk->imgfile.uimgfile_num, disk->imgfile.uimgfile},
        {BACKUPS, "*.ubck", &disk->backfile.ubackfile_num, disk->backfile.ubackfile},
        {SETTINGS, "*.rcfgx", &disk->rcfgfile.urcfgfile_num, disk->rcfgfile.urcfgfile},
    };
    for (const file_list &list : lists)
        if (fill_list(disk->udisk_path, &list) != 0)
            return -1;
    return 0;
}

// Whether a mount path of the mount list is one of a disk that is there.
static bool is_present(const char *udisk_path)
{
    char temp[COMMAND_SIZE];
    if (!bounded_copy(temp, sizeof temp, udisk_path) || check_udisk_mount_status(temp) == 0)
        return false;
    OPERATION_LOG("strlen(udisk_path) =%d", static_cast<int>(strlen(udisk_path)));
    DIR *const dir = opendir(udisk_path);
    if (dir == nullptr)
        return false;
    closedir(dir);
    return true;
}

// A path from a disk that somebody has plugged in must not change the meaning of a command line,
// and one that does not fit its field would name another place.
static bool can_be_stored(const char *udisk_path, const char *u_path_name)
{
    if (strlen(udisk_path) < sizeof udisk_list_t::udisk_path && is_shell_safe_word(udisk_path) &&
        is_shell_safe_word(u_path_name))
        return true;
    OPERATION_LOG("passed over, mount path of more than 15 characters or with one that a shell "
                  "takes for itself: <%s>",
                  udisk_path);
    return false;
}

// Adds the disk at the mount path `udisk_path`, if there is one and room for it. Returns 0, or -1
// if a command could not be run.
static int add_disk(const char *udisk_path, udisk_info_t *udisk_info, int *udisk_num)
{
    const char *const u_path_name =
        strchr(udisk_path, '/') != nullptr ? last_component(udisk_path) : "";
    OPERATION_LOG("udisk_path = %s, u_path_name = %s", udisk_path, u_path_name);
    if (!is_present(udisk_path) || !can_be_stored(udisk_path, u_path_name))
        return 0;
    if (*udisk_num == UDISK_MAX) {
        OPERATION_LOG("no room for %s", udisk_path);
        return 0;
    }
    udisk_list_t *const disk = &udisk_info->upath[*udisk_num];
    OPERATION_LOG("udisk_path = %s", udisk_path);
    copy_name(disk->udisk_path, sizeof disk->udisk_path, udisk_path);
    if (find_label(u_path_name, *udisk_num, disk) != 0 || fill_lists(disk) != 0)
        return -1;
    ++*udisk_num;
    return 0;
}

static int list_disks(udisk_info_t *udisk_info)
{
    static constexpr char cmd[] = "/bin/mount |grep /mnt/sd |awk '{print $3}'";
    OPERATION_LOG("cmd=%s", cmd);
    FILE *const stream = open_command(cmd);
    if (stream == nullptr)
        return -1;
    OPERATION_LOG("popen ok");
    int udisk_num = 0;
    int result = 0;
    char udisk_path[OUTPUT_LINE_SIZE];
    while (result == 0 && read_output_line(stream, udisk_path))
        if (strlen(udisk_path) > 1)
            result = add_disk(udisk_path, udisk_info, &udisk_num);
    if (result == 0) {
        udisk_info->upath_num = udisk_num;
        OPERATION_LOG("found all udisk, udisk_num = %d", udisk_num);
        printf("found all udisk, udisk_num = %d\n", udisk_num);
    }
    my_pclose(stream);
    return result;
}

int get_udisk_all_info(udisk_info_t *udisk_info)
{
    OPERATION_LOG("start.(upgd/update/)");
    const int result = list_disks(udisk_info);
    OPERATION_LOG("end.(upgd/update/)");
    return result;
}
