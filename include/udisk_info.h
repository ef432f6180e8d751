/*
 * The inventory of the USB disks, the body of the USB disk message, in the processor's byte order.
 * Texts are zero-terminated within their fields. Entries behind a count hold no meaning.
 *
 * The message has 9616 bytes: an ihead_t that is not filled, a Flabel_t with `size` 9592, and a
 * udisk_info_t. The inventory of all disks has the labels LABEL_UDISK and LABEL_UDISK_ALL_INFO and
 * no event; an answer has its caller's labels and event.
 */
#ifndef INCLUDE_UDISK_INFO_H
#define INCLUDE_UDISK_INFO_H

#include <assert.h>
#include <stddef.h>

#define UDISK_MAX 4      /* disks of an inventory */
#define UDISK_FILE_MAX 8 /* files of each kind on a disk */

typedef struct Fimd_event {
    int ev;
    char name[128];
} Fimd_event_t;

static_assert(sizeof(Fimd_event_t) == 132, "Fimd_event_t is a record of messages");
static_assert(offsetof(Fimd_event_t, ev) == 0, "ev");
static_assert(offsetof(Fimd_event_t, name) == 4, "name");

/* Files *.img in the disk's top directory, by their full paths. */
typedef struct uimgfile_info {
    int uimgfile_num;
    char uimgfile[UDISK_FILE_MAX][96];
} uimgfile_info_t;

/* Files *.ubck. */
typedef struct ubackfile_info {
    int ubackfile_num;
    char ubackfile[UDISK_FILE_MAX][96];
} ubackfile_info_t;

/* Files *.rcfgx. */
typedef struct rcfgfile_info {
    int urcfgfile_num;
    char urcfgfile[UDISK_FILE_MAX][96];
} rcfgfile_info_t;

static_assert(sizeof(uimgfile_info_t) == 772, "uimgfile_info_t is a record of messages");
static_assert(offsetof(uimgfile_info_t, uimgfile_num) == 0, "uimgfile_num");
static_assert(offsetof(uimgfile_info_t, uimgfile) == 4, "uimgfile");
static_assert(sizeof(ubackfile_info_t) == 772, "ubackfile_info_t is a record of messages");
static_assert(offsetof(ubackfile_info_t, ubackfile_num) == 0, "ubackfile_num");
static_assert(offsetof(ubackfile_info_t, ubackfile) == 4, "ubackfile");
static_assert(sizeof(rcfgfile_info_t) == 772, "rcfgfile_info_t is a record of messages");
static_assert(offsetof(rcfgfile_info_t, urcfgfile_num) == 0, "urcfgfile_num");
static_assert(offsetof(rcfgfile_info_t, urcfgfile) == 4, "urcfgfile");

typedef struct udisk_list {
    char udisk_path[16]; /* mount path */
    char udisk_name[32]; /* the label, or a name in its place */
    uimgfile_info_t imgfile;
    ubackfile_info_t backfile;
    rcfgfile_info_t rcfgfile;
} udisk_list_t;

static_assert(sizeof(udisk_list_t) == 2364, "udisk_list_t is a record of messages");
static_assert(offsetof(udisk_list_t, udisk_path) == 0, "udisk_path");
static_assert(offsetof(udisk_list_t, udisk_name) == 16, "udisk_name");
static_assert(offsetof(udisk_list_t, imgfile) == 48, "imgfile");
static_assert(offsetof(udisk_list_t, backfile) == 820, "backfile");
static_assert(offsetof(udisk_list_t, rcfgfile) == 1592, "rcfgfile");

typedef struct udisk_info {
    int upath_num; /* disks in `upath` */
    Fimd_event_t event;
    udisk_list_t upath[UDISK_MAX];
} udisk_info_t;

static_assert(sizeof(udisk_info_t) == 9592, "udisk_info_t is the body of a message");
static_assert(offsetof(udisk_info_t, upath_num) == 0, "upath_num");
static_assert(offsetof(udisk_info_t, event) == 4, "event");
static_assert(offsetof(udisk_info_t, upath) == 136, "upath");

#endif
