// The USB disks, and the settings backup on them.
#include "companions/text/json.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/tested_image.h"
#include "platform/configuration.h"
#include "update/dtt_update_common/image_check.h"
#include "update_service.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <unistd.h>

static constexpr char VERSION_KEY[] = "fw_version";

// Some systems lay a file of their own beside each file on a disk, whose name begins like this.
static bool is_shadow(const char *file)
{
    return strncmp(last_component(file), "._", 2) == 0;
}

// The files of one kind on a disk.
struct file_list {
    const char *key;
    int count;
    const char (*files)[96];
};

static std::array<file_list, 3> lists_of(const udisk_list_t *disk)
{
    return {{{"images", disk->imgfile.uimgfile_num, disk->imgfile.uimgfile},
             {"backups", disk->backfile.ubackfile_num, disk->backfile.ubackfile},
             {"rcfgx", disk->rcfgfile.urcfgfile_num, disk->rcfgfile.urcfgfile}}};
}

static int count_files(const file_list &list)
{
    return static_cast<int>(std::count_if(list.files, list.files + list.count,
                                          [](const char *file) { return !is_shadow(file); }));
}

static void print_json_disk(FILE *out, const udisk_list_t *disk)
{
    print_json_text(out, "{\"path\":", disk->udisk_path);
    print_json_text(out, ",\"name\":", disk->udisk_name);
    for (const file_list &list : lists_of(disk)) {
        fprintf(out, ",\"%s\":[", list.key);
        const char *divider = "";
        for (int i = 0; i < list.count; i++) {
            if (is_shadow(list.files[i]))
                continue;
            print_json_text(out, divider, list.files[i]);
            divider = ",";
        }
        fputc(']', out);
    }
    fputc('}', out);
}

static int say_json(const udisk_info_t *info)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *const out = open_memstream(&text, &size);
    if (out == nullptr)
        return fail("the disks can't be listed: %s", strerror(errno));
    fputc('[', out);
    for (int i = 0; i < info->upath_num; i++) {
        fputs(i > 0 ? "," : "", out);
        print_json_disk(out, &info->upath[i]);
    }
    fputc(']', out);
    fclose(out);
    say("%s", text);
    free(text);
    return SERVICE_WELL;
}

int disks_command(const service_call *call)
{
    const std::unique_ptr<udisk_info_t> info(new udisk_info_t{});
    if (get_udisk_all_info(info.get()) != 0)
        return fail("the disks can't be listed");
    if (call->json != 0)
        return say_json(info.get());
    say("%-15s %-31s %6s %7s %5s", "PATH", "NAME", "IMAGES", "BACKUPS", "RCFGX");
    for (int i = 0; i < info->upath_num; i++) {
        const udisk_list_t *const disk = &info->upath[i];
        const auto [images, backups, rcfgx] = lists_of(disk);
        say("%-15s %-31s %6d %7d %5d", disk->udisk_path, disk->udisk_name, count_files(images),
            count_files(backups), count_files(rcfgx));
    }
    return SERVICE_WELL;
}

static constexpr code_words BACKUP_FAULTS[] = {
    {BACKUP_NO_DISK, "the disk can't be opened"},
    {BACKUP_NO_ROOM_ON_DEVICE, "too little room on the device: 100,000 KiB are kept free"},
    {BACKUP_NO_ROOM_ON_DISK, "too little room on the disk, or no disk is mounted there: 100,000 "
                             "KiB are kept free"},
};

static constexpr code_words RESTORE_FAULTS[] = {
    {UPDATE_REFUSED, "the directory can't be reached"},
    {UPDATE_COPY_FAILED, "an entry can't be written, or the image is damaged"},
};

static bool holds_nothing(const char *file)
{
    image_file img;
    const char *const fault = open_image(file, &img);
    const descriptor opened(img.fd);
    return fault == nullptr && img.header.ih_filenum == 0;
}

int backup_command(const service_call *call)
{
    // The operation looks for the path in the list of what is mounted, which has no '/' at its end.
    std::string disk = call->words[0];
    disk.resize(std::max<size_t>(disk.find_last_not_of('/') + 1, 1));
    std::string room(disk.size() + 129, '\0');
    const int result = do_create_backup(disk.data(), room.data());
    const char *const file = room.c_str();
    if (result != 0) {
        complain("%s: %s", disk.c_str(),
                 words_for(BACKUP_FAULTS, result, "the backup failed; the device's log tells why"));
        show_command_output();
        return SERVICE_FAILED;
    }
    // The operation looks for a file of this name alone: a disk that is full has a part of it, and
    // a device without settings an image of nothing.
    const char *const fault = whole_image_fault(file);
    const bool empty = holds_nothing(file);
    if (fault == nullptr && !empty) {
        say("%s", file);
        return SERVICE_WELL;
    }
    if (empty) {
        unlink(file);
        complain("%s: nothing was saved: there are no settings below /usr/qrx310/etc",
                 disk.c_str());
    } else {
        complain("%s: what was saved %s; make room and save again", file, fault);
    }
    show_command_output();
    return SERVICE_FAILED;
}

int restore_command(const service_call *call)
{
    const char *const file = call->words[0];
    std::string dir = call->words[1] != nullptr ? absolute_path(call->words[1]) : "/";
    tested_image image;
    if (!take_tested_image(file, &call->test, &image))
        return SERVICE_FAILED;
    std::string version;
    if (!read_setting(VERSION_KEY, &version))
        return SERVICE_FAILED;
    const int result = do_update_backup(image.path, dir.data());
    if (result != 0) {
        complain(
            "%s: %s", file,
            words_for(RESTORE_FAULTS, result, "the restore failed; the device's log tells why"));
        show_command_output();
        return SERVICE_FAILED;
    }
    // A backup carries a version, as every image does, but none of the firmware: the one that stood
    // there stands there again behind it.
    const int error = configuration_set(CONFIGURATION_PATH, VERSION_KEY, version.c_str());
    if (error != 0)
        return fail("%s can't be put back to '%s': %s", VERSION_KEY, version.c_str(),
                    strerror(-error));
    if (has_changed(&image))
        return fail("%s: it was changed while it was restored; restore it again", file);
    say("%s: restored below %s", file, dir.c_str());
    return SERVICE_WELL;
}
