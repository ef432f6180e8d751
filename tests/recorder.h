// What the system asks of the platform layer and of the clocks, in one list with its trace lines.
// Commands go on to the real platform layer; logs, messages and waits end here.
#ifndef TESTS_RECORDER_H
#define TESTS_RECORDER_H

#include <functional>
#include <map>
#include <string>
#include <vector>

struct recording {
    std::string prefix; // of the last trace line, without process and source line
    std::function<void(const std::string &)> on_line;
    std::vector<std::string> failing;           // lines that begin so are of calls that fail
    std::map<std::string, std::string> outputs; // of commands that are read, by their beginnings
    std::map<std::string, int> answers;         // of cards: "TYPE POLL", by then
    int polls = 0;                              // since the last message
    bool raw = false;                           // messages are shown as bytes
    bool types_are_told = true;                 // in the listings of directories
    long long time_us = 1780444867089999;       // the clock: 2026-06-03 00:01:07
};

extern recording rec;

// `text` in printable characters; "c{300}" stands for 300 times c, "\s" for a blank at the end.
std::string shown(const std::string &text);

#endif
