// Checking the signature of an image, as a device with that key would.
#include "companions/img_info/img_info.h"

#include "companions/compare/image_sums.h"
#include "companions/signature/check.h"
#include "companions/signature/statement.h"
#include "companions/text/json.h"
#include "companions/text/shown_text.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/image_check.h"

#include <cstdio>
#include <cstring>

// Reads the image to its end as a device does, and hashes it. Returns null, or what is wrong with
// it.
static const char *hash_image(const char *name, descriptor *file, image_file *img, image_hash *hash)
{
    const char *const fault = open_image(name, img);
    *file = descriptor(img->fd);
    if (fault != nullptr)
        return fault;
    start_hash(hash);
    return read_through(img, [hash](const char *block, size_t len, uint32_t) -> const char * {
        add_to_hash(hash, block, len);
        return nullptr;
    });
}

// Why a device with no floor of its own does not take an image of this header with what its
// signature says, or null.
static const char *version_fault(const update_header_t *header, const signed_statement *said)
{
    firmware_version version;
    if (!parse_version(text_of(header->ih_version).text, &version))
        return "its version can't be compared";
    return compare_versions(&version, &said->floor_version) < 0
               ? "its version is below the floor of its own signature"
               : nullptr;
}

// `signature` is null if none could be read; `fault` if nothing is wrong.
static void print_signature(const file_signature *signature, const char *fault, bool json)
{
    if (!json) {
        const signature_line line = describe_signature(signature, fault);
        print_shown(stdout, line.text, strlen(line.text));
        putchar('\n');
        return;
    }
    printf("{\"signature\":{\"valid\":%s", fault == nullptr ? "true" : "false");
    if (fault != nullptr)
        print_json_text(stdout, ",\"fault\":", fault);
    if (signature != nullptr) {
        print_json_text(stdout, ",\"key\":", name_of_key(&signature->key).text);
        print_json_text(stdout, ",\"trusted_comment\":", signature->comment);
        print_json_text(stdout, ",\"untrusted_comment\":", SIGNATURE_LABEL);
    }
    puts("}}");
}

int check_signature(const char *image, const char *key_file, bool json)
{
    const char *const impossible = check_impossible();
    if (impossible != nullptr)
        return complain(image, "%s", impossible);
    public_key key;
    const char *fault = read_key(key_file, &key);
    if (fault != nullptr)
        return complain(key_file, "%s", fault);
    image_hash hash;
    image_file img;
    descriptor file;
    fault = hash_image(image, &file, &img, &hash);
    if (fault != nullptr)
        return complain(image, "%s", fault);
    file_signature signature;
    fault = read_signature_of(image, &signature);
    const bool read = fault == nullptr;
    if (fault == nullptr)
        fault = comment_fault(&key, &signature);
    if (fault == nullptr)
        fault = signature_fault(&key, &signature, &hash);
    signed_statement said;
    if (fault == nullptr)
        fault = parse_statement(signature.comment, &said);
    if (fault == nullptr)
        fault = version_fault(&img.header, &said);
    print_signature(read ? &signature : nullptr, fault, json);
    return fault == nullptr ? INFO_WELL : INFO_FINDINGS;
}
