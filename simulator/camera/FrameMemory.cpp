#include "simulator/camera/FrameMemory.h"

#include <sys/mman.h>
#include <unistd.h>

namespace {

std::size_t withGuard(std::size_t length)
{
    return FrameMemory::inWholePages(length) + FrameMemory::inWholePages(1);
}

} // namespace

FrameMemory::FrameMemory(std::size_t bytes)
    : m_bytes(bytes), m_file(::memfd_create("frame", MFD_CLOEXEC)), m_data(nullptr)
{
    if (!m_file.isOpen() || ::ftruncate(m_file.get(), static_cast<off_t>(inWholePages(bytes))) != 0)
        return;
    void* const address =
        ::mmap(nullptr, inWholePages(bytes), PROT_READ | PROT_WRITE, MAP_SHARED, m_file.get(), 0);
    if (address != MAP_FAILED)
        m_data = static_cast<std::uint8_t*>(address);
}

FrameMemory::~FrameMemory()
{
    if (m_data != nullptr)
        ::munmap(m_data, inWholePages(m_bytes));
}

void* FrameMemory::map(std::size_t length) const
{
    // Reserves one page more than needed and maps the shared pages over the beginning: the page
    // that is left catches an access behind the end.
    void* const place =
        ::mmap(nullptr, withGuard(length), PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (place == MAP_FAILED)
        return nullptr;
    if (::mmap(place, inWholePages(length), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, m_file.get(),
               0) == MAP_FAILED) {
        ::munmap(place, withGuard(length));
        return nullptr;
    }
    return place;
}

void FrameMemory::unmap(void* address, std::size_t length)
{
    ::munmap(address, withGuard(length));
}

std::size_t FrameMemory::inWholePages(std::size_t bytes)
{
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    return (bytes + page - 1) / page * page;
}
