// Owners of what is open: each lets go of it at its own end, on whatever way that comes.
#ifndef COMPANIONS_OWNERS_H
#define COMPANIONS_OWNERS_H

#include <cerrno>
#include <cstdio>
#include <dirent.h>
#include <memory>
#include <unistd.h>
#include <utility>

// A descriptor, or none. Closing it leaves errno to whoever has failed on it.
class descriptor
{
  public:
    explicit descriptor(int fd = -1) : fd_(fd)
    {
    }
    descriptor(descriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1))
    {
    }
    descriptor &operator=(descriptor &&other) noexcept
    {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~descriptor()
    {
        const int error = errno;
        if (fd_ >= 0)
            close(fd_);
        errno = error;
    }
    bool is_open() const
    {
        return fd_ >= 0;
    }
    int get() const
    {
        return fd_;
    }

  private:
    int fd_;
};

struct stream_closer {
    void operator()(FILE *file) const
    {
        fclose(file);
    }
    void operator()(DIR *list) const
    {
        closedir(list);
    }
};

using file_stream = std::unique_ptr<FILE, stream_closer>;
using directory_stream = std::unique_ptr<DIR, stream_closer>;

#endif
