// The report of any header. No byte behind it may be read.
#include "fuzz/stub.h"

#include "update/dtt_update_common/header_report.h"
#include "update/dtt_update_common/trace_log.h"

#include <algorithm>
#include <cstring>
#include <memory>

int LLVMFuzzerInitialize(int *, char ***)
{
    log_debug = 0;
    return 0;
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::unique_ptr<update_header_t> header(new update_header_t());
    memcpy(header.get(), data, std::min(size, sizeof *header));
    print_image_hdr(header.get());
    return 0;
}
