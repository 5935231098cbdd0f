#include "CaptureNode.h"

#include <algorithm>
#include <cstring>

#include <sys/mman.h>

#include "StandInCalls.h"

namespace {

constexpr std::uint32_t kBuffers = 4;
constexpr std::uint32_t kBufferStride = 0x1000000; // offsets of the buffers, as a driver hands them out

const char* requestName(unsigned long request)
{
    switch (std::uint32_t(request)) {
    case VIDIOC_S_FMT:
        return "VIDIOC_S_FMT";
    case VIDIOC_REQBUFS:
        return "VIDIOC_REQBUFS";
    case VIDIOC_QUERYBUF:
        return "VIDIOC_QUERYBUF";
    case VIDIOC_QBUF:
        return "VIDIOC_QBUF";
    case VIDIOC_DQBUF:
        return "VIDIOC_DQBUF";
    case VIDIOC_STREAMON:
        return "VIDIOC_STREAMON";
    case VIDIOC_STREAMOFF:
        return "VIDIOC_STREAMOFF";
    default:
        return "unknown request";
    }
}

} // namespace

void CaptureNode::closed()
{
    m_streaming = false;
    releaseBuffers();
}

bool CaptureNode::anyMapped() const
{
    return std::any_of(m_buffers.begin(), m_buffers.end(),
                       [](const Buffer& buffer) { return buffer.memory; });
}

void CaptureNode::releaseBuffers()
{
    m_queue.clear();
    m_buffers.clear();
}

int CaptureNode::setFormat(v4l2_format& format)
{
    v4l2_pix_format& pixels = format.fmt.pix;
    record("video VIDIOC_S_FMT type %u %ux%u %.4s", format.type, pixels.width, pixels.height,
           reinterpret_cast<const char*>(&pixels.pixelformat));
    // The kernel's own buffer handling; to a driver with another one, buffers that nobody has
    // mapped may be no hindrance.
    if (m_streaming || anyMapped() || (!scene()->formatIsFree && !m_buffers.empty()))
        return failed(EBUSY);
    releaseBuffers();
    m_width = pixels.width;
    m_height = pixels.height;
    m_contrast = -1;
    pixels.bytesperline = m_width * 2;
    pixels.sizeimage = frameBytes();
    return 0;
}

int CaptureNode::requestBuffers(v4l2_requestbuffers& request)
{
    record("video VIDIOC_REQBUFS count %u type %u memory %u", request.count, request.type, request.memory);
    if (m_streaming || anyMapped())
        return failed(EBUSY);
    releaseBuffers();
    m_buffers.resize(std::min(request.count, kBuffers));
    request.count = m_buffers.size();
    return 0;
}

/// Four fields in red, green, blue and grey, in each a grid of bright squares whose height
/// over the ground is the contrast; two dark discs of 5M size where the target is looked for.
void CaptureNode::paint()
{
    const int contrast = scene()->contrast;
    if (contrast == m_contrast)
        return;
    m_contrast = contrast;
    m_picture.resize(frameBytes());
    const int width = int(m_width), height = int(m_height);
    constexpr int fields[4][2] = {{90, 240}, {54, 34}, {240, 110}, {128, 128}}; // U, V
    for (int y = 0; y < height; ++y) {
        unsigned char* const row = m_picture.data() + std::size_t(y) * width * 2;
        for (int x = 0; x < width; ++x) {
            const int field = (x < width / 2 ? 0 : 1) + (y < height / 2 ? 0 : 2);
            const bool square = (x * 64 / width) % 2 && (y * 48 / height) % 2;
            int luma = 110 + (square ? contrast : 0);
            int tint = fields[field][x % 2];
            if (width == 2592) {
                for (const int left : {796, 1796}) {
                    const int distance2 = (x - left) * (x - left) + (y - 972) * (y - 972);
                    if (distance2 <= 100 * 100)
                        tint = 128; // grey around the disc, so that it alone is dark
                    if (distance2 <= 12 * 12)
                        luma = 16;
                }
            }
            row[std::size_t(2) * x] = luma;
            row[std::size_t(2) * x + 1] = tint;
        }
    }
}

