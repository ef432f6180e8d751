// The report of an image's header.
#include "update/dtt_update_common/header_report.h"

#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"

#include <arpa/inet.h>
#include <ctime>

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

// The report, each LINE with its format and arguments, which are the same for both sinks.
#define REPORT(LINE)                                                                               \
    LINE("   Image Name       : %.*s", IH_NMLEN, name)                                             \
    LINE("   Firmware Version : %.*s", IH_NMLEN, version)                                          \
    LINE("   Update Place     : %.*s", IH_NMLEN, dest)                                             \
    LINE("   Update Dir       : %.*s", IH_NMLEN, update_dir)                                       \
    LINE("   Created          : %s", created)                                                      \
    LINE("   Image Type       : (%s)", print_type(host_int(pheader->ih_comp)))                     \
    LINE("   Data Size        : %d Bytes", host_int(pheader->ih_size))                             \
    LINE("   Directorys       : %d", host_int(pheader->ih_dirs))                                   \
    LINE("   Files            : %d", host_int(pheader->ih_filenum))                                \
    LINE("   Body Data CRC    : %u", ntohl(pheader->ih_crc))
#define TO_PLATFORM_LOG(...) PLATFORM_LOG(__VA_ARGS__);
#define TO_TRACE_LOG(format, ...) TRACE(format "\n", __VA_ARGS__);
#define DOT(...) "."
static_assert(sizeof(REPORT(DOT)) - 1 == 10, "lines of the report");

static int host_int(uint32_t field)
{
    return static_cast<int>(ntohl(field));
}

void print_image_hdr(update_header_t *pheader)
{
    const time_t timestamp = ntohl(pheader->ih_time);
    char created[26] = "";
    tzset(); // the zone of now, also in a process that runs for months
    ctime_r(&timestamp, created);
    const int place = host_int(pheader->ih_place);
    const char *dest = place == PLACE_COSTOM ? reinterpret_cast<const char *>(pheader->ih_dest_dir)
                                             : place2str(place);
    const char *update_dir = reinterpret_cast<const char *>(pheader->ih_update_dir);
    const char *name = reinterpret_cast<const char *>(pheader->ih_name);
    const char *version = reinterpret_cast<const char *>(pheader->ih_version);

    REPORT(TO_PLATFORM_LOG)
    TRACE("   \n");
    REPORT(TO_TRACE_LOG)
}
