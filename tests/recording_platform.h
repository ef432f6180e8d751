// A platform layer that does nothing but record what it is asked to do, in one list with the trace
// lines and the waits, and that answers as the test has told it. The shell commands that make
// directories, links and the flag file take effect, by system calls, below the test's directory.
#ifndef TESTS_RECORDING_PLATFORM_H
#define TESTS_RECORDING_PLATFORM_H

#include "upgrade_info.h"

#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <string>
#include <vector>

// The name of a call on files in the C library.
#if __SIZEOF_POINTER__ == 4
#define FILE_CALL(prefix, call) prefix##call##64
#else
#define FILE_CALL(prefix, call) prefix##call
#endif

struct recording {
    // In order: "log FUNCTION: TEXT", "trace TEXT", "run COMMAND", "sleep SECONDS",
    // "usleep MICROSECONDS", "open PATH" and "close" of the trace log, "shm CALL", "syncfs", "send
    // TASK SIZE", "popen COMMAND", "apmsg CALL".
    std::vector<std::string> lines;
    std::string prefix;  // of the last trace line
    std::string formats; // of the log lines, each with a line feed

    std::string dir;                                  // where commands take effect
    std::function<void(const std::string &)> on_line; // called with each line
    std::string failing;                              // commands that begin so can't be run
    int run_result = 0;                               // of the others
    std::map<std::string, std::string> outputs;       // of commands, by their beginnings
    bool log_file_opens = true;
    long long time_us = 1764000000123456; // the clock
    bool shm_exists = false;
    bool shm_fails = false;
    int sync_error = 0;                     // of the file system, 0 for none
    upgrade_info_t block = {7, 7, 7, 7, 7}; // the shared memory

    int open_streams = 0;              // of commands
    const char *device_name = "unit7"; // in the configuration: null without one, "-" without a name
    bool session_exists = true;
    int open_messages = 0;

    std::vector<std::string> messages; // the bytes of each message that was sent
    int send_result = 0;
    int card_bit = 1;
    int polls = 0;                    // waits by select(2) so far
    std::function<void(int)> on_poll; // called with their number at the end of each

    // The lines that begin with `kind`, without it, joined by '|'.
    std::string all(const std::string &kind) const;
    bool has(const std::string &line) const;
    // The last lines.
    std::vector<std::string> last(size_t count) const;
};

extern recording rec;

// A fixture with a directory of its own, a fresh recording, and the console quiet.
struct Recorded : testing::Test {
    std::string dir;

    void SetUp() override;
    void TearDown() override;

    // What has gone to standard error and standard output since the last call.
    std::string console();

  private:
    std::string console_text; // by console(), a failure's message maybe among it
};

// Lets descriptors run out, or files end at `size` bytes as on a full disk, while a line that
// begins with `head` is the last one.
void exhaust_descriptors_at(const std::string &head);
void limit_files_at(const std::string &head, size_t size);

// Makes the open file `name` one that can't be mapped, at the line `line`.
void unmappable_at(const std::string &line, const std::string &name);

std::string read_file(const std::string &path);
void write_file_text(const std::string &path, const std::string &text);

// "path = content" of each file below `dir`, "path -> target" of each link and "path/" of each
// empty directory, sorted.
std::string tree_text(const std::string &dir);

#endif
