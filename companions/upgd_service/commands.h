// The commands of upgd_service. Each returns an exit status.
#ifndef COMPANIONS_UPGD_SERVICE_COMMANDS_H
#define COMPANIONS_UPGD_SERVICE_COMMANDS_H

#include <string>

enum { SERVICE_WELL = 0, SERVICE_FAILED = 1, SERVICE_BAD_CALL = 2, SERVICE_INTERRUPTED = 130 };

// The module of this service; events of its runs go there.
enum { MODULE_SERVICE = 0xa3d00 };

// How the cards are answered for.
enum card_mode { CARDS_FLASH, CARDS_SIMULATE, CARDS_FAIL };

struct card_choice {
    card_mode mode;
    int number; // seconds to simulate, or the type that fails
};

// What a verb is called with.
struct service_call {
    char **words = nullptr; // beside the options, up to a null
    int type = 0;           // of a card file, if the first word is one
    std::string dir;        // empty for the one that the image asks for
    std::string copy;       // where the bytes that were tested are left, empty for nowhere
    card_choice cards = {CARDS_FLASH, 0};
    int allow_unsigned = 0; // take an image without a signature
    int force = 0;          // try what is bound to fail
    int json = 0;
};

extern const char UPDATE_HELP[];
int update_command(const service_call *call);
int plan_command(const service_call *call);
int backup_command(const service_call *call);
int restore_command(const service_call *call);
int disks_command(const service_call *call);
int flash_command(const service_call *call);
int watch_command(const service_call *call);
int status_command(const service_call *call);

// A relative directory would be looked for in itself once a run has moved into it.
std::string absolute_path(const char *dir);

#endif
