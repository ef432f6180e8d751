// A look at the files of the kernel partition. Where it is not mounted, it is mounted for reading
// by a child in a mount namespace of its own: nobody else sees the mount, and it goes with the
// child. No run is at work meanwhile (run_lock.h). Mounting a partition that was not unmounted has
// the kernel replay its journal.
#ifndef COMPANIONS_COMPARE_KERNEL_LOOK_H
#define COMPANIONS_COMPARE_KERNEL_LOOK_H

#include <cstddef>
#include <cstdint>
#include <sys/stat.h>
#include <sys/statvfs.h>

struct kernel_file {
    char name[256];
    int error;      // errno, or 0
    struct stat st; // `st_mode` is 0 if there is none
    uint32_t sum;   // CRC-32 of the whole file
};

struct kernel_look {
    size_t count;
    kernel_file *files; // the caller fills in the names
    struct statvfs fs;
    dev_t device;
    bool in_run; // the caller holds the lock of a run
};

// Makes room for `count` files, which end_look releases. Returns false if there is no memory.
[[nodiscard]] bool begin_look(kernel_look *look, size_t count);

// Fills in the rest. Returns null, or in words why the partition can't be looked at.
[[nodiscard]] const char *take_look(kernel_look *look);

void end_look(kernel_look *look);

#endif
