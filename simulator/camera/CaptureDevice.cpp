#include "simulator/camera/CaptureDevice.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1000000;
// Bytes that an oversized frame claims beyond its buffer.
constexpr unsigned kOversize_bytes = 65536;
// Buffers that a driver short of memory grants, and a generous one.
constexpr unsigned kFewerBuffers = 2;
constexpr unsigned kMoreBuffers = 8;
constexpr unsigned kBytesPerPixel = PictureMode::kBytesPerPixel;

const PictureMode& nearestMode(unsigned width_px, unsigned height_px)
{
    const auto distance = [width_px, height_px](const PictureMode& mode) {
        return std::llabs(static_cast<long long>(mode.width_px) - width_px) +
               std::llabs(static_cast<long long>(mode.height_px) - height_px);
    };
    return *std::min_element(
        kPictureModes.begin(), kPictureModes.end(),
        [&distance](const PictureMode& a, const PictureMode& b) { return distance(a) < distance(b); });
}

void describeFormat(const CaptureFormat& format, v4l2_pix_format& pix)
{
    pix = {};
    pix.width = format.width_px;
    pix.height = format.height_px;
    pix.pixelformat = V4L2_PIX_FMT_YUYV;
    pix.field = V4L2_FIELD_NONE;
    pix.bytesperline = format.bytesPerLine;
    pix.sizeimage = static_cast<unsigned>(format.frameBytes());
    pix.colorspace = V4L2_COLORSPACE_SRGB;
}

} // namespace

CaptureDevice::CaptureDevice(const CaptureParameters& parameters, FrameSource& source, CameraFaults& faults)
    : m_parameters(parameters), m_source(source), m_faults(faults), m_format(formatFor(kPictureModes.front()))
{
}

