// The USB disks.
#include "companions/owners.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/json_line.h"
#include "update/dtt_update_common/header_text.h"
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
#include <vector>

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

// The files of a list that are a person's own.
static std::vector<const char *> shown_files(const file_list &list)
{
    std::vector<const char *> shown;
    std::copy_if(list.files, list.files + list.count, std::back_inserter(shown),
                 [](const char *file) { return !is_shadow(file); });
    return shown;
}

// The version of an image, or what is wrong with it.
static std::string version_of(const char *file)
{
    image_file img;
    const char *const fault = open_image(file, &img);
    const descriptor opened(img.fd);
    return fault != nullptr ? fault : text_of(img.header.ih_version).text;
}

static void print_json_disk(FILE *out, const udisk_list_t *disk)
{
    print_json_text(out, "{\"path\":", disk->udisk_path);
    print_json_text(out, ",\"name\":", disk->udisk_name);
    for (const file_list &list : lists_of(disk))
        print_json_list(out, (std::string(",\"") + list.key + "\":[").c_str(), shown_files(list),
                        [out](const char *file) { print_json_text(out, "", file); });
    print_json_list(
        out, ",\"versions\":[", shown_files(lists_of(disk)[0]),
        [out](const char *file) { print_json_text(out, "", version_of(file).c_str()); });
    fputc('}', out);
}

int disks_command(const service_call *call)
{
    const std::unique_ptr<udisk_info_t> info(new udisk_info_t{});
    if (get_udisk_all_info(info.get()) != 0)
        return fail("the disks can't be listed");
    const std::vector<udisk_list_t> disks(info->upath, info->upath + info->upath_num);
    if (call->json != 0) {
        const bool said = say_json([&](FILE *out) {
            print_json_list(out, "[", disks,
                            [out](const udisk_list_t &disk) { print_json_disk(out, &disk); });
        });
        return said ? SERVICE_WELL : SERVICE_FAILED;
    }
    if (disks.empty())
        say("no disk: none of those mounted on /mnt/sd* is in /proc/diskstats");
    else
        say("%-15s %-31s %6s %7s %5s", "PATH", "NAME", "IMAGES", "BACKUPS", "RCFGX");
    for (const udisk_list_t &disk : disks) {
        const auto [images, backups, rcfgx] = lists_of(&disk);
        say("%-15s %-31s %6zu %7zu %5zu", disk.udisk_path, disk.udisk_name,
            shown_files(images).size(), shown_files(backups).size(), shown_files(rcfgx).size());
        for (const char *file : shown_files(images))
            say("  %s: %s", last_component(file), version_of(file).c_str());
    }
    return SERVICE_WELL;
}
