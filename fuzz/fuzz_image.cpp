// A whole apply run of any image. The first byte of the input tells what the rest is.
#include "fuzz/confinement.h"
#include "fuzz/stub.h"

#include "update/dtt_update/apply_engine.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

enum {
    WHOLE_IMAGE = 0,
    MENDED_IMAGE = 1,  // with the right magic number and size put into it
    BODY = 2,          // behind a header with a number of entries from the first byte
    BODY_AT_WINDOW = 3 // the same behind an entry that ends where the walk has to read anew
};
static constexpr size_t WINDOW_SIZE = 16384; // that the walk reads at a time
static constexpr size_t IN_WINDOW = 96;      // bytes of the body in front of its end

static int start_fd; // the directory that the paths of the fuzzer's own files begin at

int LLVMFuzzerInitialize(int *, char ***)
{
    log_debug = 0;
    confine();
    confined.image_fd = open((confined.dir + "/i").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    start_fd = open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    check(confined.image_fd >= 0 && start_fd >= 0, "there is room for the image");
    return 0;
}

static std::string header_bytes(unsigned int entries, size_t body_size)
{
    update_header_t header = {};
    header.ih_magic = htonl(IH_MAGIC);
    header.ih_size = htonl(static_cast<uint32_t>(sizeof header + body_size));
    header.ih_filenum = htonl(entries);
    header.ih_place = htonl(PLACE_COSTOM);
    return {reinterpret_cast<const char *>(&header), sizeof header};
}

static std::string filler_entry()
{
    const size_t size = WINDOW_SIZE - IN_WINDOW - 7;
    const std::string head = {
        'f', 0, 0, 0, 0, static_cast<char>(size >> 8), static_cast<char>(size & 0xFF)};
    return head + std::string(size, 'f');
}

static std::string make_image(unsigned int first, std::string rest)
{
    const unsigned int entries = first >> 2 & 31;
    switch (first & 3) {
    case WHOLE_IMAGE:
        return rest;
    case MENDED_IMAGE:
        rest.resize(std::max(rest.size(), sizeof(update_header_t)));
        rest.replace(0, 4, header_bytes(0, 0), 0, 4);
        rest.replace(12, 4, header_bytes(0, rest.size() - sizeof(update_header_t)), 12, 4);
        return rest;
    case BODY:
        return header_bytes(entries, rest.size()) + rest;
    default:
        rest = filler_entry() + rest;
        return header_bytes(entries + 1, rest.size()) + rest;
    }
}

// A whole image leaves the bits for a number of entries to the number of calls after which its body
// is no more the first half of the input's, but the second.
static void take_change(unsigned int first, std::string *rest)
{
    constexpr size_t head = sizeof(update_header_t);
    confined.calls_to_change = 0;
    if ((first & 3) > MENDED_IMAGE || rest->size() <= head)
        return;
    confined.calls_to_change = static_cast<int>(first >> 2 & 31);
    if (confined.calls_to_change == 0)
        return;
    const size_t half = head + (rest->size() - head) / 2;
    confined.new_body = rest->substr(half);
    rest->resize(half);
}

static void run(unsigned int first, const std::string &image)
{
    check(ftruncate(confined.image_fd, 0) == 0, "the image can be emptied");
    const ssize_t written = pwrite(confined.image_fd, image.data(), image.size(), 0);
    check(written == static_cast<ssize_t>(image.size()), "the image can be written");
    std::string path = confined.dir + "/i";
    std::string base = confined.base;
    confined.commands_fail = first >= 128;
    under_test = true;
    const int result = do_update(path.data(), ONLINE_MODE, base.data());
    under_test = false;
    const auto *const progress = static_cast<const upgrade_info_t *>(get_upgrade_info());
    check(progress->result == (result == 0 ? 1 : 2), "the progress has the result");
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    if (size == 0)
        return 0;
    std::string rest(reinterpret_cast<const char *>(data + 1), size - 1);
    take_change(data[0], &rest);
    const bool changes = confined.calls_to_change != 0;
    const std::string image = make_image(data[0], rest);
    run(data[0], image);

    check(fchdir(start_fd) == 0, "the fuzzer is where it was");
    fs::remove_all(confined.base);
    for (const fs::directory_entry &item : fs::directory_iterator(confined.dir))
        check(item.path().filename() == "i" || item.path().filename() == "root",
              "nothing is made beside the base directory");
    check(changes || fs::file_size(confined.dir + "/i") == image.size(),
          "the image stays as it is");
    return 0;
}
