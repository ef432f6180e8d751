// The device's log: one call is one message to the log daemon, which does the rest.
#include "platform/platform.h"

#include "platform/identity.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <pthread.h>
#include <syslog.h>

// Room for the longest command line that is logged, with its words of explanation. What is longer
// is cut: a line must not fail for want of memory.
static constexpr size_t LOG_TEXT_SIZE = 2048;

// By the C library's means: the guard of a static local would be all that the programs need of the
// C++ library, and all that they load it for.
static pthread_once_t log_is_open = PTHREAD_ONCE_INIT;

static void open_log()
{
    openlog("imgdeploy", LOG_PID, LOG_DAEMON);
}

// The tag is the same in every call and stands in the message as the daemon's ident; the one level
// in use comes out as LOG_INFO.
int aplog_printf(int /*level*/, const char * /*module*/, const char *func, const char *format, ...)
{
    const int saved_errno = errno;
    char text[LOG_TEXT_SIZE];
    va_list args;
    va_start(args, format);
    const int len = vsnprintf(text, sizeof text, format, args);
    va_end(args);

    pthread_once(&log_is_open, open_log);
    syslog(LOG_INFO, "%08x %s: %s", task_id_self(), func, len < 0 ? format : text);
    errno = saved_errno;
    return 0;
}
