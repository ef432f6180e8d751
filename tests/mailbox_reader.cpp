// mailbox_reader [-t] PATH: shows what is sent to a Unix datagram socket, such as a task's mailbox
// or /dev/log, until it is killed. It binds PATH, making its directory and removing what a dead
// reader has left, and prints each datagram at once: "N bytes" and a hex dump, or with -t a line
// of text.
#include "platform/mailbox.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>

static int fail(const char *subject, int error)
{
    fprintf(stderr, "mailbox_reader: %s: %s\n", subject, strerror(error));
    return 1;
}

static void print_hex(const unsigned char *data, size_t size)
{
    printf("%zu bytes", size);
    for (size_t i = 0; i < size; i++) {
        if (i % 16 == 0)
            printf("\n%06zx ", i);
        printf(" %02x", data[i]);
    }
    putchar('\n');
}

int main(int argc, char **argv)
{
    const bool as_text = argc > 1 && strcmp(argv[1], "-t") == 0;
    if (argc != (as_text ? 3 : 2)) {
        fputs("Usage: mailbox_reader [-t] PATH\n", stderr);
        return 2;
    }

    const char *const path = argv[argc - 1];
    const int fd = mailbox_open(path);
    if (fd < 0)
        return fail(path, -fd);

    static unsigned char data[MAILBOX_MESSAGE_MAX];
    for (ssize_t size; (size = recv(fd, data, sizeof data, 0)) >= 0; fflush(stdout)) {
        if (as_text && size > 0 && data[size - 1] == '\n')
            size--;
        if (as_text)
            printf("%.*s\n", static_cast<int>(size), reinterpret_cast<const char *>(data));
        else
            print_hex(data, static_cast<size_t>(size));
    }
    return fail("recv", errno);
}
