// search_bench DIR: searches below DIR for a target directory that is not there.
#include "update/dtt_update/target_search.h"
#include "update/dtt_update_common/bounded_text.h"

#include <cstdio>

int main(int argc, char **argv)
{
    static arena ap;
    char name[] = "no-such-name";
    if (argc == 2 && bounded_copy(ap.devpath, sizeof ap.devpath, argv[1]) &&
        _find_dir(&ap, name) == 1)
        return 0;
    fprintf(stderr, "Usage: search_bench DIR\n");
    return 2;
}
