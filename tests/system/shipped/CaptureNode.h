#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include <linux/videodev2.h>
#include <sys/types.h>

/// The capture device with its buffers. Its callers hold a lock.
class CaptureNode
{
public:
    int control(unsigned long request, void* argument);
    void* map(std::size_t length, off_t offset);
    bool unmap(void* address, std::size_t length);
    /// What the kernel does when the descriptor is closed.
    void closed();
    /// When the next frame is there; -1 as long as none will come.
    std::int64_t nextFrame_ns() const;

private:
    struct Buffer
    {
        unsigned char* memory = nullptr; // of the mapping, if there is one
        bool queued = false;
    };

    bool anyMapped() const;
    void releaseBuffers();
    int setFormat(v4l2_format& format);
    int requestBuffers(v4l2_requestbuffers& request);
    int dequeue(v4l2_buffer& buffer);
    void paint();
    std::size_t frameBytes() const { return std::size_t(m_width) * m_height * 2; }

    std::uint32_t m_width = 0;
    std::uint32_t m_height = 0;
    std::vector<Buffer> m_buffers;
    std::vector<std::uint32_t> m_queue;
    std::vector<unsigned char> m_picture;
    int m_contrast = -1;
    bool m_streaming = false;
    std::int64_t m_nextFrame_ns = 0;
    std::uint32_t m_sequence = 0;
};
