// Checking signatures.
#include "companions/signature/check.h"

#include <cstring>
#include <sodium.h>

static_assert(sizeof(image_hash) >= sizeof(crypto_generichash_state), "holds the library's state");
static_assert(alignof(image_hash) >= alignof(crypto_generichash_state), "as the library wants it");
static_assert(sizeof(file_signature::of_image) == crypto_sign_BYTES, "a signature");
static_assert(sizeof(public_key::bytes) == crypto_sign_PUBLICKEYBYTES, "a key");

const char SIGNATURES[] = "with signatures";

static crypto_generichash_state *state_of(image_hash *hash)
{
    return reinterpret_cast<crypto_generichash_state *>(hash->state);
}

const char *check_impossible()
{
    return sodium_init() >= 0 ? nullptr : "the library that checks signatures does not start";
}

void start_hash(image_hash *hash)
{
    crypto_generichash_init(state_of(hash), nullptr, 0, crypto_generichash_BYTES_MAX);
}

void add_to_hash(image_hash *hash, const void *data, size_t len)
{
    crypto_generichash_update(state_of(hash), static_cast<const unsigned char *>(data), len);
}

const char *comment_fault(const public_key *key, const file_signature *signature)
{
    if (memcmp(&key->id, &signature->key, sizeof key->id) != 0)
        return "was made with another key";
    unsigned char text[sizeof signature->of_image + sizeof signature->comment];
    const size_t len = strlen(signature->comment);
    memcpy(text, signature->of_image, sizeof signature->of_image);
    memcpy(text + sizeof signature->of_image, signature->comment, len);
    return crypto_sign_verify_detached(signature->of_comment, text,
                                       sizeof signature->of_image + len, key->bytes) == 0
               ? nullptr
               : "is not the key owner's: it or its comment was altered";
}

const char *signature_fault(const public_key *key, const file_signature *signature,
                            image_hash *hash)
{
    unsigned char digest[crypto_generichash_BYTES_MAX];
    crypto_generichash_final(state_of(hash), digest, sizeof digest);
    return crypto_sign_verify_detached(signature->of_image, digest, sizeof digest, key->bytes) == 0
               ? nullptr
               : "is another image's, or the image was altered";
}
