// The messages of an update run.
#include "update/dtt_update/device_messages.h"

#include "update/dtt_update_common/task_id.h"
#include "update/dtt_update_common/trace_log.h"

#include <cstdlib>
#include <cstring>
#include <pthread.h>

static pthread_mutex_t mtx = PTHREAD_MUTEX_INITIALIZER;

int ipc_event_send_upgmsg(aptid_t aptid, upgrade_msg_t *msg, unsigned short l, unsigned short s)
{
    if (msg == nullptr)
        return -1;
    msg->head.ui_id = task_on_this_board(MODULE_USER_INTERFACE);
    msg->head.size = sizeof *msg;
    msg->lable.lb.dtl.large = l;
    msg->lable.lb.dtl.small = s;
    return apipc_send(aptid, msg, sizeof *msg);
}

static uint16_t next_sequence_number()
{
    static uint16_t seq = 0;
    pthread_mutex_lock(&mtx);
    const uint16_t number = seq++;
    pthread_mutex_unlock(&mtx);
    return number;
}

int ipc_send_card_update(unsigned char cmd, unsigned char slot, unsigned short model,
                         unsigned int addr, unsigned int length, unsigned char *data)
{
    // The sums below must not wrap round.
    if (data == nullptr || length > INT32_MAX - sizeof(stApMsg))
        return -1;
    const unsigned int size = length + static_cast<unsigned int>(sizeof(stApMsg));
    char *const message = static_cast<char *>(calloc(1, size));
    if (message == nullptr)
        return -1;

    stApMsg head = {};
    head.head.ui_id = task_on_this_board(MODULE_USER_INTERFACE);
    head.head.size = static_cast<int>(size);
    head.lable.lb.dtl.large = LABEL_MSG;
    head.lable.lb.dtl.small = LABEL_MSG_LOCAL;
    head.lable.size = static_cast<int>(length + sizeof head.kmddata);
    head.kmddata.pid = static_cast<uint8_t>(head.head.ui_id >> 8);
    head.kmddata.id = cmd;
    head.kmddata.cmd = CMD_UPDATE;
    head.kmddata.slot = slot;
    head.kmddata.model = model;
    head.kmddata.seq = next_sequence_number();
    head.kmddata.addr = addr;
    head.kmddata.len = static_cast<uint16_t>(length);
    memcpy(message, &head, STAPMSG_DATA_OFFSET);
    memcpy(message + STAPMSG_DATA_OFFSET, data, length);

    const int result = apipc_send(task_on_this_board(MODULE_CARDS), message, size);
    free(message);
    if (result != 0)
        TRACE("QX7_FPGA_WriteBlock: send_msg_to_kmd error :%d\n", result);
    return result;
}
