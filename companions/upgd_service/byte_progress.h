// How far a run is in its image, in bytes: its own record counts entries, of which one can be
// larger than all others.
#ifndef COMPANIONS_UPGD_SERVICE_BYTE_PROGRESS_H
#define COMPANIONS_UPGD_SERVICE_BYTE_PROGRESS_H

#include "update/dtt_update_common/image_reader.h"

constexpr int LOOK_US = 100000; // between two looks at the record of a run

// Reads a number of the record while another thread or process writes it: it is never half written.
inline int field(const int *value)
{
    return __atomic_load_n(value, __ATOMIC_RELAXED);
}

struct byte_progress {
    entry_walk walk;  // behind the entries that are unpacked
    uint32_t counted; // of them, those that the run counts: card files are not
    uint32_t total;   // that the run will count
    bool has_cards;
};

// `progress` is zeroed. The image's descriptor stays the caller's.
void start_byte_progress(byte_progress *progress, const image_file *img);

// The permille of the bytes that are unpacked when the run has counted `finished` entries. An image
// that can't be read leaves it where it was.
int unpacked_permille(byte_progress *progress, uint32_t finished);

// Whether the run has unpacked everything: what it is at then is bringing it to the medium.
bool is_unpacked(const byte_progress *progress, uint32_t finished);

#endif
