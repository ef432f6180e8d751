// What an entry's type makes of it. Where this decides there is a switch without default, so that
// a new form is an error wherever it has been forgotten.
#ifndef UPDATE_DTT_UPDATE_COMMON_ENTRY_FORM_H
#define UPDATE_DTT_UPDATE_COMMON_ENTRY_FORM_H

#include "update_header.h"

enum class entry_form { file, directory, link };

// Boot loader, kernel files, card firmware and every unknown type are plain files.
constexpr entry_form form_of(int type)
{
    if (type == ENTRY_DIRECTORY)
        return entry_form::directory;
    return type == ENTRY_LINK ? entry_form::link : entry_form::file;
}

#endif
