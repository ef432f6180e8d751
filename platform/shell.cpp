// The shell runner.
#include "platform/platform.h"

#include <cerrno>
#include <csignal>
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

// Runs the command with the signal mask `mask`. Returns its wait status, or -1 if it was not run.
static int run_and_wait(const char *cmd, const sigset_t *mask)
{
    char shell[] = "sh";
    char option[] = "-c";
    char *const argv[] = {shell, option, const_cast<char *>(cmd), nullptr};
    posix_spawnattr_t attributes;
    if (posix_spawnattr_init(&attributes) != 0)
        return -1;
    posix_spawnattr_setsigmask(&attributes, mask);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    pid_t pid;
    const int error = posix_spawn(&pid, "/bin/sh", nullptr, &attributes, argv, environ);
    posix_spawnattr_destroy(&attributes);
    if (error != 0)
        return -1;
    int status = 0;
    while (waitpid(pid, &status, 0) != pid)
        if (errno != EINTR)
            // Another thread of the process, or its wish not to know, has collected the status of
            // the command, which has run.
            return errno == ECHILD ? 0 : -1;
    return status;
}

// Unlike system(3), this leaves the caller's signals alone: an interrupt of the run ends the run
// also while a command is at work, and the command gets the terminal's interrupt for itself.
int my_system(const char *cmd)
{
    if (cmd == nullptr)
        return -1;
    flush_output();
    // A handler of the caller's that collects its children must not collect this one first.
    sigset_t child_ended;
    sigset_t mask;
    sigemptyset(&child_ended);
    sigaddset(&child_ended, SIGCHLD);
    pthread_sigmask(SIG_BLOCK, &child_ended, &mask);
    const int status = run_and_wait(cmd, &mask);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
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
