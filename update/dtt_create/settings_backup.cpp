// The settings backup: the device's settings go to a USB disk as an image, which is built in a
// scratch tree.
#include "platform/platform.h"
#include "update/dtt_create/command_output.h"
#include "update/dtt_create/create_image.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/shell_words.h"
#include "update_service.h"

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

// Every line names the operation that was called.
static constexpr char OPERATION[] = "do_create_backup";

static constexpr size_t TEXT_SIZE = 128; // of commands, their output, and the backup's paths
static constexpr size_t NAME_SIZE = 32;  // of the device's name and of the time stamp
static constexpr int RESERVE_KIB = 100000;

static int check_disk(const char *udisk_path)
{
    DIR *const dir = opendir(udisk_path);
    if (dir == nullptr) {
        OPERATION_LOG("'%s' can't open. please check path", udisk_path);
        return BACKUP_NO_DISK;
    }
    closedir(dir);
    OPERATION_LOG("build .ubck at udisk: %s ", udisk_path);
    if (!is_shell_safe_word(udisk_path)) {
        OPERATION_LOG("'%s' has no place in a command", udisk_path);
        return BACKUP_FAILED;
    }
    return 0;
}

// Reads a size in KiB from the output of a command; no output is the size 0.
static int read_size(char *command, int *size)
{
    char result_str[TEXT_SIZE] = "";
    if (run_command_return_string(command, result_str) != 0) {
        OPERATION_LOG("get ubackup size faild.");
        return BACKUP_FAILED;
    }
    // A disk of two TiB and more counts as that.
    *size = static_cast<int>(std::clamp<long>(strtol(result_str, nullptr, 10), INT_MIN, INT_MAX));
    return 0;
}

static bool has_room(int avail_size, int uback_size)
{
    return avail_size >= static_cast<long long>(uback_size) + RESERVE_KIB;
}

static int check_room(const char *udisk_path)
{
    int uback_size = 0;
    char du[] = "du -sk /usr/qrx310/etc/ |awk '{print $1}'";
    if (read_size(du, &uback_size) != 0)
        return BACKUP_FAILED;
    OPERATION_LOG("ubackup size    =  %08d Bytes", uback_size);

    int sys_avail_size = 0;
    char df_root[] = " df |grep /dev/root |awk '{print $4}'";
    if (read_size(df_root, &sys_avail_size) != 0)
        return BACKUP_FAILED;
    OPERATION_LOG("sys_avail_size  =  %08d Bytes", sys_avail_size);

    int udisk_avail_size = 0;
    char df_disk[TEXT_SIZE];
    if (!bounded_format(df_disk, sizeof df_disk, " df |grep %s |awk '{print $4}'", udisk_path)) {
        OPERATION_LOG("command too long for <%s>.", udisk_path);
        return BACKUP_FAILED;
    }
    if (read_size(df_disk, &udisk_avail_size) != 0)
        return BACKUP_FAILED;
    OPERATION_LOG("udisk_avail_size = %08d Bytes", udisk_avail_size);

    if (!has_room(sys_avail_size, uback_size)) {
        OPERATION_LOG("sys_avail_size is not enough.resverd size is 100M.");
        return BACKUP_NO_ROOM_ON_DEVICE;
    }
    if (!has_room(udisk_avail_size, uback_size)) {
        OPERATION_LOG("udisk_avail_size is not enough.resverd size is 100M.");
        return BACKUP_NO_ROOM_ON_DISK;
    }
    return 0;
}

