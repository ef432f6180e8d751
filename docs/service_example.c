/*
 * The smallest resident service: runs an update from a mounted disk, shows its events, and has the
 * cards flashed by this board's own tools.
 *
 *     service_example IMAGE [DIRECTORY]
 */
#include "update_service.h"

#include <pthread.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

enum { SERVICE_TASK = 0x010a3d00, CARDS_TASK = 0x010a3b00, MESSAGE_MAX = 4096 };

/* A task receives on a Unix datagram socket that is named after its id. */
static int open_mailbox(unsigned int task)
{
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    snprintf(address.sun_path, sizeof address.sun_path, "/run/mailbox/%08x", task);
    mkdir("/run/mailbox", 0755);
    unlink(address.sun_path);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0 || bind(fd, (const struct sockaddr *)&address, sizeof address) != 0) {
        perror(address.sun_path);
        return -1;
    }
    return fd;
}

static void *show_events(void *mailbox)
{
    upgrade_msg_t event;
    while (recv(*(int *)mailbox, &event, sizeof event, 0) == sizeof event)
        printf("event: step %d, result %d, %d of 1000\n", event.update_param.value,
               event.upgrade_info.result, event.upgrade_info.cur_percent);
    return NULL;
}

/* A path that a shell leaves alone: the flashing tools are called by one, and images hold any name. */
static int is_plain_path(const char *path)
{
    static const char plain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789._-+/";
    return path[0] == '/' && path[strspn(path, plain)] == '\0';
}

/* Takes one request after the other. The run waits for the answer, on its own thread. */
static void *flash_cards(void *mailbox)
{
    char message[MESSAGE_MAX];
    stPmdFile file;
    for (;;) {
        const ssize_t size = recv(*(int *)mailbox, message, sizeof message, 0);
        if (size <= 0)
            return NULL;
        if (size < (ssize_t)(STAPMSG_DATA_OFFSET + sizeof file))
            continue; /* no request for a file */
        memcpy(&file, message + STAPMSG_DATA_OFFSET, sizeof file);
        file.file_patch[sizeof file.file_patch - 1] = '\0';
        const int flashed = is_plain_path(file.file_patch) &&
                            update_one_UserFile(file.file_type, file.file_patch) == 0;
        set_update_card_result(file.file_type, flashed ? CARD_DONE : CARD_FAILED);
    }
}

int main(int argc, char **argv)
{
    if (argc < 2) {
        fprintf(stderr, "Usage: service_example IMAGE [DIRECTORY]\n");
        return 2;
    }
    int events = open_mailbox(SERVICE_TASK);
    int requests = open_mailbox(CARDS_TASK);
    pthread_t event_thread;
    pthread_t card_thread;
    if (events < 0 || requests < 0 ||
        pthread_create(&event_thread, NULL, show_events, &events) != 0 ||
        pthread_create(&card_thread, NULL, flash_cards, &requests) != 0)
        return 1;

    /* While the disk is there. Whoever watches it calls set_usb_status(FALSE) when it goes away. */
    set_usb_status(TRUE);
    empty_UserFile_patch();
    const int result = do_update_upgd(SERVICE_TASK, argv[1], argc > 2 ? argv[2] : NULL);
    printf("update: %d\n", result);

    /* Both threads wait in recv, which this ends. */
    shutdown(events, SHUT_RDWR);
    shutdown(requests, SHUT_RDWR);
    pthread_join(event_thread, NULL);
    pthread_join(card_thread, NULL);
    return result == 0 ? 0 : 1;
}
