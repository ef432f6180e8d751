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

void note_verb(const char *verb)
{
    noted.verb = verb;
}

void note_image(const char *name, const update_header_t *header)
{
    noted.image = name;
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
