#include "camera/OV5642Camera.h"

#include <algorithm>
#include <cerrno>

#include <QThread>

#include <fcntl.h>

#include "camera/YuvConversion.h"
#include "platform/DebugLog.h"
#include "platform/DeviceCalls.h"

v4l2_buffer g_v4l2_buffer = {};

namespace {

constexpr unsigned int kCapturePause_us = 10000;
constexpr int kFrameTimeout_ms = 1000;
constexpr int kRoundsWithoutDevice = 100;

v4l2_buffer emptyBufferRecord()
{
    v4l2_buffer record = {};
    record.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    record.memory = V4L2_MEMORY_MMAP;
    return record;
}

// Size and four-letter name of a format, such as "640 x 480 YUYV".
QString formatText(quint32 width_px, quint32 height_px, quint32 pixelFormat)
{
    QString name;
    for (int shift = 0; shift < 32; shift += 8)
        name += QChar(pixelFormat >> shift & 0xFF);
    const bool readable =
        std::all_of(name.begin(), name.end(), [](QChar letter) { return letter > ' ' && letter <= '~'; });
    return QString("%1 x %2 %3")
        .arg(width_px)
        .arg(height_px)
        .arg(readable ? name : QString::asprintf("0x%08X", pixelFormat));
}

} // namespace

OV5642Camera::CaptureSync::CaptureSync()
{
    pthread_mutex_init(&mutex, nullptr);
    pthread_cond_init(&condition, nullptr);
}

OV5642Camera::CaptureSync::~CaptureSync()
{
    pthread_cond_destroy(&condition);
    pthread_mutex_destroy(&mutex);
}

// ---- open ----

// The log shows the signature, so the path stays a value.
// NOLINTNEXTLINE(performance-unnecessary-value-param)
bool OV5642Camera::open(int mode, std::string settingsFile, bool withInitTable)
{
    logMessage(this, {Q_FUNC_INFO, "camera_mode:", QString::number(mode), ", ini_file",
                      QString::fromStdString(settingsFile)});
    // A capture thread that still runs would go on using the buffers that are replaced here.
    if (isStreaming())
        close();
    if (mode < 0 || mode >= kCameraModeCount)
        return failOpen("no such mode");
    selectMode(mode);
    buildWorkTable(settingsFile, withInitTable);
    openDevice();
    if (const char* call = startStream()) {
        logMessage(this, {Q_FUNC_INFO, QString("[Error] %1 !").arg(call)});
        return failOpen(m_fd < 0 ? QString("open ") + kCaptureDevice : QString(call));
    }
    if (setRegisters(m_workTable.size()) < 0)
        logMessage(this, {Q_FUNC_INFO, QString("[Error] I2C failed: %1").arg(kCaptureModes[m_mode].name)});
    m_frames.allocate({m_height_px, std::size_t(m_width_px) * kYuyvBytesPerPixel, m_rowDistance_bytes});
    if (!startCaptureThread()) {
        // Without this the driver would refuse every later change of format.
        switchStream(VIDIOC_STREAMOFF);
        return failOpen("pthread_create");
    }
    m_openFailed = false;
    m_openFailure.clear();
    return true;
}

void OV5642Camera::selectMode(int mode)
{
    m_mode = mode;
    m_width_px = kCaptureModes[mode].width_px;
    m_height_px = kCaptureModes[mode].height_px;
    m_rgbFrameSize_bytes = kCaptureModes[mode].rgbBytes();
}

void OV5642Camera::buildWorkTable(const std::string& settingsFile, bool withInitTable)
{
    // Empty before: the stream that was, or its failure, has freed it.
    if (withInitTable) {
        const std::size_t count = countBeforeTerminator(ov5642_vga_crop_init_reg, kInitTableLength);
        m_workTable.assign(ov5642_vga_crop_init_reg, ov5642_vga_crop_init_reg + count);
    }
    if (!loadRegisters(settingsFile))
        return;
    for (const CalibrationRecord& record : m_calibration.at(m_mode))
        m_workTable.push_back({record.address, static_cast<quint8>(record.value & 0xFF)});
}

