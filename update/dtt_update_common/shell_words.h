// Words of command lines. The system's commands are formats that paths are put into unquoted, so a
// text that comes from outside is asked here ahead of them, against command injection. The text
// alone decides: no file system is asked, and the answer is the same on every machine.
#ifndef UPDATE_DTT_UPDATE_COMMON_SHELL_WORDS_H
#define UPDATE_DTT_UPDATE_COMMON_SHELL_WORDS_H

// Whether a shell at most divides `text` at its blanks and leaves the words as they are: no
// control character, none of | & ; < > ( ) ' " \ * ? { and no backquote, no '[' with a ']' behind
// it, and no '$' that begins an expansion. A root file system has links called "[".
[[nodiscard]] bool is_shell_safe_text(const char *text);

// Whether `text` is also one word: without a blank, and without a '-', '~' or '#' in front, which
// would make it an option, a home directory or a comment. The empty text passes.
[[nodiscard]] bool is_shell_safe_word(const char *text);

#endif
