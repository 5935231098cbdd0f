#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

#include "platform/DeviceCalls.h"

/// A capture device in memory whose picture is a pattern of stripes of a given contrast;
/// there is no sensor bus. In force as long as the object lives.
class FocusCapture : public DeviceCalls
{
public:
    FocusCapture();
    ~FocusCapture() override;

    /// Sets the difference of the stripes' luma (0 to 200) and returns when a camera that
    /// streams hands out a frame with it; at once when none does.
    void show(int contrast);
    /// Delivers no further frame, so that the capture thread costs nothing.
    void holdFrames() { m_held = true; }

    int open(const char* path, int flags) override;
    int close(int fd) override;
    ssize_t read(int fd, void* buffer, std::size_t count) override;
    ssize_t write(int fd, const void* buffer, std::size_t count) override;
    int fcntl(int fd, int command, int argument) override;
    int ioctl(int fd, unsigned long request, unsigned long argument) override;
    int captureIoctl(int fd, unsigned long request, void* argument) override;
    void* mmap(std::size_t length, int protection, int flags, int fd, off_t offset) override;
    int munmap(void* address, std::size_t length) override;
    int waitReadable(int fd, int timeout_ms) override;
    void pause(unsigned int duration_us) override;
    void syncFileSystems() override;

private:
    struct Buffer
    {
        std::vector<unsigned char> bytes;
        int contrast = -1; // that it was last filled with
    };

    void fill(Buffer& buffer);
    int dequeue(void* argument);

    std::mutex m_mutex;
    std::condition_variable m_dequeued;
    std::array<Buffer, 4> m_buffers;
    int m_width_px = 0;
    unsigned int m_next = 0;
    int m_dequeues = 0;
    int m_contrast = 0;
    bool m_streaming = false;
    std::atomic<bool> m_held{false};
};
