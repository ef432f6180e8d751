// The USB disk messages: a fresh inventory for the task that receives them.
#include "device_msg.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/session_operations.h"
#include "update/dtt_update_common/task_id.h"
#include "update_service.h"

#include <cstdio>
#include <cstring>

static constexpr unsigned int MESSAGE_SIZE =
    sizeof(ihead_t) + sizeof(Flabel_t) + sizeof(udisk_info_t);
static_assert(MESSAGE_SIZE == 9616, "the USB disk message");

// What a message says beside the inventory.
struct disk_message {
    const char *operation; // that was called, for the log
    int large;             // label
    int small;
    bool has_event;
    int ev;
    const char *name; // of the event, or null
};

static void log_labels(const disk_message *message)
{
    const char *const operation = message->operation;
    PLATFORM_LOG_AS(operation, "label edit: large label=%d, small label=%d ", message->large,
                    message->small);
    PLATFORM_LOG_AS(operation, "small label: LABEL_UDISK_HOTPLUG    \t (2)");
    PLATFORM_LOG_AS(operation, "\t\t\t  LABEL_UDISK_ALL_INFO   \t (3)");
    PLATFORM_LOG_AS(operation, "\t\t\t  LABEL_UDISK_UBACK_CREAT    (4)");
    PLATFORM_LOG_AS(operation, "\t\t\t  LABEL_UDISK_UBACK_RELOAD   (5)");
    PLATFORM_LOG_AS(operation, "\t\t\t  LABEL_UDISK_FWARE_UPDATE   (6)");
}

static void store_event(const disk_message *message, Fimd_event_t *event)
{
    event->ev = message->ev;
    PLATFORM_LOG_AS(message->operation, "data edit: udisk_info->event.ev= %d", event->ev);
    if (message->name == nullptr)
        return;
    snprintf(event->name, sizeof event->name, "%s", message->name);
    PLATFORM_LOG_AS(message->operation, "data edit: udisk_info->event.name = %s", event->name);
}

static int send_to(aptid_t receiver, const disk_message *message)
{
    apmsg_t apmsg;
    apmsg_init(&apmsg);
    unsigned char *const dt = static_cast<unsigned char *>(apmsg_alloc(&apmsg, MESSAGE_SIZE));
    if (dt == nullptr)
        return -1;
    // What the inventory does not write must not carry another message's bytes out.
    memset(dt, 0, MESSAGE_SIZE);
    unsigned char *const l = dt + sizeof(ihead_t);
    udisk_info_t *const udisk_info = reinterpret_cast<udisk_info_t *>(l + sizeof(Flabel_t));
    if (message->has_event)
        log_labels(message);
    else
        puts("send label udisk...");
    Simdc_lbl_edit(l, message->large, message->small, sizeof *udisk_info);
    int ret = get_udisk_all_info(udisk_info);
    if (message->has_event)
        store_event(message, &udisk_info->event);

    const apsess_id_t sess_id = Simdc_sess_id(receiver, nullptr);
    if (sess_id != 0) {
        ret = Simdc_sess_send(sess_id, &apmsg, dt);
        if (ret != 0)
            PLATFORM_LOG_AS(message->operation, "Simdc_sess_send(0x%x) failed...", receiver);
    } else {
        PLATFORM_LOG_AS(message->operation, "Simdc_sess_id(0x%x) failed...", receiver);
        apmsg_detach(&apmsg, dt);
        apmsg_free(&apmsg);
    }
    return ret;
}

static int send_to_all(const disk_message *message)
{
    const int msg_notify[] = {static_cast<int>(task_on_this_board(MODULE_UDISK)), -1};
    int ret = 0;
    PLATFORM_LOG_AS(message->operation, "start");
    for (int i = 0; msg_notify[i] != -1; i++)
        ret = send_to(static_cast<aptid_t>(msg_notify[i]), message);
    PLATFORM_LOG_AS(message->operation, "end");
    return ret;
}

int sendmsg_ack_back(int l_l, int s_l, int ev, char *name)
{
    const disk_message message = {__func__, l_l, s_l, true, ev, name};
    return send_to_all(&message);
}

int sendmsg_udisk_all_info(void)
{
    const disk_message message = {__func__, LABEL_UDISK, LABEL_UDISK_ALL_INFO, false, 0, nullptr};
    return send_to_all(&message);
}
