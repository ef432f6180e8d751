// Checking the signature of an image, as a device with that key would.
#include "companions/img_info/img_info.h"

#include "companions/signature/check.h"
#include "companions/signature/statement.h"
#include "companions/text/json.h"
#include "companions/text/shown_text.h"
#include "update/dtt_update_common/raw_io.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>

// Hashes the file to its end. Returns null, or what is wrong with it.
static const char *hash_file(const char *name, image_hash *hash)
{
    const descriptor file(open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    struct stat st;
    if (!file.is_open() || fstat(file.get(), &st) != 0)
        return strerror(errno);
    if (!S_ISREG(st.st_mode))
        return "is no plain file";
    static char block[256 * 1024];
    start_hash(hash);
    off_t at = 0;
    for (size_t len; (len = full_pread(file.get(), block, sizeof block, at)) > 0;
         at += static_cast<off_t>(len))
        add_to_hash(hash, block, len);
    return at == st.st_size ? nullptr : "can't be read to its end";
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
    fault = hash_file(image, &hash);
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
    print_signature(read ? &signature : nullptr, fault, json);
    return fault == nullptr ? INFO_WELL : INFO_FINDINGS;
}
