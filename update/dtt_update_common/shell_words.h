// Words of command lines. The system's commands are formats that paths are put into unquoted, so a
// text that comes from outside is asked here whether a shell leaves it alone.
#ifndef DTT_UPDATE_COMMON_COMMAND_WORDS_H
#define DTT_UPDATE_COMMON_COMMAND_WORDS_H

// Whether `text` means itself in a command line that is run in `directory`: a POSIX shell neither
// divides it nor puts anything in its place, and no command takes it for an option. '*', '?' and
// '[' are allowed, as a root file system has links called "[", unless they are a pattern that
// another file matches: the shell would put that file there. The empty text passes.
bool means_itself(const char *text, const char *directory = ".");

#endif
