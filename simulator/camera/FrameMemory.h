#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/FileDescriptor.h"

/// Memory of one driver buffer, shared by the device and whoever has it mapped: whole pages,
/// zero at first, and only occupied once they are used. Each mapping has its own address; an
/// access after unmapping, or behind the last page, ends the process. One thread at a time.
class FrameMemory
{
public:
    explicit FrameMemory(std::size_t bytes);
    ~FrameMemory();
    FrameMemory(const FrameMemory&) = delete;
    FrameMemory& operator=(const FrameMemory&) = delete;

    /// nullptr when there was no memory.
    std::uint8_t* data() const { return m_data; }
    /// The bytes asked for; the memory goes on to the end of the last page.
    std::size_t bytes() const { return m_bytes; }
    /// Maps the first `length` bytes at another address; nullptr when there is no room for them.
    void* map(std::size_t length) const;
    /// Undoes such a mapping.
    static void unmap(void* address, std::size_t length);
    /// A length rounded up to whole pages.
    static std::size_t inWholePages(std::size_t bytes);

private:
    std::size_t m_bytes;
    FileDescriptor m_file;
    std::uint8_t* m_data;
};
