// The update flag file.
#include "update/dtt_update_common/update_flag.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"

#include <fcntl.h>
#include <unistd.h>

static constexpr size_t COMMAND_SIZE = 128;

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
    char touch[COMMAND_SIZE];
    char removal[COMMAND_SIZE];
    char echo[COMMAND_SIZE];
    if (!bounded_format(touch, sizeof touch, "/bin/touch  %s", flag_file) ||
        !bounded_format(removal, sizeof removal, "/bin/rm -rf %s", flag_file) ||
        !bounded_format(echo, sizeof echo, "/bin/echo %d > %s", value, flag_file)) {
        TRACE("update flag path too long: %s\n", flag_file);
        return -1;
    }

    const char *last = "";
    for (int removals = 0;; removals++) {
        TRACE(" call  fun  set_update_flag \n");
        TRACE("run cmd = %s .\n", last);
        const bool exists = access(flag_file, F_OK) == 0;
        if (!exists) {
            PLATFORM_LOG("%s", touch);
            my_system(touch);
            TRACE("%s \n", touch);
        }
        if (!exists || value != UPDATE_FLAG_STARTED || removals == REMOVAL_TRIES)
            break;
        TRACE("upgrade NG, rm temp file .\n");
        last = removal;
        TRACE("run cmd = %s .\n", removal);
        my_system(removal);
    }

    PLATFORM_LOG("%s", echo);
    my_system(echo);
    bring_to_medium(flag_file);
    return 0;
}