// Makes the scratch directory, which nobody else may write to or, for the settings in it, read.
// What stands there after the removal serves if it is a directory of our own; one of a neighbour on
// the board, or a link of his, would have root write where he likes.
static bool own_scratch_directory()
{
    mkdir("/tmp/ubackup", S_IRWXU);
    const int fd = open("/tmp/ubackup", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    struct stat st;
    const bool own = fstat(fd, &st) == 0 && st.st_uid == geteuid() &&
                     (st.st_mode & (S_IWGRP | S_IWOTH)) == 0 && fchmod(fd, S_IRWXU) == 0;
    close(fd);
    return own;
}

static int make_scratch_tree()
{
    OPERATION_LOG("creat dir: /tmp/ubackup");
    my_system("/bin/rm -rf /tmp/ubackup");
    if (!own_scratch_directory()) {
        OPERATION_LOG("/tmp/ubackup is no directory of our own alone: remove it");
        OPERATION_LOG("do_create error !!!");
        return BACKUP_FAILED;
    }
    my_system("/bin/mkdir -p /tmp/ubackup/bkdir/usr/qrx310/etc/sysconf");
    my_system("/bin/cp -rf /usr/qrx310/etc/mcucored /tmp/ubackup/bkdir/usr/qrx310/etc/");
    my_system("/bin/cp -rf /usr/qrx310/etc/vsp /tmp/ubackup/bkdir/usr/qrx310/etc/");
    my_system("/bin/cp -rf /usr/qrx310/etc/sysconf/qrxpara "
              "/tmp/ubackup/bkdir/usr/qrx310/etc/sysconf/");
    return 0;
}

// Names the backup, and the path of its image while it is built.
static int name_backup(char (&updfilename)[TEXT_SIZE], char (&updfilepath)[TEXT_SIZE])
{
    if (sysconf_openenv() != 0) {
        OPERATION_LOG("sysconf_open error");
        return BACKUP_FAILED;
    }
    const char *const configured = sysconf_getenv("device_name");
    if (configured == nullptr) {
        OPERATION_LOG("sysconf get env device_name error");
        return BACKUP_FAILED;
    }
    char device_name[NAME_SIZE];
    if (!bounded_copy(device_name, sizeof device_name, configured) ||
        strchr(device_name, '/') != nullptr) {
        OPERATION_LOG("device_name <%s> is no file name of at most 31 characters", configured);
        return BACKUP_FAILED;
    }
    char date[] = "/bin/date +%Y%m%d%H%M";
    char device_id[OUTPUT_LINE_SIZE] = "";
    if (run_command_return_string(date, device_id) != 0) {
        OPERATION_LOG("get ubackup name(date) faild.");
        return BACKUP_FAILED;
    }
    device_id[NAME_SIZE - 1] = '\0';
    if (!bounded_format(updfilename, sizeof updfilename, "%s_%s.ubck", device_name, device_id) ||
        !bounded_format(updfilepath, sizeof updfilepath, "/tmp/ubackup/%s", updfilename) ||
        !is_shell_safe_word(updfilepath)) {
        OPERATION_LOG("'%s' has no place in a command", updfilepath);
        return BACKUP_FAILED;
    }
    OPERATION_LOG("begin to create updfilename = %s ", updfilename);
    return 0;
}

// A sync has a FAT disk write the file's name and length last, and leaves them in the disk's cache.
static bool is_on_medium(const char *path)
{
    const int fd = open(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const bool synced = fd >= 0 && safe_fsync(fd) == 0;
    if (fd >= 0)
        close(fd);
    return synced;
}

// Packs the scratch tree and copies the image to the disk.
static int build_backup(const char *udisk_path, const char *updfilename, char *updfilepath,
                        char *ret_filename)
{
    OPERATION_LOG("do_create %s, chdir to /tmp/ubackup/bkdir", updfilepath);
    char updatedir[] = ".";
    // Where the scratch tree can't be entered, "." is the service's own directory.
    if (chdir("/tmp/ubackup/bkdir/") != 0 ||
        do_create(updatedir, ONLINE_MODE, updfilepath, PLACE_ROOTFS, nullptr, nullptr) != 0) {
        OPERATION_LOG("do_create error !!!");
        return BACKUP_FAILED;
    }
    // Nothing behind it depends on the working directory.
    static_cast<void>(!chdir("/tmp/"));
    if (access(udisk_path, F_OK) != 0 || access(updfilepath, F_OK) != 0) {
        OPERATION_LOG("accessing img is not  F_OK");
        return BACKUP_FAILED;
    }
    char command[TEXT_SIZE];
    if (!bounded_format(command, sizeof command, "/bin/cp -rf %s %s", updfilepath, udisk_path)) {
        OPERATION_LOG("command too long for <%s>.", updfilepath);
        return BACKUP_FAILED;
    }
    my_system(command);
    my_system("sync");

    // The caller has made room for just this.
    const size_t size = strlen(udisk_path) + 1 + strlen(updfilename) + 1;
    const bool copied = bounded_format(ret_filename, size, "%s/%s", udisk_path, updfilename) &&
                        access(ret_filename, F_OK) == 0 && is_on_medium(ret_filename);
    OPERATION_LOG(copied ? "do_create ubck success !" : "do_create ubck faild !");
    OPERATION_LOG("return .ubck file: %s", copied ? ret_filename : "");
    return copied ? 0 : BACKUP_FAILED;
}

static int create_backup(const char *udisk_path, char *ret_filename)
{
    int result = check_disk(udisk_path);
    if (result == 0)
        result = check_room(udisk_path);
    if (result == 0)
        result = make_scratch_tree();
    if (result != 0)
        return result;
    char updfilename[TEXT_SIZE];
    char updfilepath[TEXT_SIZE];
    // After a failure here the scratch tree stays until the next backup.
    if (name_backup(updfilename, updfilepath) != 0)
        return BACKUP_FAILED;
    result = build_backup(udisk_path, updfilename, updfilepath, ret_filename);
    OPERATION_LOG("remove dir: /tmp/ubackup");
    my_system("/bin/rm -rf /tmp/ubackup");
    return result;
}

int do_create_backup(char *udisk_path, char *ret_filename)
{
    OPERATION_LOG("START");
    const int result = create_backup(udisk_path, ret_filename);
    OPERATION_LOG("END");
    return result;
}
