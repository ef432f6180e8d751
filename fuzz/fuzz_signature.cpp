// A signature file, a key file and the trusted comment in any form.
#include "fuzz/harness.h"

#include "companions/signature/check.h"
#include "companions/signature/statement.h"

#include <cstring>
#include <string>

static void take_statement(const char *comment)
{
    signed_statement said;
    if (parse_statement(comment, &said) == nullptr)
        check("product=" + std::string(said.product) + " floor=" + said.floor == comment,
              "the statement says what the comment says");
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    check(check_impossible() == nullptr, "the library is there");
    const char *const text = reinterpret_cast<const char *>(data);
    public_key key = {};
    parse_key(text, size, &key);
    file_signature signature = {};
    if (parse_signature(text, size, &signature) == nullptr) {
        memcpy(&key.id, &signature.key, sizeof key.id);
        check(comment_fault(&key, &signature) != nullptr, "a key of no one has signed");
        take_statement(signature.comment);
    }
    take_statement(std::string(text, size).c_str());
    return 0;
}
