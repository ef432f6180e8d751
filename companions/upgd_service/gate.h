// Who may have an image applied. Once the device keeps public keys, an image needs a signature of a
// key's owner, made for this product, and a version that is not below the floor: the lowest that
// this device still takes (rollback protection).
#ifndef COMPANIONS_UPGD_SERVICE_GATE_H
#define COMPANIONS_UPGD_SERVICE_GATE_H

#include "companions/signature/statement.h"
#include "companions/upgd_service/configured.h"
#include "update_header.h"

constexpr char VERSION_KEY[] = "fw_version";

struct update_gate {
    bool closed; // an image needs a signature
    key_ring ring;
    public_key key;
    file_signature signature;
    signed_statement said;
};

// A version as the configuration keeps it: its words, with a blank between them.
std::string recorded_form(const char *version);

// Reads the device's keys. The gate is open for any image if there is no directory for them, or,
// with a warning on the screen and in the log, if `allow_unsigned` is set. Returns false with a
// sentence if keys are asked for and can't be used.
[[nodiscard]] bool read_keys(const char *name, bool allow_unsigned, update_gate *gate);

// Reads the signature of the image `name`, whose header is `header`: what its comment says has to
// let the image in. With null its version is not looked at. Returns false with a sentence.
[[nodiscard]] bool is_let_in(const char *name, const update_header_t *header, update_gate *gate);

// Notes ahead of a run of an image with this version which floor its signature brings. Returns
// false with a sentence.
[[nodiscard]] bool note_floor(const update_gate *gate, const char *version);

// Raises this device's floor to what the signature brings, behind a run that went well. Returns
// false with a sentence.
[[nodiscard]] bool raise_floor(const update_gate *gate);

// Raises this device's floor to what has been noted, if the version that it was noted with is the
// one that is recorded: its run went well, whatever has ended behind it. Returns false with a
// sentence.
[[nodiscard]] bool take_up_floor();

#endif
