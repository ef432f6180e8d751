// Who may have an image applied. Once the device keeps public keys, an image needs a signature of a
// key's owner, made for this product, and a version that is not below the floor: the lowest that
// this device still takes.
#ifndef COMPANIONS_UPGD_SERVICE_GATE_H
#define COMPANIONS_UPGD_SERVICE_GATE_H

#include "companions/signature/statement.h"
#include "update_header.h"

#include <string>

struct update_gate {
    bool closed; // an image needs a signature
    public_key key;
    file_signature signature;
    signed_statement said;
};

// Reads a value of the device's configuration, empty if it is not set. Returns false with a
// sentence.
bool read_setting(const char *key, std::string *value);

// Reads the device's keys, and unless there are none, the signature of the image `name`, whose
// header is `header`: its comment has to let it in. Returns false with a sentence. The gate is open
// for any image if there are no keys, or, with a warning on the screen and in the log, if
// `allow_unsigned` is set.
[[nodiscard]] bool prepare_gate(const char *name, const update_header_t *header,
                                bool allow_unsigned, update_gate *gate);

// Raises this device's floor to the one that the image's signature tells, after a run that went
// well. Returns false with a sentence.
[[nodiscard]] bool raise_floor(const update_gate *gate);

#endif
