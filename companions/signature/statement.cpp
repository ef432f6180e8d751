// What a signature's comment says to a device.
#include "companions/signature/statement.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

static constexpr char DIGITS[] = "0123456789";
static constexpr size_t DIGITS_MAX = 9; // so that a number fits

bool parse_version(const char *text, firmware_version *version)
{
    *version = {};
    text += *text == 'V' || *text == 'v' ? 1 : 0;
    while (version->count < VERSION_NUMBERS_MAX) {
        const size_t len = strspn(text, DIGITS);
        if (len == 0 || len > DIGITS_MAX)
            return false;
        int *const number = &version->numbers[version->count++];
        for (size_t i = 0; i < len; i++)
            *number = *number * 10 + (text[i] - '0');
        text += len;
        if (*text == '\0')
            return true;
        if (*text++ != '.')
            return false;
    }
    return false;
}

int compare_versions(const firmware_version *a, const firmware_version *b)
{
    for (int i = 0; i < VERSION_NUMBERS_MAX; i++)
        if (a->numbers[i] != b->numbers[i])
            return a->numbers[i] < b->numbers[i] ? -1 : 1;
    return 0;
}

const char *parse_statement(const char *comment, signed_statement *statement)
{
    static constexpr char FORM[] = "has no comment of the form product=NAME floor=VERSION";
    static constexpr char PRODUCT[] = "product=";
    static constexpr char FLOOR[] = " floor=";
    static constexpr char NAME[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                   "abcdefghijklmnopqrstuvwxyz0123456789_.-";
    if (strncmp(comment, PRODUCT, sizeof PRODUCT - 1) != 0)
        return FORM;
    const char *const product = comment + sizeof PRODUCT - 1;
    const size_t len = strspn(product, NAME);
    if (len == 0 || len >= sizeof statement->product ||
        strncmp(product + len, FLOOR, sizeof FLOOR - 1) != 0)
        return FORM;
    const char *const floor = product + len + sizeof FLOOR - 1;
    if (strlen(floor) >= sizeof statement->floor ||
        !parse_version(floor, &statement->floor_version))
        return FORM;
    memcpy(statement->product, product, len);
    statement->product[len] = '\0';
    memcpy(statement->floor, floor, strlen(floor) + 1);
    return nullptr;
}

signature_line describe_signature(const file_signature *signature, const char *fault)
{
    signature_line line;
    int len = fault == nullptr
                  ? snprintf(line.text, sizeof line.text, "signature: valid")
                  : snprintf(line.text, sizeof line.text, "signature: not valid: %s", fault);
    len = std::min(len, static_cast<int>(sizeof line.text) - 1);
    if (signature != nullptr)
        snprintf(line.text + len, sizeof line.text - static_cast<size_t>(len),
                 "; key %s; trusted comment: %s; untrusted comment: %s",
                 name_of_key(&signature->key).text, signature->comment, SIGNATURE_LABEL);
    return line;
}
