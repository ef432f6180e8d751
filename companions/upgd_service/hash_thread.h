// Hashing an image beside its reading and writing, which take about as long.
#ifndef COMPANIONS_HASH_THREAD_H
#define COMPANIONS_HASH_THREAD_H

#include "companions/signature/check.h"

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <pthread.h>

constexpr size_t HASH_BLOCK_SIZE = 256 * 1024; // bytes
constexpr unsigned int HASH_BLOCKS = 8;

// The blocks are filled and hashed in turn. What stands between the two belongs to the thread.
struct hash_thread {
    image_hash hash; // of all blocks, once the thread has ended
    pthread_t thread;
    std::mutex lock;
    std::condition_variable changed;
    unsigned int filled; // blocks so far
    unsigned int hashed; // blocks so far
    bool ended;          // no further block comes
    size_t lengths[HASH_BLOCKS];
    char blocks[HASH_BLOCKS][HASH_BLOCK_SIZE];
};

// Returns 0, or a positive errno if there is no thread.
int start_hash_thread(hash_thread *work);

// The block to be filled next; waits while the thread has all of them.
char *next_hash_block(hash_thread *work);

// Gives the block, with `len` bytes, to the thread. It may still be read.
void hash_block(hash_thread *work, size_t len);

// Waits until all blocks are hashed.
void end_hash_thread(hash_thread *work);

#endif
