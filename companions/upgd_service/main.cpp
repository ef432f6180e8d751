// upgd_service: the resident service in the small, driven from a shell.
#include "companions/signature/check.h"
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/gate.h"
#include "companions/upgd_service/outcome.h"
#include "update/dtt_update_common/card_kinds.h"
#include "update/dtt_update_common/standard_streams.h"
#include "update/dtt_update_common/task_id.h"
#include "update_header.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <getopt.h>
#include <strings.h>
#include <sys/stat.h>
#include <unistd.h>

struct verb {
    const char *name;
    int (*call)(const service_call *call);
    int least; // words beside the options
    int most;
    const char *usage; // those words, and the options that it takes
    const char *help;
};

// The manual page and the completion are held to what it says.
static constexpr verb VERBS[] = {
    {"update", update_command, 1, 1,
     "IMAGE [--dir DIR] [--cards flash|simulate[=SECONDS]|fail=TYPE]\n"
     "             [--allow-unsigned] [--force]",
     UPDATE_HELP},
    {"plan", plan_command, 1, 1,
     "IMAGE [--dir DIR] [--cards flash|simulate[=SECONDS]|fail=TYPE]\n"
     "             [--allow-unsigned] [--copy FILE] [--json]",
     "show what that update would do; nothing is written but the copy that was tested"},
    {"backup", backup_command, 1, 1, "DISK", "save the settings to the disk mounted there"},
    {"restore", restore_command, 1, 2, "FILE [DIR] [--allow-unsigned] [--force]",
     "bring a backup back, below / without DIR"},
    {"disks", disks_command, 0, 0, "[--json]", "list the USB disks"},
    {"flash", flash_command, 2, 2, "TYPE FILE [--force]", "call the tool that flashes a card file"},
    {"watch", watch_command, 0, 0, "", "show an img_deploy run until it ends"},
    {"status", status_command, 0, 0, "[--json]",
     "show what is at work, how the last run ended, and what is next"},
};

static void print_types(FILE *to)
{
    fputs("Types of card files:\n", to);
    for (const card_kind &kind : CARD_KINDS)
        fprintf(to, "  %d %s\n", kind.type, kind.name);
}

static void print_usage(FILE *to)
{
    fputs("Usage:\n", to);
    for (const verb &v : VERBS)
        fprintf(to, "  upgd_service %s %s\n      %s\n", v.name, v.usage, v.help);
    fputs("  upgd_service --help | --version\n"
          "What has another CRC than its header says, or is bound to fail, is refused, but for\n"
          "--force. With public keys in /etc/upgd/keys an image needs a signature, but for\n"
          "--allow-unsigned.\n"
          "Exit status: 0 well, 1 failed, 2 a call that is none, 130 interrupted.\n",
          to);
    print_types(to);
}

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

static bool parse_cards(const char *text, card_choice *cards)
{
    *cards = {CARDS_FLASH, 1};
    if (strcmp(text, "flash") == 0)
        return true;
    cards->mode = CARDS_SIMULATE;
    if (strcmp(text, "simulate") == 0)
        return true;
    if (strncmp(text, "simulate=", 9) == 0)
        return parse_number(text + 9, 0, 600, &cards->number);
    cards->mode = CARDS_FAIL;
    return strncmp(text, "fail=", 5) == 0 && parse_type(text + 5, &cards->number);
}

std::string absolute_path(const char *dir)
{
    char here[PATH_MAX];
    if (dir[0] == '/' || getcwd(here, sizeof here) == nullptr)
        return dir;
    return std::string(here) + "/" + dir;
}

