// A service update, where this program can't receive what its run sends.
#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"

const char UPDATE_HELP[] =
    "left to the resident service: this program can't receive on its library";

int update_command(const service_call *call)
{
    return fail(
        "%s: nothing was touched: over the device's own platform library the events and the "
        "card requests of a run go to its resident service alone: have that apply it, by "
        "do_update_upgd",
        call->words[0]);
}
