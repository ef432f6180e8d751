// What a build without libsodium says in place of checking.
#include "companions/signature/check.h"

const char SIGNATURES[] = "without signatures";

static constexpr char IMPOSSIBLE[] =
    "this build can't check signatures: it was made without libsodium";

const char *check_impossible()
{
    return IMPOSSIBLE;
}

void start_hash(image_hash * /*hash*/)
{
}

void add_to_hash(image_hash * /*hash*/, const void * /*data*/, size_t /*len*/)
{
}

const char *comment_fault(const public_key * /*key*/, const file_signature * /*signature*/)
{
    return IMPOSSIBLE;
}

const char *signature_fault(const public_key * /*key*/, const file_signature * /*signature*/,
                            image_hash * /*hash*/)
{
    return IMPOSSIBLE;
}
