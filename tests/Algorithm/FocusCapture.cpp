#include "FocusCapture.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include <linux/videodev2.h>
#include <sys/mman.h>

namespace {

constexpr int kVideoDescriptor = 4000;
constexpr off_t kOffsetUnit = 0x1000000;
constexpr std::chrono::milliseconds kFrameClock(1);
constexpr std::chrono::milliseconds kHeldClock(100);

constexpr unsigned char kDarkLuma = 40;
constexpr unsigned char kNoColour = 128;

// A dequeue may be under way with the previous picture, and a frame has been handed over for
// certain only when the one after it is asked for.
constexpr int kDequeuesUntilHandedOver = 3;

} // namespace

FocusCapture::FocusCapture()
{
    installDeviceCalls(this);
}

FocusCapture::~FocusCapture()
{
    installDeviceCalls(nullptr);
}

void FocusCapture::show(int contrast)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    m_contrast = contrast;
    const int enough = m_dequeues + kDequeuesUntilHandedOver;
    m_dequeued.wait(lock, [this, enough] { return !m_streaming || m_dequeues >= enough; });
}

void FocusCapture::fill(Buffer& buffer)
{
    if (buffer.contrast == m_contrast) {
        return;
    }
    buffer.contrast = m_contrast;
    const auto bright = static_cast<unsigned char>(kDarkLuma + m_contrast);
    for (std::size_t i = 0; i < buffer.bytes.size(); i += 2) {
        buffer.bytes[i] = (i / 2) % 4 < 2 ? kDarkLuma : bright;
        buffer.bytes[i + 1] = kNoColour;
    }
}

int FocusCapture::dequeue(void* argument)
{
    auto* record = static_cast<v4l2_buffer*>(argument);
    record->index = m_next;
    record->bytesused = static_cast<__u32>(m_buffers[m_next].bytes.size());
    fill(m_buffers[m_next]);
    m_next = (m_next + 1) % m_buffers.size();
    ++m_dequeues;
    m_dequeued.notify_all();
    return 0;
}

int FocusCapture::captureIoctl(int /*fd*/, unsigned long request, void* argument)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    switch (request) {
    case VIDIOC_S_FMT: {
        const auto& format = static_cast<const v4l2_format*>(argument)->fmt.pix;
        for (Buffer& buffer : m_buffers) {
            buffer.bytes.assign(std::size_t{format.width} * format.height * 2, 0);
            buffer.contrast = -1;
        }
        return 0;
    }
    case VIDIOC_REQBUFS:
        static_cast<v4l2_requestbuffers*>(argument)->count = m_buffers.size();
        return 0;
    case VIDIOC_QUERYBUF: {
        auto* record = static_cast<v4l2_buffer*>(argument);
        record->length = static_cast<__u32>(m_buffers.at(record->index).bytes.size());
        record->m.offset = static_cast<__u32>(record->index * kOffsetUnit);
        return 0;
    }
    case VIDIOC_DQBUF:
        return dequeue(argument);
    case VIDIOC_STREAMON:
    case VIDIOC_STREAMOFF:
        m_streaming = request == VIDIOC_STREAMON;
        m_dequeued.notify_all();
        return 0;
    default:
        return 0;
    }
}

int FocusCapture::open(const char* path, int /*flags*/)
{
    if (std::strcmp(path, "/dev/video0") == 0) {
        return kVideoDescriptor;
    }
    errno = ENOENT;
    return -1;
}

void* FocusCapture::mmap(std::size_t /*length*/, int /*protection*/, int /*flags*/, int /*fd*/, off_t offset)
{
    return m_buffers.at(static_cast<std::size_t>(offset / kOffsetUnit)).bytes.data();
}

int FocusCapture::waitReadable(int /*fd*/, int /*timeout_ms*/)
{
    std::this_thread::sleep_for(m_held ? kHeldClock : kFrameClock);
    return m_held ? 0 : 1;
}

int FocusCapture::close(int /*fd*/)
{
    return 0;
}

ssize_t FocusCapture::read(int /*fd*/, void* /*buffer*/, std::size_t /*count*/)
{
    return -1;
}

ssize_t FocusCapture::write(int /*fd*/, const void* /*buffer*/, std::size_t /*count*/)
{
    return -1;
}

int FocusCapture::fcntl(int /*fd*/, int /*command*/, int /*argument*/)
{
    return 0;
}

int FocusCapture::ioctl(int /*fd*/, unsigned long /*request*/, unsigned long /*argument*/)
{
    return -1;
}

int FocusCapture::munmap(void* /*address*/, std::size_t /*length*/)
{
    return 0;
}

void FocusCapture::pause(unsigned int /*duration_us*/)
{
    std::this_thread::yield();
}

void FocusCapture::syncFileSystems() {}
