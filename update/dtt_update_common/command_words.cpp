// Words of command lines.
#include "update/dtt_update_common/command_words.h"

#include <cctype>
#include <cstring>

// Whether the shell takes "$" and `next` for a parameter or a command to be put in their place.
static bool expands(char next)
{
    return next != '\0' && (isalnum(static_cast<unsigned char>(next)) != 0 ||
                            strchr("_{(@*#?$!-", next) != nullptr);
}

bool means_itself(const char *text)
{
    if (text[0] != '\0' && strchr("-~#", text[0]) != nullptr)
        return false;
    for (; *text != '\0'; text++)
        if (iscntrl(static_cast<unsigned char>(*text)) != 0 ||
            strchr(" |&;<>()'\"\\`", *text) != nullptr || (*text == '$' && expands(text[1])))
            return false;
    return true;
}
