// The device's configuration: a text file of `key=value` lines. A key has letters, digits, '_', '.'
// and '-'; a value is all the text behind the first '='. Of two lines with the same key the first
// one counts. Any other line is a comment. The file is only ever replaced as a whole, so that
// readers need no lock and a power cut leaves the old or the new file.
#ifndef PLATFORM_CONFIGURATION_H
#define PLATFORM_CONFIGURATION_H

#include <cstddef>
#include <cstdio>

constexpr const char *CONFIGURATION_PATH = "/etc/sysconfig/device.conf";

// Bytes of the longest value, its terminator included.
constexpr size_t CONFIGURATION_VALUE_SIZE = 1024;

// Copies the value of `key` to `value`, a buffer of `size` bytes. Returns 0 or a negative errno:
// -ENOENT without the file or the key, -EINVAL for what is no key, -EOVERFLOW if it does not fit.
[[nodiscard]] int configuration_get(const char *path, const char *key, char *value, size_t size);

// Gives `key` the value, in its place or behind the last line, and keeps all other lines. All that
// was written by anyone ahead of the call is on the medium before the value is. Makes the file's
// directory if it is missing. Returns 0 or a negative errno. After an error the old file
// stands, unless it was the very last step that failed: to have the disk confirm the new file's
// name.
[[nodiscard]] int configuration_set(const char *path, const char *key, const char *value);

// Writes all `key=value` lines to `out`. Returns 0, or a negative errno if the file can't be read;
// the caller looks after errors of `out`.
[[nodiscard]] int configuration_list(const char *path, FILE *out);

#endif
