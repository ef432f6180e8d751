// Compressing the body of an image in place, and expanding it again, with gzip and gunzip on fixed
// temporary files: one operation at a time in the whole system. gzip_dirs_and_files and
// open_gunzip_file stand in update_service.h; these are the two halves of the first.
#ifndef UPDATE_DTT_CREATE_BODY_COMPRESSION_H
#define UPDATE_DTT_CREATE_BODY_COMPRESSION_H

#include <cstddef>

// Moves the `data_len` bytes behind the first `head_len` of the file open on `cut_file_fd` to
// `tmp_file` and cuts the file there. Returns 0, be it that the file could not be cut, or -1 with a
// trace line and the file unchanged.
[[nodiscard]] int cut_file(int cut_file_fd, size_t head_len, size_t data_len, const char *tmp_file);

// Writes the whole of `tmp_file`, a plain file of the process's user, to the file open on
// `cut_file_fd`, from `head_len` on. Returns 0, or -1 with a trace line.
[[nodiscard]] int combine_file(int cut_file_fd, size_t head_len, const char *tmp_file);

#endif
