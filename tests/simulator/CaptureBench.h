#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

#include <QtTest>

#include "simulator/camera/CaptureDevice.h"

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
    void draw(std::uint8_t* yuyv) override { std::memset(yuyv, int(picture), m_bytes); }

    std::uint64_t picture = 1;
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
    int allocate(unsigned count = 4)
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
    void start(unsigned buffers = 4)
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

/// A capture device of the simulator's, with time as the test sets it.
struct CaptureBench : CaptureRequests
{
    explicit CaptureBench(const CaptureParameters& parameters = {}) : device(parameters, pictures) {}

    int call(unsigned long request, void* argument) override { return device.handle(request, argument, now); }
    std::shared_ptr<FrameMemory> map(unsigned index)
    {
        v4l2_buffer buffer = bufferOf(index);
        return call(VIDIOC_QUERYBUF, &buffer) == 0 ? device.memoryAt(buffer.m.offset, buffer.length)
                                                   : nullptr;
    }

    NumberedPictures pictures;
    CaptureDevice device;
    InstrumentTime now{0};
};
