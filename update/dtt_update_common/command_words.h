// Words of command lines. The system's commands are formats that paths are put into unquoted, so a
// text that comes from outside is asked here whether a shell leaves it alone.
#ifndef DTT_UPDATE_COMMON_COMMAND_WORDS_H
#define DTT_UPDATE_COMMON_COMMAND_WORDS_H

// Whether `text` means itself in a command line: a shell neither divides it nor puts anything in
// its place, and no command takes it for an option. '*', '?' and '[' are allowed although they are
// patterns: a root file system has links called "[". The empty text passes.
bool means_itself(const char *text);

#endif
