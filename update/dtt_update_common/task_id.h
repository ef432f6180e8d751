// Ids of tasks.
#ifndef UPDATE_DTT_UPDATE_COMMON_TASK_ID_H
#define UPDATE_DTT_UPDATE_COMMON_TASK_ID_H

#include "device_msg.h"
#include "platform/platform.h"

// The id of the task of `module`, one of MODULE_..., on this board.
inline aptid_t task_on_this_board(aptid_t module)
{
    return static_cast<aptid_t>(apcard_bit_self()) << 24 | module;
}

#endif
