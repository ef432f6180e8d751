// Hashing an image beside its reading and writing.
#include "companions/upgd_service/hash_thread.h"

static void *hash_blocks(void *argument)
{
    hash_thread *const work = static_cast<hash_thread *>(argument);
    std::unique_lock<std::mutex> lock(work->lock);
    while (true) {
        work->changed.wait(lock, [work] { return work->hashed != work->filled || work->ended; });
        if (work->hashed == work->filled)
            return nullptr;
        const unsigned int at = work->hashed % HASH_BLOCKS;
        lock.unlock();
        add_to_hash(&work->hash, work->blocks[at], work->lengths[at]);
        lock.lock();
        work->hashed++;
        work->changed.notify_one();
    }
}

int start_hash_thread(hash_thread *work)
{
    start_hash(&work->hash);
    work->filled = 0;
    work->hashed = 0;
    work->ended = false;
    return pthread_create(&work->thread, nullptr, hash_blocks, work);
}

char *next_hash_block(hash_thread *work)
{
    std::unique_lock<std::mutex> lock(work->lock);
    work->changed.wait(lock, [work] { return work->filled - work->hashed < HASH_BLOCKS; });
    return work->blocks[work->filled % HASH_BLOCKS];
}

void hash_block(hash_thread *work, size_t len)
{
    const std::lock_guard<std::mutex> lock(work->lock);
    work->lengths[work->filled % HASH_BLOCKS] = len;
    work->filled++;
    work->changed.notify_one();
}

void end_hash_thread(hash_thread *work)
{
    {
        const std::lock_guard<std::mutex> lock(work->lock);
        work->ended = true;
        work->changed.notify_one();
    }
    pthread_join(work->thread, nullptr);
}