// Asks for the mode's format. Where the kernel's usual buffer handling is in use, buffers of
// the stream before, which close() leaves allocated, hold the format: they are given back, or
// lost with the descriptor, and the format is asked for again.
bool OV5642Camera::setFormat()
{
    v4l2_pix_format granted = {};
    if (requestFormat(granted))
        return takeFormat(granted);
    if (errno != EBUSY)
        return false;
    logMessage(this, {Q_FUNC_INFO, "VIDIOC_S_FMT: busy, the buffers are given back"});
    v4l2_requestbuffers none = {};
    none.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    none.memory = V4L2_MEMORY_MMAP;
    if (request(VIDIOC_REQBUFS, &none) && requestFormat(granted))
        return takeFormat(granted);
    logMessage(this, {Q_FUNC_INFO, "VIDIOC_S_FMT: still busy, the device is opened anew"});
    closeDevice();
    openDevice();
    return requestFormat(granted) && takeFormat(granted);
}

bool OV5642Camera::requestFormat(v4l2_pix_format& granted)
{
    // Field order and bytes per line are left to the driver.
    v4l2_format format = {};
    format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    format.fmt.pix.width = m_width_px;
    format.fmt.pix.height = m_height_px;
    format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
    const bool good = request(VIDIOC_S_FMT, &format);
    granted = format.fmt.pix;
    return good;
}

// A driver grants what it can, which need not be what it was asked for. Another size or pixel
// format would be shown, measured and saved as a picture that it is not.
bool OV5642Camera::takeFormat(const v4l2_pix_format& granted)
{
    const QString got = formatText(granted.width, granted.height, granted.pixelformat);
    if (granted.width != m_width_px || granted.height != m_height_px ||
        granted.pixelformat != V4L2_PIX_FMT_YUYV) {
        logMessage(this, {Q_FUNC_INFO, "[Error] asked:",
                          formatText(m_width_px, m_height_px, V4L2_PIX_FMT_YUYV), ", granted:", got});
        return false;
    }
    m_rowDistance_bytes = std::size_t(m_width_px) * kYuyvBytesPerPixel;
    // A driver that leaves it 0 does not pad.
    if (granted.bytesperline > m_rowDistance_bytes) {
        m_rowDistance_bytes = granted.bytesperline;
        logMessage(
            this, {Q_FUNC_INFO, "granted:", got, ", bytes per line:", QString::number(granted.bytesperline)});
    }
    return true;
}

// Sets the format, maps every buffer that the driver grants and starts the stream. Null, or
// the name of the call that the driver refused.
const char* OV5642Camera::startStream()
{
    if (!setFormat())
        return "VIDIOC_S_FMT";

    m_ownFrame = {allocateZeroed(m_rgbFrameSize_bytes)};
    m_grabFrame = {allocateZeroed(m_rgbFrameSize_bytes)};

    v4l2_requestbuffers buffers = {};
    buffers.count = FrameSlots::kCount;
    buffers.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    buffers.memory = V4L2_MEMORY_MMAP;
    if (!request(VIDIOC_REQBUFS, &buffers))
        return "VIDIOC_REQBUFS";
    for (quint32 i = 0; i < buffers.count; ++i)
        if (const char* failure = mapBuffer(i))
            return failure;
    return switchStream(VIDIOC_STREAMON) ? nullptr : "VIDIOC_STREAMON";
}

// A request to the capture device; notes a device that is no longer there. Any thread.
bool OV5642Camera::request(unsigned long number, void* argument)
{
    if (deviceCalls().captureIoctl(m_fd, number, argument) == 0)
        return true;
    if (errno == ENODEV)
        m_gone.store(true, std::memory_order_release);
    return false;
}

// Starts or stops the stream. False if the driver refuses.
bool OV5642Camera::switchStream(unsigned long request)
{
    int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    return this->request(request, &type);
}

const char* OV5642Camera::mapBuffer(quint32 index)
{
    v4l2_buffer record = emptyBufferRecord();
    record.index = index;
    if (!request(VIDIOC_QUERYBUF, &record))
        return "VIDIOC_QUERYBUF";
    if (!m_buffers.map(m_fd, record.length, record.m.offset))
        return "mmap";
    if (!request(VIDIOC_QBUF, &record))
        return "VIDIOC_QBUF";
    return nullptr;
}

bool OV5642Camera::startCaptureThread()
{
    m_sync.emplace();
    m_goneTold = false;
    // Set first, for the thread runs only while it is.
    m_streaming.store(true, std::memory_order_release);
    return pthread_create(&m_captureThread, nullptr, video_grabber_thread, this) == 0;
}

bool OV5642Camera::failOpen(const QString& call)
{
    m_streaming.store(false, std::memory_order_release);
    m_sync.reset();
    freeFrames();
    m_openFailed = true;
    m_openFailure = call;
    return false;
}

void OV5642Camera::freeFrames()
{
    m_buffers.unmapAll();
    m_frames.release();
    m_ownFrame = {};
    m_grabFrame = {};
    m_workTable.clear();
}

