/*
 * The progress record of an apply run: five ints in the processor's byte order. It stands in the
 * shared progress block, a System V shared memory segment that outlives the run, and in the event
 * message of a service run. The values below are those of the shared block.
 */
#ifndef INCLUDE_UPGRADE_INFO_H
#define INCLUDE_UPGRADE_INFO_H

#include <assert.h>
#include <stddef.h>

/* Values of `result`. */
enum { RUN_STARTED = -1, RUN_UNPACKING = 0, RUN_DONE = 1, RUN_FAILED = 2 };

typedef struct upgrade_info {
    int file_nums;   /* entries of the image */
    int cur_nums;    /* entries finished so far, card firmware not counted */
    int result;      /* RUN_... */
    int cur_percent; /* current entry: 0 at its start, 100 when its data is written */
    int failed_nums; /* entries whose file could not be written */
} upgrade_info_t;

static_assert(sizeof(upgrade_info_t) == 20, "upgrade_info_t is a record of other processes");
static_assert(offsetof(upgrade_info_t, file_nums) == 0, "file_nums");
static_assert(offsetof(upgrade_info_t, cur_nums) == 4, "cur_nums");
static_assert(offsetof(upgrade_info_t, result) == 8, "result");
static_assert(offsetof(upgrade_info_t, cur_percent) == 12, "cur_percent");
static_assert(offsetof(upgrade_info_t, failed_nums) == 16, "failed_nums");

/* Key of the shared progress block, and the size that a reader can count on: a peer may have
 * created the segment for the first four fields alone. */
#define UPGRADE_INFO_SHM_KEY 0x600001
#define UPGRADE_INFO_SHM_SIZE (sizeof(upgrade_info_t) - 4)

#endif
