// Which USB disks are really there. get_udisk_all_info stands in update_service.h. The mounting
// side names a mount point after its block device: /mnt/ and the device's name.
#ifndef UPDATE_DTT_CREATE_DISK_INVENTORY_H
#define UPDATE_DTT_CREATE_DISK_INVENTORY_H

// Returns 1 if the kernel knows the block device of the mount path `path`, its second component,
// and 0 if not. The text at `path` is cut up.
int check_udisk_mount_status(char *path);

#endif