// ---- close ----

bool OV5642Camera::close()
{
    const bool wasStreaming = m_streaming.exchange(false, std::memory_order_acq_rel);
    m_sync.reset();
    bool good = true;
    if (wasStreaming)
        good = pthread_join(m_captureThread, nullptr) == 0;
    if (!switchStream(VIDIOC_STREAMOFF)) {
        logMessage(this, {Q_FUNC_INFO, "[Error] VIDIOC_STREAMOFF"});
        good = false;
    }
    freeFrames();
    return good;
}

// ---- capture thread ----

void* video_grabber_thread(void* camera)
{
    auto* self = static_cast<OV5642Camera*>(camera);
    while (self->isStreaming()) {
        deviceCalls().pause(kCapturePause_us);
        if (self->captureFrame() == ENODEV)
            self->restWithoutDevice();
    }
    pthread_exit(nullptr);
}

// Waits for a frame and takes it. 0, or the errno of what failed.
int OV5642Camera::captureFrame()
{
    if (m_fd < 0)
        return ENODEV;
    const int readable = deviceCalls().waitReadable(m_fd, kFrameTimeout_ms);
    if (readable <= 0)
        return readable == 0 ? EAGAIN : errno;
    g_v4l2_buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
    g_v4l2_buffer.memory = V4L2_MEMORY_MMAP;
    if (!request(VIDIOC_DQBUF, &g_v4l2_buffer))
        return errno;
    // A frame whose slot is being read is given up, as is one of an index never granted.
    if (const CaptureBuffers::Buffer* buffer = m_buffers.at(g_v4l2_buffer.index)) {
        m_frames.write(g_v4l2_buffer.index, static_cast<const uchar*>(buffer->start),
                       std::min(g_v4l2_buffer.bytesused, buffer->length_bytes));
    }
    return request(VIDIOC_QBUF, &g_v4l2_buffer) ? 0 : errno;
}

// A device that is gone is readable at once and for ever, so it is looked at once a second
// only. The pause is the program's own, not one that a device needs.
void OV5642Camera::restWithoutDevice()
{
    m_gone.store(true, std::memory_order_release);
    if (!m_goneTold) {
        m_goneTold = true;
        // From the thread that everything else is logged from.
        QMetaObject::invokeMethod(this, "tellGone", Qt::QueuedConnection);
    }
    letGoOfMissingDevice();
    for (int round = 0; round < kRoundsWithoutDevice && isStreaming(); ++round)
        QThread::usleep(kCapturePause_us);
}

// As long as a descriptor or a mapping of it is left, the kernel keeps the name of a device that
// has gone, and gives the camera another one when it is plugged in again. While the name can be
// opened the device is there, and the next look may find a frame after all.
void OV5642Camera::letGoOfMissingDevice()
{
    if (m_fd < 0)
        return;
    const int there = deviceCalls().open(kCaptureDevice, O_RDWR | O_NONBLOCK | O_CLOEXEC);
    if (there >= 0)
        deviceCalls().close(there);
    // Another refusal, such as a second user's, says nothing of the device.
    if (there >= 0 || (errno != ENOENT && errno != ENXIO && errno != ENODEV))
        return;
    m_buffers.unmapAll();
    closeDevice();
}

void OV5642Camera::tellGone()
{
    logMessage(this, {Q_FUNC_INFO, errorText(kCaptureDevice, ENODEV)});
}

// ---- frames ----

uchar* OV5642Camera::getFrame(bool first, uchar second, uchar third, uchar fourth)
{
    unsigned int bufferIndex = 0;
    return getFrame(bufferIndex, first, second, third, fourth);
}

uchar* OV5642Camera::getFrame(unsigned int& bufferIndex, bool /*first*/, uchar /*second*/, uchar /*third*/,
                              uchar /*fourth*/)
{
    const FrameSlots::Reader newest = m_frames.readNewest();
    bufferIndex = newest.bufferIndex();
    RgbFrame& frame = frameOfCaller();
    if (newest.bytes() == nullptr)
        frame = {};
    else if (frame.number != newest.number()) {
        sws_yuv2rgb24(m_width_px, static_cast<int>(m_height_px), newest.bytes(), frame.bytes.get());
        frame.number = newest.number();
    }
    return frame.bytes.get();
}

OV5642Camera::RgbFrame& OV5642Camera::frameOfCaller()
{
    return QThread::currentThread() == thread() ? m_ownFrame : m_grabFrame;
}
