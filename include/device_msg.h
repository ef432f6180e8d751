/*
 * The messages of an update run to other tasks on the board, in the processor's byte order.
 *
 * Event, an upgrade_msg_t of 1076 bytes: how a run stands. It goes to the task that the caller of
 * the run names, with the large label LABEL_MSG and the small label LABEL_UDISK_FWARE_UPDATE.
 *
 * Card update request, a stApMsg and a payload: asks the card side to flash one firmware file.
 *
 *     0    head       ihead_t; `size` is the whole message's: 40 + the payload's
 *     16   lable      Flabel_t; LABEL_MSG, LABEL_MSG_LOCAL; `size` is 14 + the payload's
 *     24   kmddata    stPmdData, packed
 *     38   payload    of a firmware file, stPmdFile: 1028 bytes
 *     ..   2 bytes    0; they make up for the rounded size of stApMsg
 *
 * The payload is no member of a record: it begins at STAPMSG_DATA_OFFSET, inside that rounding.
 */
#ifndef INCLUDE_DEVICE_MSG_H
#define INCLUDE_DEVICE_MSG_H

#include "task_types.h"
#include "upgrade_info.h"

#include <assert.h>
#include <stddef.h>
#include <stdint.h>

/* Modules, the low 24 bits of a task id. */
enum {
    MODULE_USER_INTERFACE = 0xa3f00, /* stamped on both messages */
    MODULE_CARDS = 0xa3b00,          /* takes the card update requests */
    MODULE_UPDATE = 0xa3c00,         /* img_deploy itself */
    MODULE_UDISK = 0xa3900           /* takes the USB disk messages */
};

typedef struct Fipc_msg_head {
    aptid_t ui_id;
    int lbl_cnt; /* not used by this system */
    int size;    /* bytes of the whole message, this head included */
    int result;
} ihead_t;

static_assert(sizeof(ihead_t) == 16, "ihead_t is a record of messages");
static_assert(offsetof(ihead_t, ui_id) == 0, "ui_id");
static_assert(offsetof(ihead_t, lbl_cnt) == 4, "lbl_cnt");
static_assert(offsetof(ihead_t, size) == 8, "size");
static_assert(offsetof(ihead_t, result) == 12, "result");

struct Fcode_dtl {
    unsigned int small : 16;
    unsigned int large : 16;
};

union Flabel {
    struct Fcode_dtl dtl;
    int code; /* large label shifted left by 16, or-ed with the small label */
};

typedef struct Fimd_label {
    union Flabel lb;
    int size; /* bytes that follow the label, where it is filled */
} Flabel_t;

static_assert(sizeof(Flabel_t) == 8, "Flabel_t is a record of messages");
static_assert(offsetof(Flabel_t, lb) == 0, "lb");
static_assert(offsetof(Flabel_t, size) == 4, "size");

/* Large labels. */
enum { LABEL_MSG = 28, LABEL_UDISK = 29 };

/* Small labels within LABEL_MSG. */
enum {
    LABEL_MSG_LOCAL = 0,
    LABEL_MSG_NET = 1,
    LABEL_MSG_CCID = 2,
    LABEL_MSG_IO = 3,
    LABEL_MSG_TTY = 4,
    LABEL_MSG_MAX = 5
};

/* Small labels within LABEL_UDISK. */
enum {
    LABEL_UDISK_DB_TIME = 0,
    LABEL_UDISK_DB_MANUALLY = 1,
    LABEL_UDISK_HOTPLUG = 2,
    LABEL_UDISK_ALL_INFO = 3,
    LABEL_UDISK_UBACK_CREAT = 4,
    LABEL_UDISK_UBACK_RELOAD = 5,
    LABEL_UDISK_FWARE_UPDATE = 6, /* of an event, beside LABEL_MSG */
    LABEL_UDISK_MAX = 7
};

typedef struct Fimd_update_param {
    apcard_bit_t card; /* 0 */
    int value;         /* the run's step, UPGD_START ... */
    char name[1024];   /* empty */
} update_param_t;

static_assert(sizeof(update_param_t) == 1032, "update_param_t is a record of messages");
static_assert(offsetof(update_param_t, card) == 0, "card");
static_assert(offsetof(update_param_t, value) == 4, "value");
static_assert(offsetof(update_param_t, name) == 8, "name");

/* The event. In a service run upgrade_info.cur_percent goes from 0 to 1000 over the run, 900 of it
 * in the card stage, and upgrade_info.result is one of UPGD_NORNAL ... */
typedef struct upgrade_msg {
    ihead_t head;
    Flabel_t lable; /* `size` stays 0 */
    update_param_t update_param;
    upgrade_info_t upgrade_info;
} upgrade_msg_t;

static_assert(sizeof(upgrade_msg_t) == 1076, "upgrade_msg_t is a message");
static_assert(offsetof(upgrade_msg_t, head) == 0, "head");
static_assert(offsetof(upgrade_msg_t, lable) == 16, "lable");
static_assert(offsetof(upgrade_msg_t, update_param) == 24, "update_param");
static_assert(offsetof(upgrade_msg_t, upgrade_info) == 1056, "upgrade_info");

