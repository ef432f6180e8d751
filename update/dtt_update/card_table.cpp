// The card firmware of a run.
#include "update/dtt_update/card_table.h"

#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <cstring>

// Each kind with its time limit, in the order of flashing.
#define FLASHING_ORDER(ROW)                                                                        \
    ROW(ENTRY_INPUT_FPGA, 6000)                                                                    \
    ROW(ENTRY_INPUT_GOLDEN, 6000)                                                                  \
    ROW(ENTRY_OUTPUT_FPGA, 6000)                                                                   \
    ROW(ENTRY_OUTPUT_GOLDEN, 6000)                                                                 \
    ROW(ENTRY_VPU_FPGA, 12000)                                                                     \
    ROW(ENTRY_VPU_GOLDEN, 12000)                                                                   \
    ROW(ENTRY_INPUT_MCU, 3000)                                                                     \
    ROW(ENTRY_OUTPUT_MCU, 6000)                                                                    \
    ROW(ENTRY_VPU_MCU, 3000)
#define PATCH(type, time) {type, "", time, CARD_NO_ANSWER},
#define KEY(type, time) type,

type_patch_t type_patch[] = {FLASHING_ORDER(PATCH)};

static constexpr int KEYS[] = {FLASHING_ORDER(KEY)};
static_assert(holds_each_card_type(KEYS), "one row for each type");

static type_patch_t *find_row(int type)
{
    for (type_patch_t &row : type_patch)
        if (row.file_type == type)
            return &row;
    return nullptr;
}

// A plain word, written by the service's threads and read by the run's.
static void store_result(type_patch_t *row, int result)
{
    __atomic_store_n(&row->result, result, __ATOMIC_RELAXED);
}

int save_UserFile_patch(int type, char *name)
{
    type_patch_t *const row = find_row(type);
    if (row == nullptr)
        return -1;
    TRACE("    get a user file \n");
    const size_t len = strlen(name);
    if (len >= sizeof row->file_patch)
        return -1;
    memcpy(row->file_patch, name, len + 1);
    TRACE("    file type is %d \n", type);
    TRACE("    file name is %s \n", name);
    return 0;
}

void empty_UserFile_patch(void)
{
    for (type_patch_t &row : type_patch) {
        memset(row.file_patch, 0, sizeof row.file_patch);
        store_result(&row, CARD_NO_ANSWER);
    }
}

void set_update_card_result(int type, int result)
{
    TRACE("set card(%d) update result : %d\n", type, result);
    type_patch_t *const row = find_row(type);
    if (row != nullptr)
        store_result(row, result);
}

int get_update_card_result(int type)
{
    const type_patch_t *const row = find_row(type);
    return row != nullptr ? __atomic_load_n(&row->result, __ATOMIC_RELAXED) : CARD_NO_ANSWER;
}
