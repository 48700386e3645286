#pragma once

#include <unistd.h>

// Owns a POSIX file descriptor.
class LXFileDescriptor {
public:
    LXFileDescriptor() = default;
    explicit LXFileDescriptor(int fd) : m_fd(fd) {}
    ~LXFileDescriptor() { reset(); }
    LXFileDescriptor(LXFileDescriptor&& other) noexcept : m_fd(other.release()) {}
    LXFileDescriptor& operator=(LXFileDescriptor&& other) noexcept {
        if (this != &other) {
            reset();
            m_fd = other.release();
        }
        return *this;
    }
    LXFileDescriptor(const LXFileDescriptor&) = delete;
    LXFileDescriptor& operator=(const LXFileDescriptor&) = delete;

    int get() const { return m_fd; }
    bool isOpen() const { return m_fd >= 0; }
    int release() {
        const int fd = m_fd;
        m_fd = -1;
        return fd;
    }
    void reset() {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

private:
    int m_fd = -1;
};

// pread/pwrite that go on after short transfers and EINTR; false on error (errno set).
bool LXReadFully(int fd, void* buffer, long long count, long long offset);
bool LXWriteFully(int fd, const void* buffer, long long count, long long offset);
