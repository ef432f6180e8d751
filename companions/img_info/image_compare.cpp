// An image against what stands below a directory.
#include "companions/compare/comparison.h"
#include "companions/img_info/img_info.h"
#include "companions/text/json.h"
#include "companions/text/shown_text.h"

#include <cstdio>
#include <cstring>
#include <unistd.h>

static void print_finding(const named_image *opened, const finding *found, bool json, bool first)
{
    const char *const detail = found->detail;
    if (json) {
        printf("%s\n{\"finding\":\"%s\"", first ? "" : ",", FINDING_NAMES[found->kind].key);
        print_json_text(stdout, ",\"path\":", found->path);
        if (detail != nullptr)
            print_json_text(stdout, ",\"detail\":", detail);
        putchar('}');
        return;
    }
    printf("%s: %s: ", opened->name, FINDING_NAMES[found->kind].words);
    print_shown(stdout, found->path, strlen(found->path));
    printf(detail != nullptr ? ": %s\n" : "\n", detail);
}

int compare_image(const named_image *opened, const char *dir, int what, bool json)
{
    if (access(dir, F_OK) != 0)
        return complain(dir, "%m");
    image_sums sums;
    const char *const fault = sum_image(&opened->img, &sums);
    if (fault != nullptr)
        return complain(opened->name, "%s", fault);
    unsigned int findings = 0;
    if (json)
        fputs("{\"findings\":[", stdout);
    const compared c =
        compare_with_device(&opened->img, &sums, dir, what, [&](const finding &found) {
            if (found.kind != FOUND_SAME)
                print_finding(opened, &found, json, findings++ == 0);
            return true;
        });
    const bool well = findings == 0 && c.fault == nullptr;
    if (json)
        printf("],\"compared\":%u,\"well\":%s}\n", c.entries, well ? "true" : "false");
    else if (well)
        printf("%s: well, %u entries as they stand below %s\n", opened->name, c.entries, dir);
    if (c.fault != nullptr)
        return complain(opened->name, "entry %u: %s; the rest was not compared", c.broken, c.fault);
    return well ? INFO_WELL : INFO_FINDINGS;
}
