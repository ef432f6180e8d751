// img_deploy: builds update images and applies them.
#include "update/dtt_create/create_image.h"
#include "update/dtt_update/apply_engine.h"
#include "update/dtt_update_common/device_paths.h"
#include "update/dtt_update_common/entry_writer.h"
#include "update/dtt_update_common/image_check.h"
#include "update/dtt_update_common/raw_io.h"
#include "update/dtt_update_common/run_lock.h"
#include "update/dtt_update_common/standard_streams.h"
#include "update/dtt_update_common/task_id.h"
#include "update/dtt_update_common/update_flag.h"
#include "update_service.h"
#include "upgrade_info.h"

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sys/shm.h>
#include <unistd.h>

enum { OP_NONE = 0, OP_CREATE = 1, OP_UPDATE = 2 };

struct options {
    int op_type = OP_NONE;
    int mode = REBOOT_MODE;
    int place = PLACE_NANDFS;
    char *filename = nullptr;    // the image
    char *outfilename = nullptr; // the tree to build from
    char *to_dir = nullptr;
    char *new_version = nullptr;
};

// Set by -v, for whoever wants to say more.
int verbose = 0;

[[noreturn]] static void usage(char *prog)
{
    fprintf(stderr, "Usage: %s [OPTION...] eFILE]...\n", prog);
    fprintf(stderr, "Create Update File:\n");
    fprintf(stderr, "    %s -c [DIR] [FILE] -p [1|2|3] [rootfs|nandfs|custom]...\n", prog);
    fprintf(stderr, "Upgrade:\n");
    fprintf(stderr, "    %s -u [FILE] -m [1(reboot)|2(online)]  ...\n", prog);
    fprintf(stderr, "Show Image:\n");
    fprintf(stderr, "    %s -s [FILE] ...\n", prog);
    fprintf(stderr, "Eg:\n");
    fprintf(stderr, "    img_deploy -c /nand -p 1 update.img \n");
    fprintf(stderr, "    img_deploy -c /nand -p 3 update.img  /\n");
    fprintf(stderr, "    img_deploy -u update.img \n");
    exit(1);
}

// Anything but 1 runs without a restart, so a number that is too large must not wrap round to it.
static int read_mode(const char *text, char **rest)
{
    const unsigned long mode = strtoul(text, rest, 0);
    return mode > INT_MAX ? INT_MAX : static_cast<int>(mode);
}

// A log or a pipe gets the lines that its reader knows and no others, unless the script asks for
// one more: how it ended.
static bool end_is_asked_for()
{
    const char *const asked = getenv("IMG_DEPLOY_EXPLAIN");
    return asked != nullptr && strcmp(asked, "1") == 0;
}

// Whether what has failed, why, and what to do next is told in one sentence, as to a person.
static bool failure_is_told()
{
    return isatty(STDERR_FILENO) != 0 || end_is_asked_for();
}

static const char *left_out_words(int cause)
{
    switch (static_cast<left_out_cause>(cause)) {
    case LEFT_LONG_LINK:
        return "links over 127 characters";
    case LEFT_LINK_TO_NOWHERE:
        return "links to nowhere";
    case LEFT_LINK_TO_DEVICE:
        return "links to devices";
    case LEFT_LINK_TO_EMPTY_FILE:
        return "links to empty files";
    case LEFT_EMPTY_FILE:
        return "empty files";
    case LEFT_EMPTY_DIRECTORY:
        return "empty directories";
    case LEFT_DEVICE:
        return "devices";
    case LEFT_UNREADABLE:
    case LEFT_OUT_CAUSES:
        break;
    }
    return "unreadable";
}

// What the tree has and the image lacks: no build tells of each piece.
static void tell_built(const char *image)
{
    image_file img;
    const char *const fault = open_image(image, &img);
    if (fault != nullptr) {
        fprintf(stderr, "img_deploy: %s was built, and then: %s\n", image, fault);
        return;
    }
    close(img.fd);
    fprintf(stderr, "img_deploy: %s was built: %u entries, %u bytes", image,
            ntohl(img.header.ih_filenum), img.size);
    const char *before = "; left out: ";
    for (int cause = 0; cause < LEFT_OUT_CAUSES; cause++) {
        if (left_out[cause] == 0)
            continue;
        fprintf(stderr, "%s%s (%u)", before, left_out_words(cause), left_out[cause]);
        before = ", ";
    }
    fputc('\n', stderr);
}

static void explain_build(const char *directory, const char *image, int error)
{
    fprintf(stderr, "img_deploy: %s was not built from %s: %s; mend that and build it again\n",
            image, directory, error != 0 ? strerror(error) : "the lines above tell why");
}

// Why a run can't have the progress block, or null.
static const char *progress_fault()
{
    return shmget(UPGRADE_INFO_SHM_KEY, UPGRADE_INFO_SHM_SIZE, 0) < 0 ? strerror(errno) : nullptr;
}

