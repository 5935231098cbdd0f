#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include <linux/videodev2.h>
#include <sys/types.h>

#include "simulator/camera/CameraFaults.h"
#include "simulator/camera/FrameMemory.h"
#include "simulator/optics/FrameSource.h"
#include "simulator/time/InstrumentTime.h"

/// How the driver answers where drivers differ.
struct CaptureParameters
{
    /// Fewest and most buffers that a request for buffers is granted.
    unsigned fewestBuffers = 4;
    unsigned mostBuffers = 32;
    /// Whether buffers that are allocated but neither mapped nor streaming already refuse a
    /// change of format, as the kernel's own buffer handling does. A driver with a handling
    /// of its own may only look at the stream and the mappings.
    bool formatHeldByBuffers = true;
    /// The largest picture that is granted; of a larger one only the upper left part of this size
    /// is delivered. An odd width is rounded down.
    int mostColumns_px = 2592;
    int mostRows_px = 1944;
    /// Bytes behind the pixels of each row.
    int rowPadding_bytes = 0;
    /// Frames a second in every mode; 0: as many as the mode has.
    int framesPerSecond = 0;
    /// Bytes of each buffer, of which a frame fills what it can; 0: as many as the format needs.
    std::size_t bufferLength_bytes = 0;
    /// What else the driver does to a format that it grants.
    std::function<void(v4l2_pix_format&)> adjustFormat;
};

/// A frame rate at which a frame ends as soon as there are a picture and a buffer for it.
inline constexpr int kFramesAtOnce_hz = 1000000;

/// A format as it was granted: the picture's upper left part, in rows of that length.
struct CaptureFormat
{
    const PictureMode* mode;
    unsigned width_px;
    unsigned height_px;
    unsigned bytesPerLine;

    std::size_t frameBytes() const { return std::size_t(bytesPerLine) * height_px; }
};

/// A capture device's streaming state machine as a kernel driver answers it: one format
/// (YUYV) in the three sizes of kPictureModes, or what the parameters leave of them,
/// memory-mapped buffers that belong to one side at a time, frames that end on the mode's frame
/// clock. Time is an argument; nothing blocks. One thread at a time.
class CaptureDevice
{
public:
    /// The source and the faults, which are asked at every call, live as long as the device.
    CaptureDevice(const CaptureParameters& parameters, FrameSource& source, CameraFaults& faults);

    /// Answers one ioctl: 0, or the errno that it fails with. A dequeue with no finished
    /// frame is EAGAIN; waiting for one is up to the caller. argument is the request's
    /// record and is written to as the request says. ENOTTY for an unknown request.
    int handle(unsigned long request, void* argument, InstrumentTime now);

    /// Whether a wait for readability ends at `now`: a finished frame, or no stream to wait
    /// for, which poll reports as an error and select as readable.
    bool readable(InstrumentTime now);
    /// When the next frame will end; nothing while none will.
    std::optional<InstrumentTime> nextFrameTime() const;

    /// The index of the buffer at a mapping offset, if there is one.
    std::optional<unsigned> bufferAt(off_t offset) const;
    /// The memory of the buffer at a mapping offset; nullptr where a mapping of that many
    /// bytes is refused with EINVAL. It counts as mapped for as long as a copy is held.
    std::shared_ptr<FrameMemory> memoryAt(off_t offset, std::size_t length) const;

    /// What the kernel does when the last descriptor is closed: stops, and frees the buffers.
    void release();
    /// Changes how the driver answers from the next request on.
    void setParameters(const CaptureParameters& parameters) { m_parameters = parameters; }

    bool isStreaming() const { return m_streaming; }
    /// Frames put into buffers so far, and for how many of these the picture had to be copied
    /// from another buffer, or drawn, because the buffer did not hold it yet.
    std::uint64_t framesDelivered() const { return m_framesDelivered; }
    /// Of the frames delivered, those whose buffers the program has given back, and those that
    /// ended with their stream. Frames are given back in the order of their delivery.
    std::uint64_t framesReturned() const { return m_framesReturned; }
    std::uint64_t copies() const { return m_copies; }
    std::uint64_t drawings() const { return m_drawings; }

private:
    enum class Owner { Program, Queue, Done };

    struct Buffer
    {
        std::shared_ptr<FrameMemory> memory;
        Owner owner = Owner::Program;
        /// Whether it is the program's because of the frame in it.
        bool taken = false;
        /// Number of the picture that the memory holds whole; 0 for none.
        std::uint64_t picture = 0;
        unsigned bytesUsed = 0;
        /// The index that a dequeue gives.
        unsigned toldIndex = 0;
        unsigned sequence = 0;
        InstrumentTime time{0};
    };

    int setFormat(v4l2_format& record);
    int requestBuffers(v4l2_requestbuffers& record);
    int queryBuffer(v4l2_buffer& record) const;
    int queueBuffer(v4l2_buffer& record);
    int dequeueBuffer(v4l2_buffer& record);
    int streamOn(int type, InstrumentTime now);
    int streamOff(int type);

    void stop();
    void advance(InstrumentTime now);
    CaptureFormat formatFor(const PictureMode& mode) const;
    void fill(Buffer& buffer, InstrumentTime time);
    void draw(FrameMemory& memory);
    std::size_t bufferBytes() const;
    int framesPerSecond() const;
    bool isStandingStill() const;
    const Buffer* holderOf(std::uint64_t picture) const;
    unsigned grantedCount(unsigned asked) const;
    bool isMapped() const;
    off_t offsetOf(unsigned index) const;
    InstrumentTime endOfTick(std::int64_t tick) const;
    std::int64_t ticksAt(InstrumentTime now) const;
    void describe(unsigned index, v4l2_buffer& record) const;

    CaptureParameters m_parameters;
    FrameSource& m_source;
    CameraFaults& m_faults;
    CaptureFormat m_format;
    /// The whole picture, where the format holds less or more than that.
    std::vector<std::uint8_t> m_picture;
    std::vector<Buffer> m_buffers;
    /// Buffer indices in the order in which they were queued, and were finished.
    std::deque<unsigned> m_queued;
    std::deque<unsigned> m_done;
    bool m_streaming = false;
    InstrumentTime m_streamStart{0};
    std::int64_t m_ticks = 0;
    unsigned m_sequence = 0;
    std::uint64_t m_framesDelivered = 0;
    std::uint64_t m_framesReturned = 0;
    std::uint64_t m_copies = 0;
    std::uint64_t m_drawings = 0;
};
