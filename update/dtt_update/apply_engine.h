// Applying an update image, with its progress in the shared block.
#ifndef DTT_UPDATE_APPLY_ENGINE_H
#define DTT_UPDATE_APPLY_ENGINE_H

// Results of a run beside 0.
enum {
    APPLY_NOT_MAPPED = -3,
    APPLY_COPY_FAILED = -4,
    APPLY_REFUSED = -10 // there is no progress block, or the image was refused
};

// Applies the image `update_file`, whose text is cut in place at a line feed. `force_base_dir`,
// made if it is missing, takes the place of the directory that the image asks for, which must
// exist; null leaves it to the image. REBOOT_MODE restarts the board at the end, whatever the
// outcome; any other `mode` does not. Returns 0, one of the codes above, or the installer's.
// Entries written ahead of a failure stay; the image's version is recorded only after a run without
// one. The working directory is left changed. One run at a time in a process.
int do_update(char *update_file, int mode, char *force_base_dir);

#endif
