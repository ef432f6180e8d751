// Flashing one card firmware file on this board.
#ifndef UPDATE_DTT_UPDATE_CARD_FLASHER_H
#define UPDATE_DTT_UPDATE_CARD_FLASHER_H

#include <cstddef>

constexpr size_t FLASHING_COMMAND_SIZE = 256; // bytes of a tool's command line and its terminator

// Does what update_one_UserFile does, in its name, and leaves the wait status of the tool's shell
// in `*status` if the tool was called.
[[nodiscard]] int flash_card_file(int type, char *name, int *status);

#endif
