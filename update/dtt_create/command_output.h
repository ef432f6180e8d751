// Reading what shell commands print.
#ifndef UPDATE_DTT_CREATE_COMMAND_OUTPUT_H
#define UPDATE_DTT_CREATE_COMMAND_OUTPUT_H

#include <cstddef>
#include <cstdio>

// Bytes of a buffer for one line: at most 62 characters come at a time, and a longer line comes in
// pieces.
constexpr size_t OUTPUT_LINE_SIZE = 64;

// Reads the next piece of a line into `line` of OUTPUT_LINE_SIZE bytes, without its line feed.
// Returns false at the end of the output.
[[nodiscard]] bool read_output_line(FILE *stream, char *line);

// Runs `cmd` and copies the first line of its output to `result`, which has room for 63 bytes.
// Returns 0, also for a command that prints nothing, which leaves `result` alone; -1 if `cmd` is
// null, can't be run, or prints an empty line first.
[[nodiscard]] int run_command_return_string(char *cmd, char *result);

// Cuts `s` in place at its last line feed, and then at its last carriage return.
void chomp(char *s);

#endif
