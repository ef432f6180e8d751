// The file names by which card firmware is recognised when an image is built.
#include "update/dtt_create/card_file_names.h"

#include <cstdio>
#include <cstring>

static constexpr size_t NAME_LENGTH_MAX = 2048;

#define FILE_NAMES(ROW)                                                                            \
    ROW(ENTRY_INPUT_MCU, "App_inputCard.bin")                                                      \
    ROW(ENTRY_OUTPUT_MCU, "App_OutputCard_HDMI.bin")                                               \
    ROW(ENTRY_VPU_MCU, "App_VPUCard.bin")                                                          \
    ROW(ENTRY_INPUT_FPGA, "InputCardTop.bin")                                                      \
    ROW(ENTRY_OUTPUT_FPGA, "Tyx_OutputCard.bin")                                                   \
    ROW(ENTRY_VPU_FPGA, "TYX_VPU_TOP.bin")                                                         \
    ROW(ENTRY_INPUT_GOLDEN, "Golden_Input.bin")                                                    \
    ROW(ENTRY_OUTPUT_GOLDEN, "Golden_Output.bin")                                                  \
    ROW(ENTRY_VPU_GOLDEN, "Golden_Vpu.bin")
#define FILE_NAME(type, name) {type, name},
#define KEY(type, name) type,

type_file_t type_file[] = {FILE_NAMES(FILE_NAME)};

static constexpr int KEYS[] = {FILE_NAMES(KEY)};
static_assert(holds_each_card_type(KEYS), "one row for each type");

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
