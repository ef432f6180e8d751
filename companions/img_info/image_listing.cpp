// The header of an image in readable form, and one line an entry.
#include "companions/img_info/img_info.h"

#include "companions/text/json.h"
#include "companions/text/shown_text.h"
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/card_kinds.h"
#include "update/dtt_update_common/header_report.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <ctime>

const char *type_name(int type)
{
    static constexpr struct {
        int type;
        const char *name;
    } NAMES[] = {
        {ENTRY_DIRECTORY, "directory"},
        {ENTRY_LINK, "link"},
        {ENTRY_KERNEL, "kernel"},
        {ENTRY_BOOT, "boot loader"},
    };
    for (const auto &row : NAMES)
        if (row.type == type)
            return row.name;
    const card_kind *const kind = find_card_kind(type);
    return kind != nullptr ? kind->name : "file";
}

static const char *place_name(uint32_t place)
{
    switch (place) {
    case PLACE_ROOTFS:
        return "root file system";
    case PLACE_NANDFS:
        return "NAND file system";
    case PLACE_COSTOM:
        return "target directory";
    default:
        return "unknown";
    }
}

// A text of the header, which may fill its field.
struct field_text {
    const char *text;
    size_t len;
};

static field_text field(const void *bytes, size_t size)
{
    const char *const text = static_cast<const char *>(bytes);
    return {text, strnlen(text, size)};
}

static void format_time(uint32_t seconds, char (&text)[32])
{
    const time_t timestamp = seconds;
    tm utc;
    gmtime_r(&timestamp, &utc);
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
}

// Each fact of the header: its name in JSON, its words, and a text or a number.
struct header_fact {
    const char *key;
    const char *words;
    field_text text; // null for a number
    unsigned int number;
};

static void print_header(const update_header_t *header, bool json)
{
    char created[32];
    format_time(ntohl(header->ih_time), created);
    char crc[sizeof "01234567"];
    known_to_fit(bounded_format(crc, sizeof crc, "%08x", ntohl(header->ih_crc)));
    const char *const place = place_name(ntohl(header->ih_place));
    const char *const comp = print_type(static_cast<int>(ntohl(header->ih_comp)));
    const field_text none = {nullptr, 0};
    const header_fact facts[] = {
        {"name", "Name", field(header->ih_name, sizeof header->ih_name), 0},
        {"version", "Version", field(header->ih_version, sizeof header->ih_version), 0},
        {"created", "Created", {created, strlen(created)}, 0},
        {"place", "Place", {place, strlen(place)}, 0},
        {"place_code", "Code of the place", none, ntohl(header->ih_place)},
        {"dest_dir", "Target directory", field(header->ih_dest_dir, sizeof header->ih_dest_dir), 0},
        {"update_dir", "Packed directory",
         field(header->ih_update_dir, sizeof header->ih_update_dir), 0},
        {"compression", "Compression", {comp, strlen(comp)}, 0},
        {"size", "Size in bytes", none, ntohl(header->ih_size)},
        {"directories", "Directories", none, ntohl(header->ih_dirs)},
        {"entry_count", "Entries", none, ntohl(header->ih_filenum)},
        {"crc", "CRC of the body", {crc, strlen(crc)}, 0},
    };
    for (const header_fact &fact : facts) {
        if (json)
            printf("%s\"%s\":", &fact == facts ? "{\"header\":{" : ",", fact.key);
        else
            printf("%-17s ", fact.words);
        if (fact.text.text == nullptr)
            printf("%u", fact.number);
        else if (json)
            print_json_text(stdout, fact.text.text, fact.text.len);
        else
            print_shown(stdout, fact.text.text, fact.text.len);
        if (!json)
            putchar('\n');
    }
}

static void print_entry(const image_entry *entry, uint32_t offset, bool json)
{
    const size_t len = entry_path_length(entry);
    const bool link = entry->type == ENTRY_LINK && entry->name[len] != '\0';
    const char *const target = link ? entry->name + len + 1 : "";
    if (!json) {
        printf("%-13s %10d  ", type_name(entry->type), entry->file_size);
        print_shown(stdout, entry->name, len);
        fputs(link ? " -> " : "", stdout);
        print_shown(stdout, target, strlen(target));
        putchar('\n');
        return;
    }
    printf(
        "%s\n{\"offset\":%u,\"data_offset\":%u,\"type\":\"%s\",\"code\":%d,\"size\":%d,\"name\":",
        entry->number == 0 ? "" : ",", offset, entry->data_offset, type_name(entry->type),
        entry->type, entry->file_size);
    print_json_text(stdout, entry->name, len);
    if (link) {
        printf(",\"target\":");
        print_json_text(stdout, target, strlen(target));
    }
    putchar('}');
}

int list_image(const named_image *opened, bool json)
{
    print_header(&opened->img.header, json);
    fputs(json ? "},\"entries\":[" : "\n", stdout);
    entry_walk walk;
    start_walk(&walk, &opened->img);
    const uint32_t count = ntohl(opened->img.header.ih_filenum);
    const char *fault = nullptr;
    for (uint32_t i = 0; i < count && fault == nullptr; i++) {
        image_entry entry;
        const uint32_t offset = walk.next;
        fault = read_entry(&walk, &entry);
        if (fault == nullptr)
            print_entry(&entry, offset, json);
    }
    if (json)
        puts("]}");
    if (fault == nullptr)
        return INFO_WELL;
    complain(opened->name, "entry %u at offset %u: %s", walk.number, walk.next, fault);
    return INFO_FINDINGS;
}
