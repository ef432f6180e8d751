// Words of command lines.
#include "update/dtt_update_common/shell_words.h"

#include <cctype>
#include <cstring>

// Whether the shell takes "$" and `next` for a parameter or a command to be put in their place.
static bool expands(char next)
{
    return next != '\0' && (isalnum(static_cast<unsigned char>(next)) != 0 ||
                            strchr("_{([@*#?$!-", next) != nullptr);
}

bool is_shell_safe_text(const char *text)
{
    const char *const last_bracket = strrchr(text, ']');
    for (const char *at = text; *at != '\0'; at++)
        if (iscntrl(static_cast<unsigned char>(*at)) != 0 ||
            strchr("|&;<>()'\"\\*?{`", *at) != nullptr || (*at == '$' && expands(at[1])) ||
            (*at == '[' && last_bracket != nullptr && at < last_bracket))
            return false;
    return true;
}

bool is_shell_safe_word(const char *text)
{
    return (text[0] == '\0' || strchr("-~#", text[0]) == nullptr) && strchr(text, ' ') == nullptr &&
           is_shell_safe_text(text);
}
