/* The headers for other programs are C, and every operation for the resident service can be linked.
 */
#include "platform/platform.h"
#include "update_service.h"

typedef void (*operation)(void);

int main(void)
{
    const operation operations[] = {
        (operation)do_update_upgd,         (operation)do_update_backup,
        (operation)do_update_runcmd,       (operation)kill_task,
        (operation)copy_file_new,          (operation)do_update_upgrade,
        (operation)get_upgd_msg,           (operation)get_usb_status,
        (operation)set_usb_status,         (operation)free_upgrade_info,
        (operation)get_upgrade_info,       (operation)empty_UserFile_patch,
        (operation)set_update_card_result, (operation)get_update_card_result,
        (operation)get_udisk_all_info,     (operation)sendmsg_ack_back,
        (operation)sendmsg_udisk_all_info, (operation)do_create_backup,
        (operation)update_one_UserFile,    (operation)gzip_dirs_and_files,
        (operation)open_gunzip_file,
    };
    int missing = 0;
    for (unsigned int i = 0; i < sizeof operations / sizeof operations[0]; i++)
        missing += operations[i] == NULL;
    set_usb_status(TRUE);
    return missing != 0 || get_usb_status() != TRUE;
}
