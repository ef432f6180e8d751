// Steps of a run that both apply engines take alike. Lines are written in the name of the engine
// that is given.
#ifndef DTT_UPDATE_RUN_STEPS_H
#define DTT_UPDATE_RUN_STEPS_H

#include "update/dtt_update/image_reader.h"
#include "upgrade_info.h"

// Writes the lines with the run's present result.
void show_result(const char *engine, const upgrade_info_t *update_info);

// Maps the whole image for reading; null if that fails. Unmapped by unmap_image.
const char *map_image(const image *img);
void unmap_image(const image *img, const char *filedata);

// Announces the unpacking of the number of entries that the progress holds.
void begin_unpacking(const char *engine, upgrade_info_t *update_info);

// After an unpacking without failure: records the image's version, unless a command would take it
// apart, and has everything written to the disks.
void record_image(const char *engine, image *img);

// Ends a run: restarts the board in REBOOT_MODE, after the time that a reader has to see the
// result.
void end_run(const char *engine, int mode);

#endif
