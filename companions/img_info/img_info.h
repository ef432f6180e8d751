// What the parts of img_info share.
#ifndef COMPANIONS_IMG_INFO_IMG_INFO_H
#define COMPANIONS_IMG_INFO_IMG_INFO_H

#include "companions/owners.h"
#include "update/dtt_update_common/image_reader.h"

// Exit statuses.
enum { INFO_WELL = 0, INFO_FINDINGS = 1, INFO_UNUSABLE = 2 };

// An image that is looked into, whatever is wrong with it: `img.size` is the file's own length.
struct named_image {
    const char *name; // for messages
    descriptor file;
    image_file img;
};

// Each prints its sentence, "img_info: NAME: ...", to standard error. Returns
// INFO_UNUSABLE, for whoever ends with it.
int complain(const char *name, const char *format, ...) __attribute__((format(printf, 2, 3)));

// In words.
const char *type_name(int type);

// The header and one line an entry, or both as JSON. Returns an exit status: INFO_FINDINGS if the
// list breaks off.
int list_image(const named_image *opened, bool json);

// Tests everything that the format promises, and that each entry can be unpacked below the
// directory `base`, and prints a line a finding, or "NAME: well". Returns an exit status.
int verify_image(const named_image *opened, const char *base, bool json);

// Compares the entries with what stands below the directory `dir`, and what else `what` says, and
// prints a line a finding, or "NAME: well". Returns an exit status: INFO_UNUSABLE if the image
// can't be read to its end.
int compare_image(const named_image *opened, const char *dir, int what, bool json);

// Checks the signature beside the file `image`, whatever it holds, with the public key of the file
// `key_file`, and prints a line. Returns an exit status: INFO_UNUSABLE if the key is none or the
// image can't be read, INFO_FINDINGS if the signature is not valid or no device would take it.
int check_signature(const char *image, const char *key_file, bool json);

// Unpacks the entries, or those of `names` and what lies below them, below the directory `dir`,
// which is made if it is missing. Nothing that stands there is touched and no link is followed.
// Returns an exit status: INFO_FINDINGS if something was left out, or the CRC is wrong.
int extract_image(const named_image *opened, const char *dir, char **names);

#endif
