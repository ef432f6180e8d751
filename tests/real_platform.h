// What the tests over the real platform layer share.
#ifndef TESTS_REAL_PLATFORM_H
#define TESTS_REAL_PLATFORM_H

#include "platform/mailbox.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

inline void sh(const std::string &script)
{
    EXPECT_EQ(system(("set -e\n" + script).c_str()), 0) << script;
}

inline std::string read_file(const std::string &path)
{
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// Receives at `path` from now on, as a task does at its mailbox and the log daemon at /dev/log.
inline int bind_mailbox(const std::string &path)
{
    const int fd = mailbox_open(path.c_str());
    EXPECT_GE(fd, 0) << strerror(-fd);
    return fd;
}

inline std::string received(int box)
{
    std::string data(MAILBOX_MESSAGE_MAX + 1, '\0');
    const ssize_t size = recv(box, data.data(), data.size(), MSG_DONTWAIT);
    return size < 0 ? "nothing" : data.substr(0, static_cast<size_t>(size));
}

#endif