static void explain_update(const char *image, int code)
{
    const char *reason = nullptr;
    const char *next = "mend that and apply it again";
    if (geteuid() != 0) {
        fprintf(stderr, "img_deploy: %s was not applied: only root can apply an image\n", image);
        return;
    }
    switch (code) {
    case UPDATE_REFUSED:
        reason = progress_fault();
        if (reason != nullptr) {
            fprintf(stderr,
                    "img_deploy: %s was not applied: the progress block, shared memory 0x%x: %s; "
                    "remove it with \"ipcrm -M 0x%x\" and apply it again\n",
                    image, UPGRADE_INFO_SHM_KEY, reason, UPGRADE_INFO_SHM_KEY);
            return;
        }
        reason = image_fault(image);
        if (reason == nullptr)
            reason = BASE_DIRECTORY " can't be reached";
        break;
    case UPDATE_NOT_MAPPED:
        reason = "it can't be mapped";
        next = "copy it to another disk and apply it from there";
        break;
    case UPDATE_BOOT_FAILED:
        reason = "the command that writes the boot loader could not be run";
        next = "apply it again before the board restarts";
        break;
    case UPDATE_KERNEL_FAILED:
        reason = "a command that writes the kernel could not be run";
        next = "apply it again before the board restarts";
        break;
    default:
        reason = is_full(BASE_DIRECTORY)
                     ? "there is no room left on the device"
                     : "an entry can't be written or is damaged, which the lines above name";
        next = "make room or get the image anew, and apply it again";
        break;
    }
    fprintf(stderr, "img_deploy: %s was not applied: %s; %s\n", image, reason, next);
}

// The run has left its progress block attached.
static void tell_applied(const char *image)
{
    const auto *const progress = static_cast<const upgrade_info_t *>(get_upgrade_info());
    fprintf(stderr, "img_deploy: %s was applied: %d entries below " BASE_DIRECTORY "\n", image,
            progress != nullptr ? progress->file_nums : 0);
}

static int run_build(const options *o)
{
    errno = 0;
    const int ret =
        do_create(o->outfilename, o->mode, o->filename, o->place, o->to_dir, o->new_version);
    const int error = errno;
    if (ret == 0 && end_is_asked_for())
        tell_built(o->filename);
    else if (ret != 0 && failure_is_told())
        explain_build(o->outfilename, o->filename, error);
    return ret;
}

static int update_board(char *filename, int mode)
{
    char flag_file[] = UPDATE_FLAG_PATH;
    char base_dir[] = BASE_DIRECTORY;
    // A run that has begun goes on when its terminal or the reader of its output goes away.
    signal(SIGHUP, SIG_IGN);
    signal(SIGPIPE, SIG_IGN);
    // A parent that ignores the end of its children hands that on; every command would seem to
    // fail.
    signal(SIGCHLD, SIG_DFL);
    set_update_flag(flag_file, UPDATE_FLAG_STARTED);
    const int ret = do_update(filename, mode, base_dir);
    if (ret == 0)
        set_update_flag(flag_file, UPDATE_FLAG_DONE);
    if (ret == 0 && end_is_asked_for())
        tell_applied(filename);
    else if (ret != 0 && failure_is_told())
        explain_update(filename, ret);
    return ret;
}

static int run_update(const options *o)
{
    const int lock = take_run_lock();
    if (lock == RUN_LOCK_BUSY) {
        fputs("img_deploy: another update is at work: nothing was touched; wait for its end\n",
              stderr);
        return UPDATE_REFUSED;
    }
    const int ret = update_board(o->filename, o->mode);
    release_lock(lock);
    return ret;
}

// Returns false with a sentence for a number that is none. Any other wrong call ends in `usage`.
static bool read_options(int argc, char **argv, options *o)
{
    char *rest = nullptr;
    for (int opt = 0; (opt = getopt(argc, argv, "c:u:s:m:C:p:vr:")) != -1;) {
        switch (opt) {
        case 'c':
            o->op_type = OP_CREATE;
            o->outfilename = optarg;
            break;
        case 'u':
            o->op_type = OP_UPDATE;
            o->filename = optarg;
            break;
        case 's':
            o->filename = optarg;
            break;
        case 'm':
            o->mode = read_mode(optarg, &rest);
            if (*rest != '\0') {
                fprintf(stderr, "Invalid mode: %s\n", optarg);
                return false;
            }
            break;
        case 'C': // accepted for the sake of old scripts
            break;
        case 'p':
            o->place = static_cast<int>(strtoul(optarg, nullptr, 0));
            break;
        case 'v':
            verbose = 1;
            break;
        case 'r':
            o->new_version = optarg;
            break;
        default:
            usage(argv[0]);
        }
    }
    return true;
}

static void read_build_arguments(int argc, char **argv, options *o)
{
    if (optind >= argc)
        usage(argv[0]);
    o->filename = argv[optind++];
    if (o->place != PLACE_COSTOM)
        return;
    if (optind >= argc)
        usage(argv[0]);
    o->to_dir = argv[optind];
}

// As the one argument; with others `--version` is a wrong call like any long option.
static bool asks_for_version(int argc, char **argv)
{
    return argc == 2 && strcmp(argv[1], "--version") == 0;
}

static int print_version()
{
    puts("img_deploy " PROGRAM_VERSION);
    return fflush(stdout) == 0 ? 0 : 1;
}

int main(int argc, char **argv)
{
    open_standard_streams();
    if (asks_for_version(argc, argv))
        return print_version();
    // Options may stand behind the positional arguments, whatever the environment says.
    unsetenv("POSIXLY_CORRECT");
    // Whole lines in the order in which they happen, also on a pipe and up to a sudden end.
    setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    aptid_self_set(task_on_this_board(MODULE_UPDATE));

    options o;
    if (!read_options(argc, argv, &o))
        return -1;
    switch (o.op_type) {
    case OP_CREATE:
        read_build_arguments(argc, argv, &o);
        return run_build(&o);
    case OP_UPDATE:
        return run_update(&o);
    default:
        fprintf(stderr, "%s: not Support\n", argv[0]);
        usage(argv[0]);
    }
}
