// The state of a service run that its parts share.
#include "update/dtt_update/service_run.h"

#include "update/dtt_update/device_messages.h"
#include "update_service.h"

#include <unistd.h>

static upgrade_msg_t upgd_msg;

// A plain word, written by the service's threads and read by the run's.
static BOOL gbUsbStatus = FALSE;

upgrade_msg_t *get_upgd_msg(void)
{
    return &upgd_msg;
}

BOOL get_usb_status(void)
{
    return __atomic_load_n(&gbUsbStatus, __ATOMIC_RELAXED);
}

void set_usb_status(BOOL b)
{
    __atomic_store_n(&gbUsbStatus, b, __ATOMIC_RELAXED);
}

static void send_event(const event_receiver *to)
{
    ipc_event_send_upgmsg(to->uid, to->msg, LABEL_MSG, LABEL_UDISK_FWARE_UPDATE);
}

void send_step(const event_receiver *to, int step)
{
    to->msg->update_param.value = step;
    send_event(to);
}

void send_result(const event_receiver *to, int code)
{
    to->msg->upgrade_info.result = code;
    send_event(to);
}

void report_failure(const event_receiver *to, int code)
{
    sleep(2);
    send_result(to, get_usb_status() ? code : UPGD_ERROR_NODISK);
}
