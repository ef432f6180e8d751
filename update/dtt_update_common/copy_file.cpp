// Writing a block of memory to a new file.
#include "update/dtt_update_common/copy_file.h"

#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/trace_log.h"

#include <fcntl.h>
#include <unistd.h>

int copy_file(const char *source, const char *dest, int nSize)
{
    const int fd = open(dest, O_WRONLY | O_CREAT | O_CLOEXEC, 0755);
    if (fd < 0) {
        TRACE("unable to open `%s'\n", dest);
        return -1;
    }

    int status = 0;
    if (bb_full_write(fd, source, static_cast<size_t>(nSize)) < 0) {
        TRACE("bb_full_write failed `%s' size= %d\n", dest, nSize);
        status = -1;
    }
    if (close(fd) < 0) {
        TRACE("unable to close `%s'\n", dest);
        status = -1;
    }
    return status;
}
