// Applying an update image, with its progress in the shared block.
#ifndef UPDATE_DTT_UPDATE_APPLY_ENGINE_H
#define UPDATE_DTT_UPDATE_APPLY_ENGINE_H

// Applies the image `update_file`, whose text is cut in place at a line feed. `force_base_dir`,
// made if it is missing, takes the place of the directory that the image asks for, which must
// exist; null leaves it to the image. REBOOT_MODE restarts the board at the end, whatever the
// outcome; any other `mode` does not. Returns 0 or one of UPDATE_... in
// update_service.h: UPDATE_REFUSED also without a progress block. Entries written ahead of a
// failure stay; the image's version is recorded only after a run without one. The working directory
// is left changed. One run at a time in a process.
[[nodiscard]] int do_update(char *update_file, int mode, char *force_base_dir);

#endif
