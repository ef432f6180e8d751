// The device's configuration, where the device's own library and its tool keep it. That library
// tells no value that can't be read from one that is not set: it is asked first whether it can be
// read at all.
#include "companions/upgd_service/configured.h"

#include "companions/upgd_service/console.h"
#include "platform/platform.h"
#include "update/dtt_update_common/shell_words.h"

#include <cerrno>
#include <unistd.h>

const char *const SETTINGS_PLACE = "the device's configuration";

bool read_setting(const char *key, std::string *value)
{
    if (sysconf_openenv() != 0)
        return complain("%s can't be read: mend that", SETTINGS_PLACE);
    const char *const text = sysconf_getenv(key);
    *value = text != nullptr ? text : "";
    return true;
}

int write_setting(const char *key, const std::string &value)
{
    if (!is_shell_safe_text(value.c_str()))
        return -EINVAL;
    // A value must not reach the medium ahead of what it tells of, nor be lost once it is told.
    sync();
    const std::string command =
        std::string("sysconfig set ") + key + " " + (value.empty() ? "''" : value);
    const int status = my_system(command.c_str());
    sync();
    return status == 0 ? 0 : -EIO;
}
