// Where an entry goes below a base directory, and the commands that bring it there. Nothing here
// looks at the file system or writes a line.
#ifndef UPDATE_DTT_UPDATE_COMMON_ENTRY_PATHS_H
#define UPDATE_DTT_UPDATE_COMMON_ENTRY_PATHS_H

#include "update/dtt_update_common/image_reader.h"

struct entry_place {
    char basename[PATH_SIZE]; // the entry's full path, a link's own
    char parent[PATH_SIZE];   // the directory that this lies in
    char made[PATH_SIZE];     // what is made of it: cut at a ';', also where the entry is no link
};

// Finds where the entry goes below `base`. Returns false if its path does not fit; `basename` is
// the entry's name then.
[[nodiscard]] bool find_place(const char *base, const image_entry *entry, entry_place *place);

// Whether the command that makes directories fits `path` and leaves it as it is.
[[nodiscard]] bool can_be_made(const char *path);

// The directory that the file or link of the entry `filename` lies in below `force_dir`, into
// `path` of PATH_SIZE bytes. A ';' divides a link from its target, which is no part of its path.
void parent_directory(const char *force_dir, const char *filename, char *path);

// Cuts `s` in place at its last ';', if there is one. A null `s` is left alone.
void cut_link_filename(const char *s);

constexpr size_t MKDIR_COMMAND_SIZE = 512;
constexpr char MKDIR_COMMAND[] = "/bin/mkdir -p ";

constexpr size_t LINK_TEXT_SIZE = 128; // each buffer of a link's texts
constexpr char LINK_COMMAND[] = "cd /%s/ && /bin/ln -sf %s %s";
constexpr size_t LINK_COMMAND_SIZE = sizeof LINK_COMMAND + 3 * LINK_TEXT_SIZE; // holds any of them

// What the command that makes a link is built from.
struct link_texts {
    char directory[LINK_TEXT_SIZE]; // that the link lies in
    char path[LINK_TEXT_SIZE];      // the entry's name, cut at the ';'
    const char *name;               // the link's own last component, empty without a target
    const char *target;
};

// Takes the texts of the link at `basename`, its full path, for the entry `filename`,
// "path;target". Returns false if one does not fit its buffer.
[[nodiscard]] bool take_link_texts(const char *basename, const char *filename, link_texts *link);

constexpr size_t INSTALL_COMMAND_SIZE = 128;

// The names count anywhere in the path, also inside of a directory's name.
bool is_kernel_file(const char *filename);

// Whether a run puts the path `filename` of an entry of this type into a command that installs it.
bool installs(int type, const char *filename);

// Builds the command that brings the file to the partition of the boot loader or of the kernel in
// `cmd` of INSTALL_COMMAND_SIZE bytes. Returns false if it does not fit.
[[nodiscard]] bool install_command(int type, const char *filename, char *cmd);

#endif
