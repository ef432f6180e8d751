// What a person sees.
#include "companions/upgd_service/console.h"

#include "companions/text/shown_text.h"
#include "companions/upgd_service/commands.h"
#include "update/dtt_update_common/raw_io.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <mutex>
#include <string>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

static FILE *out = stdout;
static FILE *errors = stderr;
static bool on_terminal = false;
static int command_output = -1;

// The run's thread and the one that shows the progress write here.
static std::mutex lock;
static bool line_is_open = false;
static int print_error = 0; // errno of a line that could not be printed
static std::string complaint;
static int shown_permille = 0;
static long started = 0; // in milliseconds, as the next
static long shown_at = 0;
static constexpr long SHOW_EVERY = 50;

static long now_ms()
{
    timespec time;
    clock_gettime(CLOCK_MONOTONIC, &time);
    return static_cast<long>(time.tv_sec) * 1000 + time.tv_nsec / 1000000;
}

[[noreturn]] static void end_without_console()
{
    dprintf(STDERR_FILENO, "upgd_service: nothing can be printed: %s\n", strerror(errno));
    _exit(SERVICE_FAILED);
}

void take_console()
{
    fflush(stdout);
    out = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 3), "w");
    errors = fdopen(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3), "w");
    if (out == nullptr || errors == nullptr)
        end_without_console();
    on_terminal = isatty(fileno(out)) != 0;
    // The trace log has the system's own lines, which go through this process's streams. What goes
    // to the descriptors themselves comes from commands.
    FILE *const nowhere = fopen("/dev/null", "we");
    command_output = memfd_create("commands", MFD_CLOEXEC);
    const int kept = command_output >= 0  ? command_output
                     : nowhere != nullptr ? fileno(nowhere)
                                          : -1;
    if (nowhere == nullptr || fcntl(kept, F_SETFL, O_APPEND) != 0 ||
        dup2(kept, STDOUT_FILENO) < 0 || dup2(kept, STDERR_FILENO) < 0)
        end_without_console();
    stdout = nowhere;
    stderr = nowhere;
    started = now_ms();
}

void forget_command_output()
{
    if (command_output >= 0 && ftruncate(command_output, 0) != 0)
        complain("what commands say can't be kept: %s", strerror(errno));
}

void show_command_output()
{
    static constexpr size_t LINES = 5;
    char text[4096];
    const off_t size = command_output >= 0 ? lseek(command_output, 0, SEEK_END) : 0;
    const off_t start = std::max<off_t>(size - static_cast<off_t>(sizeof text - 1), 0);
    const size_t len = full_pread(command_output, text, static_cast<size_t>(size - start), start);
    text[len] = '\0';
    const std::string reason = complaint;
    // A tool's own progress line is written over and over.
    std::vector<const char *> lines;
    char *rest = nullptr;
    for (char *line = strtok_r(text, "\r\n", &rest); line != nullptr;
         line = strtok_r(nullptr, "\r\n", &rest))
        lines.push_back(line);
    for (size_t i = lines.size() > LINES ? lines.size() - LINES : 0; i < lines.size(); i++)
        complain("a command said: %s", lines[i]);
    complaint = reason;
}

static void clear_line()
{
    if (line_is_open)
        fputs("\r\033[K", out);
    line_is_open = false;
}

// A reader that has gone away is no failure: the run goes on without him.
static void flush(FILE *stream)
{
    if (fflush(stream) != 0 && errno != EPIPE)
        print_error = errno;
}

__attribute__((format(printf, 3, 0))) static void
print_line(FILE *stream, const char *head, const char *format, va_list args, const char *tail = "")
{
    char *text = nullptr;
    if (vasprintf(&text, format, args) < 0)
        text = nullptr;
    const char *const shown = text != nullptr ? text : format;
    const std::lock_guard<std::mutex> guard(lock);
    clear_line();
    flush(out);
    fputs(head, stream);
    print_shown(stream, shown, strlen(shown));
    fprintf(stream, "%s\n", tail);
    flush(stream);
    if (stream == errors)
        complaint = std::string(shown) + tail;
    free(text);
}

std::string last_complaint()
{
    const std::lock_guard<std::mutex> guard(lock);
    return complaint;
}

bool output_is_whole()
{
    return print_error == 0 || complain("standard output: %s", strerror(print_error));
}

void say(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    print_line(out, "", format, args);
    va_end(args);
}

bool complain(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    print_line(errors, "upgd_service: ", format, args);
    va_end(args);
    return false;
}

bool refuse(const char *next, const char *format, ...)
{
    const std::string tail = std::string(": nothing was touched") + (*next != 0 ? "; " : "") + next;
    va_list args;
    va_start(args, format);
    print_line(errors, "upgd_service: ", format, args, tail.c_str());
    va_end(args);
    return false;
}

bool refuse_unless(bool force, const char *next, const char *name, const char *fault)
{
    if (!force)
        return refuse(next, "%s: %s", name, fault);
    complain("%s: %s, which --force passes over", name, fault);
    return true;
}

int fail(const char *format, ...)
{
    va_list args;
    va_start(args, format);
    print_line(errors, "upgd_service: ", format, args);
    va_end(args);
    return SERVICE_FAILED;
}

static size_t columns()
{
    winsize size = {};
    return ioctl(fileno(out), TIOCGWINSZ, &size) == 0 && size.ws_col > 0 ? size.ws_col : 80;
}

// The line for a terminal of `width` columns: the bar takes what room the words leave, and the
// step's words are cut last. The last column stays free, where terminals would wrap.
static std::string progress_line(const char *step, int permille, int done, int total, size_t width)
{
    const long seconds = (now_ms() - started) / 1000;
    char tail[64];
    snprintf(tail, sizeof tail, " %3d %% %d/%d %ld:%02ld", permille / 10, done, total, seconds / 60,
             seconds % 60);
    std::string line = step;
    const size_t room = width - 1;
    const size_t used = std::max<size_t>(line.size(), 24) + strlen(tail) + 3;
    if (room >= used + 8) {
        const size_t bar = std::min<size_t>(room - used, 40);
        const size_t full = bar * static_cast<size_t>(permille) / 1000;
        line.resize(std::max<size_t>(line.size(), 24), ' ');
        line += " [" + std::string(full, '#') + std::string(bar - full, '.') + "]";
    }
    line.resize(std::min(line.size(), room > strlen(tail) ? room - strlen(tail) : 0));
    return (line + tail).substr(0, room);
}

void show_progress(const char *step, int permille, int done, int total)
{
    if (!on_terminal)
        return;
    const std::lock_guard<std::mutex> guard(lock);
    const bool ends = permille >= 1000 && shown_permille < 1000;
    if (!ends && now_ms() - shown_at < SHOW_EVERY)
        return;
    shown_at = now_ms();
    shown_permille = std::max(shown_permille, std::min(permille, 1000));
    const std::string line = progress_line(step, shown_permille, done, total, columns());
    fprintf(out, "\r%s\033[K", line.c_str());
    fflush(out);
    line_is_open = true;
}

int shown_percent()
{
    const std::lock_guard<std::mutex> guard(lock);
    return shown_permille / 10;
}

void end_progress()
{
    const std::lock_guard<std::mutex> guard(lock);
    if (line_is_open)
        fputc('\n', out);
    fflush(out);
    line_is_open = false;
}
