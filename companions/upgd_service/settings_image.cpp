// Images of settings.
#include "companions/upgd_service/settings_image.h"

#include "update/dtt_update_common/entry_form.h"
#include "update/dtt_update_common/header_text.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <set>
#include <string>
#include <sys/stat.h>

// Calls `test` with each entry and its path until it returns false. Returns whether all have
// passed.
template <typename Function> static bool all_entries(const image_file *img, const Function &test)
{
    entry_walk walk;
    start_walk(&walk, img);
    image_entry entry;
    for (uint32_t i = ntohl(img->header.ih_filenum); i > 0; i--) {
        char path[PATH_SIZE];
        if (read_entry(&walk, &entry) != nullptr)
            return false;
        copy_entry_path(&entry, path);
        if (!test(entry, std::string(path)))
            return false;
    }
    return true;
}

static bool lies_below(const std::string &path, const std::string &directory)
{
    return path.compare(0, directory.size(), directory) == 0;
}

// Whether the path is made of names alone.
static bool is_straight(const std::string &path)
{
    const std::string bounded = "/" + path + "/";
    for (const char *step : {"//", "/./", "/../"})
        if (bounded.find(step) != std::string::npos)
            return false;
    return true;
}

bool is_settings_backup(const image_file *img)
{
    return ntohl(img->header.ih_place) == PLACE_ROOTFS &&
           strcmp(text_of(img->header.ih_update_dir).text, ".") == 0 &&
           all_entries(img, [](const image_entry &, const std::string &path) {
               return lies_below(path, SETTINGS_DIRECTORY) && is_straight(path);
           });
}

// A saved directory itself is one, and no link that leads elsewhere from then on.
static bool is_saved(const std::string &path, int type)
{
    const std::string place = type == ENTRY_DIRECTORY ? path + "/" : path;
    return std::any_of(std::begin(SAVED_SETTINGS), std::end(SAVED_SETTINGS), [&](const char *name) {
        return lies_below(place, std::string(SETTINGS_DIRECTORY) + name + "/");
    });
}

bool holds_plain_settings(const image_file *img, const char *dir)
{
    std::set<std::string> links;
    const auto note_links = [&links](const image_entry &entry, const std::string &path) {
        switch (form_of(entry.type)) {
        case entry_form::file:
        case entry_form::directory:
            break;
        case entry_form::link:
            links.insert(path);
        }
        return true;
    };
    return is_settings_backup(img) && all_entries(img, note_links) &&
           all_entries(img, [&](const image_entry &entry, const std::string &path) {
               if (!is_saved(path, entry.type) || entry.type == ENTRY_BOOT ||
                   entry.type == ENTRY_KERNEL)
                   return false;
               for (size_t end = path.find('/'); end != std::string::npos;
                    end = path.find('/', end + 1)) {
                   const std::string parent = path.substr(0, end);
                   struct stat st;
                   if (links.count(parent) != 0 ||
                       (lstat((std::string(dir) + "/" + parent).c_str(), &st) == 0 &&
                        S_ISLNK(st.st_mode)))
                       return false;
               }
               return true;
           });
}
