// Messages to a session, which here is a task with a mailbox.
#include "platform/platform.h"

#include "platform/mailbox.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

enum message_stage : unsigned int {
    MESSAGE_EMPTY,   // without a buffer
    MESSAGE_FILLING, // the caller fills the buffer
    MESSAGE_READY    // filled, to be sent or released
};

// What the opaque record of a message holds. `buffer` and `size` count in the last two stages only.
struct message_state {
    void *buffer;
    unsigned int size;
    message_stage stage;
};
static_assert(sizeof(message_state) <= sizeof(apmsg_t::ctl), "the state is kept in `ctl`");

// The record is an array of characters on the caller's stack, with no alignment to rely on.
static message_state load_state(const apmsg_t *apmsg)
{
    message_state state;
    memcpy(&state, apmsg->ctl, sizeof state);
    return state;
}

static void store_state(apmsg_t *apmsg, message_state state)
{
    memcpy(apmsg->ctl, &state, sizeof state);
}

int apmsg_init(apmsg_t *apmsg)
{
    if (apmsg == nullptr)
        return -EINVAL;
    *apmsg = {};
    store_state(apmsg, {nullptr, 0, MESSAGE_EMPTY});
    return 0;
}

void *apmsg_alloc(apmsg_t *apmsg, unsigned int size)
{
    if (apmsg == nullptr || size == 0 || load_state(apmsg).stage != MESSAGE_EMPTY)
        return nullptr;
    void *const buffer = malloc(size);
    if (buffer != nullptr)
        store_state(apmsg, {buffer, size, MESSAGE_FILLING});
    return buffer;
}

int apmsg_detach(apmsg_t *apmsg, void *buf)
{
    if (apmsg == nullptr)
        return -EINVAL;
    message_state state = load_state(apmsg);
    if (state.stage == MESSAGE_EMPTY || buf != state.buffer)
        return -EINVAL;
    state.stage = MESSAGE_READY;
    store_state(apmsg, state);
    return 0;
}

// `flag` has no meaning to a datagram.
int apmsg_atomic_send(apsess_id_t sess, apmsg_t *apmsg, int /*flag*/)
{
    if (apmsg == nullptr)
        return -EINVAL;
    const message_state state = load_state(apmsg);
    if (state.stage != MESSAGE_READY)
        return -EINVAL;
    const int result = apipc_send(sess, state.buffer, state.size);
    return result < 0 ? result : apmsg_free(apmsg);
}

int apmsg_free(apmsg_t *apmsg)
{
    if (apmsg == nullptr)
        return -EINVAL;
    const message_state state = load_state(apmsg);
    if (state.stage == MESSAGE_EMPTY)
        return -EINVAL;
    free(state.buffer);
    store_state(apmsg, {nullptr, 0, MESSAGE_EMPTY});
    return 0;
}

int apsess_key_init(apsess_key_t *key, aptid_t *pid, const char *qname, int /*a*/, int /*b*/,
                    int /*c*/)
{
    if (key == nullptr || pid == nullptr)
        return -EINVAL;
    const size_t len = qname == nullptr ? 0 : strlen(qname);
    if (len >= sizeof key->qname)
        return -EINVAL;
    *key = {};
    key->pid = *pid;
    if (len > 0)
        memcpy(key->qname, qname, len);
    return 0;
}

// A task has one mailbox and so one session: the name in the key tells nothing apart.
int apsess_find(apsess_id_t *id, apsess_key_t *key, int /*flag*/)
{
    if (id == nullptr || key == nullptr)
        return -EINVAL;
    const int result = mailbox_probe(mailbox_of(key->pid).text);
    if (result == 0)
        *id = key->pid;
    return result;
}
