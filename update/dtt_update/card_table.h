// The card firmware of a run: which unpacked file goes to which part of which card, and what the
// card has answered. empty_UserFile_patch, set_update_card_result and get_update_card_result stand
// in update_service.h.
#ifndef UPDATE_DTT_UPDATE_CARD_TABLE_H
#define UPDATE_DTT_UPDATE_CARD_TABLE_H

#include "update/dtt_update_common/card_kinds.h"

struct type_patch_t {
    int file_type;         // entry type, the row's key
    char file_patch[1024]; // path of the unpacked file; empty if there is nothing to flash
    int time;              // the card's time limit, in polls of 10 ms
    int result;            // CARD_... or any other; shared between threads
};

// One row for each kind, in the order in which the cards are flashed.
extern type_patch_t type_patch[CARD_TYPES];

// Records `name` as the firmware file of `type`; the last file of a type wins. Returns 0, or -1 if
// no row has that type, which is the everyday answer for files that are no card firmware, or if
// `name` has 1024 characters or more.
[[nodiscard]] int save_UserFile_patch(int type, char *name);

#endif
