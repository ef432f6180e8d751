/*
 * The operations that the update system offers to the device's resident service. Each runs on the
 * calling thread and blocks it until it ends. One update, one build or one backup at a time in a
 * process: they share the working directory and process-wide state.
 */
#ifndef UPDATE_SERVICE_H
#define UPDATE_SERVICE_H

#include "upgrade_info.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Attaches the shared progress block, creating it if it does not exist. Returns its address, or
 * null. A block that a peer has created may hold only the first UPGRADE_INFO_SHM_SIZE bytes of an
 * upgrade_info_t by its declared size; the memory page behind it holds the whole record. */
void *get_upgrade_info(void);

/* Detaches a block from get_upgrade_info; null is allowed. The block itself stays. */
void free_upgrade_info(void *info);

#ifdef __cplusplus
}
#endif

#endif
