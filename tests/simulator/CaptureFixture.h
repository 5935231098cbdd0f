#pragma once

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>

#include <QtTest>

#include "platform/DeviceCalls.h"
#include "simulator/camera/CaptureDevice.h"

/// Buffers as the verifier asks for, and their size in the mode that the device begins with.
inline constexpr unsigned kBuffers = 4;
inline constexpr unsigned kVgaBytes = 640U * 480U * 2U;

/// Pictures whose bytes all hold the picture's number.
class NumberedPictures : public FrameSource
{
public:
    std::uint64_t look(InstrumentTime time, const PictureMode& mode) override
    {
        times.push_back(time);
        m_bytes = std::size_t(mode.frameBytes());
        return picture;
    }
    void draw(std::uint8_t* yuyv) override
    {
        std::memset(yuyv, int(picture), m_bytes);
        drawnAt = yuyv;
    }

    std::uint64_t picture = 1;
    const std::uint8_t* drawnAt = nullptr;
    std::vector<InstrumentTime> times;

private:
    std::size_t m_bytes = 0;
};

inline v4l2_format formatOf(unsigned width, unsigned height)
{
    v4l2_format format{};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = width;
    format.fmt.pix.height = height;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    return format;
}

inline v4l2_buffer bufferOf(unsigned index)
{
    v4l2_buffer buffer{};
    buffer.index = index;
    buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffer.memory = V4L2_MEMORY_MMAP;
    return buffer;
}

inline v4l2_requestbuffers requestOf(unsigned count)
{
    v4l2_requestbuffers request{};
    request.count = count;
    request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    request.memory = V4L2_MEMORY_MMAP;
    return request;
}

/// The requests by which a program brings a capture device into its states. Each gives 0 or
/// the errno that it failed with.
class CaptureRequests
{
public:
    virtual ~CaptureRequests() = default;

    virtual int call(unsigned long request, void* argument) = 0;
    int format(unsigned width, unsigned height)
    {
        v4l2_format record = formatOf(width, height);
        return call(VIDIOC_S_FMT, &record);
    }
    int allocate(unsigned count = kBuffers)
    {
        v4l2_requestbuffers request = requestOf(count);
        return call(VIDIOC_REQBUFS, &request);
    }
    int queue(unsigned index)
    {
        v4l2_buffer buffer = bufferOf(index);
        return call(VIDIOC_QBUF, &buffer);
    }
    int dequeue(v4l2_buffer& buffer)
    {
        buffer = bufferOf(0);
        return call(VIDIOC_DQBUF, &buffer);
    }
    int stream(bool on)
    {
        int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        return call(on ? VIDIOC_STREAMON : VIDIOC_STREAMOFF, &type);
    }
    void start(unsigned buffers = kBuffers)
    {
        QCOMPARE(allocate(), 0);
        for (unsigned index = 0; index < buffers; ++index)
            QCOMPARE(queue(index), 0);
        QCOMPARE(stream(true), 0);
    }
    /// Who has a buffer: V4L2_BUF_FLAG_QUEUED, V4L2_BUF_FLAG_DONE, or neither.
    unsigned ownerFlags(unsigned index)
    {
        v4l2_buffer buffer = bufferOf(index);
        call(VIDIOC_QUERYBUF, &buffer);
        return buffer.flags & (V4L2_BUF_FLAG_QUEUED | V4L2_BUF_FLAG_DONE);
    }
};

/// A capture device of the simulator's, with pictures, faults and time as the test sets them.
template <class Pictures = NumberedPictures>
struct CaptureFixture : CaptureRequests
{
    explicit CaptureFixture(const CaptureParameters& parameters = {}) : device(parameters, pictures, faults)
    {
    }

    int call(unsigned long request, void* argument) override { return device.handle(request, argument, now); }
    std::shared_ptr<FrameMemory> map(unsigned index)
    {
        v4l2_buffer buffer = bufferOf(index);
        return call(VIDIOC_QUERYBUF, &buffer) == 0 ? device.memoryAt(buffer.m.offset, buffer.length)
                                                   : nullptr;
    }
    /// Dequeues at a time after the beginning.
    int dequeueAt(int time_ms, v4l2_buffer& buffer)
    {
        now = std::chrono::milliseconds(time_ms);
        return dequeue(buffer);
    }

    Pictures pictures;
    CameraFaults faults;
    CaptureDevice device;
    InstrumentTime now{0};
};

/// A capture device as a program has it, opened not to block.
class OpenedDevice : public CaptureRequests
{
public:
    explicit OpenedDevice(DeviceCalls& calls) : m_calls(calls) {}

    bool open() { return (m_fd = m_calls.open("/dev/video0", O_RDWR | O_NONBLOCK)) >= 0; }
    int fd() const { return m_fd; }
    int call(unsigned long request, void* argument) override
    {
        return m_calls.captureIoctl(m_fd, request, argument) == 0 ? 0 : errno;
    }
    int map(off_t offset, std::size_t length, int protection = PROT_READ | PROT_WRITE, int flags = MAP_SHARED)
    {
        void* const address = m_calls.mmap(length, protection, flags, m_fd, offset);
        if (address == MAP_FAILED)
            return errno;
        m_mappings.emplace_back(address, length);
        return 0;
    }
    int map(unsigned index)
    {
        v4l2_buffer buffer = bufferOf(index);
        const int error = call(VIDIOC_QUERYBUF, &buffer);
        return error != 0 ? error : map(off_t(buffer.m.offset), buffer.length);
    }
    /// The bytes of a mapping, in the order in which they were made.
    const std::uint8_t* bytes(unsigned mapping) const
    {
        return static_cast<const std::uint8_t*>(m_mappings[mapping].first);
    }
    bool waitForFrame() { return m_calls.waitReadable(m_fd, kFrameLimit_ms) == 1; }
    /// Waits for the next frame and takes it; false if none comes.
    bool take(v4l2_buffer& buffer) { return waitForFrame() && dequeue(buffer) == 0; }
    /// Gives all mappings up; false if one cannot be.
    bool unmap()
    {
        bool done = true;
        for (const auto& mapping : m_mappings)
            done = m_calls.munmap(mapping.first, mapping.second) == 0 && done;
        m_mappings.clear();
        return done;
    }
    int close() { return m_calls.close(m_fd); }

private:
    static constexpr int kFrameLimit_ms = 5000;

    DeviceCalls& m_calls;
    int m_fd = -1;
    std::vector<std::pair<void*, std::size_t>> m_mappings;
};
