// The card stage of a service run.
#include "update/dtt_update/card_sequencer.h"

#include "update/dtt_update/card_table.h"
#include "update/dtt_update/device_messages.h"
#include "update/dtt_update/service_run.h"
#include "update/dtt_update_common/card_kinds.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <cstring>
#include <sys/select.h>

static constexpr int STAGE_PERCENT = 900; // of the run's 1000
static constexpr int POLL_US = 10000;
static constexpr int COMMAND_FLASH = 254;

static bool has_file(const type_patch_t *row)
{
    return row->file_patch[0] != '\0';
}

static int count_files()
{
    int count = 0;
    for (int i = 0; i < CARD_TYPES; i++)
        count += has_file(&type_patch[i]) ? 1 : 0;
    return count;
}

static int send_request(const type_patch_t *row, const card_kind *kind)
{
    stPmdFile file = {};
    file.file_type = row->file_type;
    memcpy(file.file_patch, row->file_patch, sizeof file.file_patch);
    return ipc_send_card_update(COMMAND_FLASH, kind->slot, kind->model, 0, sizeof file,
                                reinterpret_cast<unsigned char *>(&file));
}

// Polls for the card's answer and moves `cur_percent` by the time that has passed, through the
// share `pertime` over the row's limit. Returns whether the card has finished well.
static bool wait_for_card(const type_patch_t *row, int pertime, upgrade_info_t *update_info)
{
    const int percent = update_info->cur_percent;
    for (int count = 1;; count++) {
        timeval timeout = {0, POLL_US};
        select(0, nullptr, nullptr, nullptr, &timeout);
        update_info->cur_percent = percent + count * pertime / row->time;
        const int result = get_update_card_result(row->file_type);
        if (result == CARD_DONE)
            return true;
        if (result == CARD_FAILED || count >= row->time)
            return false;
    }
}

int update_all_UserFile(aptid_t uid, upgrade_msg_t *upgd_msg)
{
    const event_receiver to = {uid, upgd_msg};
    upgrade_info_t *const update_info = &upgd_msg->upgrade_info;
    const int c = count_files();
    if (c == 0) {
        update_info->cur_percent += STAGE_PERCENT;
        TRACE("no mcu fpga\n");
        return 0;
    }
    const int pertime = STAGE_PERCENT / c;

    for (int i = 0; i < CARD_TYPES; i++) {
        const type_patch_t &row = type_patch[i];
        if (!get_usb_status()) {
            send_result(&to, UPGD_ERROR_NODISK);
            TRACE("UPGD_ERROR_NODISK\n");
            return -1;
        }
        const card_kind *const kind = find_card_kind(row.file_type);
        if (!has_file(&row) || kind == nullptr)
            continue;
        send_step(&to, kind->step);
        const int sent = send_request(&row, kind);
        if (sent != 0)
            return sent;
        TRACE("update %s\n", row.file_patch);
        const int percent = update_info->cur_percent;
        if (!wait_for_card(&row, pertime, update_info)) {
            TRACE("update %s error\n", row.file_patch);
            send_result(&to, kind->failure);
            return -1;
        }
        TRACE("update %s ok\n", row.file_patch);
        update_info->cur_percent = percent + pertime;
    }
    return 0;
}
