// The settings backup on a USB disk, and its way back.
#include "companions/upgd_service/settings_image.h"

#include "companions/compare/comparison.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/session.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/image_check.h"
#include "update_service.h"

#include <algorithm>
#include <arpa/inet.h>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

static constexpr code_words BACKUP_FAULTS[] = {
    {BACKUP_NO_DISK, "the disk can't be opened"},
    {BACKUP_NO_ROOM_ON_DISK, "too little room on the disk: 100,000 KiB are kept free"},
};

static constexpr code_words RESTORE_FAULTS[] = {
    {UPDATE_REFUSED, "the directory can't be reached"},
    {UPDATE_COPY_FAILED, "an entry can't be written, or the image is damaged"},
};

// Whether a file system is mounted at the path. A path that can't be looked at is the operation's
// to tell.
static bool is_mount_point(const std::string &path)
{
    struct stat here;
    struct stat above;
    return stat(path.c_str(), &here) != 0 || stat((path + "/..").c_str(), &above) != 0 ||
           here.st_dev != above.st_dev;
}

// Why a backup has failed. The operation measures the device's room by a name that its root file
// system need not have.
static const char *backup_fault(int result)
{
    if (result != BACKUP_NO_ROOM_ON_DEVICE)
        return words_for(BACKUP_FAULTS, result, "the backup failed; the device's log tells why");
    return system("df | grep -q /dev/root") == 0
               ? "too little room on the device: 100,000 KiB are kept free"
               : "the room on the device can't be measured: df(1) shows no file system /dev/root";
}

// Whether a builder would store something of the path: a file that is not empty, or a link to one.
// A directory that can't be looked at counts as well.
static bool holds_something(const std::string &path)
{
    struct stat st;
    if (lstat(path.c_str(), &st) != 0)
        return errno != ENOENT;
    if (S_ISREG(st.st_mode))
        return st.st_size > 0;
    if (S_ISLNK(st.st_mode)) {
        char target[LINK_NAME_SIZE];
        const ssize_t len = readlink(path.c_str(), target, sizeof target);
        return len > 0 && path.size() + 2 + static_cast<size_t>(len) < LINK_NAME_SIZE &&
               stat(path.c_str(), &st) == 0 && st.st_size > 0;
    }
    if (!S_ISDIR(st.st_mode))
        return false;
    const directory_stream list(opendir(path.c_str()));
    if (list == nullptr)
        return true;
    errno = 0;
    const std::string below = path + "/";
    while (const dirent *const item = readdir(list.get())) {
        const std::string name = item->d_name;
        if (name != "." && name != ".." && holds_something(below + name))
            return true;
    }
    return errno != 0;
}

// Whether the image, which has no entry of the path or below it, lacks what is saved of it.
static bool is_missed(const std::string &path)
{
    return std::any_of(std::begin(SAVED_SETTINGS), std::end(SAVED_SETTINGS), [&](const char *name) {
        const std::string saved = std::string("/") + SETTINGS_DIRECTORY + name;
        if (saved.compare(0, path.size() + 1, path + "/") == 0)
            return holds_something(saved);
        return (path == saved || path.compare(0, saved.size() + 1, saved + "/") == 0) &&
               holds_something(path);
    });
}

