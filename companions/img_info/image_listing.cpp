// The header of an image in readable form, and one line an entry.
#include "companions/img_info/img_info.h"

#include "companions/text/json.h"
#include "companions/text/shown_text.h"
#include "update/dtt_update_common/card_kinds.h"
#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/header_report.h"
#include "update/dtt_update_common/header_text.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <ctime>

const char *type_name(int type)
{
    switch (form_of(type)) {
    case entry_form::file:
        break;
    case entry_form::directory:
        return "directory";
    case entry_form::link:
        return "link";
    }
    const card_kind *const kind = find_card_kind(type);
    return kind != nullptr        ? kind->name
           : type == ENTRY_KERNEL ? "kernel"
           : type == ENTRY_BOOT   ? "boot loader"
                                  : "file";
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
    const char *text; // null for a number
    unsigned int number = 0;
};

static void print_header(const update_header_t *header, bool json)
{
    char created[32];
    format_time(ntohl(header->ih_time), created);
    char crc[sizeof "01234567"];
    snprintf(crc, sizeof crc, "%08x", ntohl(header->ih_crc));
    const header_text name = text_of(header->ih_name);
    const header_text version = text_of(header->ih_version);
    const header_text dest_dir = text_of(header->ih_dest_dir);
    const header_text update_dir = text_of(header->ih_update_dir);
    const header_fact facts[] = {
        {"name", "Name", name.text},
        {"version", "Version", version.text},
        {"created", "Created", created},
        {"place", "Place", place_name(ntohl(header->ih_place))},
        {"place_code", "Code of the place", nullptr, ntohl(header->ih_place)},
        {"dest_dir", "Target directory", dest_dir.text},
        {"update_dir", "Packed directory", update_dir.text},
        {"compression", "Compression", print_type(static_cast<int>(ntohl(header->ih_comp)))},
        {"size", "Size in bytes", nullptr, ntohl(header->ih_size)},
        {"directories", "Directories", nullptr, ntohl(header->ih_dirs)},
        {"entry_count", "Entries", nullptr, ntohl(header->ih_filenum)},
        {"crc", "CRC of the body", crc},
    };
    for (const header_fact &fact : facts) {
        if (json)
            printf("%s\"%s\":", &fact == facts ? "{\"header\":{" : ",", fact.key);
        else
            printf("%-17s ", fact.words);
        if (fact.text == nullptr)
            printf("%u", fact.number);
        else if (json)
            print_json_text(stdout, fact.text, strlen(fact.text));
        else
            print_shown(stdout, fact.text, strlen(fact.text));
        if (!json)
            putchar('\n');
    }
}

static void print_entry(const image_entry *entry, uint32_t offset, bool json)
{
    const size_t len = entry_path_length(entry);
    const bool link = entry->name[len] != '\0'; // with a target
    const char *const target = link_target(entry);
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
