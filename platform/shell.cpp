// The shell runner.
#include "platform/platform.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <sys/wait.h>

// What this process has printed goes out ahead of what the command prints. Only the two output
// streams are flushed: fflush(NULL) would wait for the lock of every open stream, and thus behind
// a thread of the service that is reading one.
static void flush_output()
{
    fflush(stdout);
    fflush(stderr);
}

// The signal of the terminal that ended the command, or 0. The shell passes on the death of its
// last command as 128 + signal.
static int terminal_signal(int status)
{
    for (const int signal : {SIGINT, SIGQUIT}) {
        if (WIFSIGNALED(status) && WTERMSIG(status) == signal)
            return signal;
        if (WIFEXITED(status) && WEXITSTATUS(status) == 128 + signal)
            return signal;
    }
    return 0;
}

int my_system(const char *cmd)
{
    if (cmd == nullptr)
        return -1;
    flush_output();
    const int status = system(cmd);
    if (status == -1)
        return -1;
    // While the command ran, this process ignored the terminal's signals. One that ended the
    // command was meant for the whole run: it gets here the meaning that it has here.
    const int signal = terminal_signal(status);
    if (signal != 0)
        raise(signal);
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
