// The file names by which card firmware is recognised when an image is built.
#include "update/dtt_create/card_file_names.h"

#include <cstdio>
#include <cstring>

static constexpr size_t NAME_LENGTH_MAX = 2048;

type_file_t type_file[] = {
    {ENTRY_INPUT_MCU, "App_inputCard.bin"},    {ENTRY_OUTPUT_MCU, "App_OutputCard_HDMI.bin"},
    {ENTRY_VPU_MCU, "App_VPUCard.bin"},        {ENTRY_INPUT_FPGA, "InputCardTop.bin"},
    {ENTRY_OUTPUT_FPGA, "Tyx_OutputCard.bin"}, {ENTRY_VPU_FPGA, "TYX_VPU_TOP.bin"},
    {ENTRY_INPUT_GOLDEN, "Golden_Input.bin"},  {ENTRY_OUTPUT_GOLDEN, "Golden_Output.bin"},
    {ENTRY_VPU_GOLDEN, "Golden_Vpu.bin"},
};
static_assert(sizeof type_file / sizeof type_file[0] == CARD_TYPES, "a row for each kind");

int check_type_SelfFile(char *name, int *type)
{
    if (strlen(name) > NAME_LENGTH_MAX) {
        puts("ERR:len of self name is to long! ");
        return -1;
    }
    for (const type_file_t &row : type_file) {
        if (strcmp(row.file_name, name) == 0) {
            *type = row.file_type;
            return 0;
        }
    }
    return -1;
}
