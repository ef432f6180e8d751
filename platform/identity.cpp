// Who this process and this board are.
#include "platform/identity.h"

#include "platform/configuration.h"

#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <pthread.h>

// The main board, which is the only one that every device has.
static constexpr apcard_bit_t DEFAULT_CARD_BIT = 1;
// A task id has eight bits for it.
static constexpr unsigned int CARD_BIT_MAX = 255;

static std::atomic<aptid_t> self{0};

int aptid_self_set(aptid_t id)
{
    if (id == 0)
        return -EINVAL;
    self = id;
    return 0;
}

aptid_t task_id_self()
{
    return self;
}

apcard_bit_t configured_card_bit(const char *path)
{
    char text[CONFIGURATION_VALUE_SIZE];
    if (configuration_get(path, "card_bit", text, sizeof text) != 0)
        return DEFAULT_CARD_BIT;

    unsigned int bit = 0;
    const char *const end = text + strlen(text);
    const std::from_chars_result parsed = std::from_chars(text, end, bit);
    if (parsed.ec != std::errc() || parsed.ptr != end || bit > CARD_BIT_MAX)
        return DEFAULT_CARD_BIT;
    return static_cast<apcard_bit_t>(bit);
}

// A board keeps its place, so the file is read once: a message then costs one system call.
static pthread_once_t card_bit_is_known = PTHREAD_ONCE_INIT;
static apcard_bit_t card_bit;

static void read_card_bit()
{
    card_bit = configured_card_bit(CONFIGURATION_PATH);
}

apcard_bit_t apcard_bit_self(void)
{
    pthread_once(&card_bit_is_known, read_card_bit);
    return card_bit;
}
