// The card stage of a service run: the recorded card firmware is brought to the cards one file
// after the other.
#ifndef UPDATE_DTT_UPDATE_CARD_SEQUENCER_H
#define UPDATE_DTT_UPDATE_CARD_SEQUENCER_H

#include "device_msg.h"

// Asks for each recorded file to be flashed and waits for the card's answer, at most the time that
// the card firmware table gives. Step, result and the upper 900 of `cur_percent` are kept in
// `upgd_msg`; events go to `uid`. Returns 0, -1 if the USB disk is gone, a card has failed or its
// time is up, or the non-zero value of ipc_send_card_update for a request that did not go out. The
// first failure ends the stage.
[[nodiscard]] int update_all_UserFile(aptid_t uid, upgrade_msg_t *upgd_msg);

#endif
