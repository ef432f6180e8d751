// Owners of what is open: each lets go of it at its own end, on whatever way that comes.
#ifndef COMPANIONS_OWNERS_H
#define COMPANIONS_OWNERS_H

#include <cerrno>
#include <cstdio>
#include <cstdlib>
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

// A stream into memory that grows with it.
class memory_stream
{
  public:
    memory_stream() : file_(open_memstream(&bytes_, &size_))
    {
    }
    memory_stream(const memory_stream &) = delete;
    memory_stream &operator=(const memory_stream &) = delete;
    ~memory_stream()
    {
        file_.reset();
        free(bytes_);
    }
    // To be written to; null if there is no memory, or once it is finished.
    FILE *file() const
    {
        return file_.get();
    }
    // Ends the writing. Returns the bytes, with a zero behind them, or null if there is no memory.
    char *finish()
    {
        return file_ != nullptr && fclose(file_.release()) == 0 ? bytes_ : nullptr;
    }

  private:
    char *bytes_ = nullptr;
    size_t size_ = 0;
    file_stream file_;
};

#endif
