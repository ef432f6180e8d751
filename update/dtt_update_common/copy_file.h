// Writing a block of memory to a new file. copy_file_new, which counts the progress meanwhile,
// stands in update_service.h.
#ifndef UPDATE_DTT_UPDATE_COMMON_COPY_FILE_H
#define UPDATE_DTT_UPDATE_COMMON_COPY_FILE_H

#include "upgrade_info.h"

#include <cstddef>
#include <sys/types.h>

// Writes the `nSize` bytes in memory at `source` to the file `dest`, created with mode 0755 less
// the umask. A file that stands there is not shortened: callers remove it first. Returns 0, or -1
// with a trace line; what was written stays.
[[nodiscard]] int copy_file(const char *source, const char *dest, int nSize);

// Writes `len` bytes at `buf` to `fd` and counts `update_info->cur_percent` from 0 to 100. Returns
// the bytes written, or the negative result of the failed write, which leaves the count where it
// was.
[[nodiscard]] ssize_t bb_full_write_new(upgrade_info_t *update_info, int fd, const void *buf,
                                        size_t len);

#endif
