// Directories and links, which are made by shell commands. The commands take the paths unquoted:
// who has them from an image asks command_fault first.
#ifndef UPDATE_DTT_UPDATE_DIRECTORIES_AND_LINKS_H
#define UPDATE_DTT_UPDATE_DIRECTORIES_AND_LINKS_H

#include "platform/platform.h"
#include "update/dtt_update_common/entry_paths.h"

// Makes a directory with its parents. Returns 0 whatever the command did; a path of more than 497
// characters is not tried.
int _mkdir(const char *str);

// Makes the directory that the entry `filename` lies in below `force_dir`, if it is missing.
void mkdir_base_dir(char *force_dir, char *filename);

// Makes the link. Returns what my_system returned, or -1 if a text does not fit its buffer.
int creat_link_file(char *basename, char *filename);

#endif
