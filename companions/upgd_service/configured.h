// The device's configuration, by the stand-in or by the device's own library.
#ifndef COMPANIONS_UPGD_SERVICE_CONFIGURED_H
#define COMPANIONS_UPGD_SERVICE_CONFIGURED_H

#include <string>

// Where it stands, for a person.
extern const char *const SETTINGS_PLACE;

// Reads a value, empty if it is not set. Returns false with a sentence.
[[nodiscard]] bool read_setting(const char *key, std::string *value);

// Sets a value, for good once it returns. Returns 0 or a negative errno.
[[nodiscard]] int write_setting(const char *key, const std::string &value);

#endif
