// Words of command lines.
#include "update/dtt_update_common/command_words.h"

#include <cctype>
#include <climits>
#include <cstring>
#include <glob.h>

static constexpr char PATTERN_CHARACTERS[] = "*?[";

// Whether the shell takes "$" and `next` for a parameter or a command to be put in their place.
static bool expands(char next)
{
    return next != '\0' && (isalnum(static_cast<unsigned char>(next)) != 0 ||
                            strchr("_{(@*#?$!-", next) != nullptr);
}

// Writes `directory` and a '/' so that no character of it counts as a pattern. Returns the end of
// what was written, or null if that would not leave room for `rest` bytes more.
static char *quote_directory(const char *directory, char (&pattern)[3 * PATH_MAX], size_t rest)
{
    char *end = pattern;
    if (2 * strlen(directory) + 1 + rest > sizeof pattern)
        return nullptr;
    for (; *directory != '\0'; directory++) {
        if (strchr("*?[]\\", *directory) != nullptr)
            *end++ = '\\';
        *end++ = *directory;
    }
    *end++ = '/';
    return end;
}

// Whether another file than the one called `text` matches it. What can't be found out counts as
// one.
static bool matches_another(const char *text, const char *directory)
{
    char pattern[3 * PATH_MAX];
    const char *const place = text[0] == '/' ? "" : directory;
    char *const word = quote_directory(place, pattern, strlen(text) + 1);
    if (word == nullptr)
        return true;
    memcpy(word, text, strlen(text) + 1);
    glob_t found;
    const int result = glob(pattern, GLOB_NOSORT, nullptr, &found);
    const size_t ahead = strlen(place) + 1; // in the names that were found
    const bool another = result == 0
                             ? found.gl_pathc > 1 || strcmp(found.gl_pathv[0] + ahead, text) != 0
                             : result != GLOB_NOMATCH;
    globfree(&found);
    return another;
}

bool means_itself(const char *text, const char *directory)
{
    if (text[0] != '\0' && strchr("-~#", text[0]) != nullptr)
        return false;
    for (const char *at = text; *at != '\0'; at++)
        if (iscntrl(static_cast<unsigned char>(*at)) != 0 ||
            strchr(" |&;<>()'\"\\`", *at) != nullptr || (*at == '$' && expands(at[1])))
            return false;
    return strpbrk(text, PATTERN_CHARACTERS) == nullptr || !matches_another(text, directory);
}
