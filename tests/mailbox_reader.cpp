// mailbox_reader [-t] PATH [COUNT [SECONDS]]: shows what is sent to a Unix datagram socket, such as
// a task's mailbox or /dev/log. It binds PATH, making its directory and removing what a dead reader
// has left, prints each datagram at once, and ends after COUNT datagrams or SECONDS; 0 is no limit.
// A datagram is a line "N bytes" and a hex dump. With -t it is text, with one line feed at its end.
#include "platform/mailbox.h"

#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

static int fail(const char *subject)
{
    fprintf(stderr, "mailbox_reader: %s: %s\n", subject, strerror(errno));
    return 1;
}

static bool parse(const char *text, int *number)
{
    const char *const end = text + strlen(text);
    const std::from_chars_result parsed = std::from_chars(text, end, *number);
    return parsed.ec == std::errc() && parsed.ptr == end && *number >= 0;
}

// Returns the bound socket, or -1 with errno set.
static int bind_socket(const std::string &path)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path.data(), path.size());
    const size_t slash = path.rfind('/');
    if (slash != std::string::npos && slash > 0)
        mkdir(path.substr(0, slash).c_str(), 0755);
    // Only a socket without a reader refuses: nothing else is removed.
    if (mailbox_probe(path.c_str()) == -ECONNREFUSED)
        unlink(path.c_str());
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) {
        const int error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
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

static void print_text(const unsigned char *data, size_t size)
{
    while (size > 0 && (data[size - 1] == '\n' || data[size - 1] == '\0'))
        size--;
    fwrite(data, 1, size, stdout);
    putchar('\n');
}

// Milliseconds until `seconds` after `start` on the monotonic clock, or -1 for no limit.
static int left_ms(const timespec &start, int seconds)
{
    if (seconds == 0)
        return -1;
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    const long long passed =
        (now.tv_sec - start.tv_sec) * 1000LL + (now.tv_nsec - start.tv_nsec) / 1000000;
    const long long left = seconds * 1000LL - passed;
    return left > 0 ? static_cast<int>(left) : 0;
}

static int read_all(int fd, bool as_text, int count, int seconds)
{
    static unsigned char data[MAILBOX_MESSAGE_MAX];
    timespec start;
    clock_gettime(CLOCK_MONOTONIC, &start);
    for (int number = 0; count == 0 || number < count; number++) {
        pollfd wait = {fd, POLLIN, 0};
        const int ready = poll(&wait, 1, left_ms(start, seconds));
        if (ready == 0)
            return 0;
        if (ready < 0)
            return fail("poll");
        const ssize_t size = recv(fd, data, sizeof data, 0);
        if (size < 0)
            return fail("recv");
        if (as_text)
            print_text(data, static_cast<size_t>(size));
        else
            print_hex(data, static_cast<size_t>(size));
        if (fflush(stdout) != 0)
            return fail("standard output");
    }
    return 0;
}

int main(int argc, char **argv)
{
    const bool as_text = argc > 1 && strcmp(argv[1], "-t") == 0;
    const int first = as_text ? 2 : 1;
    int count = 0;
    int seconds = 0;
    if (argc <= first || argc > first + 3 ||
        (argc > first + 1 && !parse(argv[first + 1], &count)) ||
        (argc > first + 2 && !parse(argv[first + 2], &seconds))) {
        fputs("Usage: mailbox_reader [-t] PATH [COUNT [SECONDS]]\n", stderr);
        return 2;
    }
    const char *const path = argv[first];
    const int fd = bind_socket(path);
    if (fd < 0)
        return fail(path);
    const int status = read_all(fd, as_text, count, seconds);
    unlink(path);
    return status;
}