// Compares the backup with the settings that it was made of, both ways. Returns an exit status.
static int compare_backup(const char *file)
{
    image_file img;
    image_sums sums;
    const char *fault = open_image(file, &img);
    const descriptor opened(img.fd);
    if (fault == nullptr)
        fault = sum_image(&img, &sums);
    if (fault == nullptr)
        fault = crc_fault(&img, sums.body());
    if (fault != nullptr)
        return fail("%s: %s; make room and save again", file, fault);
    size_t findings = 0;
    const compared c = compare_with_device(
        &img, &sums, "/", COMPARE_CONTENTS | COMPARE_EXTRA, [&](const finding &found) {
            if (found.kind == FOUND_SAME || (found.kind == FOUND_EXTRA && !is_missed(found.path)))
                return true;
            if (is_told(findings++))
                complain("%s: %s", found.path,
                         found.kind == FOUND_EXTRA ? "was not saved"
                                                   : FINDING_NAMES[found.kind].words);
            return true;
        });
    for (const char *name : SAVED_SETTINGS) {
        const std::string path = std::string("/") + SETTINGS_DIRECTORY + name;
        if (ntohl(img.header.ih_filenum) == 0 && holds_something(path))
            findings++;
    }
    if (c.fault != nullptr)
        return fail("%s: entry %u: %s; save again", file, c.broken, c.fault);
    if (findings > 0)
        return fail("%s: is not what the settings are: mend that, and save again", file);
    if (ntohl(img.header.ih_filenum) != 0)
        return SERVICE_WELL;
    unlink(file);
    return fail("nothing was saved: there are no settings below /%s", SETTINGS_DIRECTORY);
}

int backup_command(const service_call *call)
{
    // The operation looks for the path in the list of what is mounted, which has no '/' at its end.
    std::string disk = call->words[0];
    disk.resize(std::max<size_t>(disk.find_last_not_of('/') + 1, 1));
    if (!is_mount_point(disk))
        return fail("%s: no disk is mounted there: nothing was saved", disk.c_str());
    // Settings are for nobody else, where the disk's file system knows of users.
    umask(S_IRWXG | S_IRWXO);
    std::string room(disk.size() + 129, '\0');
    const int result = do_create_backup(disk.data(), room.data());
    const char *const file = room.c_str();
    if (result != 0)
        fail("%s: %s", disk.c_str(), backup_fault(result));
    const int status = result == 0 ? compare_backup(file) : SERVICE_FAILED;
    if (status == SERVICE_WELL)
        say("%s", file);
    else
        show_command_output();
    return status;
}

// The version is the firmware's and stays so at every moment: the copy that is restored carries it.
// Returns false with a sentence.
static bool carry_version(tested_image *image, const std::string &version)
{
    char *const field = reinterpret_cast<char *>(image->img.header.ih_version);
    const off_t at = offsetof(update_header_t, ih_version);
    if (version.size() > IH_NMLEN)
        return refuse("", "%s: %s is too long to be kept", image->name, VERSION_KEY);
    memset(field, 0, IH_NMLEN);
    memcpy(field, version.data(), version.size());
    return pwrite(image->file.get(), field, IH_NMLEN, at) == IH_NMLEN ||
           refuse("", "%s: can't be kept while it is applied: %s", image->name, strerror(errno));
}

// Returns an exit status.
static int restore_image(tested_image *image, const std::string &dir, const std::string &version)
{
    std::string place = dir; // which the operation takes as text that can be changed
    interrupts interrupted([] {}, [] {});
    if (!interrupted.begin())
        return SERVICE_FAILED;
    const int result = do_update_backup(image->path, place.data());
    if (result != 0) {
        fail("%s: %s", image->name,
             words_for(RESTORE_FAULTS, result, "the restore failed; the device's log tells why"));
        show_command_output();
        return SERVICE_FAILED;
    }
    const bool recorded = version_is_recorded(image, version);
    const int status = compare_applied(image, dir.c_str(), "restored", interrupted);
    return status == SERVICE_WELL && !recorded ? SERVICE_FAILED : status;
}

int restore_command(const service_call *call)
{
    service_call restore = *call;
    restore.dir = call->words[1] != nullptr ? absolute_path(call->words[1]) : "/";
    restore.cards.mode = CARDS_SIMULATE; // no card is flashed
    session session;
    tested_image image;
    update_plan plan;
    std::string version;
    if (!session.begin("restore") ||
        !take_tested_image(&restore, USE_RESTORE, restore.dir.c_str(), &image) ||
        !read_setting(VERSION_KEY, &version) || !carry_version(&image, version) ||
        !test_plan(&image, &restore, &plan))
        return SERVICE_FAILED;
    return restore_image(&image, restore.dir, version);
}
