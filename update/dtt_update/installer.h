// Bringing the boot loader and the kernel files of an unpacked image to where the board boots from,
// and recording the image's version. All of it works through shell commands; a command has failed
// only if it could not be run at all. Whether the mount point could be made is not looked at.
#ifndef UPDATE_DTT_UPDATE_INSTALLER_H
#define UPDATE_DTT_UPDATE_INSTALLER_H

#include "update_header.h"

// Kernel files that the current run has tried to copy. The engines set it to 0 when a run starts;
// while it is 0, the next kernel file prepares the partition.
extern int ker_img_num;

// Installs the unpacked file `filename`, its full path, if its entry's type is ENTRY_BOOT or
// ENTRY_KERNEL. A file that can't be accessed is passed over. Returns
// 0 if nothing failed or nothing was to be done, UPDATE_BOOT_FAILED or
// UPDATE_KERNEL_FAILED. The kernel
// partition stays mounted on /mntker.
[[nodiscard]] int update_LinuxFile(int type, char *filename);

// Records the version in `pheader` in the device's configuration. Returns what my_system returned,
// which fails no run: the image is on the device by then.
int update_fw_version(update_header_t *pheader);

#endif
