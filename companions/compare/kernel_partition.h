// The kernel partition, to be looked at.
#ifndef COMPANIONS_COMPARE_KERNEL_PARTITION_H
#define COMPANIONS_COMPARE_KERNEL_PARTITION_H

#include "companions/owners.h"

// Opens the partition's top directory: what is mounted on /mntker, or else the partition itself,
// which is mounted for reading and nowhere to be found. It is let go when `*top` is closed. Returns
// null, or in words why it can't be looked at; `*top` is none then.
[[nodiscard]] const char *open_kernel_partition(descriptor *top);

#endif
