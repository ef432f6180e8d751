// The tool's own log.
#include "update/dtt_update_common/trace_log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <pthread.h>
#include <sys/time.h>
#include <unistd.h>

int log_d = 1;
int log_debug = 1;

static int log_num = 0;
static FILE *log_fp = nullptr;
static int log_lastday = 0;

// A card's answer writes a line from another thread than the run's.
static pthread_mutex_t log_lock = PTHREAD_MUTEX_INITIALIZER;

static void open_log_file(int today)
{
    char file_name[256];
    snprintf(file_name, sizeof file_name, "/var/log/upgd_log%d.txt", log_num);
    log_fp = fopen(file_name, "w+e");
    log_lastday = today;
}

static void write_line(FILE *sink, const char *prefix, const char *format, va_list args)
    __attribute__((format(printf, 3, 0)));

static void write_line(FILE *sink, const char *prefix, const char *format, va_list args)
{
    fputs(prefix, sink);
    vfprintf(sink, format, args);
}

void trace_line(std::string_view dir, const char *func, int line, const char *format, ...)
{
    const int saved_errno = errno;
    timeval now;
    gettimeofday(&now, nullptr);
    tm local;
    localtime_r(&now.tv_sec, &local);

    pthread_mutex_lock(&log_lock);
    if (log_fp == nullptr)
        open_log_file(local.tm_mday);

    char msg_data[1024];
    snprintf(msg_data, sizeof msg_data,
             "[%04d/%02d/%02d %02d:%02d:%02d.%03d pid=%d] [ %10.*s/%30s/%5d ]:: ",
             local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min,
             local.tm_sec, static_cast<int>(now.tv_usec / 1000), static_cast<int>(getpid()),
             static_cast<int>(dir.size()), dir.data(), func, line);

    va_list args;
    if (log_fp != nullptr && log_d != 0) {
        va_start(args, format);
        write_line(log_fp, msg_data, format, args);
        va_end(args);
    }
    if (log_debug != 0) {
        va_start(args, format);
        write_line(stdout, msg_data, format, args);
        va_end(args);
    }
    if (log_fp != nullptr) {
        fflush(log_fp);
        // The line on which the day changes still belongs to the old file; the next one opens and
        // empties the other.
        if (local.tm_mday != log_lastday) {
            fclose(log_fp);
            log_fp = nullptr;
            log_num = 1 - log_num;
        }
    }
    pthread_mutex_unlock(&log_lock);
    errno = saved_errno;
}
