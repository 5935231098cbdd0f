#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <QtGlobal>

/// Frees memory that came from malloc or calloc.
struct FreeDeleter
{
    /// free(3); a null pointer is nothing to free.
    void operator()(void* memory) const { std::free(memory); }
};

/// Heap bytes from calloc: zero, and not resident until touched.
using ZeroedBytes = std::unique_ptr<uchar, FreeDeleter>;

/// size zero bytes; null where there is no memory.
ZeroedBytes allocateZeroed(std::size_t size);

/// The four copies of captured frames, shared without a lock: the capture thread writes them, any
/// thread may read them.
///
/// A slot is never read and written at the same time. The writer does not wait: it gives up a
/// frame whose slot is being read. A reader waits for the copy of one frame at most.
class FrameSlots
{
public:
    static constexpr unsigned int kCount = 4;

    /// A claim on one slot for reading; the slot is not written while it lives.
    class Reader
    {
    public:
        ~Reader();
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        /// The frame's bytes, or null when the slot has no memory.
        const uchar* bytes() const;
        /// The driver's number of the buffer that the frame came in.
        unsigned int bufferIndex() const;
        /// Tells this content from every other that was ever in the slots; never 0.
        std::uint64_t number() const;

    private:
        friend class FrameSlots;
        Reader(FrameSlots& owner, unsigned int slot) : m_owner(owner), m_slot(slot) {}

        FrameSlots& m_owner;
        const unsigned int m_slot;
    };

    /// How rows lie in the frames that are written; in the slots they have no gaps.
    struct Rows
    {
        std::size_t count;
        std::size_t size_bytes;
        /// From the beginning of one row to that of the next, at least the size.
        std::size_t distance_bytes;
    };

    /// Gives every slot memory for a frame of those rows, all zero, and makes slot 0 the newest.
    /// One thread at a time, while no other uses the slots.
    void allocate(const Rows& rows);
    /// The same for frames without rows: frameSize_bytes in one piece.
    void allocate(std::size_t frameSize_bytes) { allocate({1, frameSize_bytes, frameSize_bytes}); }
    /// Frees the memory; readers then get null. One thread at a time, while no other uses the
    /// slots.
    void release();

    /// Copies a frame's rows into slot bufferIndex % 4 and makes it the newest. Bytes beyond the
    /// last row are cut off; a short frame leaves the rest of the slot as it was. False,
    /// with nothing changed, if the slot is being read or has no memory. Capture thread.
    bool write(unsigned int bufferIndex, const uchar* frame, std::size_t size_bytes);

    /// Claims the newest frame. Any thread.
    Reader readNewest();

    /// Frames written since construction. Any thread.
    std::uint64_t framesWritten() const { return m_framesWritten.load(std::memory_order_acquire); }

private:
    struct Slot
    {
        // Readers at work, or kBeingWritten. Changed by the capture thread and by the
        // readers; taking it is an acquire, giving it back a release, and that orders every
        // access to the other members.
        std::atomic<int> state{0};
        ZeroedBytes bytes;
        unsigned int bufferIndex = 0;
        std::uint64_t number = 0;
    };

    static constexpr int kBeingWritten = -1;

    bool tryClaimForReading(Slot& slot);
    void copyRows(uchar* destination, const uchar* frame, std::size_t size_bytes) const;

    std::array<Slot, kCount> m_slots;
    // Of the content that came last; of the capture thread, and of allocate() before it runs.
    std::uint64_t m_lastNumber = 0;
    Rows m_rows{};
    // Written by the capture thread after the slot is complete, read by the readers.
    std::atomic<unsigned int> m_newest{0};
    // Counted by the capture thread after the frame has become the newest, read by any: who
    // has seen a number finds that frame, or a newer one, in readNewest().
    std::atomic<std::uint64_t> m_framesWritten{0};
};
