#include "camera/OV5642Camera.h"

#include <system_error>

#include <fcntl.h>

#include "platform/DeviceCalls.h"

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
    closeDevice();
}

void OV5642Camera::init()
{
    openDevice();
    freeFrames();
    m_calibration = {};
    m_streaming.store(false, std::memory_order_release);
}

// A descriptor of a device that has gone stays dead, also when the device is back.
void OV5642Camera::openDevice()
{
    if (m_gone.exchange(false, std::memory_order_acq_rel))
        closeDevice();
    if (m_fd >= 0)
        return;
    m_fd = deviceCalls().open(kCaptureDevice, O_RDWR | O_NONBLOCK);
    if (m_fd >= 0)
        deviceCalls().fcntl(m_fd, F_SETFD, FD_CLOEXEC);
}

void OV5642Camera::closeDevice()
{
    if (m_fd >= 0)
        deviceCalls().close(m_fd);
    m_fd = -1;
}

// The log's line for a device that the system has refused.
QString OV5642Camera::errorText(const char* device, int error)
{
    return QString("[Error] %1: %2").arg(device, std::generic_category().message(error).c_str());
}
