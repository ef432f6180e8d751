// The record of an apply run, which both engines fill and hand on, and the steps that they take
// alike. Lines are written in the name of the engine.
#ifndef UPDATE_DTT_UPDATE_UPDATE_RUN_H
#define UPDATE_DTT_UPDATE_UPDATE_RUN_H

#include "update/dtt_update_common/base_directory.h"
#include "update/dtt_update_common/image_reader.h"
#include "upgrade_info.h"

struct update_run {
    const char *engine;       // name of the operation that was called
    upgrade_info_t *progress; // the engine's own, for others to read meanwhile
    image_file img;           // `fd` is -1 while it is not open
    const char *mapping;      // of the whole image, for write(2) alone
    int percent_written;      // what `cur_percent` becomes when the data of an entry is written
    base_directory base;      // to unpack below, entered when the image is taken
};

#define RUN_LOG(run, ...) PLATFORM_LOG_AS((run)->engine, __VA_ARGS__)
#define RUN_TRACE(run, ...) TRACE_AS((run)->engine, __VA_ARGS__)

// Announces a run of `engine`, which has no progress record yet.
update_run start_run(const char *engine);

// Clears the progress but for `result`, and says so.
void start_progress(update_run *run, int result);

// Maps the image. Returns 0, or -1.
[[nodiscard]] int map_image(update_run *run);

// Enters the number of entries in the progress and announces the unpacking.
void begin_unpacking(update_run *run);

// Brings everything that was written to the medium. Returns 0, or UPDATE_COPY_FAILED with the
// lines and the count of a failed copy: a disk that fails late fails here.
[[nodiscard]] int sync_unpacked(update_run *run);

// Counts an entry that has failed at `path` in the progress, and writes its lines.
void say_copy_failed(update_run *run, const char *path);

// Lets go of the mapping and the file systems and says how the unpacking has ended.
void end_unpacking(update_run *run);

// After an unpacking without failure: records the image's version, unless a command would take it
// apart, and has everything written to the disks.
void record_image(update_run *run);

// The lines of a run that has failed.
void say_failed(const update_run *run);

// Ends a run: restarts the board in REBOOT_MODE, after the time that a reader has to see the
// result.
void end_run(const update_run *run, int mode);

#endif
