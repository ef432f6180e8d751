// img_info: looks into an update image.
#include "companions/img_info/img_info.h"
#include "companions/compare/comparison.h"

#include "companions/signature/check.h"
#include "companions/text/shown_text.h"
#include "update/dtt_update_common/image_check.h"
#include "update/dtt_update_common/raw_io.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <getopt.h>
#include <unistd.h>

// What is done.
enum { LIST, VERIFY, EXTRACT, COMPARE, SIGNATURE };

static constexpr char USAGE[] =
    "Usage: img_info [--json] FILE              show the header and the entries\n"
    "       img_info --verify [--base DIR] [--json] FILE...\n"
    "                                           test all that the format promises, and that\n"
    "                                           it can be applied below DIR, /opt/upgddir/\n"
    "                                           without it\n"
    "       img_info --extract DIR FILE [NAME...]\n"
    "                                           unpack below DIR, all or what is named\n"
    "       img_info --compare DIR [--extra] [--device] [--json] FILE\n"
    "                                           compare each entry with what stands below DIR;\n"
    "                                           with what else stands there; with the boot\n"
    "                                           loader's and the kernel's partition\n"
    "       img_info --signature KEYFILE [--json] FILE\n"
    "                                           check the signature in FILE.minisig\n"
    "       img_info --help                     print this text\n"
    "       img_info --version                  print the version of the program\n"
    "FILE may be - for standard input, but not to extract or with a signature.\n"
    "Exit status: 0 well, 1 findings, 2 unusable.\n";

void complain(const char *name, const char *format, ...)
{
    // What has been shown so far stands ahead of it.
    fflush(stdout);
    char text[4096];
    va_list args;
    va_start(args, format);
    vsnprintf(text, sizeof text, format, args);
    va_end(args);
    fputs("img_info: ", stderr);
    print_shown(stderr, name, strlen(name));
    fputs(": ", stderr);
    print_shown(stderr, text, strlen(text));
    fputc('\n', stderr);
}

[[noreturn]] static void bad_call()
{
    fputs(USAGE, stderr);
    exit(INFO_UNUSABLE);
}

// Reads from standard input until `len` bytes are there or it ends. Returns their number, or -1.
static ssize_t read_input(char *buffer, size_t len)
{
    size_t total = 0;
    while (total < len) {
        const ssize_t n = read(STDIN_FILENO, buffer + total, len - total);
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0)
            return -1;
        if (n == 0)
            break;
        total += static_cast<size_t>(n);
    }
    return static_cast<ssize_t>(total);
}

static int open_unnamed_file()
{
    FILE *const spool = tmpfile();
    if (spool == nullptr)
        return -1;
    const int fd = fcntl(fileno(spool), F_DUPFD_CLOEXEC, 0);
    fclose(spool);
    return fd;
}

// Entries are read at offsets, which a pipe does not have: what comes through one is kept in a file
// without a name, unless its beginning shows that it is no image or it is longer than one can be.
// Returns a descriptor, or -1 with errno set.
static int spool_standard_input()
{
    const int fd = open_unnamed_file();
    if (fd < 0)
        return -1;
    static char buffer[64 * 1024];
    ssize_t n = read_input(buffer, sizeof(update_header_t));
    uint32_t magic = 0;
    memcpy(&magic, buffer, sizeof magic);
    const bool image = ntohl(magic) == IH_MAGIC;
    for (long long total = 0; n > 0; n = image ? read_input(buffer, sizeof buffer) : 0) {
        if (bb_full_write(fd, buffer, static_cast<size_t>(n)) < 0)
            return -1;
        total += n;
        if (total > INT_MAX)
            break;
    }
    return n < 0 ? -1 : fd;
}

