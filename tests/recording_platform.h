// A platform layer that does nothing but record what it is asked to do, in one list with the trace
// lines and the waits, and that answers as the test has told it. The shell commands that make
// directories, links and the flag file take effect, by system calls, below the test's directory.
#ifndef TESTS_RECORDING_PLATFORM_H
#define TESTS_RECORDING_PLATFORM_H

#include "upgrade_info.h"

#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <vector>

struct recording {
    // In order: "log FUNCTION: TEXT", "trace TEXT", "run COMMAND", "sleep SECONDS",
    // "usleep MICROSECONDS", "open PATH" and "close" of the trace log, "shm CALL".
    std::vector<std::string> lines;
    std::string prefix; // of the last trace line

    std::string dir;                                  // where commands take effect
    std::function<int(const std::string &)> on_run;   // gives a command's result, if set
    std::function<void(const std::string &)> on_line; // called with each line
    bool log_file_opens = true;
    long long time_us = 1764000000123456; // the clock
    bool shm_exists = false;
    bool shm_fails = false;
    upgrade_info_t block = {7, 7, 7, 7, 7}; // the shared memory

    // The lines that begin with `kind`, without it, joined by '|'.
    std::string all(const std::string &kind) const;
    bool has(const std::string &line) const;
};

extern recording rec;

// A fixture with a directory of its own, a fresh recording, and the console quiet.
struct Recorded : testing::Test {
    std::string dir;

    void SetUp() override;
    void TearDown() override;

    // What has gone to standard error and standard output since the last call.
    std::string console();
};

std::string read_file(const std::string &path);
void write_file_text(const std::string &path, const std::string &text);

// "path type content" of everything below `dir`, sorted; links as "path -> target".
std::string tree_text(const std::string &dir);

#endif
