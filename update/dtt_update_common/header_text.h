// A text of an image's header, which may fill its field and lack a terminator.
#ifndef UPDATE_DTT_UPDATE_COMMON_HEADER_TEXT_H
#define UPDATE_DTT_UPDATE_COMMON_HEADER_TEXT_H

#include "update_header.h"

#include <cstring>

struct header_text {
    char text[sizeof update_header_t::ih_dest_dir + 1];
};

// `field` is one of the header's text fields, as it stands.
template <typename T, size_t N> header_text text_of(const T (&field)[N])
{
    static_assert(sizeof field < sizeof(header_text), "fits with a terminator");
    header_text copy = {};
    memcpy(copy.text, field, sizeof field);
    return copy;
}

#endif
