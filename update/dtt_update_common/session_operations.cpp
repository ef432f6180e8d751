// Messages to the session of a task.
#include "update/dtt_update_common/session_operations.h"

#include "device_msg.h"
#include "update/dtt_update_common/platform_log.h"

#include <cstring>

apsess_id_t Simdc_sess_id(aptid_t pid, const char *qname)
{
    apsess_id_t id = 0;
    apsess_key_t key = {};
    apsess_key_init(&key, &pid, qname, 0, 0, 0);
    const int result = apsess_find(&id, &key, 0);
    PLATFORM_LOG("Session ID get:0x%x TID:0x%x (%d)", id, pid, result);
    return id;
}

int Simdc_sess_send(apsess_id_t sess_id, apmsg_t *apmsg, unsigned char *bufp)
{
    PLATFORM_LOG("0x%x", sess_id);
    apmsg_detach(apmsg, bufp);
    int result = 0;
    if (apmsg_atomic_send(sess_id, apmsg, -1) < 0) {
        apmsg_free(apmsg);
        result = -1;
    }
    PLATFORM_LOG("%d", result);
    return result;
}

int Simdc_lbl_edit(unsigned char *bufp, int large, int small, int size)
{
    Flabel_t label = {};
    label.lb.dtl.large = static_cast<uint16_t>(large);
    label.lb.dtl.small = static_cast<uint16_t>(small);
    label.size = size;
    memcpy(bufp, &label, sizeof label);
    return sizeof label;
}
