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

// A form that no type has would be one that form_of has forgotten.
constexpr bool each_form_has_a_type(int last)
{
    int found[3] = {};
    for (int type = 0; type < 256; type++)
        found[static_cast<int>(form_of(type))]++;
    for (int form = 0; form <= last; form++)
        if (found[form] == 0)
            return false;
    return true;
}
static_assert(each_form_has_a_type(static_cast<int>(entry_form::link)), "see form_of");

#endif
