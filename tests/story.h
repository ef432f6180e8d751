// What a story can do, by name, and what the system asks meanwhile of the platform layer and of the
// clocks, in order with its trace lines. Commands go on to the real platform layer; logs, messages
// and waits end here.
#ifndef TESTS_STORY_H
#define TESTS_STORY_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

// The words of a call, each in memory of exactly its size, where the sanitizers see a step beside.
struct call {
    std::vector<std::string> words;
    std::map<size_t, std::unique_ptr<char[]>> texts;

    // "-" and a missing word are null.
    char *text(size_t i);
    // Puts `old` in the place of the word, where `size` bytes have room.
    void make_room(size_t i, size_t size, const char *old);
    // In any notation; 0 if it is missing.
    int number(size_t i) const;
};

// Each gives its result as text, or nothing to tell.
using operation_table = std::map<std::string, std::function<std::string(call &)>>;
extern operation_table operations;

std::string read_file(const std::string &path);

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
