// The file names by which card firmware is recognised when an image is built.
#ifndef UPDATE_DTT_CREATE_CARD_FILE_NAMES_H
#define UPDATE_DTT_CREATE_CARD_FILE_NAMES_H

#include "update/dtt_update_common/card_kinds.h"

struct type_file_t {
    int file_type;        // entry type code
    char file_name[1024]; // exact name of the file, without a directory
};

// One row for each kind of card firmware.
extern type_file_t type_file[CARD_TYPES];

// Looks the bare file name `name` up in type_file. Returns 0 and stores the type code in `*type`,
// or returns -1 and leaves it alone. A name of more than 2048 characters is not compared.
[[nodiscard]] int check_type_SelfFile(char *name, int *type);

#endif
