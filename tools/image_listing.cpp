// The header of an image in readable form, and one line an entry.
#include "tools/img_info.h"

#include "update/dtt_update_common/header_report.h"

#include <algorithm>
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
        {ENTRY_INPUT_MCU, "input MCU"},
        {ENTRY_OUTPUT_MCU, "output MCU"},
        {ENTRY_VPU_MCU, "VPU MCU"},
        {ENTRY_INPUT_FPGA, "input FPGA"},
        {ENTRY_OUTPUT_FPGA, "output FPGA"},
        {ENTRY_VPU_FPGA, "VPU FPGA"},
        {ENTRY_INPUT_GOLDEN, "input golden"},
        {ENTRY_OUTPUT_GOLDEN, "output golden"},
        {ENTRY_VPU_GOLDEN, "VPU golden"},
    };
    for (const auto &row : NAMES)
        if (row.type == type)
            return row.name;
    return "file";
}

// Bytes of the UTF-8 character at `text`, or 0 if there is none.
static size_t utf8_length(const unsigned char *text, size_t len)
{
    const unsigned char lead = text[0];
    const size_t size = lead < 0x80                   ? 1
                        : lead >= 0xC2 && lead < 0xE0 ? 2
                        : lead >= 0xE0 && lead < 0xF0 ? 3
                        : lead >= 0xF0 && lead < 0xF5 ? 4
                                                      : 0;
    if (size == 0 || size > len)
        return 0;
    for (size_t i = 1; i < size; i++)
        if ((text[i] & 0xC0U) != 0x80)
            return 0;
    // Longer forms than needed, surrogates, and what lies behind the last character.
    if ((lead == 0xE0 && text[1] < 0xA0) || (lead == 0xED && text[1] >= 0xA0) ||
        (lead == 0xF0 && text[1] < 0x90) || (lead == 0xF4 && text[1] >= 0x90))
        return 0;
    return size;
}

void print_json_text(const char *text, size_t len)
{
    const unsigned char *const bytes = reinterpret_cast<const unsigned char *>(text);
    putchar('"');
    for (size_t i = 0; i < len;) {
        const size_t size = utf8_length(bytes + i, len - i);
        if (bytes[i] == '"' || bytes[i] == '\\')
            printf("\\%c", bytes[i]);
        else if (size == 0 || bytes[i] < ' ')
            printf("\\u%04x", static_cast<unsigned int>(bytes[i]));
        else
            fwrite(bytes + i, 1, size, stdout);
        i += std::max<size_t>(size, 1);
    }
    putchar('"');
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
    const char *const comp = print_type(static_cast<int>(ntohl(header->ih_comp)));
    const field_text none = {nullptr, 0};
    const header_fact facts[] = {
        {"name", "Name", field(header->ih_name, sizeof header->ih_name), 0},
        {"version", "Version", field(header->ih_version, sizeof header->ih_version), 0},
        {"created", "Created", {created, strlen(created)}, 0},
        {"place", "Place", none, ntohl(header->ih_place)},
        {"dest_dir", "Target directory", field(header->ih_dest_dir, sizeof header->ih_dest_dir), 0},
        {"update_dir", "Packed directory",
         field(header->ih_update_dir, sizeof header->ih_update_dir), 0},
        {"compression", "Compression", {comp, strlen(comp)}, 0},
        {"size", "Size in bytes", none, ntohl(header->ih_size)},
        {"directories", "Directories", none, ntohl(header->ih_dirs)},
        {"entries", "Entries", none, ntohl(header->ih_filenum)},
        {"crc", "CRC of the body", none, ntohl(header->ih_crc)},
    };
    for (const header_fact &fact : facts) {
        if (json)
            printf("%s\"%s\":", &fact == facts ? "{\"header\":{" : ",", fact.key);
        else
            printf("%-17s ", fact.words);
        if (fact.text.text == nullptr)
            printf("%u", fact.number);
        else if (json)
            print_json_text(fact.text.text, fact.text.len);
        else
            fwrite(fact.text.text, 1, fact.text.len, stdout);
        if (!json)
            putchar('\n');
    }
}

// Names come from whoever made the image: control characters are shown by their codes, so that they
// can't move the cursor of a terminal.
static void print_name(const char *text, size_t len)
{
    for (size_t i = 0; i < len; i++) {
        const unsigned char c = static_cast<unsigned char>(text[i]);
        if (c < ' ' || c == 0x7F)
            printf("\\x%02x", static_cast<unsigned int>(c));
        else
            putchar(c);
    }
}

static void print_entry(const image_entry *entry, bool json)
{
    const size_t len = entry_path_length(entry);
    const bool link = entry->type == ENTRY_LINK && entry->name[len] != '\0';
    const char *const target = link ? entry->name + len + 1 : "";
    if (!json) {
        printf("%-13s %10d  ", type_name(entry->type), entry->file_size);
        print_name(entry->name, len);
        fputs(link ? " -> " : "", stdout);
        print_name(target, strlen(target));
        putchar('\n');
        return;
    }
    printf("%s\n{\"type\":\"%s\",\"code\":%d,\"size\":%d,\"name\":", entry->number == 0 ? "" : ",",
           type_name(entry->type), entry->type, entry->file_size);
    print_json_text(entry->name, len);
    if (link) {
        printf(",\"target\":");
        print_json_text(target, strlen(target));
    }
    putchar('}');
}

int list_image(const opened_image *opened, bool json)
{
    print_header(&opened->img.header, json);
    fputs(json ? "},\"list\":[" : "\n", stdout);
    entry_walk walk;
    start_walk(&walk, &opened->img);
    const uint32_t count = ntohl(opened->img.header.ih_filenum);
    const char *fault = nullptr;
    for (uint32_t i = 0; i < count && fault == nullptr; i++) {
        image_entry entry;
        fault = read_entry(&walk, &entry);
        if (fault == nullptr)
            print_entry(&entry, json);
    }
    if (json)
        puts("]}");
    if (fault == nullptr)
        return INFO_WELL;
    complain(opened->name, "entry %u at offset %u: %s", walk.number, walk.next, fault);
    return INFO_FINDINGS;
}