std::int64_t CaptureNode::nextFrame_ns() const
{
    return m_streaming && !m_queue.empty() && !scene()->noFrames ? m_nextFrame_ns : -1;
}

int CaptureNode::dequeue(v4l2_buffer& buffer)
{
    if (!m_streaming)
        return failed(EINVAL);
    const std::int64_t due = nextFrame_ns();
    const std::int64_t now = now_ns();
    if (due < 0 || now < due)
        return failed(EAGAIN);
    paint();
    const std::int64_t period = kSecond_ns / (m_width == 2592 ? 15 : 30);
    m_nextFrame_ns = std::max(due + period, now);
    buffer.index = m_queue.front();
    m_queue.erase(m_queue.begin());
    m_buffers[buffer.index].queued = false;
    if (m_buffers[buffer.index].memory)
        std::memcpy(m_buffers[buffer.index].memory, m_picture.data(), m_picture.size());
    buffer.bytesused = frameBytes();
    buffer.length = frameBytes();
    buffer.sequence = m_sequence++;
    ++scene()->framesDelivered;
    return 0;
}

int CaptureNode::control(unsigned long request, void* argument)
{
    const int number = request & 0xFF;
    auto& buffer = *static_cast<v4l2_buffer*>(argument);
    if (scene()->failingRequest == number) {
        record("video %s fails", requestName(request));
        return failed(scene()->failingErrno);
    }
    switch (std::uint32_t(request)) {
    case VIDIOC_S_FMT:
        return setFormat(*static_cast<v4l2_format*>(argument));
    case VIDIOC_REQBUFS:
        return requestBuffers(*static_cast<v4l2_requestbuffers*>(argument));
    case VIDIOC_QUERYBUF:
        record("video VIDIOC_QUERYBUF %u type %u memory %u", buffer.index, buffer.type, buffer.memory);
        if (buffer.index >= m_buffers.size())
            return failed(EINVAL);
        buffer.length = frameBytes();
        buffer.m.offset = buffer.index * kBufferStride;
        return 0;
    case VIDIOC_QBUF:
        if (!m_streaming)
            record("video VIDIOC_QBUF %u type %u memory %u", buffer.index, buffer.type, buffer.memory);
        if (buffer.index >= m_buffers.size() || m_buffers[buffer.index].queued)
            return failed(EINVAL);
        m_buffers[buffer.index].queued = true;
        m_queue.push_back(buffer.index);
        return 0;
    case VIDIOC_DQBUF:
        return dequeue(buffer);
    case VIDIOC_STREAMON:
        record("video VIDIOC_STREAMON type %d", *static_cast<int*>(argument));
        if (m_buffers.empty())
            return failed(EINVAL);
        m_streaming = true;
        m_nextFrame_ns = now_ns() + kSecond_ns / 30;
        return 0;
    case VIDIOC_STREAMOFF:
        record("video VIDIOC_STREAMOFF type %d", *static_cast<int*>(argument));
        m_streaming = false;
        m_queue.clear();
        for (Buffer& each : m_buffers)
            each.queued = false;
        return 0;
    default:
        record("video unknown request %#lx", request);
        return failed(ENOTTY);
    }
}

void* CaptureNode::map(std::size_t length, off_t offset)
{
    const std::size_t index = offset / kBufferStride;
    record("video mmap %zu of %zu bytes", index, length);
    if (index >= m_buffers.size() || length != frameBytes()) {
        errno = EINVAL;
        return MAP_FAILED;
    }
    void* const memory =
        realMmap(nullptr, length, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    m_buffers[index].memory = static_cast<unsigned char*>(memory);
    return memory;
}

bool CaptureNode::unmap(void* address, std::size_t length)
{
    for (Buffer& buffer : m_buffers)
        if (buffer.memory && buffer.memory == address) {
            record("video munmap %d of %zu bytes", int(&buffer - m_buffers.data()), length);
            buffer.memory = nullptr;
            return true;
        }
    return false;
}
