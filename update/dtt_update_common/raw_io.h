// The raw system calls that move data. Interrupted calls and short counts are handled here and
// nowhere else.
#ifndef UPDATE_DTT_UPDATE_COMMON_RAW_IO_H
#define UPDATE_DTT_UPDATE_COMMON_RAW_IO_H

#include <cstddef>
#include <sys/types.h>

// write(2), repeated while it fails with EINTR.
[[nodiscard]] ssize_t safe_write(int fd, const void *buf, size_t count);

// Writes what one write takes of the `*len` bytes, not 0, at `*pos` and moves both behind it.
// Returns the number of bytes, or a negative value; a write that takes nothing is a failure with
// EIO.
[[nodiscard]] ssize_t write_some(int fd, const char **pos, size_t *len);

// Writes all `len` bytes. Returns `len`, or the negative result of the failed write; errno is then
// that write's, and what had gone out before stays written.
[[nodiscard]] ssize_t bb_full_write(int fd, const void *buf, size_t len);

// Reads up to `len` bytes at `offset`. Returns their number, which is less than `len` only after an
// error, with errno set, or at the end of the file, with errno 0.
[[nodiscard]] size_t full_pread(int fd, void *buf, size_t len, off_t offset);

// Whether nothing more can be written below the directory: no room, or no inode, is left.
[[nodiscard]] bool is_full(const char *directory);

// fsync(2), repeated while it fails with EINTR.
[[nodiscard]] int safe_fsync(int fd);

#endif
