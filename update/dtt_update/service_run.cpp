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

void send_run_event(aptid_t uid, upgrade_msg_t *msg)
{
    ipc_event_send_upgmsg(uid, msg, LABEL_MSG, LABEL_UDISK_FWARE_UPDATE);
}

void send_result(aptid_t uid, upgrade_msg_t *msg, int code)
{
    msg->upgrade_info.result = code;
    send_run_event(uid, msg);
}

void report_failure(aptid_t uid, upgrade_msg_t *msg, int code)
{
    sleep(2);
    send_result(uid, msg, get_usb_status() ? code : UPGD_ERROR_NODISK);
}
