#include "simulator/camera/FrameMemory.h"

#include <sys/mman.h>
#include <unistd.h>

FrameMemory::FrameMemory(std::size_t bytes) : m_bytes(bytes), m_data(nullptr)
{
    void* address =
        ::mmap(nullptr, inWholePages(bytes), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (address != MAP_FAILED) {
        m_data = static_cast<std::uint8_t*>(address);
    }
}

FrameMemory::~FrameMemory()
{
    if (m_data != nullptr) {
        ::munmap(m_data, inWholePages(m_bytes));
    }
}

std::size_t FrameMemory::inWholePages(std::size_t bytes)
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}
