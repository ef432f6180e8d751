// Hashing an image beside its reading and writing.
#include "companions/upgd_service/hash_thread.h"

static void *hash_blocks(void *argument)
{
    hash_thread *const work = static_cast<hash_thread *>(argument);
    pthread_mutex_lock(&work->lock);
    while (true) {
        while (work->hashed == work->filled && !work->ended)
            pthread_cond_wait(&work->changed, &work->lock);
        if (work->hashed == work->filled)
            break;
        const unsigned int at = work->hashed % HASH_BLOCKS;
        pthread_mutex_unlock(&work->lock);
        add_to_hash(&work->hash, work->blocks[at], work->lengths[at]);
        pthread_mutex_lock(&work->lock);
        work->hashed++;
        pthread_cond_signal(&work->changed);
    }
    pthread_mutex_unlock(&work->lock);
    return nullptr;
}

int start_hash_thread(hash_thread *work)
{
    start_hash(&work->hash);
    pthread_mutex_init(&work->lock, nullptr);
    pthread_cond_init(&work->changed, nullptr);
    work->filled = 0;
    work->hashed = 0;
    work->ended = false;
    return pthread_create(&work->thread, nullptr, hash_blocks, work);
}

char *next_hash_block(hash_thread *work)
{
    pthread_mutex_lock(&work->lock);
    while (work->filled - work->hashed == HASH_BLOCKS)
        pthread_cond_wait(&work->changed, &work->lock);
    pthread_mutex_unlock(&work->lock);
    return work->blocks[work->filled % HASH_BLOCKS];
}

void hash_block(hash_thread *work, size_t len)
{
    pthread_mutex_lock(&work->lock);
    work->lengths[work->filled % HASH_BLOCKS] = len;
    work->filled++;
    pthread_cond_signal(&work->changed);
    pthread_mutex_unlock(&work->lock);
}

void end_hash_thread(hash_thread *work)
{
    pthread_mutex_lock(&work->lock);
    work->ended = true;
    pthread_cond_signal(&work->changed);
    pthread_mutex_unlock(&work->lock);
    pthread_join(work->thread, nullptr);
}
