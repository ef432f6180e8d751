// Writing a block of memory to a new file.
#include "update/dtt_update_common/copy_file.h"

#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <cstdint>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

static void show_percent(const upgrade_info_t *update_info)
{
    TRACE_AS("bb_full_write_new", "update_info->cur_percent is  %d%% \r", update_info->cur_percent);
}

ssize_t bb_full_write_new(upgrade_info_t *update_info, int fd, const void *buf, size_t len)
{
    const char *pos = static_cast<const char *>(buf);
    const int64_t len_bk = static_cast<int64_t>(len);
    int64_t total = 0;
    update_info->cur_percent = 0;
    TRACE("\r\n");
    show_percent(update_info);
    while (len != 0) {
        const ssize_t n = write_some(fd, &pos, &len);
        if (n < 0)
            return n;
        total += n;
        update_info->cur_percent = static_cast<int>(100 * total / len_bk);
        show_percent(update_info);
        fflush(stdout);
    }
    TRACE("\r\n");
    update_info->cur_percent = 100;
    return static_cast<ssize_t>(total);
}

// Writes in the name of `func`, and with progress if there is an `update_info`.
static int write_new_file(const char *func, upgrade_info_t *update_info, const char *source,
                          const char *dest, int nSize)
{
    const int fd = open(dest, O_WRONLY | O_CREAT | O_CLOEXEC, 0755);
    if (fd < 0) {
        TRACE_AS(func, "unable to open `%s'\n", dest);
        return -1;
    }

    int status = 0;
    const size_t len = static_cast<size_t>(nSize);
    const ssize_t written = update_info != nullptr ? bb_full_write_new(update_info, fd, source, len)
                                                   : bb_full_write(fd, source, len);
    if (written < 0) {
        TRACE_AS(func, "bb_full_write failed `%s' size= %d\n", dest, nSize);
        status = -1;
    }
#ifdef SYNC_FILE_RANGE_WRITE
    // Only begun: data that waits in memory for its turn would leave a tree of empty files at a
    // power cut.
    sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
#endif
    if (close(fd) < 0) {
        TRACE_AS(func, "unable to close `%s'\n", dest);
        status = -1;
    }
    return status;
}

int copy_file(const char *source, const char *dest, int nSize)
{
    return write_new_file(__func__, nullptr, source, dest, nSize);
}

int copy_file_new(upgrade_info_t *update_info, const char *source, const char *dest, int nSize)
{
    return write_new_file(__func__, update_info, source, dest, nSize);
}
