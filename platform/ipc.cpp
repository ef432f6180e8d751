// Messages from task to task.
#include "platform/platform.h"

#include "platform/mailbox.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

mailbox_path mailbox_of(aptid_t id)
{
    mailbox_path path;
    snprintf(path.text, sizeof path.text, "/run/mailbox/%08x", id);
    return path;
}

static int set_address(sockaddr_un *address, const char *path)
{
    const size_t len = strlen(path);
    if (len >= sizeof address->sun_path)
        return -ENAMETOOLONG;
    *address = {};
    address->sun_family = AF_UNIX;
    memcpy(address->sun_path, path, len);
    return 0;
}

static int open_socket()
{
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    return fd < 0 ? -errno : fd;
}

// The one socket that all messages of this process leave by, or a negative errno. A failure to open
// it is not kept: the next message tries again.
static int sending_socket()
{
    static std::atomic<int> shared{-1};
    int fd = shared;
    if (fd >= 0)
        return fd;

    const int fresh = open_socket();
    if (fresh < 0)
        return fresh;
    // Where the kernel grants less than this, it refuses the largest messages with EMSGSIZE.
    const int bytes = static_cast<int>(MAILBOX_MESSAGE_MAX);
    setsockopt(fresh, SOL_SOCKET, SO_SNDBUF, &bytes, sizeof bytes);
    if (shared.compare_exchange_strong(fd, fresh))
        return fresh;
    // Another thread came first and `fd` is its socket.
    close(fresh);
    return fd;
}

static int send_datagram(int fd, const sockaddr_un *address, const void *msg, size_t size)
{
    ssize_t sent;
    do {
        sent = sendto(fd, msg, size, MSG_DONTWAIT | MSG_NOSIGNAL,
                      reinterpret_cast<const sockaddr *>(address), sizeof *address);
    } while (sent < 0 && errno == EINTR);
    return sent < 0 ? -errno : 0;
}

int mailbox_send(const char *path, const void *msg, size_t size)
{
    if (msg == nullptr)
        return -EINVAL;
    if (size > MAILBOX_MESSAGE_MAX)
        return -EMSGSIZE;
    sockaddr_un address;
    const int named = set_address(&address, path);
    if (named < 0)
        return named;
    const int fd = sending_socket();
    if (fd < 0)
        return fd;

    const int result = send_datagram(fd, &address, msg, size);
    if (result != -EAGAIN)
        return result;
    // What other receivers have not read counts against the sending socket. That must not keep a
    // message from a receiver that reads: a fresh socket has nothing to its account.
    const int fresh = open_socket();
    if (fresh < 0)
        return result;
    const int second = send_datagram(fresh, &address, msg, size);
    close(fresh);
    return second;
}

int mailbox_probe(const char *path)
{
    sockaddr_un address;
    const int named = set_address(&address, path);
    if (named < 0)
        return named;
    const int fd = open_socket();
    if (fd < 0)
        return fd;
    const int connected = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    const int result = connected == 0 ? 0 : -errno;
    close(fd);
    return result;
}

static int bind_mailbox(int fd, const char *path)
{
    sockaddr_un address;
    const int named = set_address(&address, path);
    if (named < 0)
        return named;
    // The mode of the file to be, whatever mask this task runs under: messages are taken from
    // anyone who may write there.
    if (fchmod(fd, 0600) != 0)
        return -errno;
    const sockaddr *const name = reinterpret_cast<const sockaddr *>(&address);
    return bind(fd, name, sizeof address) == 0 ? 0 : -errno;
}

int mailbox_open(const char *path)
{
    char directory[sizeof sockaddr_un::sun_path];
    const char *const slash = strrchr(path, '/');
    const int len = slash != nullptr ? static_cast<int>(slash - path) : 0;
    snprintf(directory, sizeof directory, "%.*s", len, path);
    mkdir(directory, 0755);
    // A file that is no socket refuses as well, and is not to be removed.
    struct stat st;
    if (lstat(path, &st) == 0 && S_ISSOCK(st.st_mode) && mailbox_probe(path) == -ECONNREFUSED)
        unlink(path);
    const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -errno;
    const int bound = bind_mailbox(fd, path);
    if (bound == 0)
        return fd;
    close(fd);
    return bound;
}

int apipc_send(aptid_t dest, const void *msg, unsigned int size)
{
    return mailbox_send(mailbox_of(dest).text, msg, size);
}
