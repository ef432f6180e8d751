// fault_driver OPERATION PATH: one operation of the resident service, with faults in its own calls
// alone. Exits 0 or 3 as it went well or failed.
#include "update_service.h"

#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

static int run(const std::string &operation, char *path, int image)
{
    char base[] = "/opt/upgddir/";
    char backup[256];
    if (operation == "service")
        return do_update_upgd(0x010a3d00, path, base);
    if (operation == "backup")
        return do_create_backup(path, backup);
    constexpr size_t head = sizeof(update_header_t);
    return gzip_dirs_and_files(image, nullptr, head, fs::file_size(path) - head);
}

int main(int, char **argv)
{
    const char *const number = getenv("FAULT_AT");
    const std::string at = number != nullptr ? number : "";
    unsetenv("FAULT_AT");
    set_usb_status(TRUE);
    const int image = open(argv[2], O_RDWR | O_CLOEXEC);
    setenv("FAULT_AT", at.c_str(), 1);
    const int result = run(argv[1], argv[2], image);
    unsetenv("FAULT_AT");
    close(image);
    return result == 0 ? 0 : 3;
}
