#pragma once

#include <cerrno>
#include <cstddef>
#include <utility>

#include <unistd.h>

/// An owned file descriptor, closed at the end of its life, which leaves errno alone; -1 when
/// there is none. One thread at a time.
class FileDescriptor
{
public:
    explicit FileDescriptor(int fd = -1) : m_fd(fd) {}
    FileDescriptor(FileDescriptor&& other) noexcept : m_fd(other.release()) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept
    {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(-1); }

    int get() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }
    /// Hands the descriptor over to the caller.
    int release() { return std::exchange(m_fd, -1); }
    /// Closes the descriptor and owns fd from now on.
    void reset(int fd)
    {
        const int error = errno;
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
        errno = error;
    }
    /// Closes the descriptor now; false, and errno, where the system tells only then that what
    /// was written has not arrived. True when there is none.
    bool close()
    {
        const int fd = release();
        return fd < 0 || ::close(fd) == 0;
    }

    /// Writes count bytes, in as many pieces as the system takes; false, and errno, as soon as
    /// it takes none.
    bool writeAll(const void* bytes, std::size_t count) const
    {
        const char* position = static_cast<const char*>(bytes);
        const char* end = position + count;
        while (position < end) {
            const ssize_t written = ::write(m_fd, position, static_cast<std::size_t>(end - position));
            if (written < 0 && errno != EINTR)
                return false;
            position += written > 0 ? written : 0;
        }
        return true;
    }
    /// Brings what was written onto the medium; false, and errno, where that fails.
    bool sync() const
    {
        int result = 0;
        do
            result = ::fsync(m_fd);
        while (result != 0 && errno == EINTR);
        return result == 0;
    }

private:
    int m_fd;
};
