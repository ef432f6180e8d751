// upgd_service: the resident service in the small, driven from a shell.
#include "service/commands.h"
#include "service/console.h"
#include "update/dtt_update_common/task_id.h"
#include "update_header.h"

#include <cstdlib>
#include <cstring>
#include <unistd.h>

static constexpr char USAGE[] =
    "Usage: upgd_service update IMAGE [--dir DIR] [--cards flash|simulate[=SECONDS]|fail=TYPE]\n"
    "       upgd_service backup DISK          save the settings to the disk mounted there\n"
    "       upgd_service restore FILE [DIR]   bring a backup back, below / without DIR\n"
    "       upgd_service disks [--json]       list the USB disks\n"
    "       upgd_service flash TYPE FILE      flash one card file of type 22 to 30\n"
    "       upgd_service watch                show an img_deploy run until it ends\n"
    "       upgd_service --help               print this text\n"
    "Exit status: 0 well, 1 failed, 2 a call that is none, 130 interrupted.\n";

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
    return strncmp(text, "fail=", 5) == 0 &&
           parse_number(text + 5, ENTRY_INPUT_MCU, ENTRY_VPU_GOLDEN, &cards->number);
}

static int bad_call()
{
    fputs(USAGE, stderr);
    return SERVICE_BAD_CALL;
}

static int call_update(int argc, char **argv)
{
    char *image = nullptr;
    char *dir = nullptr;
    card_choice cards = {CARDS_FLASH, 0};
    for (int i = 2; i < argc; i++) {
        if (strcmp(argv[i], "--dir") == 0 && i + 1 < argc)
            dir = argv[++i];
        else if (strcmp(argv[i], "--cards") == 0 && i + 1 < argc) {
            if (!parse_cards(argv[++i], &cards))
                return bad_call();
        } else if (argv[i][0] != '-' && image == nullptr)
            image = argv[i];
        else
            return bad_call();
    }
    if (image == nullptr)
        return bad_call();
    take_console();
    return update_command(image, dir, cards);
}

int main(int argc, char **argv)
{
    const char *const command = argc > 1 ? argv[1] : "";
    const auto is = [command](const char *name) { return strcmp(command, name) == 0; };
    char root[] = "/";
    int type = 0;
    aptid_self_set(task_on_this_board(MODULE_SERVICE));
    if (is("update"))
        return call_update(argc, argv);
    if (is("--help") && argc == 2) {
        fputs(USAGE, stdout);
        return SERVICE_WELL;
    }
    const bool json = is("disks") && argc == 3 && strcmp(argv[2], "--json") == 0;
    const bool good = (is("watch") && argc == 2) || (is("disks") && (argc == 2 || json)) ||
                      (is("backup") && argc == 3) || (is("restore") && (argc == 3 || argc == 4)) ||
                      (is("flash") && argc == 4 &&
                       parse_number(argv[2], ENTRY_INPUT_MCU, ENTRY_VPU_GOLDEN, &type));
    if (!good)
        return bad_call();
    take_console();
    if (is("watch"))
        return watch_command();
    if (is("disks"))
        return disks_command(json);
    if (is("backup"))
        return backup_command(argv[2]);
    if (is("restore"))
        return restore_command(argv[2], argc == 4 ? argv[3] : root);
    return flash_command(type, argv[3]);
}
