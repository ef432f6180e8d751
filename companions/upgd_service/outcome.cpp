// What has become of a call.
#include "companions/upgd_service/outcome.h"

#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "update/dtt_update_common/header_text.h"
#include "update/dtt_update_common/platform_log.h"

#include <unistd.h>

static struct {
    std::string verb;
    std::string image = "none";
    std::string version = "none";
    std::string key = "none";
} noted;

void note_call(const char *verb, const char *file)
{
    noted.verb = verb;
    if (file != nullptr)
        noted.image = file;
}

void note_header(const update_header_t *header)
{
    noted.version = text_of(header->ih_version).text;
}

void note_key(const char *id)
{
    noted.key = id;
}

void log_outcome(int status)
{
    PLATFORM_LOG("%s by user %u: image <%s> version <%s> key %s: status %d%s%s", noted.verb.c_str(),
                 getuid(), noted.image.c_str(), noted.version.c_str(), noted.key.c_str(), status,
                 status != SERVICE_WELL ? ": " : "",
                 status != SERVICE_WELL ? last_complaint().c_str() : "");
}
