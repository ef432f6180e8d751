// img_info: looks into an update image.
#include "companions/img_info/img_info.h"
#include "companions/compare/comparison.h"

#include "companions/signature/check.h"
#include "companions/text/shown_text.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/image_check.h"
#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/standard_streams.h"

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
#include <utility>

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

int complain(const char *name, const char *format, ...)
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
    return INFO_UNUSABLE;
}

// The exit status, unless what was to be shown could not be printed.
static int end_of_output(int status)
{
    return fflush(stdout) == 0 && ferror(stdout) == 0
               ? status
               : complain("standard output", "%s", strerror(errno));
}

[[noreturn]] static void bad_call()
{
    fputs(USAGE, stderr);
    exit(INFO_UNUSABLE);
}

static descriptor open_unnamed_file()
{
    const file_stream spool(tmpfile());
    return descriptor(spool != nullptr ? fcntl(fileno(spool.get()), F_DUPFD_CLOEXEC, 0) : -1);
}

// Entries are read at offsets, which a pipe does not have: what comes through one is kept in a file
// without a name, unless its beginning shows that it is no image or it is longer than one can be.
// Returns it, or none with errno set.
static descriptor spool_standard_input()
{
    descriptor file = open_unnamed_file();
    static char buffer[64 * 1024];
    size_t n = file.is_open() ? fread(buffer, 1, sizeof(update_header_t), stdin) : 0;
    uint32_t magic = 0;
    memcpy(&magic, buffer, sizeof magic);
    const bool image = ntohl(magic) == IH_MAGIC;
    for (size_t total = 0; n > 0 && total <= INT_MAX;
         n = image ? fread(buffer, 1, sizeof buffer, stdin) : 0) {
        if (bb_full_write(file.get(), buffer, n) < 0)
            return descriptor();
        total += n;
    }
    return ferror(stdin) == 0 ? std::move(file) : descriptor();
}

// Opens the image and reads its header. Returns false with a sentence about what is wrong.
static bool open_named(const char *name, named_image *opened)
{
    const bool standard_input = strcmp(name, "-") == 0;
    opened->name = standard_input ? "standard input" : name;
    opened->file = standard_input ? spool_standard_input()
                                  : descriptor(open(name, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const char *const fault =
        opened->file.is_open() ? examine_image(opened->file.get(), &opened->img) : strerror(errno);
    if (fault != nullptr)
        complain(opened->name, "%s", fault);
    return fault == nullptr;
}

// What a call asks for.
struct info_call {
    int mode = LIST;
    const char *argument = nullptr; // of the mode: a directory or a key
    const char *base = nullptr;     // null for the system's own
    int what = COMPARE_CONTENTS;
    bool json = false;
};

// Each of the files up to a null. Returns the worst of their exit statuses.
static int verify_files(const info_call *call, char **names)
{
    const char *const base = call->base != nullptr ? call->base : BASE_DIRECTORY;
    int status = INFO_WELL;
    for (; *names != nullptr; names++) {
        named_image opened;
        status =
            std::max(status, open_named(*names, &opened) ? verify_image(&opened, base, call->json)
                                                         : INFO_UNUSABLE);
    }
    return status;
}

// Of an extraction, the names behind the file's are entries.
static int look_into(const info_call *call, char **names)
{
    if (call->mode == SIGNATURE)
        return check_signature(names[0], call->argument, call->json);
    if (call->mode == VERIFY)
        return verify_files(call, names);
    named_image opened;
    if (!open_named(names[0], &opened))
        return INFO_UNUSABLE;
    if (call->mode == EXTRACT)
        return extract_image(&opened, call->argument, names + 1);
    return call->mode == COMPARE ? compare_image(&opened, call->argument, call->what, call->json)
                                 : list_image(&opened, call->json);
}

static void take_option(int opt, info_call *call)
{
    switch (opt) {
    case 'j':
        call->json = true;
        break;
    case 'b':
        call->base = optarg;
        break;
    case 'd':
        call->what |= COMPARE_DEVICE;
        break;
    case 'e':
        call->what |= COMPARE_EXTRA;
        break;
    case 'h':
        fputs(USAGE, stdout);
        exit(end_of_output(INFO_WELL));
    case 'V':
        printf("img_info %s, %s\n", PROGRAM_VERSION, SIGNATURES);
        exit(end_of_output(INFO_WELL));
    case '?':
        bad_call();
    default:
        if (call->mode != LIST)
            bad_call();
        call->mode = opt;
        call->argument = optarg;
    }
}

int main(int argc, char **argv)
{
    open_standard_streams();
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
    info_call call;
    for (int opt = 0; (opt = getopt_long(argc, argv, "", OPTIONS, nullptr)) != -1;)
        take_option(opt, &call);
    const int mode = call.mode;
    if (optind >= argc || (mode != EXTRACT && mode != VERIFY && optind + 1 < argc) ||
        (mode == EXTRACT && call.json) ||
        ((mode == EXTRACT || mode == SIGNATURE) && strcmp(argv[optind], "-") == 0) ||
        (mode != COMPARE && call.what != COMPARE_CONTENTS) ||
        (mode != VERIFY && call.base != nullptr))
        bad_call();
    return end_of_output(look_into(&call, argv + optind));
}
