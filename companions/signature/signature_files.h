// The files that `minisign` writes: public keys and signatures of images. Each is taken only as
// that program writes it, byte by byte: damage is found, and no byte is free for another use.
#ifndef COMPANIONS_SIGNATURE_SIGNATURE_FILES_H
#define COMPANIONS_SIGNATURE_SIGNATURE_FILES_H

#include <cstddef>
#include <cstdint>

// Where a device keeps the public keys of those whose images it takes.
constexpr const char *KEY_DIRECTORY = "/etc/upgd/keys";

// A signature lies beside its image, under the image's name with this behind it.
constexpr const char *SIGNATURE_SUFFIX = ".minisig";

// The only text that its unsigned line has.
constexpr const char *SIGNATURE_LABEL = "signature from minisign secret key";

constexpr size_t SIGNATURE_FILE_SIZE = 1024; // bytes that are looked at, of keys as well
constexpr size_t SIGNED_COMMENT_SIZE = 256;  // its terminator included
constexpr int KEYS_MAX = 16;

struct key_id {
    uint8_t bytes[8];
};

struct public_key {
    key_id id;
    uint8_t bytes[32];
};

struct file_signature {
    key_id key;
    uint8_t of_image[64];   // of the image's hash
    uint8_t of_comment[64]; // of the signature above and the comment
    char comment[SIGNED_COMMENT_SIZE];
};

struct key_ring {
    int count;
    public_key keys[KEYS_MAX];
};

// What is wrong with a file: `why` is null if nothing is.
struct key_fault {
    char where[512];
    const char *why;
};

// The id as people write it.
struct key_name {
    char text[17];
};

key_name name_of_key(const key_id *id);

// Each returns null, or in words what is wrong with the `len` bytes of a file.
const char *parse_key(const char *text, size_t len, public_key *key);
const char *parse_signature(const char *text, size_t len, file_signature *signature);

// Each reads a file, whose path may be one of a disk. Returns null, or what is wrong.
const char *read_key(const char *path, public_key *key);
[[nodiscard]] const char *read_signature_of(const char *image, file_signature *signature);

// Reads all keys `*.pub` of the directory `dir`. There are none if it is missing. It is a fault if
// it or the one above it is a link to nowhere, if it is there without a key, if others than the
// superuser and this user can write there, if a file is no key, or if two have one id.
[[nodiscard]] key_fault load_keys(const char *dir, key_ring *ring);

// Returns the key, or null if the ring does not have it.
[[nodiscard]] const public_key *find_key(const key_ring *ring, const key_id *id);

#endif
