// System V shared memory in a thin wrapper.
#ifndef UPDATE_DTT_UPDATE_COMMON_SHARED_MEMORY_H
#define UPDATE_DTT_UPDATE_COMMON_SHARED_MEMORY_H

// Attaches the segment of key `shmkey` that holds at least `shmsize` bytes, creating it with that
// size and permission 0600 if there is none; the progress block is made for the whole record.
// Returns its address, or null.
[[nodiscard]] char *attach_shm(int shmkey, int shmsize);

// What shmdt(2) returns for `addr`.
int detach_shm(void *addr);

#endif
