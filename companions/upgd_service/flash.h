// Calling a card's flashing tool.
#ifndef COMPANIONS_UPGD_SERVICE_FLASH_H
#define COMPANIONS_UPGD_SERVICE_FLASH_H

#include "update/dtt_update_common/card_kinds.h"

#include <string>

// The path of the tool.
std::string flashing_tool(const card_kind *kind);

// Why the tool can't be given the path `file`, or null.
[[nodiscard]] const char *flashing_fault(const card_kind *kind, const char *file);

// Has this board's tool flash `file`. Returns whether the tool was called and has ended with status
// 0, else false with sentences.
[[nodiscard]] bool call_flashing_tool(int type, char *file);

#endif
