// The update flag file.
#include "update/dtt_update_common/update_flag.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"

#include <fcntl.h>
#include <unistd.h>

// A file that can't be removed must not hold the run up for ever.
static constexpr int REMOVAL_TRIES = 3;

// The value has to be on the medium before the run goes on, or its success is told to anyone.
static void bring_to_medium(const char *flag_file)
{
    const int fd = open(flag_file, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return;
    syncfs(fd);
    close(fd);
}

int set_update_flag(char *flag_file, int value)
{
    char cmd[128] = "";
    if (!bounded_format(cmd, sizeof cmd, "/bin/echo %d > %s", value, flag_file)) {
        TRACE("update flag path too long: %s\n", flag_file);
        return -1;
    }
    cmd[0] = '\0';

    for (int removals = 0;; removals++) {
        TRACE(" call  fun  set_update_flag \n");
        TRACE("run cmd = %s .\n", cmd);
        const bool exists = access(flag_file, F_OK) == 0;
        if (!exists) {
            known_to_fit(bounded_format(cmd, sizeof cmd, "/bin/touch  %s", flag_file));
            PLATFORM_LOG("%s", cmd);
            my_system(cmd);
            TRACE("%s \n", cmd);
        }
        if (!exists || value != UPDATE_FLAG_STARTED || removals == REMOVAL_TRIES)
            break;
        TRACE("upgrade NG, rm temp file .\n");
        known_to_fit(bounded_format(cmd, sizeof cmd, "/bin/rm -rf %s", flag_file));
        TRACE("run cmd = %s .\n", cmd);
        my_system(cmd);
    }

    known_to_fit(bounded_format(cmd, sizeof cmd, "/bin/echo %d > %s", value, flag_file));
    PLATFORM_LOG("%s", cmd);
    my_system(cmd);
    bring_to_medium(flag_file);
    return 0;
}
