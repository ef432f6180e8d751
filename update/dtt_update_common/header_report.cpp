// The report of an image's header.
#include "update/dtt_update_common/header_report.h"

#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"

#include <arpa/inet.h>
#include <cstdio>
#include <ctime>

static constexpr int REPORT_LINES = 10;
static constexpr size_t REPORT_LINE_SIZE = 96; // a label and a text field of 64 bytes

const char *place2str(int place)
{
    static constexpr const char *names[] = {"/", "/usr/nand", "costom"};
    constexpr int count = sizeof names / sizeof names[0];
    return place >= 1 && place <= count ? names[place - 1] : "";
}

char *print_type(int ih_comp)
{
    static char none[] = "Uncompressed";
    static char gzip[] = "GZIP Compressed";
    static char bzip2[] = "BZIP2 Compressed";
    static char unknown[] = "Unknown Compression";
    switch (ih_comp) {
    case COMP_NONE:
        return none;
    case COMP_GZIP:
        return gzip;
    case COMP_BZIP2:
        return bzip2;
    default:
        return unknown;
    }
}

void print_image_hdr(update_header_t *pheader)
{
    const time_t timestamp = ntohl(pheader->ih_time);
    char created[26] = "";
    tzset(); // the zone of now, also in a process that runs for months
    ctime_r(&timestamp, created);
    const int place = static_cast<int>(ntohl(pheader->ih_place));
    const char *dest = place == PLACE_COSTOM ? reinterpret_cast<const char *>(pheader->ih_dest_dir)
                                             : place2str(place);
    const char *update_dir = reinterpret_cast<const char *>(pheader->ih_update_dir);
    const char *name = reinterpret_cast<const char *>(pheader->ih_name);
    const char *version = reinterpret_cast<const char *>(pheader->ih_version);

    char line[REPORT_LINES][REPORT_LINE_SIZE];
    int n = 0;
    const auto next = [&] { return line[n++]; };
    constexpr size_t size = REPORT_LINE_SIZE;
    snprintf(next(), size, "   Image Name       : %.*s", IH_NMLEN, name);
    snprintf(next(), size, "   Firmware Version : %.*s", IH_NMLEN, version);
    snprintf(next(), size, "   Update Place     : %.*s", IH_NMLEN, dest);
    snprintf(next(), size, "   Update Dir       : %.*s", IH_NMLEN, update_dir);
    snprintf(next(), size, "   Created          : %s", created);
    snprintf(next(), size, "   Image Type       : (%s)",
             print_type(static_cast<int>(ntohl(pheader->ih_comp))));
    snprintf(next(), size, "   Data Size        : %d Bytes",
             static_cast<int>(ntohl(pheader->ih_size)));
    snprintf(next(), size, "   Directorys       : %d", static_cast<int>(ntohl(pheader->ih_dirs)));
    snprintf(next(), size, "   Files            : %d",
             static_cast<int>(ntohl(pheader->ih_filenum)));
    snprintf(next(), size, "   Body Data CRC    : %u", ntohl(pheader->ih_crc));

    for (const auto &text : line)
        PLATFORM_LOG("%s", text);
    TRACE("   \n");
    for (const auto &text : line)
        TRACE("%s\n", text);
}
