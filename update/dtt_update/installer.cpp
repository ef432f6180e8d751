// Bringing the boot loader and the kernel files of an unpacked image to where the board boots from.
#include "update/dtt_update/installer.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/entry_paths.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

// The lines of this file name the operation that the engines call.
static constexpr char OPERATION[] = "update_LinuxFile";

static constexpr char MOUNT_POINT[] = "/mntker";

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

enum mount_state { MOUNT_FREE, MOUNT_TAKEN, MOUNT_UNKNOWN };

// Whether something is mounted on the mount point: the partition, left by a run before this one, or
// what somebody has put in its place.
static mount_state look_at_mount_point()
{
    char real[PATH_MAX];
    const char *const point = realpath(MOUNT_POINT, real) != nullptr ? real : MOUNT_POINT;
    FILE *const mounts = fopen("/proc/self/mountinfo", "re");
    if (mounts == nullptr)
        return MOUNT_UNKNOWN;
    // A link in the mount point's place leads to files that are somebody's.
    mount_state state = strcmp(point, MOUNT_POINT) == 0 ? MOUNT_FREE : MOUNT_UNKNOWN;
    char *line = nullptr;
    size_t size = 0;
    while (state != MOUNT_TAKEN && getline(&line, &size, mounts) >= 0) {
        char place[PATH_MAX];
        if (sscanf(line, "%*s %*s %*s %*s %4095s", place) == 1 && strcmp(place, point) == 0)
            state = MOUNT_TAKEN;
    }
    free(line);
    fclose(mounts);
    return state;
}

static int prepare_kernel_partition()
{
    OPERATION_TRACE(" ---------------------update kernel------------------\n");
    const mount_state state = look_at_mount_point();
    if (state == MOUNT_TAKEN) {
        OPERATION_TRACE(" %s is mounted already.\n", MOUNT_POINT);
        return 0;
    }
    my_system(" /bin/mkdir -p /mntker");
    // What a removal would reach behind a mount is the partition itself.
    if (state == MOUNT_FREE)
        my_system(" /bin/rm -rf /mntker/*");
    if (my_system("/bin/mount /dev/mmcblk0p6 /mntker/") == -1) {
        OPERATION_LOG("/bin/mount /dev/mmcblk0p6 /mntker/ error. \n");
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
        OPERATION_LOG("/bin/cp %s /mntker/ error. \n", filename);
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
    // The field may lack a terminator.
    known_to_fit(bounded_format(command, sizeof command, "sysconfig set fw_version %.*s", IH_NMLEN,
                                reinterpret_cast<const char *>(pheader->ih_version)));
    return my_system(command);
}