int CaptureDevice::handle(unsigned long request, void* argument, InstrumentTime now)
{
    if (argument == nullptr)
        return EFAULT;
    advance(now);
    switch (request) {
    case VIDIOC_S_FMT:
        return setFormat(*static_cast<v4l2_format*>(argument));
    case VIDIOC_REQBUFS:
        return requestBuffers(*static_cast<v4l2_requestbuffers*>(argument));
    case VIDIOC_QUERYBUF:
        return queryBuffer(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_QBUF:
        return queueBuffer(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_DQBUF:
        return dequeueBuffer(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_STREAMON:
        return streamOn(*static_cast<int*>(argument), now);
    case VIDIOC_STREAMOFF:
        return streamOff(*static_cast<int*>(argument));
    default:
        return ENOTTY;
    }
}

int CaptureDevice::setFormat(v4l2_format& record)
{
    const PictureMode& mode = nearestMode(record.fmt.pix.width, record.fmt.pix.height);
    if (record.type != V4L2_BUF_TYPE_VIDEO_CAPTURE)
        return EINVAL;
    if (m_streaming || isMapped() || (m_parameters.formatHeldByBuffers && !m_buffers.empty()))
        return EBUSY;
    m_format = formatFor(mode);
    v4l2_pix_format& pix = record.fmt.pix;
    describeFormat(m_format, pix);
    if (m_parameters.adjustFormat) {
        m_parameters.adjustFormat(pix);
        m_format.bytesPerLine = std::max(pix.bytesperline, m_format.width_px * kBytesPerPixel);
    }
    return 0;
}

CaptureFormat CaptureDevice::formatFor(const PictureMode& mode) const
{
    // Two pixels share their colour, so the width is even.
    const int width = std::min(mode.width_px, m_parameters.mostColumns_px) / 2 * 2;
    const int height = std::min(mode.height_px, m_parameters.mostRows_px);
    return {&mode, static_cast<unsigned>(width), static_cast<unsigned>(height),
            static_cast<unsigned>(width) * kBytesPerPixel +
                static_cast<unsigned>(m_parameters.rowPadding_bytes)};
}

int CaptureDevice::requestBuffers(v4l2_requestbuffers& record)
{
    if (record.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || record.memory != V4L2_MEMORY_MMAP)
        return EINVAL;
    if (m_streaming || isMapped())
        return EBUSY;
    stop();
    m_buffers.clear();
    record.capabilities = V4L2_BUF_CAP_SUPPORTS_MMAP;
    if (record.count == 0)
        return 0;
    const unsigned granted = grantedCount(record.count);
    for (unsigned index = 0; index < granted; ++index) {
        Buffer buffer;
        buffer.memory = std::make_shared<FrameMemory>(bufferBytes());
        if (buffer.memory->data() == nullptr) {
            m_buffers.clear();
            return ENOMEM;
        }
        m_buffers.push_back(std::move(buffer));
    }
    record.count = granted;
    return 0;
}

std::size_t CaptureDevice::bufferBytes() const
{
    return m_parameters.bufferLength_bytes != 0 ? m_parameters.bufferLength_bytes : m_format.frameBytes();
}

unsigned CaptureDevice::grantedCount(unsigned asked) const
{
    if (m_faults.isOn(CameraFault::FewerBuffers))
        return kFewerBuffers;
    const unsigned wanted = m_faults.isOn(CameraFault::MoreBuffers) ? std::max(asked, kMoreBuffers) : asked;
    return std::min(std::max(wanted, m_parameters.fewestBuffers), m_parameters.mostBuffers);
}

int CaptureDevice::queryBuffer(v4l2_buffer& record) const
{
    if (record.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || record.index >= m_buffers.size())
        return EINVAL;
    describe(record.index, record);
    return 0;
}

int CaptureDevice::queueBuffer(v4l2_buffer& record)
{
    if (record.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || record.memory != V4L2_MEMORY_MMAP ||
        record.index >= m_buffers.size())
        return EINVAL;
    Buffer& buffer = m_buffers[record.index];
    if (buffer.owner != Owner::Program || buffer.memory->bytes() < bufferBytes())
        return EINVAL;
    buffer.owner = Owner::Queue;
    m_framesReturned += buffer.taken ? 1U : 0U;
    buffer.taken = false;
    m_queued.push_back(record.index);
    describe(record.index, record);
    return 0;
}

int CaptureDevice::dequeueBuffer(v4l2_buffer& record)
{
    if (record.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || record.memory != V4L2_MEMORY_MMAP || !m_streaming)
        return EINVAL;
    if (m_done.empty())
        return EAGAIN;
    const unsigned index = m_done.front();
    m_done.pop_front();
    m_buffers[index].owner = Owner::Program;
    m_buffers[index].taken = true;
    describe(index, record);
    record.index = m_buffers[index].toldIndex;
    return 0;
}

int CaptureDevice::streamOn(int type, InstrumentTime now)
{
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE || m_buffers.empty())
        return EINVAL;
    if (!m_streaming) {
        m_streaming = true;
        m_streamStart = now;
        m_ticks = 0;
        m_sequence = 0;
    }
    return 0;
}

int CaptureDevice::streamOff(int type)
{
    if (type != V4L2_BUF_TYPE_VIDEO_CAPTURE)
        return EINVAL;
    stop();
    return 0;
}

void CaptureDevice::stop()
{
    m_streaming = false;
    m_queued.clear();
    m_done.clear();
    m_framesReturned = m_framesDelivered;
    for (Buffer& buffer : m_buffers) {
        buffer.owner = Owner::Program;
        buffer.taken = false;
    }
}

void CaptureDevice::release()
{
    stop();
    m_buffers.clear();
}

bool CaptureDevice::readable(InstrumentTime now)
{
    advance(now);
    return !m_streaming || !m_done.empty();
}

bool CaptureDevice::isStandingStill() const
{
    return m_faults.isOn(CameraFault::StalledStream) || !m_source.hasFrame();
}

std::optional<InstrumentTime> CaptureDevice::nextFrameTime() const
{
    if (!m_streaming || m_queued.empty() || isStandingStill())
        return std::nullopt;
    return endOfTick(m_ticks + 1);
}

// Frames end whether or not anybody asks. Those that ended since the last call go, in order, into
// the queued buffers; once no buffer is left they are lost.
void CaptureDevice::advance(InstrumentTime now)
{
    if (!m_streaming)
        return;
    const std::int64_t latest = ticksAt(now);
    while (m_ticks < latest && !m_queued.empty() && !isStandingStill()) {
        ++m_ticks;
        if (m_faults.strikes(CameraFault::LostFrames)) {
            ++m_sequence;
            continue;
        }
        const unsigned index = m_queued.front();
        m_queued.pop_front();
        fill(m_buffers[index], endOfTick(m_ticks));
        m_done.push_back(index);
    }
    if (latest > m_ticks) {
        m_sequence += isStandingStill() ? 0U : static_cast<unsigned>(latest - m_ticks);
        m_ticks = latest;
    }
}

void CaptureDevice::fill(Buffer& buffer, InstrumentTime time)
{
    const std::uint64_t picture = m_source.look(time, *m_format.mode);
    const FrameReport report = m_source.report();
    const auto frameBytes = static_cast<unsigned>(m_format.frameBytes());
    if (buffer.picture != picture) {
        if (const Buffer* holder = holderOf(picture)) {
            std::memcpy(buffer.memory->data(), holder->memory->data(), buffer.memory->bytes());
            ++m_copies;
        } else {
            draw(*buffer.memory);
            ++m_drawings;
        }
        buffer.picture = picture;
    }
    buffer.owner = Owner::Done;
    buffer.time = time;
    buffer.sequence = m_sequence++;
    buffer.bytesUsed = report.bytesUsed.value_or(frameBytes);
    const auto index = static_cast<unsigned>(&buffer - m_buffers.data());
    buffer.toldIndex = report.bufferIndex.value_or(index);
    if (m_faults.isOn(CameraFault::ShortFrames))
        buffer.bytesUsed = frameBytes / 2;
    else if (m_faults.isOn(CameraFault::OversizedFrames))
        buffer.bytesUsed = frameBytes + kOversize_bytes;
    ++m_framesDelivered;
}

void CaptureDevice::draw(FrameMemory& memory)
{
    const std::size_t wholeRow = static_cast<std::size_t>(m_format.mode->width_px) * kBytesPerPixel;
    const auto wholePicture = static_cast<std::size_t>(m_format.mode->frameBytes());
    if (m_format.bytesPerLine == wholeRow && m_format.frameBytes() == wholePicture &&
        memory.bytes() >= wholePicture) {
        m_source.draw(memory.data());
        return;
    }
    m_picture.resize(wholePicture);
    m_source.draw(m_picture.data());
    const std::size_t shownRow = std::size_t(m_format.width_px) * kBytesPerPixel;
    for (std::size_t row = 0; row < m_format.height_px; ++row) {
        const std::size_t start = row * m_format.bytesPerLine;
        if (start < memory.bytes()) {
            std::memcpy(memory.data() + start, m_picture.data() + row * wholeRow,
                        std::min(shownRow, memory.bytes() - start));
        }
    }
}

// A buffer in the program's hands may be written to, so it is not copied from.
const CaptureDevice::Buffer* CaptureDevice::holderOf(std::uint64_t picture) const
{
    const auto holder = std::find_if(m_buffers.begin(), m_buffers.end(), [picture](const Buffer& buffer) {
        return buffer.picture == picture && buffer.owner != Owner::Program;
    });
    return holder == m_buffers.end() ? nullptr : &*holder;
}

bool CaptureDevice::isMapped() const
{
    return std::any_of(
        m_buffers.begin(), m_buffers.end(),
        [](const Buffer& buffer) { return buffer.memory.use_count() > 1; });
}

std::optional<unsigned> CaptureDevice::bufferAt(off_t offset) const
{
    for (unsigned index = 0; index < m_buffers.size(); ++index)
        if (offset == offsetOf(index))
            return index;
    return std::nullopt;
}

std::shared_ptr<FrameMemory> CaptureDevice::memoryAt(off_t offset, std::size_t length) const
{
    const std::optional<unsigned> index = bufferAt(offset);
    if (!index || length == 0 || length > FrameMemory::inWholePages(m_buffers[*index].memory->bytes()))
        return nullptr;
    return m_buffers[*index].memory;
}

off_t CaptureDevice::offsetOf(unsigned index) const
{
    return static_cast<off_t>(index * FrameMemory::inWholePages(m_buffers[index].memory->bytes()));
}

int CaptureDevice::framesPerSecond() const
{
    return m_parameters.framesPerSecond != 0 ? m_parameters.framesPerSecond : m_format.mode->framesPerSecond;
}

std::int64_t CaptureDevice::ticksAt(InstrumentTime now) const
{
    return (now - m_streamStart).count() * framesPerSecond() / kMicrosecondsPerSecond;
}

// Rounded up, so that at that time the tick has been reached.
InstrumentTime CaptureDevice::endOfTick(std::int64_t tick) const
{
    const std::int64_t rate = framesPerSecond();
    return m_streamStart + InstrumentTime((tick * kMicrosecondsPerSecond + rate - 1) / rate);
}

void CaptureDevice::describe(unsigned index, v4l2_buffer& record) const
{
    const Buffer& buffer = m_buffers[index];
    record = {};
    record.index = index;
    record.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    record.memory = V4L2_MEMORY_MMAP;
    record.field = V4L2_FIELD_NONE;
    record.length = static_cast<unsigned>(buffer.memory->bytes());
    record.m.offset = static_cast<unsigned>(offsetOf(index));
    record.bytesused = buffer.bytesUsed;
    record.sequence = buffer.sequence;
    record.timestamp.tv_sec = buffer.time.count() / kMicrosecondsPerSecond;
    record.timestamp.tv_usec = buffer.time.count() % kMicrosecondsPerSecond;
    record.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
    record.flags |= buffer.memory.use_count() > 1 ? V4L2_BUF_FLAG_MAPPED : 0U;
    record.flags |= buffer.owner == Owner::Queue ? V4L2_BUF_FLAG_QUEUED : 0U;
    record.flags |= buffer.owner == Owner::Done ? V4L2_BUF_FLAG_DONE : 0U;
}
