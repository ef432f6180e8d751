// Writing a block of memory to a new file.
#ifndef DTT_UPDATE_COMMON_COPY_FILE_H
#define DTT_UPDATE_COMMON_COPY_FILE_H

// Writes the `nSize` bytes in memory at `source` to the file `dest`, created with mode 0755 less
// the umask. A file that stands there is not shortened: callers remove it first. Returns 0, or -1
// with a trace line; what was written stays.
int copy_file(const char *source, const char *dest, int nSize);

#endif
