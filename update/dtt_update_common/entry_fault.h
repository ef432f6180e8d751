// Whether an entry can be applied: asked by a run ahead of each entry, and by who foretells what a
// run will do.
#ifndef UPDATE_DTT_UPDATE_COMMON_ENTRY_FAULT_H
#define UPDATE_DTT_UPDATE_COMMON_ENTRY_FAULT_H

#include "update/dtt_update_common/base_directory.h"
#include "update/dtt_update_common/entry_paths.h"

// Finds the place of the entry below `base`. Returns null, or why no run can bring the entry there:
// its path fits no buffer (`place` then has the entry's name), leads out of the base directory
// (path traversal), or would be taken apart by a command (command injection).
[[nodiscard]] const char *entry_fault(base_directory *base, const image_entry *entry,
                                      entry_place *place);

// Why an entry without such a fault fails all the same, or null: a run does not ask for this but
// meets it in its steps.
[[nodiscard]] const char *step_fault(const image_entry *entry, const entry_place *place);

#endif
