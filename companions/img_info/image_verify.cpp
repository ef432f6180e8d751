// Testing all that the image format promises, and that the image can be applied.
#include "companions/img_info/img_info.h"

#include "companions/compare/image_sums.h"
#include "companions/text/json.h"
#include "companions/text/shown_text.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/entry_fault.h"
#include "update/dtt_update_common/image_check.h"

#include <arpa/inet.h>
#include <cstdarg>
#include <cstdio>
#include <cstring>

// The findings so far, and how they are shown.
struct findings {
    const char *name;
    bool json;
    int count;
};

static void add_finding(findings *found, const char *format, ...)
    __attribute__((format(printf, 2, 3)));

static void add_finding(findings *found, const char *format, ...)
{
    char text[2048] = "";
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    if (found->json) {
        print_json_text(stdout, found->count > 0 ? "," : "", text);
    } else {
        printf("%s: ", found->name);
        print_shown(stdout, text, strlen(text));
        putchar('\n');
    }
    found->count++;
}

// Whether each entry can be applied below `base`, on whatever device: none is looked at.
static void verify_entries(const image_file *img, base_directory *base, findings *found)
{
    entry_walk walk;
    start_walk(&walk, img);
    while (walk.next < img->size) {
        image_entry entry;
        const uint32_t offset = walk.next;
        const char *fault = read_entry(&walk, &entry);
        if (fault != nullptr) {
            add_finding(found, "entry %u at offset %u: %s", walk.number, offset, fault);
            break;
        }
        entry_place place;
        fault = entry_fault(base, &entry, &place);
        if (fault == nullptr)
            fault = step_fault(&entry, &place);
        if (fault != nullptr)
            add_finding(found,
                        climbs_out(&entry) ? "entry %u at offset %u, %s: %s"
                                           : "entry %u at offset %u, %s: %s, below %s",
                        entry.number, offset, entry.name, fault, base->path);
    }
    const uint32_t count = ntohl(img->header.ih_filenum);
    if (walk.number != count)
        add_finding(found, "the header counts %u entries, the body has %u", count, walk.number);
}

int verify_image(const named_image *opened, const char *base, bool json)
{
    const image_file *const img = &opened->img;
    findings found = {opened->name, json, 0};
    if (json) {
        print_json_text(stdout, "{\"file\":", opened->name);
        fputs(",\"findings\":[", stdout);
    }
    const uint32_t size = ntohl(img->header.ih_size);
    if (size != img->size)
        add_finding(&found, "the header says %u bytes, the file has %u%s", size, img->size,
                    size == 0 ? ": its build was never finished" : "");
    const uint32_t place = ntohl(img->header.ih_place);
    if (place < PLACE_ROOTFS || place > PLACE_COSTOM)
        add_finding(&found, "the header says the place %u, which is none of 1 to 3", place);
    image_sums sums;
    if (sum_image(img, &sums) != nullptr)
        add_finding(&found, "the body can't be read");
    else if (sums.body() != ntohl(img->header.ih_crc))
        add_finding(&found, CRC_SENTENCE, ntohl(img->header.ih_crc), sums.body());
    base_directory below = {};
    if (bounded_copy(below.path, sizeof below.path, base))
        verify_entries(img, &below, &found);
    else
        add_finding(&found, "the path of the directory is too long");
    if (json)
        printf("],\"well\":%s}\n", found.count == 0 ? "true" : "false");
    else if (found.count == 0)
        printf("%s: well, %u entries\n", opened->name, ntohl(img->header.ih_filenum));
    else
        printf("%s: %d finding%s\n", opened->name, found.count, found.count == 1 ? "" : "s");
    return found.count == 0 ? INFO_WELL : INFO_FINDINGS;
}
