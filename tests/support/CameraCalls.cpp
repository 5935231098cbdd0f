#include "tests/support/CameraCalls.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/mman.h>

namespace {

// Short, for it only has to keep an idle capture loop from spinning.
constexpr std::chrono::milliseconds kIdleWait(2);

constexpr int kLongestLog = 20000;
constexpr int kSpent = -1;

QString hex(unsigned long value, int digits)
{
    return QString("%1").arg(value, digits, 16, QChar('0')).toUpper();
}

QString bytesText(const quint8* bytes, std::size_t count)
{
    QStringList texts;
    for (std::size_t i = 0; i < count; ++i)
        texts << hex(bytes[i], 2);
    return texts.join(' ');
}

} // namespace

CameraCalls::CameraCalls()
{
    installDeviceCalls(this);
}

CameraCalls::~CameraCalls()
{
    installDeviceCalls(nullptr);
    for (const auto& mapping : m_mappings)
        std::free(mapping.first);
}

// ---- what the machine is like ----

void CameraCalls::setMissing(const std::string& path, bool missing)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (missing)
        m_missing.insert(path);
    else
        m_missing.erase(path);
}

void CameraCalls::failCall(const QString& kind, int n, ssize_t result, int error)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_scripts[kind].push_back({n, n == kAlways, result, error});
}

void CameraCalls::healCalls()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_scripts.clear();
}

void CameraCalls::setFormatHeld(bool held)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_formatHeld = held;
}

void CameraCalls::setFormatAdjustment(std::function<void(v4l2_pix_format&)> adjust)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_adjust = std::move(adjust);
}

void CameraCalls::grantBuffers(unsigned int count)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_granted = count;
}

void CameraCalls::setBufferLength(quint32 length)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_fixedLength = length;
}

void CameraCalls::deliver(const Frame& frame)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_frames.push_back(frame);
    m_frameCame.notify_all();
}

void CameraCalls::deliverEndlessly(bool on)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_endless = on;
    m_frameCame.notify_all();
}

void CameraCalls::setRegister(quint16 reg, quint8 value)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_registers[reg] = value;
}

// ---- what happened ----

QStringList CameraCalls::calls() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_calls;
}

QStringList CameraCalls::captureCalls() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_captureCalls;
}

void CameraCalls::clearLog()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    m_calls.clear();
    m_captureCalls.clear();
}

int CameraCalls::requeued() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_requeued;
}

quint8 CameraCalls::registerValue(quint16 reg) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_registers.find(reg);
    return found == m_registers.end() ? 0 : found->second;
}

int CameraCalls::openDescriptors(const std::string& path) const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(std::count_if(m_descriptors.begin(), m_descriptors.end(),
                                          [&path](const auto& entry) { return entry.second.path == path; }));
}

int CameraCalls::liveMappings() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return static_cast<int>(m_mappings.size());
}

bool CameraCalls::isStreaming() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_streaming;
}

QStringList CameraCalls::misuses() const
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    return m_misuses;
}

// ---- bookkeeping; the callers hold the mutex ----

bool CameraCalls::enter(const QString& line, ssize_t& result)
{
    QStringList& log = onOwnThread() ? m_calls : m_captureCalls;
    // An idle capture loop would fill the memory.
    if (log.size() < kLongestLog)
        log << line;
    bool fails = false;
    for (Script& script : m_scripts[line.section(' ', 0, 0)]) {
        if (script.n != kAlways && (script.n < 0 || --script.n > 0))
            continue;
        result = script.result;
        errno = script.error;
        fails = true;
        script.n = script.always ? kAlways : kSpent;
    }
    return fails;
}

bool CameraCalls::isOpen(int fd, const char* path) const
{
    const auto found = m_descriptors.find(fd);
    return found != m_descriptors.end() && found->second.path == path;
}

int CameraCalls::refuse(int error) const
{
    errno = error;
    return -1;
}

// ---- sensor bus ----

int CameraCalls::open(const char* path, int flags)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ssize_t result;
    if (enter(QString("open %1 %2").arg(path).arg(flags), result))
        return static_cast<int>(result);
    if (m_missing.count(path) != 0)
        return refuse(ENOENT);
    m_descriptors[m_nextDescriptor].path = path;
    return m_nextDescriptor++;
}

int CameraCalls::close(int fd)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    const auto found = m_descriptors.find(fd);
    const bool known = found != m_descriptors.end();
    ssize_t result;
    if (enter(QString("close %1").arg(known ? found->second.path.c_str() : "?"), result))
        return static_cast<int>(result);
    if (!known) {
        m_misuses << "close of no descriptor";
        return refuse(EBADF);
    }
    m_descriptors.erase(found);
    if (std::none_of(m_descriptors.begin(), m_descriptors.end(),
                     [](const auto& entry) { return entry.second.path == kVideo; })) {
        m_streaming = false;
        m_bufferCount = 0;
        m_queued.clear();
    }
    return 0;
}

