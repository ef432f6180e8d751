// The device's fixed places. Commands are put together from them, so they are literals.
#ifndef UPDATE_DTT_UPDATE_COMMON_DEVICE_PATHS_H
#define UPDATE_DTT_UPDATE_COMMON_DEVICE_PATHS_H

#define BOOT_PARTITION "/dev/mmcblk0p1"
#define KERNEL_PARTITION "/dev/mmcblk0p6"
#define KERNEL_MOUNT_POINT "/mntker"
#define BASE_DIRECTORY "/opt/upgddir/"         // that an update is unpacked below
#define UPDATE_FLAG_PATH "/usr/local/upgdflag" // how far the last update has come
#define RUN_LOCK_PATH "/run/img_deploy.lock"   // held by a run

#endif
