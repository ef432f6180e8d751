// Flashing a card file with this board's tools.
#include "companions/upgd_service/flash.h"

#include "companions/upgd_service/commands.h"
#include "companions/upgd_service/console.h"
#include "companions/upgd_service/session.h"
#include "update/dtt_create/card_file_names.h"
#include "update/dtt_update/card_flasher.h"
#include "update/dtt_update_common/shell_words.h"

#include <cerrno>
#include <cstring>
#include <sys/wait.h>
#include <unistd.h>

std::string flashing_tool(const card_kind *kind)
{
    return std::string(kind->command_head, strcspn(kind->command_head, " "));
}

const char *flashing_fault(const card_kind *kind, const char *file)
{
    if (!is_shell_safe_word(file))
        return "its path would be taken apart by a command";
    const size_t len = strlen(kind->command_head) + strlen(file) + strlen(kind->command_tail);
    return len < FLASHING_COMMAND_SIZE ? nullptr : "its path is too long for the tool's command";
}

bool call_flashing_tool(int type, char *file)
{
    const card_kind *const kind = find_card_kind(type);
    if (kind == nullptr || access(file, F_OK) != 0)
        return complain("%s: %s", file,
                        kind == nullptr ? "no such kind of card firmware" : strerror(errno));
    const char *const fault = flashing_fault(kind, file);
    if (fault != nullptr)
        return complain("%s: not flashed: %s: rename it", file, fault);
    const std::string tool = flashing_tool(kind);
    if (access(tool.c_str(), X_OK) != 0)
        return complain("%s: not flashed: the tool %s: %s", file, tool.c_str(), strerror(errno));
    forget_command_output();
    int status = 0;
    if (flash_card_file(type, file, &status) != 0)
        return complain("%s: the tool %s can't be run", file, tool.c_str());
    if (status == 0)
        return true;
    const bool exited = WIFEXITED(status);
    complain("%s: the tool %s was called and has ended with %s %d", file, tool.c_str(),
             exited ? "status" : "signal", exited ? WEXITSTATUS(status) : WTERMSIG(status));
    show_command_output();
    return false;
}

int flash_command(const service_call *call)
{
    char *const file = call->words[1];
    // A card that is given another's program does not come back.
    int named = call->type;
    std::string name = last_component(file);
    if (check_type_SelfFile(name.data(), &named) == 0 && named != call->type && call->force == 0) {
        refuse("rename it, or flash it with --force",
               "%s: by its name it is for %s, and not for %s", file, find_card_kind(named)->name,
               find_card_kind(call->type)->name);
        return SERVICE_FAILED;
    }
    session session;
    if (!session.begin("flash") || !call_flashing_tool(call->type, file))
        return SERVICE_FAILED;
    say("%s: the tool was called and has ended with status 0; the card itself was not asked", file);
    return SERVICE_WELL;
}
