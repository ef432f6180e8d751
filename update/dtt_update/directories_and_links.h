// Directories and links, which are made by shell commands. The commands take the paths unquoted:
// who has them from an image asks can_be_made and means_itself first.
#ifndef DTT_UPDATE_DIRECTORIES_AND_LINKS_H
#define DTT_UPDATE_DIRECTORIES_AND_LINKS_H

#include "platform/platform.h"
#include "update/dtt_update_common/path_operations.h"

// Makes a directory with its parents. Returns 0 whatever the command did; a path of more than 497
// characters is not tried.
int _mkdir(const char *str);

// Whether the command fits `path` and leaves it as it is.
bool can_be_made(const char *path);

// The directory that the file or link of the entry `filename` lies in below `force_dir`, into
// `path` of PATH_SIZE bytes. A ';' divides a link from its target, which is no part of its path.
void parent_directory(const char *force_dir, const char *filename, char *path);

// Makes that directory, if it is missing.
void mkdir_base_dir(char *force_dir, char *filename);

// Cuts `s` in place at its last ';', if there is one. A null `s` is left alone.
void cut_link_filename(const char *s);

constexpr size_t LINK_TEXT_SIZE = 128; // each buffer of a link's texts and its command

// What the command that makes a link is built from.
struct link_texts {
    char directory[LINK_TEXT_SIZE]; // that the link lies in
    char path[LINK_TEXT_SIZE];      // the entry's name, cut at the ';'
    const char *name;               // the link's own last component, empty without a target
    const char *target;
};

// Takes the texts of the link at `basename`, its full path, for the entry `filename`,
// "path;target". Returns false if one does not fit its buffer.
bool take_link_texts(const char *basename, const char *filename, link_texts *link);

// Whether the command leaves the texts of the link as they are.
bool link_means_itself(const link_texts *link);

// Builds the command in `cmd` of LINK_TEXT_SIZE bytes. Returns false if it does not fit.
bool link_command(const link_texts *link, char *cmd);

// Makes the link. Returns what my_system returned, or -1 if a text does not fit its buffer.
int creat_link_file(char *basename, char *filename);

#endif
