// measure: runs a command without showing its output, and prints what it has used:
// the seconds that passed, the seconds of processor time (of the command and of the processes that
// it has waited for), the same of the command's first thread alone, and the peak of its anonymous
// memory in KiB.
//
// Usage: measure [-a] COMMAND [ARGUMENT...]
// The memory is sampled, which takes time away from what runs beside it: only with -a; otherwise
// it is 0. Exits with the status of the command.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

static constexpr useconds_t SAMPLE_US = 500;
static constexpr int STATUS_NOT_RUN = 127;

[[noreturn]] static void run(char **command)
{
    const int null = open("/dev/null", O_WRONLY);
    if (null >= 0 && dup2(null, STDOUT_FILENO) >= 0 && dup2(null, STDERR_FILENO) >= 0) {
        close(null);
        execvp(command[0], command);
    }
    _exit(STATUS_NOT_RUN);
}

// 0 if there is nothing to be read, as at the very end of the process.
static long anonymous_kib(const std::string &status_path)
{
    FILE *const status = fopen(status_path.c_str(), "re");
    if (status == nullptr)
        return 0;
    long kib = 0;
    char line[256];
    while (fgets(line, sizeof line, status) != nullptr)
        if (sscanf(line, "RssAnon: %ld", &kib) == 1)
            break;
    fclose(status);
    return kib;
}

// Of a process that has ended and has not been waited for yet.
static double own_seconds(const std::string &schedstat_path)
{
    FILE *const schedstat = fopen(schedstat_path.c_str(), "re");
    double nanoseconds = 0;
    const bool known = schedstat != nullptr && fscanf(schedstat, "%lf", &nanoseconds) == 1;
    if (schedstat != nullptr)
        fclose(schedstat);
    return known ? nanoseconds / 1e9 : NAN;
}

static double seconds(const timeval &time)
{
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
}

int main(int argc, char **argv)
{
    const bool sampled = argc > 1 && strcmp(argv[1], "-a") == 0;
    char **const command = argv + (sampled ? 2 : 1);
    if (argc < (sampled ? 3 : 2)) {
        fprintf(stderr, "Usage: %s [-a] COMMAND [ARGUMENT...]\n", argv[0]);
        return 2;
    }

    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0)
        run(command);
    if (child < 0) {
        perror("fork");
        return STATUS_NOT_RUN;
    }
    const std::string proc = "/proc/" + std::to_string(child);
    long peak_kib = 0;
    siginfo_t end = {};
    while (waitid(P_PID, static_cast<id_t>(child), &end,
                  WEXITED | WNOWAIT | (sampled ? WNOHANG : 0)) == 0 &&
           end.si_pid == 0) {
        peak_kib = std::max(peak_kib, anonymous_kib(proc + "/status"));
        usleep(SAMPLE_US);
    }
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - start;
    const double own = own_seconds(proc + "/schedstat");
    if (std::isnan(own)) {
        fprintf(stderr, "%s: the kernel keeps no account of a process's own time\n", argv[0]);
        return STATUS_NOT_RUN;
    }
    int status = 0;
    rusage usage = {};
    wait4(child, &status, 0, &usage);
    printf("%.6f %.6f %.6f %ld\n", wall.count(), seconds(usage.ru_utime) + seconds(usage.ru_stime),
           own, peak_kib);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}
