// Bringing the entries of an image to the file system: what both apply engines do with each entry.
// Lines are written in the name of the engine that is given.
#ifndef DTT_UPDATE_UNPACK_H
#define DTT_UPDATE_UNPACK_H

#include "update/dtt_update/image_reader.h"
#include "upgrade_info.h"

// Reads the next entry and tests it: that it can be read, stays below `u_base_dir`, fits the
// buffers of the operations below, and that no command would take it apart. Nothing is touched yet.
// The target path, a link's own path, is left in `basename` of PATH_SIZE bytes. Returns 0, or -1
// with a trace line that tells the fault; `basename` then names what comes closest to the path.
int take_entry(const char *engine, entry_walk *walk, const char *u_base_dir, image_entry *entry,
               char *basename);

// Makes way for an entry: its parent directory is made, the entry is announced, and what stands at
// its target path is unlinked, or emptied if it can't be. A directory entry is made here whole.
void prepare_entry(const char *engine, char *u_base_dir, image_entry *entry, const char *basename);

// Writes the entry's data from the image `img`, mapped at `filedata`, to the new file `basename`; a
// link gets an empty file in its place. Returns 0 or -1.
int write_entry(const char *engine, const image *img, const char *filedata,
                const image_entry *entry, const char *basename);

// Counts an entry that could not be taken or written in the progress and writes its lines.
void copy_failed(const char *engine, upgrade_info_t *update_info, const char *basename);

// Makes the parent directory of the entry `filename` below `force_dir`, if it is missing. The
// target of a link is no part of its path.
void mkdir_base_dir(char *force_dir, char *filename);

// Makes a directory with its parents through a shell command. The path is not quoted. Returns 0
// whatever the command did; a path of more than 497 characters is not tried.
int _mkdir(const char *str);

// Cuts `s` in place at its last ';', if there is one. A null `s` is left alone.
void cut_link_filename(const char *s);

// Makes the symbolic link at `basename`, its full path, for the entry `filename`, "path;target",
// through a shell command. Returns what my_system returned, or -1 if a text does not fit its buffer
// of 128 bytes.
int creat_link_file(char *basename, char *filename);

#endif
