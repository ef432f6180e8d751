// Mailboxes: a task receives its messages on a Unix datagram socket that is named after its id.
#ifndef PLATFORM_MAILBOX_H
#define PLATFORM_MAILBOX_H

#include "platform/platform.h"

#include <cstddef>

// The largest message, in bytes. Several times what any message of the device has, and still within
// what a kernel in its default setting lets a socket send in one piece.
constexpr size_t MAILBOX_MESSAGE_MAX = 256 * 1024;

struct mailbox_path {
    char text[sizeof "/run/mailbox/01234567"];
};

// The path of the mailbox of the task `id`.
mailbox_path mailbox_of(aptid_t id);

// Sends `size` bytes at `msg` as one datagram to the mailbox `path`, without waiting. Returns 0, or
// a negative errno: -EMSGSIZE above MAILBOX_MESSAGE_MAX or what the kernel allows.
[[nodiscard]] int mailbox_send(const char *path, const void *msg, size_t size);

// Opens the mailbox `path` for receiving, with its directory, for this user alone; what a dead task
// has left there makes way. Returns the socket, which blocks, or a negative errno: -EADDRINUSE if a
// task receives there or a file of another kind is in the way. Who closes it removes the file.
[[nodiscard]] int mailbox_open(const char *path);

// Returns 0 if a task receives at the mailbox `path`, or a negative errno. A socket file that a
// dead task has left counts as none.
[[nodiscard]] int mailbox_probe(const char *path);

#endif
