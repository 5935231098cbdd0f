#include "camera/OV5642Camera.h"

#include <fcntl.h>

#include "platform/DeviceCalls.h"

namespace {

constexpr const char* kCaptureDevice = "/dev/video0";

} // namespace

OV5642Camera::OV5642Camera(QObject* parent) : QObject(parent)
{
    init();
}

OV5642Camera::~OV5642Camera()
{
    if (isStreaming()) {
        // Whoever listens may be half destroyed already when it is this object's parent.
        blockSignals(true);
        close();
    }
    if (m_fd >= 0)
        deviceCalls().close(m_fd);
}

void OV5642Camera::init()
{
    openDevice();
    freeFrames();
    m_calibration = {};
    m_streaming.store(false, std::memory_order_release);
}

void OV5642Camera::openDevice()
{
    if (m_fd >= 0)
        return;
    m_fd = deviceCalls().open(kCaptureDevice, O_RDWR | O_NONBLOCK);
    if (m_fd >= 0)
        deviceCalls().fcntl(m_fd, F_SETFD, FD_CLOEXEC);
}
