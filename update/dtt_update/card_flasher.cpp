// Flashing one card firmware file on this board, through the device's flashing tools.
#include "update/dtt_update_common/bounded_text.h"
#include "update/dtt_update_common/platform_log.h"
#include "update/dtt_update_common/trace_log.h"
#include "update_service.h"

#include <unistd.h>

static constexpr int NOT_FLASHED = -6;

// The command line of each kind of firmware, around the file's path.
struct flash_command {
    int type;
    const char *head;
    const char *tail;
};

static constexpr flash_command COMMANDS[] = {
    {ENTRY_INPUT_MCU, "/usr/vorn/bin/mcu_isp -B input  -C 0x31 -b ", " "},
    {ENTRY_OUTPUT_MCU, "/usr/vorn/bin/mcu_isp -B output  -C 0x31 -b ", " "},
    {ENTRY_VPU_MCU, "/usr/vorn/bin/mcu_isp -B vpu     -C 0x31 -b ", " -r 0x00 "},
    {ENTRY_INPUT_FPGA, "/usr/vorn/bin/kmd_test 0 update   0x0100 2 ", " "},
    {ENTRY_OUTPUT_FPGA, "/usr/vorn/bin/kmd_test -B update   0x0100 4  ", " "},
    {ENTRY_VPU_FPGA, "/usr/vorn/bin/kmd_test -B update   0x0100 1  ", " "},
    {ENTRY_INPUT_GOLDEN, "/usr/vorn/bin/kmd_test -B update   0x01ff 2  ", " "},
    {ENTRY_OUTPUT_GOLDEN, "/usr/vorn/bin/kmd_test -B update   0x01ff 4  ", " "},
    {ENTRY_VPU_GOLDEN, "/usr/vorn/bin/kmd_test -B update   0x01ff 1  ", " "},
};

static const flash_command *find_command(int type)
{
    for (const flash_command &command : COMMANDS)
        if (command.type == type)
            return &command;
    return nullptr;
}

int update_one_UserFile(int type, char *name)
{
    if (access(name, F_OK) != 0)
        return -1;
    const flash_command *const command = find_command(type);
    if (command == nullptr) {
        TRACE("    no file need to update in round 1... \n");
        return -1;
    }
    char cmdstr[256];
    const bool fits =
        format_text(cmdstr, sizeof cmdstr, "%s%s%s", command->head, name, command->tail);
    TRACE("    file name is %s \n", name);
    TRACE("    file type is %d \n", type);
    PLATFORM_LOG("bin type is = %d ", type);
    if (!fits) {
        PLATFORM_LOG("command too long for <%s>.", name);
        return NOT_FLASHED;
    }
    TRACE("    cmdstr=%s \n\n", cmdstr);
    PLATFORM_LOG("cmdstr=%s \n\n", cmdstr);
    TRACE("    begin update self bin \n");
    if (my_system(cmdstr) == -1) {
        TRACE("    update err !\n");
        PLATFORM_LOG("update faild!!: <%s>.\n", name);
        return NOT_FLASHED;
    }
    TRACE("    update OK !\n");
    return 0;
}
