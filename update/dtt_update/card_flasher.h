// Flashing one card firmware file on this board.
#ifndef DTT_UPDATE_CARD_FLASHER_H
#define DTT_UPDATE_CARD_FLASHER_H

// Does what update_one_UserFile does, in its name, and leaves the wait status of the tool's shell
// in
// `*status` if the tool was called.
int flash_card_file(int type, char *name, int *status);

#endif