/* Steps of a run. */
enum {
    UPGD_START = 1, /* the image is not yet in use */
    UPGD_CTRL = 2,  /* the image has passed its checks and is being unpacked */
    UPGD_INPUT_FPGA = 3,
    UPGD_INPUT_FPGAGOLDEN = 4,
    UPGD_INPUT_MCU = 5,
    UPGD_OUTPUT_FPGA = 6,
    UPGD_OUTPUT_FPGAGOLDEN = 7,
    UPGD_OUTPUT_MCU = 8,
    UPGD_VPU_FPGA = 9,
    UPGD_VPU_FPGAGOLDEN = 10,
    UPGD_VPU_MCU = 11,
    UPGD_STOP = 12, /* not set by this system */
    UPGD_END = 13   /* not set by this system */
};

/* Results of a run. */
enum {
    UPGD_NORNAL = 0, /* no failure so far; the value of a service run that went well, too */
    UPGD_SUCCESS = 1,
    UPGD_ERROR = 2,
    UPGD_ERROR_NODISK = 3,
    UPGD_ERROR_FILENOTEXIST = 4,
    UPGD_ERROR_FILECHECK = 5, /* the image can't be opened */
    UPGD_ERROR_FILEPARSE = 6, /* a bad header, or no directory to unpack to */
    UPGD_ERROR_MMAP = 7,
    UPGD_ERROR_COPY = 8, /* an entry can't be written */
    UPGD_ERROR_BOOT = 9,
    UPGD_ERROR_KERNEL = 10,
    UPGD_ERROR_INPUT_FPGA = 11, /* the FPGA image or the golden one, here and below */
    UPGD_ERROR_INPUT_MCU = 12,
    UPGD_ERROR_OUTPUT_FPGA = 13,
    UPGD_ERROR_OUTPUT_MCU = 14,
    UPGD_ERROR_VPU_FPGA = 15,
    UPGD_ERROR_VPU_MCU = 16
};

/* Command codes of stPmdData. Only CMD_UPDATE is sent by this system. */
enum {
    CMD_READ = 0,
    CMD_WRITE = 1,
    CMD_WRITE_ACK = 2,
    CMD_READ_FILE = 221,
    CMD_WRITE_FILE = 238,
    CMD_UPDATE = 239,
    CMD_END = 240
};

/* Slots, and the models that have a name. */
enum { FPGA_VPU_SLOT = 1, FPGA_INPUT_SLOT = 2, FPGA_OUTPUT_SLOT = 4 };
enum { FPGA_VPU_MODEL = 0, FPGA_INPUT_MODEL = 0, FPGA_OUTPUT_MODEL = 0 };

/* An array without elements is an extension of the compilers. */
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wpedantic"

typedef struct stPmdData {
    uint8_t pid;     /* bits 8 to 15 of head.ui_id */
    uint8_t id;      /* 254 in a request for a firmware file */
    uint8_t cmd;     /* CMD_UPDATE */
    uint8_t slot;    /* FPGA_..._SLOT */
    uint16_t model;  /* 0, 0x100 for an FPGA image, 0x1ff for a golden one */
    uint16_t seq;    /* counts the requests of a process */
    uint32_t addr;   /* 0 in a request for a firmware file */
    uint16_t len;    /* bytes of the payload, their low 16 bits */
    uint8_t data[0]; /* the payload */
} __attribute__((packed)) stPmdData;

static_assert(sizeof(stPmdData) == 14, "stPmdData is a record of messages");
static_assert(offsetof(stPmdData, pid) == 0, "pid");
static_assert(offsetof(stPmdData, id) == 1, "id");
static_assert(offsetof(stPmdData, cmd) == 2, "cmd");
static_assert(offsetof(stPmdData, slot) == 3, "slot");
static_assert(offsetof(stPmdData, model) == 4, "model");
static_assert(offsetof(stPmdData, seq) == 6, "seq");
static_assert(offsetof(stPmdData, addr) == 8, "addr");
static_assert(offsetof(stPmdData, len) == 12, "len");
static_assert(offsetof(stPmdData, data) == 14, "data");

typedef struct stApMsg {
    ihead_t head;
    Flabel_t lable;
    stPmdData kmddata;
} stApMsg;

#pragma GCC diagnostic pop

static_assert(sizeof(stApMsg) == 40, "two bytes behind kmddata round it up");
static_assert(offsetof(stApMsg, head) == 0, "head");
static_assert(offsetof(stApMsg, lable) == 16, "lable");
static_assert(offsetof(stApMsg, kmddata) == 24, "kmddata");

/* Where the payload begins. */
#define STAPMSG_DATA_OFFSET (offsetof(stApMsg, kmddata) + offsetof(stPmdData, data))
static_assert(STAPMSG_DATA_OFFSET == 38, "nothing stands between kmddata and the payload");

/* Payload of a request for a firmware file. */
typedef struct stPmdFile {
    int file_type;         /* entry type of the image, ENTRY_CARD_FIRST ... */
    char file_patch[1024]; /* its path; what stands behind the terminator has no meaning */
} stPmdFile;

static_assert(sizeof(stPmdFile) == 1028, "stPmdFile is a record of messages");
static_assert(offsetof(stPmdFile, file_type) == 0, "file_type");
static_assert(offsetof(stPmdFile, file_patch) == 4, "file_patch");

#endif
