// What a story can do, by name.
#ifndef TESTS_OPERATIONS_H
#define TESTS_OPERATIONS_H

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

#endif
