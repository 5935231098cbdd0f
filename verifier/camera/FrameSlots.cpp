#include "camera/FrameSlots.h"

#include <algorithm>
#include <cstring>
#include <thread>

ZeroedBytes allocateZeroed(std::size_t size)
{
    return ZeroedBytes(static_cast<uchar*>(std::calloc(size, 1)));
}

FrameSlots::Reader::~Reader()
{
    // Other readers may be left; none of them waits for the last.
    m_owner.m_slots[m_slot].state.fetch_sub(1, std::memory_order_release);
}

const uchar* FrameSlots::Reader::bytes() const
{
    return m_owner.m_slots[m_slot].bytes.get();
}

unsigned int FrameSlots::Reader::bufferIndex() const
{
    return m_owner.m_slots[m_slot].bufferIndex;
}

std::uint64_t FrameSlots::Reader::number() const
{
    return m_owner.m_slots[m_slot].number;
}

void FrameSlots::allocate(const Rows& rows)
{
    for (unsigned int i = 0; i < kCount; ++i) {
        m_slots[i].bytes = allocateZeroed(rows.count * rows.size_bytes);
        m_slots[i].bufferIndex = i;
        m_slots[i].number = ++m_lastNumber;
    }
    m_rows = rows;
    m_newest.store(0, std::memory_order_release);
}

void FrameSlots::release()
{
    for (Slot& slot : m_slots)
        slot.bytes.reset();
}

bool FrameSlots::write(unsigned int bufferIndex, const uchar* frame, std::size_t size_bytes)
{
    const unsigned int index = bufferIndex % kCount;
    Slot& slot = m_slots[index];
    int idle = 0;
    if (!slot.bytes || !slot.state.compare_exchange_strong(idle, kBeingWritten, std::memory_order_acquire,
                                                           std::memory_order_relaxed))
        return false;
    copyRows(slot.bytes.get(), frame, size_bytes);
    slot.bufferIndex = bufferIndex;
    slot.number = ++m_lastNumber;
    slot.state.store(0, std::memory_order_release);
    m_newest.store(index, std::memory_order_release);
    m_framesWritten.fetch_add(1, std::memory_order_release);
    return true;
}

void FrameSlots::copyRows(uchar* destination, const uchar* frame, std::size_t size_bytes) const
{
    if (m_rows.distance_bytes == m_rows.size_bytes) {
        std::memcpy(destination, frame, std::min(size_bytes, m_rows.count * m_rows.size_bytes));
        return;
    }
    for (std::size_t row = 0, begin = 0; row < m_rows.count && begin < size_bytes; ++row) {
        std::memcpy(destination + row * m_rows.size_bytes, frame + begin,
                    std::min(m_rows.size_bytes, size_bytes - begin));
        begin += m_rows.distance_bytes;
    }
}

FrameSlots::Reader FrameSlots::readNewest()
{
    for (;;) {
        const unsigned int index = m_newest.load(std::memory_order_acquire);
        if (tryClaimForReading(m_slots[index]))
            return Reader(*this, index);
        std::this_thread::yield();
    }
}

bool FrameSlots::tryClaimForReading(Slot& slot)
{
    int readers = slot.state.load(std::memory_order_relaxed);
    while (readers != kBeingWritten)
        if (slot.state.compare_exchange_weak(readers, readers + 1, std::memory_order_acquire,
                                             std::memory_order_relaxed))
            return true;
    return false;
}
