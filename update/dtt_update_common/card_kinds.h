// The kinds of card firmware, a row each: what a card is asked with, how it is flashed on this
// board, and what a person is told. Their file names stand in type_file, and their time limits and
// the order in which the cards are flashed in type_patch. A new kind is an enumerator behind the
// last one of update_header.h and a row in each of the three tables: one that is missing, or stands
// there twice, does not compile.
#ifndef UPDATE_DTT_UPDATE_COMMON_CARD_KINDS_H
#define UPDATE_DTT_UPDATE_COMMON_CARD_KINDS_H

#include "device_msg.h"
#include "update_header.h"

#include <cstddef>

struct card_kind {
    int type;         // ENTRY_..., the row's key
    const char *name; // short
    const char *card; // in words for a person
    const char *part; // of the card
    unsigned char slot;
    unsigned short model;
    int step;                 // UPGD_... while it is flashed
    int failure;              // UPGD_ERROR_..., shared by an FPGA image and its golden one
    const char *command_head; // of the flashing tool, around the file's path
    const char *command_tail;
};

constexpr unsigned short MODEL_FPGA = 0x100;
constexpr unsigned short MODEL_GOLDEN = 0x1ff;
// The MCU programs of all cards go out with one slot and model: the card side tells them by their
// type.
constexpr unsigned char MCU_SLOT = 1;
constexpr unsigned short MODEL_MCU = 0;

// Every blank of a command is part of it.
constexpr card_kind CARD_KINDS[] = {
    {ENTRY_INPUT_MCU, "input MCU", "input card", "MCU", MCU_SLOT, MODEL_MCU, UPGD_INPUT_MCU,
     UPGD_ERROR_INPUT_MCU, "/usr/vorn/bin/mcu_isp -B input  -C 0x31 -b ", " "},
    {ENTRY_OUTPUT_MCU, "output MCU", "output card", "MCU", MCU_SLOT, MODEL_MCU, UPGD_OUTPUT_MCU,
     UPGD_ERROR_OUTPUT_MCU, "/usr/vorn/bin/mcu_isp -B output  -C 0x31 -b ", " "},
    {ENTRY_VPU_MCU, "VPU MCU", "video card", "MCU", MCU_SLOT, MODEL_MCU, UPGD_VPU_MCU,
     UPGD_ERROR_VPU_MCU, "/usr/vorn/bin/mcu_isp -B vpu     -C 0x31 -b ", " -r 0x00 "},
    {ENTRY_INPUT_FPGA, "input FPGA", "input card", "FPGA", FPGA_INPUT_SLOT, MODEL_FPGA,
     UPGD_INPUT_FPGA, UPGD_ERROR_INPUT_FPGA, "/usr/vorn/bin/kmd_test 0 update   0x0100 2 ", " "},
    {ENTRY_OUTPUT_FPGA, "output FPGA", "output card", "FPGA", FPGA_OUTPUT_SLOT, MODEL_FPGA,
     UPGD_OUTPUT_FPGA, UPGD_ERROR_OUTPUT_FPGA, "/usr/vorn/bin/kmd_test -B update   0x0100 4  ",
     " "},
    {ENTRY_VPU_FPGA, "VPU FPGA", "video card", "FPGA", FPGA_VPU_SLOT, MODEL_FPGA, UPGD_VPU_FPGA,
     UPGD_ERROR_VPU_FPGA, "/usr/vorn/bin/kmd_test -B update   0x0100 1  ", " "},
    {ENTRY_INPUT_GOLDEN, "input golden", "input card", "golden FPGA", FPGA_INPUT_SLOT, MODEL_GOLDEN,
     UPGD_INPUT_FPGAGOLDEN, UPGD_ERROR_INPUT_FPGA, "/usr/vorn/bin/kmd_test -B update   0x01ff 2  ",
     " "},
    {ENTRY_OUTPUT_GOLDEN, "output golden", "output card", "golden FPGA", FPGA_OUTPUT_SLOT,
     MODEL_GOLDEN, UPGD_OUTPUT_FPGAGOLDEN, UPGD_ERROR_OUTPUT_FPGA,
     "/usr/vorn/bin/kmd_test -B update   0x01ff 4  ", " "},
    {ENTRY_VPU_GOLDEN, "VPU golden", "video card", "golden FPGA", FPGA_VPU_SLOT, MODEL_GOLDEN,
     UPGD_VPU_FPGAGOLDEN, UPGD_ERROR_VPU_FPGA, "/usr/vorn/bin/kmd_test -B update   0x01ff 1  ",
     " "},
};

constexpr int CARD_TYPES = ENTRY_CARD_LAST - ENTRY_CARD_FIRST + 1;

// The kind of an entry type, or null.
constexpr const card_kind *find_card_kind(int type)
{
    for (const card_kind &kind : CARD_KINDS)
        if (kind.type == type)
            return &kind;
    return nullptr;
}

// Whether each type of card firmware is the key of exactly one of `rows`, and there are no others:
// a row is a number, or begins with its key.
constexpr int key_of(int row)
{
    return row;
}
constexpr int key_of(const card_kind &row)
{
    return row.type;
}
template <typename T, size_t N> constexpr bool holds_each_card_type(const T (&rows)[N])
{
    for (int type = ENTRY_CARD_FIRST; type <= ENTRY_CARD_LAST; type++) {
        size_t found = 0;
        for (const T &row : rows)
            found += key_of(row) == type ? 1 : 0;
        if (found != 1)
            return false;
    }
    return N == CARD_TYPES;
}
static_assert(holds_each_card_type(CARD_KINDS), "one row for each type");

// Whoever is told of a step has to know which card it is: no two rows have one, and none is a step
// of the run itself.
constexpr bool each_has_its_own_step()
{
    for (const card_kind &one : CARD_KINDS)
        for (const card_kind &other : CARD_KINDS)
            if ((&one != &other && one.step == other.step) || one.step <= UPGD_CTRL ||
                one.step == UPGD_STOP || one.step == UPGD_END)
                return false;
    return true;
}
static_assert(each_has_its_own_step(), "a step tells the card");

#endif
