// The shell runner.
#include "platform/platform.h"

#include <cerrno>
#include <cstring>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

// What this process has printed goes out ahead of what the command prints. Only the two output
// streams are flushed: fflush(NULL) would wait for the lock of every open stream, and thus behind
// a thread of the service that is reading one.
static void flush_output()
{
    fflush(stdout);
    fflush(stderr);
}

// Unlike system(3), this leaves the caller's signals alone: an interrupt of the run ends the run
// also while a command is at work, and the command gets the terminal's interrupt for itself.
int my_system(const char *cmd)
{
    if (cmd == nullptr)
        return -1;
    flush_output();
    char shell[] = "sh";
    char option[] = "-c";
    char *const argv[] = {shell, option, const_cast<char *>(cmd), nullptr};
    pid_t pid;
    if (posix_spawn(&pid, "/bin/sh", nullptr, nullptr, argv, environ) != 0)
        return -1;
    int status;
    while (waitpid(pid, &status, 0) != pid)
        if (errno != EINTR)
            return -1;
    return status;
}

FILE *my_popen(const char *cmd, const char *mode)
{
    if (cmd == nullptr || mode == nullptr || strcmp(mode, "r") != 0) {
        errno = EINVAL;
        return nullptr;
    }
    flush_output();
    return popen(cmd, "re");
}

int my_pclose(FILE *stream)
{
    if (stream == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return pclose(stream);
}
