// The report of an image's header in ten labelled lines.
#ifndef UPDATE_DTT_UPDATE_COMMON_HEADER_REPORT_H
#define UPDATE_DTT_UPDATE_COMMON_HEADER_REPORT_H

#include "update_header.h"

// Writes the report to the platform log and then to the trace log. The header is reported as it
// is, its numbers in network order; nothing is tested.
void print_image_hdr(update_header_t *pheader);

// Constant texts for a place and a compression code in host order. The place's text is shown only:
// the directory that an image goes to is another table's. An unknown place gives the empty text.
const char *place2str(int place);
char *print_type(int ih_comp);

#endif
