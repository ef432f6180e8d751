// Whether a signature is one of an image: Ed25519 over the image's BLAKE2b-512 hash, and over the
// comment.
#ifndef COMPANIONS_SIGNATURE_CHECK_H
#define COMPANIONS_SIGNATURE_CHECK_H

#include "companions/signature/signature_files.h"

// A hash that is taken a block at a time.
struct image_hash {
    alignas(64) unsigned char state[384];
};

// What this build has of it, as `--version` tells it.
extern const char SIGNATURES[];

// Returns null, or in words why this build or this machine can check no signature. To be called
// ahead of everything below.
[[nodiscard]] const char *check_impossible();

void start_hash(image_hash *hash);
void add_to_hash(image_hash *hash, const void *data, size_t len);

// Returns null if the key's owner has signed the comment and put it to this signature, or what is
// wrong. What the comment says counts only then.
[[nodiscard]] const char *comment_fault(const public_key *key, const file_signature *signature);

// Ends the hash. Returns null if the key's owner has signed an image with this hash, or what is
// wrong.
[[nodiscard]] const char *signature_fault(const public_key *key, const file_signature *signature,
                                          image_hash *hash);

#endif
