/*
 * The operations that the update system offers to the device's resident service. Each runs on the
 * calling thread and blocks it until it ends. One update, one build or one backup at a time in a
 * process: they share the working directory and process-wide state.
 */
#ifndef INCLUDE_UPDATE_SERVICE_H
#define INCLUDE_UPDATE_SERVICE_H

#include "device_msg.h"
#include "udisk_info.h"
#include "update_header.h"
#include "upgrade_info.h"

#include <stddef.h>
#include <stdio.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Results of an update beside 0. */
enum {
    UPDATE_FAILED = -1,        /* a service run: of its unpacking or its card stage */
    UPDATE_NOT_MAPPED = -3,    /* the image can't be mapped */
    UPDATE_COPY_FAILED = -4,   /* an entry is damaged or can't be written */
    UPDATE_BOOT_FAILED = -5,   /* the boot loader can't be installed */
    UPDATE_REFUSED = -10,      /* the image was refused, or there is no progress block; from
                                  the command line also: another run is at work */
    UPDATE_KERNEL_FAILED = -14 /* a kernel file can't be installed */
};

/* Results of do_create_backup beside 0. */
enum {
    BACKUP_FAILED = -1,
    BACKUP_NO_DISK = -11,           /* the disk can't be opened */
    BACKUP_NO_ROOM_ON_DEVICE = -12, /* 100,000 KiB are kept free */
    BACKUP_NO_ROOM_ON_DISK = -13    /* the same, or no disk is mounted there */
};

/* Results of update_one_UserFile beside 0. */
enum {
    FLASH_NO_FILE = -1, /* no such file, or no such type */
    FLASH_NOT_RUN = -6  /* the flashing tool could not be run */
};

/* Answers of a card, see set_update_card_result. */
enum { CARD_DONE = 0, CARD_NO_ANSWER = -1, CARD_FAILED = -2 };

/* ---- A service run: an update with events, a watch on the USB disk and the card stage ---- */

/* Applies the image `updfile` below the directory `upgd_dir`, made if it is missing, or below the
 * one that the image asks for if it is null. Events go to the task `uid` at each step and failure;
 * none is sent at the end. `updfile` must be writable: it is cut at a line feed. Never restarts the
 * board. Ahead of it, set_usb_status(TRUE) while the disk that holds the image is there, and
 * empty_UserFile_patch() if a run came before in this process.
 * Blocks for the whole run: a second at least, two more after a failure, and for each card file as
 * long as the card takes, 120 seconds at most. Returns 0, or:
 *   UPDATE_FAILED      the file is missing; an entry, the boot loader or the kernel could not be
 *                      written; the disk is gone; a card has failed or not answered in time
 *   UPDATE_NOT_MAPPED
 *   UPDATE_REFUSED
 *   other negative values: what the platform gave for a card update request that did not go out
 * What was written stays. After a failed copy the kernel partition may still be mounted. */
int do_update_upgd(aptid_t uid, char *updfile, char *upgd_dir);

/* The run itself, without the first test that the file is there: a missing file is refused. `mode`
 * REBOOT_MODE restarts the board at the end, whatever the outcome. */
int do_update_upgrade(aptid_t uid, char *update_file, int mode, char *force_base_dir);

/* The one event message of all service runs, for reading from any thread, without a lock. It keeps
 * the state of the last run. */
upgrade_msg_t *get_upgd_msg(void);

/* The presence of the USB disk that holds the image, FALSE at the start of the process. From any
 * thread. While it is FALSE a run stops at its next entry or card, and its failures read
 * UPGD_ERROR_NODISK. */
BOOL get_usb_status(void);
void set_usb_status(BOOL b);

/* ---- The card stage ---- */

/* Forgets the card files and answers of the runs so far. Between runs only. */
void empty_UserFile_patch(void);

/* A card's answer to the request for the firmware `type`, the type word of the request: CARD_DONE
 * or CARD_FAILED; any other value keeps the run waiting. From any thread but the run's. */
void set_update_card_result(int type, int result);

/* The last answer for `type`; CARD_NO_ANSWER if there was none, or no such type. */
int get_update_card_result(int type);

/* ---- USB disks ---- */

/* Fills `udisk_info` with the mounted disks whose devices are there, their names, and the images,
 * backups and .rcfgx files in their top directories; a fifth disk and a ninth file of a kind are
 * left out. So is a disk, with a line in the log, whose mount path has more than 15 characters or
 * does not mean itself in a shell command: it holds a blank, a control character, one of
 * | & ; < > ( ) ' " \ or a backquote, or a '$' ahead of a name, or it begins with '-', '~' or '#',
 * as its last component must not either. What is not written keeps its content, `event` always.
 * Returns 0, or -1 if a command could not be run: `upath_num` is not written then. */
int get_udisk_all_info(udisk_info_t *udisk_info);