int CameraCalls::ioctl(int fd, unsigned long request, unsigned long argument)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ssize_t result;
    if (enter(QString("ioctl %1 %2").arg(hex(request, 4), hex(argument, 2)), result))
        return static_cast<int>(result);
    if (!isOpen(fd, kBus))
        return refuse(EBADF);
    m_descriptors[fd].addressed = true;
    return 0;
}

ssize_t CameraCalls::write(int fd, const void* buffer, std::size_t count)
{
    const auto* bytes = static_cast<const quint8*>(buffer);
    const std::lock_guard<std::mutex> lock(m_mutex);
    ssize_t result;
    if (enter("write " + bytesText(bytes, count), result))
        return result;
    if (!isOpen(fd, kBus))
        return refuse(EBADF);
    if (!m_descriptors[fd].addressed || count < 2 || count > 3)
        return refuse(EIO);
    m_pointer = static_cast<quint16>(bytes[0] << 8 | bytes[1]);
    if (count == 3)
        m_registers[m_pointer] = bytes[2];
    return static_cast<ssize_t>(count);
}

ssize_t CameraCalls::read(int fd, void* buffer, std::size_t count)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ssize_t result;
    if (enter(QString("read %1").arg(count), result))
        return result;
    if (!isOpen(fd, kBus))
        return refuse(EBADF);
    if (!m_descriptors[fd].addressed || count != 1)
        return refuse(EIO);
    *static_cast<quint8*>(buffer) = m_registers[m_pointer];
    return 1;
}

int CameraCalls::fcntl(int fd, int command, int argument)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ssize_t result;
    if (enter(QString("fcntl %1 %2").arg(command).arg(argument), result))
        return static_cast<int>(result);
    return m_descriptors.count(fd) != 0 ? 0 : refuse(EBADF);
}

void CameraCalls::pause(unsigned int duration_us)
{
    {
        const std::lock_guard<std::mutex> lock(m_mutex);
        ssize_t result;
        enter(QString("pause %1").arg(duration_us), result);
    }
    std::this_thread::yield();
}

void CameraCalls::syncFileSystems()
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ssize_t result;
    enter("sync", result);
}

// ---- capture device ----

int CameraCalls::captureIoctl(int fd, unsigned long request, void* argument)
{
    struct Request
    {
        unsigned long number;
        const char* name;
    };
    static constexpr Request kRequests[] = {
        {VIDIOC_S_FMT, "S_FMT"},         {VIDIOC_REQBUFS, "REQBUFS"}, {VIDIOC_QUERYBUF, "QUERYBUF"},
        {VIDIOC_QBUF, "QBUF"},           {VIDIOC_DQBUF, "DQBUF"},     {VIDIOC_STREAMON, "STREAMON"},
        {VIDIOC_STREAMOFF, "STREAMOFF"},
    };
    const auto* known = std::find_if(std::begin(kRequests), std::end(kRequests),
                                     [request](const Request& entry) { return entry.number == request; });
    const std::lock_guard<std::mutex> lock(m_mutex);
    if (known == std::end(kRequests)) {
        m_misuses << "unknown request";
        return refuse(ENOTTY);
    }
    QString line = known->name;
    if (request == VIDIOC_S_FMT) {
        const auto& pix = static_cast<const v4l2_format*>(argument)->fmt.pix;
        line += QString(" %1x%2 %3").arg(pix.width).arg(pix.height).arg(hex(pix.pixelformat, 8));
    } else if (request == VIDIOC_REQBUFS) {
        line += QString(" %1").arg(static_cast<const v4l2_requestbuffers*>(argument)->count);
    } else if (request == VIDIOC_QUERYBUF || request == VIDIOC_QBUF) {
        line += QString(" %1").arg(static_cast<const v4l2_buffer*>(argument)->index);
    }
    ssize_t result;
    if (enter(line, result))
        return static_cast<int>(result);
    if (!isOpen(fd, kVideo))
        return refuse(EBADF);
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
    default:
        if (*static_cast<const int*>(argument) != V4L2_BUF_TYPE_VIDEO_CAPTURE)
            return refuse(EINVAL);
        return switchStream(request == VIDIOC_STREAMON);
    }
}

int CameraCalls::setFormat(v4l2_format& format)
{
    if (format.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || format.fmt.pix.pixelformat != V4L2_PIX_FMT_YUYV)
        return refuse(EINVAL);
    if (m_streaming || !m_mappings.empty() || (m_formatHeld && m_bufferCount > 0))
        return refuse(EBUSY);
    if (m_adjust)
        m_adjust(format.fmt.pix);
    m_format = format.fmt.pix;
    return 0;
}

int CameraCalls::requestBuffers(v4l2_requestbuffers& request)
{
    if (request.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || request.memory != V4L2_MEMORY_MMAP)
        return refuse(EINVAL);
    if (m_streaming || !m_mappings.empty())
        return refuse(EBUSY);
    m_bufferCount = m_granted != 0 && request.count != 0 ? m_granted : request.count;
    request.count = m_bufferCount;
    m_queued.clear();
    return 0;
}

