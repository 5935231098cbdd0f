#include "camera/CaptureBuffers.h"

#include <sys/mman.h>

#include "platform/DeviceCalls.h"

CaptureBuffers::~CaptureBuffers()
{
    unmapAll();
}

bool CaptureBuffers::map(int fd, quint32 length_bytes, quint32 offset)
{
    void* start = deviceCalls().mmap(length_bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, offset);
    if (start == MAP_FAILED)
        return false;
    m_buffers.push_back({start, length_bytes});
    return true;
}

void CaptureBuffers::unmapAll()
{
    for (const Buffer& buffer : m_buffers)
        deviceCalls().munmap(buffer.start, buffer.length_bytes);
    m_buffers.clear();
}

const CaptureBuffers::Buffer* CaptureBuffers::at(unsigned int index) const
{
    return index < m_buffers.size() ? &m_buffers[index] : nullptr;
}
