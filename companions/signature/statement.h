// What a signature's comment says to a device: `product=qrx310 floor=V1.4.0.0`, and nothing else.
#ifndef COMPANIONS_SIGNATURE_STATEMENT_H
#define COMPANIONS_SIGNATURE_STATEMENT_H

#include "companions/signature/signature_files.h"

constexpr int VERSION_NUMBERS_MAX = 8;
constexpr size_t VERSION_TEXT_SIZE = 64;

struct firmware_version {
    int count;
    int numbers[VERSION_NUMBERS_MAX];
};

struct signed_statement {
    char product[64]; // letters, digits, '_', '.' and '-'
    char floor[VERSION_TEXT_SIZE];
    firmware_version floor_version;
};

// Takes a text of numbers with '.' between them and perhaps a 'V' or 'v' in front. Returns false
// for any other: what can't be compared must not count as new.
[[nodiscard]] bool parse_version(const char *text, firmware_version *version);

// Number by number; one that is missing counts as 0. Returns less than 0, 0, or more than 0.
int compare_versions(const firmware_version *a, const firmware_version *b);

// Returns null, or in words what is wrong with the comment.
[[nodiscard]] const char *parse_statement(const char *comment, signed_statement *statement);

// A signature in one line.
struct signature_line {
    char text[SIGNED_COMMENT_SIZE + 256];
};

// `fault` is null for a valid signature, else it tells what is wrong with it; `signature` is null
// if there is none that could be read.
signature_line describe_signature(const file_signature *signature, const char *fault);

#endif
