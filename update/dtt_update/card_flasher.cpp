// Flashing one card firmware file on this board, through the device's flashing tools.
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/card_kinds.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <unistd.h>

int update_one_UserFile(int type, char *name)
{
    if (access(name, F_OK) != 0)
        return FLASH_NO_FILE;
    const card_kind *const kind = find_card_kind(type);
    if (kind == nullptr) {
        TRACE("    no file need to update in round 1... \n");
        return FLASH_NO_FILE;
    }
    char cmdstr[256];
    const bool fits = bounded_format(cmdstr, sizeof cmdstr, "%s%s%s", kind->command_head, name,
                                     kind->command_tail);
    TRACE("    file name is %s \n", name);
    TRACE("    file type is %d \n", type);
    PLATFORM_LOG("bin type is = %d ", type);
    if (!fits) {
        PLATFORM_LOG("command too long for <%s>.", name);
        return FLASH_NOT_RUN;
    }
    TRACE("    cmdstr=%s \n\n", cmdstr);
    PLATFORM_LOG("cmdstr=%s \n\n", cmdstr);
    TRACE("    begin update self bin \n");
    if (my_system(cmdstr) == -1) {
        TRACE("    update err !\n");
        PLATFORM_LOG("update faild!!: <%s>.\n", name);
        return FLASH_NOT_RUN;
    }
    TRACE("    update OK !\n");
    return 0;
}
