// What has become of a call, refusals too, in one line of the device's log: who asked for what,
// with which image, version and key, and the result.
#ifndef COMPANIONS_UPGD_SERVICE_OUTCOME_H
#define COMPANIONS_UPGD_SERVICE_OUTCOME_H

#include "update_header.h"

void note_verb(const char *verb);
void note_image(const char *name, const update_header_t *header);
void note_key(const char *id);

// Writes the line; the last complaint tells why a call has failed.
void log_outcome(int status);

#endif
