// The USB disks, and the settings backup on them.
#include "companions/text/json.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/exit_status.h"
#include "companions/upgd_service/tested_image.h"
#include "platform/configuration.h"
#include "update/dtt_update_common/image_check.h"
#include "update_service.h"

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
    const char *const slash = strrchr(file, '/');
    return strncmp(slash != nullptr ? slash + 1 : file, "._", 2) == 0;
}

static int count_files(int count, const char (*files)[96])
{
    int shown = 0;
    for (int i = 0; i < count; i++)
        shown += is_shadow(files[i]) ? 0 : 1;
    return shown;
}

static void print_json_list(FILE *out, const char *key, int count, const char (*files)[96])
{
    fprintf(out, ",\"%s\":[", key);
    const char *divider = "";
    for (int i = 0; i < count; i++) {
        if (is_shadow(files[i]))
            continue;
        fputs(divider, out);
        print_json_text(out, files[i], strlen(files[i]));
        divider = ",";
    }
    fputc(']', out);
}

static void print_json_disk(FILE *out, const udisk_list_t *disk)
{
    fputs("{\"path\":", out);
    print_json_text(out, disk->udisk_path, strlen(disk->udisk_path));
    fputs(",\"name\":", out);
    print_json_text(out, disk->udisk_name, strlen(disk->udisk_name));
    print_json_list(out, "images", disk->imgfile.uimgfile_num, disk->imgfile.uimgfile);
    print_json_list(out, "backups", disk->backfile.ubackfile_num, disk->backfile.ubackfile);
    print_json_list(out, "rcfgx", disk->rcfgfile.urcfgfile_num, disk->rcfgfile.urcfgfile);
    fputc('}', out);
}

static int say_json(const udisk_info_t *info)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *const out = open_memstream(&text, &size);
    if (out == nullptr) {
        complain("the disks can't be listed: %s", strerror(errno));
        return SERVICE_FAILED;
    }
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

int disks_command(bool json)
{
    const std::unique_ptr<udisk_info_t> info(new udisk_info_t{});
    if (get_udisk_all_info(info.get()) != 0) {
        complain("the disks can't be listed");
        return SERVICE_FAILED;
    }
    if (json)
        return say_json(info.get());
    say("%-15s %-31s %6s %7s %5s", "PATH", "NAME", "IMAGES", "BACKUPS", "RCFGX");
    for (int i = 0; i < info->upath_num; i++) {
        const udisk_list_t *const disk = &info->upath[i];
        say("%-15s %-31s %6d %7d %5d", disk->udisk_path, disk->udisk_name,
            count_files(disk->imgfile.uimgfile_num, disk->imgfile.uimgfile),
            count_files(disk->backfile.ubackfile_num, disk->backfile.ubackfile),
            count_files(disk->rcfgfile.urcfgfile_num, disk->rcfgfile.urcfgfile));
    }
    return SERVICE_WELL;
}

static const char *backup_words(int result)
{
    switch (result) {
    case BACKUP_NO_DISK:
        return "the disk can't be opened";
    case BACKUP_NO_ROOM_ON_DEVICE:
        return "too little room on the device: 100,000 KiB are kept free";
    case BACKUP_NO_ROOM_ON_DISK:
        return "too little room on the disk, or no disk is mounted there: 100,000 KiB are kept "
               "free";
    default:
        return "the backup failed; the device's log tells why";
    }
}

static bool holds_nothing(const char *file)
{
    image_file img;
    if (open_image(file, &img) != nullptr)
        return false;
    close(img.fd);
    return img.header.ih_filenum == 0;
}

int backup_command(char *disk)
{
    // The operation looks for the path in the list of what is mounted, which has no '/' at its end.
    for (size_t len = strlen(disk); len > 1 && disk[len - 1] == '/'; len--)
        disk[len - 1] = '\0';
    const std::unique_ptr<char[]> file(new char[strlen(disk) + 129]());
    const int result = do_create_backup(disk, file.get());
    if (result != 0) {
        complain("%s: %s", disk, backup_words(result));
        show_command_output();
        return SERVICE_FAILED;
    }
    // The operation looks for a file of this name alone: a disk that is full has a part of it, and
    // a device without settings an image of nothing.
    const char *const fault = whole_image_fault(file.get());
    const bool empty = holds_nothing(file.get());
    if (fault == nullptr && !empty) {
        say("%s", file.get());
        return SERVICE_WELL;
    }
    if (empty) {
        unlink(file.get());
        complain("%s: nothing was saved: there are no settings below /usr/qrx310/etc", disk);
    } else {
        complain("%s: what was saved %s; make room and save again", file.get(), fault);
    }
    show_command_output();
    return SERVICE_FAILED;
}

static const char *restore_words(int result)
{
    switch (result) {
    case UPDATE_REFUSED:
        return "the directory can't be reached";
    case UPDATE_COPY_FAILED:
        return "an entry can't be written, or the image is damaged";
    default:
        return "the restore failed; the device's log tells why";
    }
}

// A backup carries a version, as every image does, but none of the firmware: the one that stood
// there stands there again behind it.
static bool put_back_version(const char *version)
{
    const int error = configuration_set(CONFIGURATION_PATH, VERSION_KEY, version);
    if (error != 0)
        complain("%s can't be put back to '%s': %s", VERSION_KEY, version, strerror(-error));
    return error == 0;
}

int restore_command(const char *file, char *dir, const test_options *test)
{
    tested_image image;
    if (!take_tested_image(file, test, &image))
        return SERVICE_FAILED;
    char version[CONFIGURATION_VALUE_SIZE] = "";
    const int read = configuration_get(CONFIGURATION_PATH, VERSION_KEY, version, sizeof version);
    if (read != 0 && read != -ENOENT) {
        complain("%s: %s: nothing was touched", CONFIGURATION_PATH, strerror(-read));
        return SERVICE_FAILED;
    }
    const int result = do_update_backup(image.path, dir);
    if (result != 0) {
        complain("%s: %s", file, restore_words(result));
        show_command_output();
        return SERVICE_FAILED;
    }
    if (!put_back_version(version))
        return SERVICE_FAILED;
    if (has_changed(&image)) {
        complain("%s: it was changed while it was restored; restore it again", file);
        return SERVICE_FAILED;
    }
    say("%s: restored below %s", file, dir);
    return SERVICE_WELL;
}
