// The state of a service run that its parts share: the one event message, and the presence of the
// USB disk, which the resident service keeps up to date. get_upgd_msg, get_usb_status and
// set_usb_status stand in update_service.h.
#ifndef UPDATE_DTT_UPDATE_SERVICE_RUN_H
#define UPDATE_DTT_UPDATE_SERVICE_RUN_H

#include "device_msg.h"

// Who is told of a run, and the message that is sent. An event that is lost holds nothing up.
struct event_receiver {
    aptid_t uid;
    upgrade_msg_t *msg;
};

// Sets the run's step, an UPGD_ code, and sends the event.
void send_step(const event_receiver *to, int step);

// Sets the run's result to `code` and sends the event.
void send_result(const event_receiver *to, int code);

// The same two seconds later, when a disk that has been pulled is known to be gone: that takes
// precedence over `code`, which is then only what came of it.
void report_failure(const event_receiver *to, int code);

#endif