// Takes the options of the verb off the words from `argv[1]` on. Returns false if one is none; a
// line has told why.
static bool take_options(const verb &v, int argc, char **argv, service_call *call)
{
    const option all[] = {{"dir", required_argument, nullptr, 'd'},
                          {"cards", required_argument, nullptr, 'c'},
                          {"copy", required_argument, nullptr, 'k'},
                          {"allow-unsigned", no_argument, &call->allow_unsigned, 1},
                          {"force", no_argument, &call->force, 1},
                          {"json", no_argument, &call->json, 1}};
    option taken[std::size(all) + 1] = {};
    std::copy_if(std::begin(all), std::end(all), taken, [&v](const option &o) {
        return strstr(v.usage, (std::string("[--") + o.name).c_str()) != nullptr;
    });
    for (int opt; (opt = getopt_long(argc, argv, "", taken, nullptr)) != -1;) {
        if (opt == '?')
            return false;
        if (opt == 'd' && optarg[0] == '\0')
            return complain("%s: --dir needs a directory", v.name);
        if (opt == 'k' && optarg[0] == '\0')
            return complain("%s: --copy needs a file", v.name);
        if (opt == 'k')
            call->copy = optarg;
        if (opt == 'd')
            call->dir = absolute_path(optarg);
        if (opt == 'c' && !parse_cards(optarg, &call->cards))
            return complain("%s: '%s' is no choice for --cards", v.name, optarg);
    }
    return true;
}

// Takes the words that are left, up to the null at their end. Returns false if they are none for
// the verb; a line has told why.
static bool take_words(const verb &v, int count, char **words, service_call *call)
{
    call->words = words;
    if (count < v.least)
        complain("%s: too few words", v.name);
    else if (count > v.most)
        complain("%s: '%s' is a word too many", v.name, words[v.most]);
    else if (std::any_of(words, words + count, [](const char *word) { return word[0] == '\0'; }))
        complain("%s: an empty word is no file", v.name);
    else if (strncmp(v.usage, "TYPE", 4) == 0 && !parse_type(words[0], &call->type))
        complain("%s: '%s' is no type of card file", v.name, words[0]);
    else
        return true;
    return false;
}

// The words behind the verb are `argv` from 1 on.
static int call_verb(const verb &v, int argc, char **argv)
{
    // With this the C library begins what it says of an option.
    std::string name = std::string("upgd_service: ") + v.name;
    argv[0] = name.data();
    service_call call;
    if (take_options(v, argc, argv, &call) && take_words(v, argc - optind, argv + optind, &call)) {
        take_console();
        note_call(v.name, v.least > 0 ? call.words[v.least - 1] : nullptr);
        // A verb without a file looks at the device, which is needed most where something is wrong.
        const bool taken_up = geteuid() != 0 || take_up_floor();
        int status = taken_up || v.most == 0 ? v.call(&call) : SERVICE_FAILED;
        if (!output_is_whole() && status == SERVICE_WELL)
            status = SERVICE_FAILED;
        log_outcome(status);
        return status;
    }
    fprintf(stderr, "Usage: upgd_service %s %s\n", v.name, v.usage);
    if (strstr(v.usage, "TYPE") != nullptr)
        print_types(stderr);
    return SERVICE_BAD_CALL;
}

static int end_of_text()
{
    return fflush(stdout) == 0 ? SERVICE_WELL : fail("standard output: %s", strerror(errno));
}

int main(int argc, char **argv)
{
    open_standard_streams();
    // What is unpacked can be read by all, whatever the caller's files are like.
    umask(S_IWGRP | S_IWOTH);
    const std::string word = argc > 1 ? argv[1] : "";
    aptid_self_set(task_on_this_board(MODULE_SERVICE));
    for (const verb &v : VERBS)
        if (word == v.name)
            return call_verb(v, argc - 1, argv + 1);
    if (word == "--help") {
        print_usage(stdout);
        return end_of_text();
    }
    if (word == "--version") {
        printf("upgd_service %s, %s\n", PROGRAM_VERSION, SIGNATURES);
        return end_of_text();
    }
    if (argc > 1)
        complain("'%s' is no verb", argv[1]);
    else
        complain("a verb is missing");
    print_usage(stderr);
    return SERVICE_BAD_CALL;
}
