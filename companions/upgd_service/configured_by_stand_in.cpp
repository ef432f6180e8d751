// The device's configuration, where the stand-in keeps it.
#include "companions/upgd_service/configured.h"

#include "companions/upgd_service/console.h"
#include "platform/configuration.h"

#include <cerrno>
#include <cstring>

const char *const SETTINGS_PLACE = CONFIGURATION_PATH;

bool read_setting(const char *key, std::string *value)
{
    char text[CONFIGURATION_VALUE_SIZE] = "";
    const int result = configuration_get(CONFIGURATION_PATH, key, text, sizeof text);
    *value = result == 0 ? text : "";
    if (result != 0 && result != -ENOENT)
        complain("%s: %s: mend that", CONFIGURATION_PATH, strerror(-result));
    return result == 0 || result == -ENOENT;
}

int write_setting(const char *key, const std::string &value)
{
    return configuration_set(CONFIGURATION_PATH, key, value.c_str());
}
