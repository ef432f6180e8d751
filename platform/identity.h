// Who this process and this board are, for the other files of this directory.
#ifndef PLATFORM_IDENTITY_H
#define PLATFORM_IDENTITY_H

#include "platform/platform.h"

// The id that aptid_self_set has given to this process, or 0.
aptid_t task_id_self();

// The card bit in the configuration file `path`: 0 to 255, and 1 if there is none or if it is no
// such number.
apcard_bit_t configured_card_bit(const char *path);

#endif
