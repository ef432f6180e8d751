// A signature file, a key file and the trusted comment in any form: what is taken is exactly what
// the signer's program writes, and so stands for one key or one signature alone.
#include "fuzz/harness.h"

#include "companions/signature/check.h"
#include "companions/signature/statement.h"

#include <cstring>
#include <memory>
#include <string>

// A change of any bit gives another key or signature, or none: no byte is passed over.
template <typename Record>
static void change_each_byte(std::string text, const Record &taken,
                             const char *(*parse)(const char *, size_t, Record *))
{
    for (size_t i = 0; i < text.size(); i++) {
        const char change = static_cast<char>(1 << i % 8);
        Record other = {};
        text[i] = static_cast<char>(text[i] ^ change);
        check(parse(text.data(), text.size(), &other) != nullptr ||
                  memcmp(&taken, &other, sizeof taken) != 0,
              "two texts stand for the same");
        text[i] = static_cast<char>(text[i] ^ change);
    }
}

static void take_statement(const char *comment)
{
    signed_statement said;
    if (parse_statement(comment, &said) != nullptr)
        return;
    check("product=" + std::string(said.product) + " floor=" + said.floor == comment,
          "the statement says what the comment says");
    check(compare_versions(&said.floor_version, &said.floor_version) == 0, "a version is itself");
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static const char *const impossible = check_impossible();
    check(impossible == nullptr, "the library is there");
    // Of exactly this size, so that a byte read behind it shows.
    const std::unique_ptr<char[]> text(new char[size]);
    memcpy(text.get(), data, size);
    public_key key = {};
    if (parse_key(text.get(), size, &key) == nullptr)
        change_each_byte({text.get(), size}, key, parse_key);
    file_signature signature = {};
    if (parse_signature(text.get(), size, &signature) == nullptr) {
        change_each_byte({text.get(), size}, signature, parse_signature);
        memcpy(&key.id, &signature.key, sizeof key.id);
        check(comment_fault(&key, &signature) != nullptr, "a key of no one has signed");
        take_statement(signature.comment);
        describe_signature(&signature, nullptr);
    }
    take_statement(std::string(text.get(), size).c_str());
    return 0;
}
