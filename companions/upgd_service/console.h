// What a person sees: on a terminal one line that shows the progress and never goes backwards, on a
// pipe one plain line an event. The system's own lines, which go to the standard streams, are kept
// out of it; the trace log has them. The commands' lines are shown when something has failed.
#ifndef COMPANIONS_UPGD_SERVICE_CONSOLE_H
#define COMPANIONS_UPGD_SERVICE_CONSOLE_H

#include <cstddef>
#include <string>

// Takes the standard streams away from the system's lines and from the commands that it runs; what
// the commands say is kept. What follows still reaches the person.
void take_console();

// Forgets what commands have said so far.
void forget_command_output();

// Shows the last lines that commands have said, on standard error, to a person who has just been
// told of a failure.
void show_command_output();

// A line of its own, also while a progress line is shown. What commands a terminal is shown by its
// code, here and below: labels and names come from a disk that anybody may have written.
void say(const char *format, ...) __attribute__((format(printf, 1, 2)));

// "upgd_service: " and a sentence, on standard error. Returns false, and the other one
// SERVICE_FAILED, for whoever ends with it.
bool complain(const char *format, ...) __attribute__((format(printf, 1, 2)));
int fail(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Complains that nothing was touched for the reason that `format` gives, and of the `next` step
// where there is one (else ""). Returns false.
bool refuse(const char *next, const char *format, ...) __attribute__((format(printf, 2, 3)));

// The same for what has the fault, but for --force, which passes over it. Returns `force`.
bool refuse_unless(bool force, const char *next, const char *name, const char *fault);

// What complain has said last, without what commands have said; empty if nothing.
std::string last_complaint();

// Whether everything that was said could be printed. Else a sentence tells why not.
[[nodiscard]] bool output_is_whole();

// The state of a run: `permille` of it is done, `done` of `total` entries. A smaller `permille`
// than before is shown as before. Nothing is shown on a pipe.
void show_progress(const char *step, int permille, int done, int total);

// The percent that the progress line has come to, 0 on a pipe.
int shown_percent();

// Ends the progress line, so that it stays.
void end_progress();

// What a code is in words.
struct code_words {
    int code;
    const char *words;
};

// Returns the words of the code, or `otherwise` if the table does not have it.
template <size_t COUNT>
const char *words_for(const code_words (&table)[COUNT], int code, const char *otherwise)
{
    for (const code_words &row : table)
        if (row.code == code)
            return row.words;
    return otherwise;
}

#endif
