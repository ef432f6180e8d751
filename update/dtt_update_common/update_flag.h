// The update flag file, which tells a reader after a restart how far the last apply run came.
#ifndef UPDATE_DTT_UPDATE_COMMON_UPDATE_FLAG_H
#define UPDATE_DTT_UPDATE_COMMON_UPDATE_FLAG_H

// Values of the flag file: one decimal digit and a line feed. Empty, an apply run was cut while
// it was starting; absent, the same, or none was ever started: in both cases it had touched
// nothing. Each value is on the medium before the run goes on, so this holds after a power cut too.
enum { UPDATE_FLAG_STARTED = 1, UPDATE_FLAG_DONE = 2 };

// Brings `flag_file` to `value`. The results of the commands it runs are not looked at. Returns 0,
// or -1 for a path of more than 113 characters, for which no command is run.
int set_update_flag(char *flag_file, int value);

#endif
