#include "camera/GrabThread.h"

#include <cstring>

#include "camera/OV5642Camera.h"
#include "platform/DebugLog.h"

namespace {

constexpr unsigned long kRoundPause_us = 10000;

} // namespace

GrabThread::GrabThread(QObject* parent) : QThread(parent)
{
    logMessage(this, {Q_FUNC_INFO});
}

GrabThread::~GrabThread()
{
    stop();
    wait();
}

void GrabThread::registerCamera(OV5642Camera* camera, uchar* destination)
{
    logMessage(this, {Q_FUNC_INFO});
    m_camera = camera;
    m_destination = destination;
    m_copySize_bytes = camera->rgbFrameSize();
    m_stop.store(false, std::memory_order_release);
    m_grab.store(true, std::memory_order_release);
}

void GrabThread::stop()
{
    m_stop.store(true, std::memory_order_release);
}

bool GrabThread::frameDelivered() const
{
    return !m_grab.load(std::memory_order_acquire);
}

void GrabThread::grab()
{
    m_grab.store(true, std::memory_order_release);
}

void GrabThread::run()
{
    logMessage(this, {Q_FUNC_INFO});
    while (!m_stop.load(std::memory_order_acquire)) {
        if (m_grab.load(std::memory_order_acquire))
            deliverFrame();
        QThread::usleep(kRoundPause_us);
    }
}

void GrabThread::deliverFrame()
{
    // A camera that could not be opened has no frame; the window then shows its buffer as
    // it is, and the hand-shake goes on.
    const uchar* frame = m_camera->getFrame();
    if (frame != nullptr)
        std::memcpy(m_destination, frame, m_copySize_bytes);
    m_grab.store(false, std::memory_order_release);
    emit grabDone();
}
