// Flashing one card firmware file on this board, through the device's flashing tools.
#include "update/dtt_update/card_flasher.h"

#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/card_kinds.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <unistd.h>

static constexpr char OPERATION[] = "update_one_UserFile";

int flash_card_file(int type, char *name, int *status)
{
    if (access(name, F_OK) != 0)
        return FLASH_NO_FILE;
    const card_kind *const kind = find_card_kind(type);
    if (kind == nullptr) {
        OPERATION_TRACE("    no file need to update in round 1... \n");
        return FLASH_NO_FILE;
    }
    char cmdstr[FLASHING_COMMAND_SIZE];
    const bool fits = bounded_format(cmdstr, sizeof cmdstr, "%s%s%s", kind->command_head, name,
                                     kind->command_tail);
    OPERATION_TRACE("    file name is %s \n", name);
    OPERATION_TRACE("    file type is %d \n", type);
    OPERATION_LOG("bin type is = %d ", type);
    if (!fits) {
        OPERATION_LOG("command too long for <%s>.", name);
        return FLASH_NOT_RUN;
    }
    OPERATION_TRACE("    cmdstr=%s \n\n", cmdstr);
    OPERATION_LOG("cmdstr=%s \n\n", cmdstr);
    OPERATION_TRACE("    begin update self bin \n");
    *status = my_system(cmdstr);
    if (*status == -1) {
        OPERATION_TRACE("    update err !\n");
        OPERATION_LOG("update faild!!: <%s>.\n", name);
        return FLASH_NOT_RUN;
    }
    OPERATION_TRACE("    update OK !\n");
    return 0;
}

int update_one_UserFile(int type, char *name)
{
    int status;
    return flash_card_file(type, name, &status);
}
