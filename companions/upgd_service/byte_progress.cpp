// How far a run is in its image, in bytes.
#include "companions/upgd_service/byte_progress.h"

#include "update/dtt_update_common/card_kinds.h"

#include <arpa/inet.h>

void start_byte_progress(byte_progress *progress, const image_file *img)
{
    progress->total = ntohl(img->header.ih_filenum);
    start_walk(&progress->walk, img);
    image_entry entry;
    for (uint32_t i = ntohl(img->header.ih_filenum);
         i > 0 && read_entry(&progress->walk, &entry) == nullptr; i--)
        if (find_card_kind(entry.type) != nullptr) {
            progress->has_cards = true;
            progress->total--;
        }
    start_walk(&progress->walk, img);
}

int unpacked_permille(byte_progress *progress, uint32_t finished)
{
    image_entry entry;
    while (progress->counted < finished && read_entry(&progress->walk, &entry) == nullptr)
        progress->counted += find_card_kind(entry.type) == nullptr ? 1 : 0;
    const uint64_t done = progress->walk.next - sizeof(update_header_t);
    const uint64_t all = progress->walk.source->size - sizeof(update_header_t);
    return all > 0 ? static_cast<int>(1000 * done / all) : 0;
}

bool is_unpacked(const byte_progress *progress, uint32_t finished)
{
    return finished >= progress->total;
}