int CameraCalls::queryBuffer(v4l2_buffer& buffer)
{
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.index >= m_bufferCount)
        return refuse(EINVAL);
    buffer.length = m_fixedLength != 0 ? m_fixedLength : lineBytes() * m_format.height;
    buffer.m.offset = kOffsetUnit * buffer.index;
    return 0;
}

int CameraCalls::queueBuffer(v4l2_buffer& buffer)
{
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.memory != V4L2_MEMORY_MMAP)
        return refuse(EINVAL);
    if (!onOwnThread())
        ++m_requeued;
    if (buffer.index >= m_bufferCount)
        return refuse(EINVAL);
    m_queued.push_back(buffer.index);
    return 0;
}

int CameraCalls::dequeueBuffer(v4l2_buffer& buffer)
{
    if (buffer.type != V4L2_BUF_TYPE_VIDEO_CAPTURE || buffer.memory != V4L2_MEMORY_MMAP || !m_streaming)
        return refuse(EINVAL);
    if (!frameReady())
        return refuse(EAGAIN);
    const Frame frame = nextFrame();
    const unsigned int index = m_queued.front();
    m_queued.pop_front();
    const auto mapping = m_mapped.find(index);
    if (mapping == m_mapped.end()) {
        m_misuses << "streaming into a buffer that is not mapped";
        return refuse(EIO);
    }
    const std::size_t length = m_mappings[mapping->second];
    const std::size_t filled = std::min<std::size_t>(frame.bytesUsed, length);
    std::memset(mapping->second, frame.value, filled);
    // What stands behind the pixels of a row belongs to no picture.
    const std::size_t row = std::size_t(m_format.width) * 2;
    for (std::size_t end = row; row < lineBytes() && end < filled; end += lineBytes())
        std::memset(mapping->second + end, ~frame.value, std::min(lineBytes() - row, filled - end));
    buffer.index = frame.index < 0 ? index : static_cast<unsigned int>(frame.index);
    buffer.bytesused = frame.bytesUsed;
    return 0;
}

int CameraCalls::switchStream(bool on)
{
    if (!on && m_waiting)
        m_misuses << "stream stopped while a thread waits for its frames";
    m_streaming = on;
    if (!on)
        m_queued.clear();
    return 0;
}

bool CameraCalls::frameReady() const
{
    return m_streaming && !m_queued.empty() && (m_endless || !m_frames.empty());
}

quint32 CameraCalls::lineBytes() const
{
    return std::max(m_format.bytesperline, m_format.width * 2);
}

CameraCalls::Frame CameraCalls::nextFrame()
{
    if (m_frames.empty()) {
        m_nextValue = m_nextValue == 255 ? 1 : m_nextValue + 1;
        return {m_nextValue, lineBytes() * m_format.height};
    }
    const Frame frame = m_frames.front();
    m_frames.pop_front();
    return frame;
}

void* CameraCalls::mmap(std::size_t length, int protection, int flags, int fd, off_t offset)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ssize_t result;
    if (enter(QString("mmap %1 %2").arg(length).arg(offset), result))
        return MAP_FAILED;
    const auto index = static_cast<unsigned int>(offset / kOffsetUnit);
    if (!isOpen(fd, kVideo) || protection != (PROT_READ | PROT_WRITE) || flags != MAP_SHARED ||
        offset % kOffsetUnit != 0 || index >= m_bufferCount) {
        refuse(EINVAL);
        return MAP_FAILED;
    }
    // The heap's, so that an access after munmap or beyond the length is found out.
    auto* memory = static_cast<uchar*>(std::malloc(length));
    m_mapped[index] = memory;
    m_mappings[memory] = length;
    return memory;
}

int CameraCalls::munmap(void* address, std::size_t length)
{
    const std::lock_guard<std::mutex> lock(m_mutex);
    ssize_t result;
    if (enter(QString("munmap %1").arg(length), result))
        return static_cast<int>(result);
    const auto found = m_mappings.find(address);
    if (found == m_mappings.end() || found->second != length) {
        m_misuses << "munmap of no mapping";
        return refuse(EINVAL);
    }
    m_mappings.erase(found);
    for (auto entry = m_mapped.begin(); entry != m_mapped.end();)
        entry = entry->second == address ? m_mapped.erase(entry) : std::next(entry);
    std::free(address);
    return 0;
}

int CameraCalls::waitReadable(int fd, int timeout_ms)
{
    std::unique_lock<std::mutex> lock(m_mutex);
    ssize_t result;
    if (enter(QString("select %1").arg(timeout_ms), result))
        return static_cast<int>(result);
    if (!isOpen(fd, kVideo))
        return refuse(EBADF);
    m_waiting = true;
    m_frameCame.wait_for(lock, kIdleWait, [this] { return frameReady(); });
    m_waiting = false;
    return frameReady() ? 1 : 0;
}
