#pragma once

#include <cstddef>
#include <vector>

#include <QtGlobal>

/// The driver's capture buffers, mapped into this process. The destructor unmaps what is
/// still mapped.
class CaptureBuffers
{
public:
    /// One mapping; start is never null.
    struct Buffer
    {
        void* start;
        quint32 length_bytes;
    };

    CaptureBuffers() = default;
    ~CaptureBuffers();
    CaptureBuffers(const CaptureBuffers&) = delete;
    CaptureBuffers& operator=(const CaptureBuffers&) = delete;

    /// Maps the next buffer read-write and shared. False if the system refuses.
    bool map(int fd, quint32 length_bytes, quint32 offset);
    /// Unmaps every buffer and forgets them.
    void unmapAll();

    /// The buffer of that driver index, null for an index that was not mapped.
    const Buffer* at(unsigned int index) const;
    std::size_t count() const { return m_buffers.size(); }

private:
    std::vector<Buffer> m_buffers;
};
