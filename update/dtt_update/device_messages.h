// The messages of an update run. Their bytes stand in device_msg.h.
#ifndef UPDATE_DTT_UPDATE_DEVICE_MESSAGES_H
#define UPDATE_DTT_UPDATE_DEVICE_MESSAGES_H

#include "device_msg.h"

// Sends `msg` as an event with the large label `l` and the small label `s` to the task `aptid`. The
// head and the label are filled in; all else goes out as it stands. Returns -1 for a null `msg`,
// else what apipc_send returned.
int ipc_event_send_upgmsg(aptid_t aptid, upgrade_msg_t *msg, unsigned short l, unsigned short s);

// Sends a card update request with a payload of the `length` bytes at `data` to the card side of
// this board; `cmd` is its `id`. The card's answer comes through the card firmware table. Returns 0
// if it went out, -1 for a null `data` or without memory, else what apipc_send returned. From any
// thread.
[[nodiscard]] int ipc_send_card_update(unsigned char cmd, unsigned char slot, unsigned short model,
                                       unsigned int addr, unsigned int length, unsigned char *data);

#endif
