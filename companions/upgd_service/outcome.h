// What has become of a call, refusals too, in one line of the device's log: who asked for what,
// with which image, version and key, and the result.
#ifndef COMPANIONS_UPGD_SERVICE_OUTCOME_H
#define COMPANIONS_UPGD_SERVICE_OUTCOME_H

#include "update_header.h"

// `file` is what the verb is asked to take, or null.
void note_call(const char *verb, const char *file);
void note_header(const update_header_t *header);
void note_key(const char *id);

// Writes the line; the last complaint tells why a call has failed.
void log_outcome(int status);

#endif
