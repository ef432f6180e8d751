// fault_driver OPERATION PATH: one operation of the resident service. Exits 0 or 3 as it went well
// or failed.
#include "update_service.h"

#include <cstdio>
#include <string>

static int run(const std::string &operation, char *path)
{
    char base[] = "/opt/upgddir/";
    if (operation == "service")
        return do_update_upgd(0x010a3d00, path, base);
    // By a stream, whose calls do not fail once it is open.
    FILE *const image = fopen(path, "r+e");
    if (image == nullptr || fseek(image, 0, SEEK_END) != 0)
        return -1;
    constexpr size_t head = sizeof(update_header_t);
    const int result =
        gzip_dirs_and_files(fileno(image), nullptr, head, static_cast<size_t>(ftell(image)) - head);
    fclose(image);
    return result;
}

int main(int, char **argv)
{
    set_usb_status(TRUE);
    return run(argv[1], argv[2]) == 0 ? 0 : 3;
}
