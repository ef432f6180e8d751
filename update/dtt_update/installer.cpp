// Bringing the boot loader and the kernel files of an unpacked image to where the board boots from.
#include "update/dtt_update/installer.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/entry_paths.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <sys/stat.h>
#include <unistd.h>

// The lines of this file name the operation that the engines call.
static constexpr char OPERATION[] = "update_LinuxFile";

#define MOUNT_COMMAND "/bin/mount " KERNEL_PARTITION " " KERNEL_MOUNT_POINT "/"

int ker_img_num = 0;

static void command_too_long(const char *filename)
{
    OPERATION_LOG("command too long for <%s>.", filename);
}

static int install_boot_loader(const char *filename)
{
    if (access(filename, F_OK) != 0)
        return 0;
    OPERATION_TRACE(" ---------------------update uboot------------------\n");
    char cmdstr[INSTALL_COMMAND_SIZE];
    if (!install_command(ENTRY_BOOT, filename, cmdstr)) {
        command_too_long(filename);
        return UPDATE_BOOT_FAILED;
    }
    OPERATION_TRACE(" cmdstr=%s \n", cmdstr);
    OPERATION_LOG("cmdstr: %s \n\n", cmdstr);
    if (my_system(cmdstr) == -1) {
        OPERATION_LOG("update faild!!: <%s>.\n", filename);
        return UPDATE_BOOT_FAILED;
    }
    OPERATION_TRACE(" update uboot ok .\n");
    return 0;
}

static int prepare_kernel_partition()
{
    OPERATION_TRACE(" ---------------------update kernel------------------\n");
    struct stat point = {};
    struct stat root = {};
    lstat(KERNEL_MOUNT_POINT, &point);
    stat("/", &root);
    // The partition, left by a run before this one, or what somebody has put in its place.
    if (S_ISDIR(point.st_mode) && point.st_dev != root.st_dev) {
        OPERATION_TRACE(" %s is mounted already.\n", KERNEL_MOUNT_POINT);
        return 0;
    }
    my_system(" /bin/mkdir -p " KERNEL_MOUNT_POINT);
    // What lies behind a link is somebody's.
    if (!S_ISLNK(point.st_mode))
        my_system(" /bin/rm -rf " KERNEL_MOUNT_POINT "/*");
    if (my_system(MOUNT_COMMAND) == -1) {
        OPERATION_LOG(MOUNT_COMMAND " error. \n");
        return UPDATE_KERNEL_FAILED;
    }
    // This line names another device than the command. Scripts read both texts as they are.
    OPERATION_TRACE(" /bin/mount /dev/mmcblk1p6 /mntker/ success.\n");
    return 0;
}

static int copy_kernel_file(const char *filename)
{
    char cmdstr[INSTALL_COMMAND_SIZE];
    if (!install_command(ENTRY_KERNEL, filename, cmdstr)) {
        command_too_long(filename);
        return UPDATE_KERNEL_FAILED;
    }
    OPERATION_LOG("cmdstr: %s \n\n", cmdstr);
    if (my_system(cmdstr) == -1) {
        OPERATION_LOG("/bin/cp %s " KERNEL_MOUNT_POINT "/ error. \n", filename);
        return UPDATE_KERNEL_FAILED;
    }
    return 0;
}

static int install_kernel_file(const char *filename)
{
    if (access(filename, F_OK) != 0) {
        OPERATION_TRACE(" filename(%s) can not access \n", filename);
        return 0;
    }
    // A file is copied after a failed mount too; the failure stands.
    const int prepared = ker_img_num == 0 ? prepare_kernel_partition() : 0;
    if (!is_kernel_file(filename))
        return prepared;
    OPERATION_TRACE("      kernel-%d(%s) \n", ker_img_num, filename);
    const int copied = copy_kernel_file(filename);
    // Counted whether it fails or not: the partition has been prepared for it.
    ker_img_num++;
    return prepared != 0 ? prepared : copied;
}

int update_LinuxFile(int type, char *filename)
{
    switch (type) {
    case ENTRY_BOOT:
        return install_boot_loader(filename);
    case ENTRY_KERNEL:
        return install_kernel_file(filename);
    default:
        return 0;
    }
}

int update_fw_version(update_header_t *pheader)
{
    char command[256];
    return bounded_format(command, sizeof command, "sysconfig set fw_version %s",
                          text_of(pheader->ih_version).text)
               ? my_system(command)
               : -1;
}
