// The USB disks, the settings backup, and the flashing of single files.
#include "service/commands.h"
#include "service/console.h"
#include "update/dtt_update/image_check.h"
#include "update_service.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <unistd.h>

// A JSON string. Names come from a disk that anybody may have written: control characters are
// escaped, and a byte that is no ASCII stands as it is only if it came out of the label's decoding.
static std::string json_text(const char *text)
{
    std::string json = "\"";
    for (; *text != '\0'; text++) {
        const unsigned char c = static_cast<unsigned char>(*text);
        char escaped[8];
        if (c == '"' || c == '\\')
            snprintf(escaped, sizeof escaped, "\\%c", c);
        else if (c < ' ' || c == 0x7F)
            snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned int>(c));
        else
            snprintf(escaped, sizeof escaped, "%c", c);
        json += escaped;
    }
    return json + '"';
}

static std::string json_list(int count, const char (*files)[96])
{
    std::string json = "[";
    for (int i = 0; i < count; i++)
        json += (i > 0 ? "," : "") + json_text(files[i]);
    return json + "]";
}

static std::string json_disk(const udisk_list_t *disk)
{
    return "{\"path\":" + json_text(disk->udisk_path) + ",\"name\":" + json_text(disk->udisk_name) +
           ",\"images\":" + json_list(disk->imgfile.uimgfile_num, disk->imgfile.uimgfile) +
           ",\"backups\":" + json_list(disk->backfile.ubackfile_num, disk->backfile.ubackfile) +
           ",\"rcfgx\":" + json_list(disk->rcfgfile.urcfgfile_num, disk->rcfgfile.urcfgfile) + "}";
}

int disks_command(bool json)
{
    const std::unique_ptr<udisk_info_t> info(new udisk_info_t{});
    if (get_udisk_all_info(info.get()) != 0) {
        complain("the disks can't be listed");
        return SERVICE_FAILED;
    }
    if (json) {
        std::string text = "[";
        for (int i = 0; i < info->upath_num; i++)
            text += (i > 0 ? "," : "") + json_disk(&info->upath[i]);
        say("%s]", text.c_str());
        return SERVICE_WELL;
    }
    say("%-15s %-31s %6s %7s %5s", "PATH", "NAME", "IMAGES", "BACKUPS", "RCFGX");
    for (int i = 0; i < info->upath_num; i++) {
        const udisk_list_t *const disk = &info->upath[i];
        say("%-15s %-31s %6d %7d %5d", disk->udisk_path, disk->udisk_name,
            disk->imgfile.uimgfile_num, disk->backfile.ubackfile_num, disk->rcfgfile.urcfgfile_num);
    }
    return SERVICE_WELL;
}

static const char *backup_words(int result)
{
    switch (result) {
    case -11:
        return "the disk can't be opened";
    case -12:
        return "too little room on the device: 100,000 KiB are kept free";
    case -13:
        return "too little room on the disk, or no disk is mounted there: 100,000 KiB are kept "
               "free";
    default:
        return "the backup failed; the device's log tells why";
    }
}

int backup_command(char *disk)
{
    const std::unique_ptr<char[]> file(new char[strlen(disk) + 129]());
    const int result = do_create_backup(disk, file.get());
    if (result != 0) {
        complain("%s: %s", disk, backup_words(result));
        return SERVICE_FAILED;
    }
    // The operation looks for a file of this name alone: a disk that is full has a part of it.
    const char *const fault = whole_image_fault(file.get());
    if (fault != nullptr) {
        complain("%s: what was saved %s; make room and save again", file.get(), fault);
        return SERVICE_FAILED;
    }
    say("%s", file.get());
    return SERVICE_WELL;
}

static const char *restore_words(int result)
{
    switch (result) {
    case -10:
        return "the directory can't be reached";
    case -4:
        return "an entry can't be written, or the image is damaged";
    default:
        return "the restore failed; the device's log tells why";
    }
}

int restore_command(char *file, char *dir)
{
    // The run changes the working directory, and a relative path with it.
    char path[PATH_MAX];
    const char *const fault = image_fault(file);
    if (fault != nullptr || realpath(file, path) == nullptr) {
        complain("%s: %s", file, fault != nullptr ? fault : strerror(errno));
        return SERVICE_FAILED;
    }
    const int result = do_update_backup(path, dir);
    if (result != 0) {
        complain("%s: %s", file, restore_words(result));
        return SERVICE_FAILED;
    }
    say("%s: restored below %s", file, dir);
    return SERVICE_WELL;
}

int flash_command(int type, char *file)
{
    if (access(file, F_OK) != 0) {
        complain("%s: %s", file, strerror(errno));
        return SERVICE_FAILED;
    }
    const int result = update_one_UserFile(type, file);
    if (result != 0) {
        complain("%s: %s", file,
                 result == -1 ? "no such kind of card firmware" : "the flashing tool can't be run");
        return SERVICE_FAILED;
    }
    say("%s: flashed; the tool's own outcome is not known", file);
    return SERVICE_WELL;
}