/* Sends a fresh inventory to the module MODULE_UDISK of this board. Returns 0 if it went out, -1 if
 * not. Without a receiver, and after a failed inventory, the inventory's result: a message that is
 * incomplete goes out all the same. */
int sendmsg_udisk_all_info(void);

/* The same under the large label `l_l` and the small label `s_l`, as an answer with the event `ev`
 * and its `name`, which is cut at 127 bytes; it may be null. */
int sendmsg_ack_back(int l_l, int s_l, int ev, char *name);

/* Saves the device's settings as an image on the disk mounted at `udisk_path`, at most 52
 * characters, and leaves its path in `ret_filename`, which has room for the path of the disk and
 * 128 bytes more. do_update_backup(FILE, "/") brings them back. The working directory is left
 * changed. Returns 0, BACKUP_NO_DISK, BACKUP_NO_ROOM_ON_DEVICE or BACKUP_NO_ROOM_ON_DISK
 * (100,000 KiB are kept free), or BACKUP_FAILED: no device_name in the
 * configuration, or one that is no file name; a `udisk_path` or a device_name that does not mean
 * itself in a shell command, as above, or a path that fits none; a /tmp/ubackup that is another's;
 * a failed build or copy. The log tells which. What can't be copied from the settings is left out,
 * a copy to the disk that fails behind an older backup of the same minute leaves that one, and a
 * copy that a full disk cuts short stays as it is: none of this is noticed. */
int do_create_backup(char *udisk_path, char *ret_filename);

/* ---- Other operations ---- */

/* Flashes the firmware file `name` of the card firmware type `type` on this board through the
 * device's flashing tools, which set their own time limits. Returns 0 if the tool was run, whatever
 * became of it; FLASH_NO_FILE if the file does not exist or `type` is another; FLASH_NOT_RUN if the
 * tool could not be run or its command takes more than 255 characters. */
int update_one_UserFile(int type, char *name);

/* Replaces the `data_len` bytes of body behind the `head_len` bytes of header of the image open for
 * reading and writing on `update_fd` by their gzip form. The header stays as it is, with sizes that
 * no longer fit; `update_header` is not used. Works in /tmp/tmppfile and /tmp/tmppfile.gz, which
 * need room for the body and its compressed form, and which nobody else can read. Returns 0, or -1:
 * the image then has its plain body; if even that could not be put back, the log tells where the
 * body is kept. If a call was killed between taking the body and giving it back, the next one for
 * this image returns -1 and the log tells which of the two files holds the body; a call for another
 * image removes both files. On 0 the image is on the medium; a power cut ahead of that can cost it
 * its body. */
int gzip_dirs_and_files(int update_fd, struct tagupdate_header *update_header, size_t head_len,
                        size_t data_len);

/* Opens a stream on the expanded body of the image `infile`, a file, whose compressed body has
 * `data_len` bytes behind a header of 488: what the file holds now, whatever `infile` has read of
 * it before; its position is behind the header then. The caller closes the stream and removes the
 * file behind it, /tmp/tmppfile, which nobody else can read. Never returns null, but 1 if the body
 * could not be expanded and 2 if the expanded file could not be opened, or is not a plain file of
 * this process's user: test for these two values before using the result as a stream. */
FILE *open_gunzip_file(FILE *infile, size_t data_len);

/* Applies the image `updfile` like the command-line tool in ONLINE_MODE: without events and card
 * stage, with its progress in the shared block. `ubck_dir` as `upgd_dir` above. Returns 0, or
 * UPDATE_FAILED if the file is missing, else one of UPDATE_... above. */
int do_update_backup(char *updfile, char *ubck_dir);

/* Runs the command-line tool on the image in a process of its own and waits for it. `mode` is its
 * run mode; `force_base_dir` is not used. Always returns 0: the outcome is not looked at. A path of
 * more than 220 characters is not tried. */
int do_update_runcmd(char *update_file, int mode, char *force_base_dir);

/* Kills the device's other tasks. Always returns 0; the log tells which could not be. */
int kill_task(void);

/* Writes the `nSize` bytes in memory at `source` to the file `dest`, created with mode 0755 if it
 * is missing, and counts `update_info->cur_percent` from 0 to 100 meanwhile. Returns 0 or -1. */
int copy_file_new(upgrade_info_t *update_info, const char *source, const char *dest, int nSize);

/* ---- The shared progress block ---- */

/* Attaches the shared progress block, creating it if it does not exist. Returns its address, or
 * null. A block that a peer has created may hold only the first UPGRADE_INFO_SHM_SIZE bytes of an
 * upgrade_info_t by its declared size; the memory page behind it holds the whole record. */
void *get_upgrade_info(void);

/* Detaches a block from get_upgrade_info; null is allowed. The block itself stays. */
void free_upgrade_info(void *info);

#ifdef __cplusplus
}
#endif

#endif
