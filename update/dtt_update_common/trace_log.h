// The tool's own log: each trace line goes to one of two files, which take turns at a change of
// day, and to standard output. Any thread may write trace lines.
#ifndef UPDATE_DTT_UPDATE_COMMON_TRACE_LOG_H
#define UPDATE_DTT_UPDATE_COMMON_TRACE_LOG_H

#include <string_view>

// The switches of the two sinks: log file and standard output. Both are on.
extern int log_d;
extern int log_debug;

// Writes a trace line: the prefix with time, process, source directory, function and line, then
// the message. No line feed is added. `dir` is shown as the source path.
void trace_line(std::string_view dir, const char *func, int line, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

constexpr std::string_view source_directory(std::string_view file)
{
    const size_t slash = file.rfind('/');
    return slash == std::string_view::npos ? std::string_view() : file.substr(0, slash);
}

#define TRACE(...) TRACE_AS(__func__, __VA_ARGS__)

// For a file whose lines all name one operation, which it defines as OPERATION.
#define OPERATION_TRACE(...) TRACE_AS(OPERATION, __VA_ARGS__)

// For code that two engines share and that logs in the name of the one that runs.
#define TRACE_AS(func, ...) trace_line(source_directory(__FILE__), func, __LINE__, __VA_ARGS__)

#endif
