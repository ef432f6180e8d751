// The lines of logs are put together all the same: a text without an end shows.
#include "fuzz/harness.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

bool under_test = false;

// Standard error as it was at the start: the fuzzer can close it to silence the code under test.
static const int report_fd = dup(STDERR_FILENO);

void check(bool holds, const char *what)
{
    if (!holds) {
        dprintf(report_fd, "check failed: %s\n", what);
        abort();
    }
}

void syslog(int, const char *, ...)
{
}

extern "C" {
FILE *__real_fopen(const char *path, const char *mode);

FILE *__wrap_fopen(const char *path, const char *mode)
{
    return __real_fopen(strncmp(path, "/var/log/", 9) == 0 ? "/dev/null" : path, mode);
}
}