// Opens the image and reads its header. Returns 0, or -1 with a sentence about what is wrong.
static int open_named(named_image *opened)
{
    const bool standard_input = strcmp(opened->name, "-") == 0;
    if (standard_input)
        opened->name = "standard input";
    const int fd = standard_input ? spool_standard_input()
                                  : open(opened->name, O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    const char *const fault = fd < 0 ? strerror(errno) : examine_image(fd, &opened->img);
    if (fault == nullptr)
        return 0;
    complain(opened->name, "%s", fault);
    if (fd >= 0)
        close(fd);
    return -1;
}

// Each of the files up to a null. Returns the worst of their exit statuses.
static int verify_files(char **names, const char *base, bool json)
{
    int status = INFO_WELL;
    for (; *names != nullptr; names++) {
        named_image opened = {*names, {}};
        if (open_named(&opened) != 0) {
            status = INFO_UNUSABLE;
            continue;
        }
        status = std::max(status, verify_image(&opened, base, json));
        close(opened.img.fd);
    }
    return status;
}

// Lists, extracts or compares the first of `names`; of an extraction, those behind it are entries.
static int look_into(char **names, int mode, const char *dir, int what, bool json)
{
    named_image opened = {names[0], {}};
    if (open_named(&opened) != 0)
        return INFO_UNUSABLE;
    if (mode == EXTRACT)
        return extract_image(&opened, dir, names + 1);
    return mode == COMPARE ? compare_image(&opened, dir, what, json) : list_image(&opened, json);
}

int main(int argc, char **argv)
{
    static const option OPTIONS[] = {{"json", no_argument, nullptr, 'j'},
                                     {"verify", no_argument, nullptr, VERIFY},
                                     {"base", required_argument, nullptr, 'b'},
                                     {"extract", required_argument, nullptr, EXTRACT},
                                     {"compare", required_argument, nullptr, COMPARE},
                                     {"signature", required_argument, nullptr, SIGNATURE},
                                     {"extra", no_argument, nullptr, 'e'},
                                     {"device", no_argument, nullptr, 'd'},
                                     {"help", no_argument, nullptr, 'h'},
                                     {"version", no_argument, nullptr, 'V'},
                                     {}};
    bool json = false;
    const char *base = "/opt/upgddir/";
    const char *dir = nullptr;
    bool based = false;
    int mode = LIST;
    int what = COMPARE_CONTENTS;
    for (int opt = 0; (opt = getopt_long(argc, argv, "", OPTIONS, nullptr)) != -1;) {
        switch (opt) {
        case 'j':
            json = true;
            break;
        case 'b':
            base = optarg;
            based = true;
            break;
        case 'd':
            what |= COMPARE_DEVICE;
            break;
        case 'e':
            what |= COMPARE_EXTRA;
            break;
        case VERIFY:
        case EXTRACT:
        case COMPARE:
        case SIGNATURE:
            if (mode != LIST)
                bad_call();
            mode = opt;
            dir = optarg;
            break;
        case 'h':
            fputs(USAGE, stdout);
            return INFO_WELL;
        case 'V':
            printf("img_info %s, %s\n", PROGRAM_VERSION, SIGNATURES);
            return INFO_WELL;
        default:
            bad_call();
        }
    }
    if (optind >= argc || (mode != EXTRACT && mode != VERIFY && optind + 1 < argc) ||
        (mode == EXTRACT && json) ||
        ((mode == EXTRACT || mode == SIGNATURE) && strcmp(argv[optind], "-") == 0) ||
        (mode != COMPARE && what != COMPARE_CONTENTS) || (mode != VERIFY && based))
        bad_call();
    int status;
    if (mode == SIGNATURE)
        status = check_signature(argv[optind], dir, json);
    else if (mode == VERIFY)
        status = verify_files(argv + optind, base, json);
    else
        status = look_into(argv + optind, mode, dir, what, json);
    if (fflush(stdout) != 0 || ferror(stdout) != 0) {
        complain("standard output", "%s", strerror(errno));
        return INFO_UNUSABLE;
    }
    return status;
}
