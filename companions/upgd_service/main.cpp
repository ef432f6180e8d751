// upgd_service: the resident service in the small, driven from a shell.
#include "companions/signature/check.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/exit_status.h"
#include "update/dtt_update_common/card_kinds.h"
#include "update/dtt_update_common/task_id.h"
#include "update_header.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <strings.h>
#include <unistd.h>

static constexpr char USAGE[] =
    "Usage: upgd_service update IMAGE [--dir DIR] [--cards flash|simulate[=SECONDS]|fail=TYPE]\n"
    "                           [--no-verify] [--allow-unsigned] [--in-place] [--force]\n"
    "       upgd_service plan IMAGE ...       show what that update would do; nothing is written\n"
    "       upgd_service backup DISK          save the settings to the disk mounted there\n"
    "       upgd_service restore [--no-verify] [--allow-unsigned] [--in-place] FILE [DIR]\n"
    "                                         bring a backup back, below / without DIR\n"
    "       upgd_service disks [--json]       list the USB disks\n"
    "       upgd_service flash TYPE FILE      call the tool that flashes a card file\n"
    "       upgd_service watch                show an img_deploy run until it ends\n"
    "       upgd_service --help               print this text\n"
    "       upgd_service --version            print the version of the program\n"
    "An image whose CRC is not the one that its header says is refused, but for --no-verify;\n"
    "an update that is bound to fail, but for --force. With public keys in /etc/upgd/keys an "
    "image\n"
    "needs a signature, but for --allow-unsigned, and is copied to the device to be checked, but "
    "for\n"
    "--in-place.\n"
    "Exit status: 0 well, 1 failed, 2 a call that is none, 130 interrupted.\n";

static constexpr test_options TEST_ALL = {true, false, READ_TO_DEVICE};

// A whole number from `low` to `high`. Returns false for anything else.
static bool parse_number(const char *text, int low, int high, int *number)
{
    char *rest = nullptr;
    const long value = strtol(text, &rest, 10);
    if (rest == text || *rest != '\0' || value < low || value > high)
        return false;
    *number = static_cast<int>(value);
    return true;
}

// A type of card firmware by its number, or by its name with '-' for ' '.
static bool parse_type(const char *text, int *type)
{
    for (const card_kind &kind : CARD_KINDS) {
        std::string word = kind.name;
        std::replace(word.begin(), word.end(), ' ', '-');
        if (strcasecmp(text, word.c_str()) == 0) {
            *type = kind.type;
            return true;
        }
    }
    return parse_number(text, ENTRY_CARD_FIRST, ENTRY_CARD_LAST, type);
}

static void print_usage(FILE *to)
{
    fputs(USAGE, to);
    fputs("Types of card files:\n", to);
    for (const card_kind &kind : CARD_KINDS)
        fprintf(to, "  %d %s\n", kind.type, kind.name);
}

static bool parse_cards(const char *text, card_choice *cards)
{
    if (strcmp(text, "flash") == 0) {
        *cards = {CARDS_FLASH, 0};
        return true;
    }
    if (strcmp(text, "simulate") == 0) {
        *cards = {CARDS_SIMULATE, 1};
        return true;
    }
    if (strncmp(text, "simulate=", 9) == 0) {
        cards->mode = CARDS_SIMULATE;
        return parse_number(text + 9, 0, 600, &cards->number);
    }
    cards->mode = CARDS_FAIL;
    return strncmp(text, "fail=", 5) == 0 && parse_type(text + 5, &cards->number);
}

static int bad_call()
{
    print_usage(stderr);
    return SERVICE_BAD_CALL;
}

// A relative directory would be looked for in itself once the run has moved into it.
static char *absolute(char *dir)
{
    static std::string path;
    char here[PATH_MAX];
    if (dir[0] == '/' || getcwd(here, sizeof here) == nullptr)
        return dir;
    path = std::string(here) + "/" + dir;
    return path.data();
}

// Returns whether the word is an option of what an image is tested for.
static bool parse_test(const char *word, test_options *test)
{
    if (strcmp(word, "--no-verify") == 0)
        test->verify = false;
    else if (strcmp(word, "--allow-unsigned") == 0)
        test->allow_unsigned = true;
    else if (strcmp(word, "--in-place") == 0)
        test->reading = READ_IN_PLACE;
    else
        return false;
    return true;
}

// A plan is made of what an update is asked for.
static int call_update(int argc, char **argv, bool plan)
{
    update_options options = {nullptr, nullptr, {CARDS_FLASH, 0}, TEST_ALL, false};
    for (int i = 2; i < argc; i++) {
        if (strcmp(argv[i], "--dir") == 0 && i + 1 < argc)
            options.dir = absolute(argv[++i]);
        else if (parse_test(argv[i], &options.test))
            continue;
        else if (strcmp(argv[i], "--force") == 0 && !plan)
            options.force = true;
        else if (strcmp(argv[i], "--cards") == 0 && i + 1 < argc) {
            if (!parse_cards(argv[++i], &options.cards))
                return bad_call();
        } else if (argv[i][0] != '-' && options.image == nullptr)
            options.image = argv[i];
        else
            return bad_call();
    }
    if (options.image == nullptr)
        return bad_call();
    take_console();
    return plan ? plan_command(&options) : update_command(&options);
}

static int call_backup(int argc, char **argv)
{
    if (argc != 3)
        return bad_call();
    take_console();
    return backup_command(argv[2]);
}

static int call_restore(int argc, char **argv)
{
    char root[] = "/";
    test_options test = TEST_ALL;
    int file = 2;
    while (file < argc && parse_test(argv[file], &test))
        file++;
    if (argc <= file || argc > file + 2)
        return bad_call();
    take_console();
    return restore_command(argv[file], argc > file + 1 ? absolute(argv[file + 1]) : root, &test);
}

static int call_disks(int argc, char **argv)
{
    const bool json = argc == 3 && strcmp(argv[2], "--json") == 0;
    if (argc != 2 && !json)
        return bad_call();
    take_console();
    return disks_command(json);
}

static int call_flash(int argc, char **argv)
{
    int type = 0;
    if (argc != 4 || !parse_type(argv[2], &type))
        return bad_call();
    take_console();
    return flash_command(type, argv[3]);
}

static int call_watch(int argc, char ** /*argv*/)
{
    if (argc != 2)
        return bad_call();
    take_console();
    return watch_command();
}

static int call_help(int argc, char ** /*argv*/)
{
    if (argc != 2)
        return bad_call();
    print_usage(stdout);
    return SERVICE_WELL;
}

static int call_version(int argc, char ** /*argv*/)
{
    if (argc != 2)
        return bad_call();
    printf("upgd_service %s, %s\n", PROGRAM_VERSION, SIGNATURES);
    return SERVICE_WELL;
}

int main(int argc, char **argv)
{
    const char *const verb = argc > 1 ? argv[1] : "";
    const auto is = [verb](const char *name) { return strcmp(verb, name) == 0; };
    aptid_self_set(task_on_this_board(MODULE_SERVICE));
    if (is("update") || is("plan"))
        return call_update(argc, argv, is("plan"));
    if (is("backup"))
        return call_backup(argc, argv);
    if (is("restore"))
        return call_restore(argc, argv);
    if (is("disks"))
        return call_disks(argc, argv);
    if (is("flash"))
        return call_flash(argc, argv);
    if (is("watch"))
        return call_watch(argc, argv);
    if (is("--help"))
        return call_help(argc, argv);
    if (is("--version"))
        return call_version(argc, argv);
    return bad_call();
}
