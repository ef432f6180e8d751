// Images of settings: what a settings backup is, and what a device with keys takes of one that
// nobody has signed.
#ifndef COMPANIONS_UPGD_SERVICE_SETTINGS_IMAGE_H
#define COMPANIONS_UPGD_SERVICE_SETTINGS_IMAGE_H

#include "update/dtt_update_common/image_reader.h"

// The directory of the settings, and what of it is saved.
constexpr char SETTINGS_DIRECTORY[] = "usr/qrx310/etc/";
constexpr const char *SAVED_SETTINGS[] = {"mcucored", "vsp", "sysconf/qrxpara"};

// Whether the image is a settings backup: of place 1, packed from ".", with every entry below the
// directory of the settings.
[[nodiscard]] bool is_settings_backup(const image_file *img);

// Whether the image brings nothing but what a backup saves, and brings it nowhere else below `dir`:
// no entry has a "." or ".." on its way or is installed, and no directory that one lies in is a
// link of the device's or the image's.
[[nodiscard]] bool holds_plain_settings(const image_file *img, const char *dir);

#endif
