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
    // The value is of no interest; the acquire is: it puts all that run() did before whatever
    // is freed from here on.
    m_grab.load(std::memory_order_acquire);
}

void GrabThread::registerCamera(OV5642Camera* camera, uchar* destination)
{
    logMessage(this, {Q_FUNC_INFO});
    m_camera = camera;
    m_destination = destination;
    m_copySize_bytes = camera->rgbFrameSize();
    m_deliveredNumber = 0;
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
    // An exchange, whose result nobody wants, instead of a store: besides handing the buffer
    // back it puts the last delivery before this, also for a caller that has not asked for it.
    m_grab.exchange(true, std::memory_order_acq_rel);
}

void GrabThread::run()
{
    logMessage(this, {Q_FUNC_INFO});
    Progress progress;
    while (!m_stop.load(std::memory_order_acquire)) {
        if (m_grab.load(std::memory_order_acquire)) {
            deliverFrame(progress);
        } else if (progress.resting && !nothingNewWillCome(progress)) {
            // The window does not know that it may ask again: the repaint makes it ask.
            progress.resting = false;
            emit grabDone();
        }
        QThread::usleep(kRoundPause_us);
    }
    // Nothing more is written: the buffer is the window's, asked for or not.
    m_grab.store(false, std::memory_order_release);
}

// The last frame of a camera that is gone has been delivered.
bool GrabThread::nothingNewWillCome(const Progress& progress) const
{
    return m_camera->isGone() && progress.framesSeen == m_camera->framesCaptured();
}

void GrabThread::deliverFrame(Progress& progress)
{
    progress.resting = nothingNewWillCome(progress);
    if (progress.resting) {
        m_grab.store(false, std::memory_order_release);
        return;
    }
    // Read first: a frame that comes during the conversion counts as a new one.
    progress.framesSeen = m_camera->framesCaptured();
    // A camera that could not be opened has no frame; the window then shows its buffer as
    // it is, and the hand-shake goes on.
    const uchar* frame = m_camera->getFrame();
    // What the buffer holds already is only told again, for the hand-shake goes on.
    const std::uint64_t number = m_camera->frameNumber();
    if (frame != nullptr && number != m_deliveredNumber) {
        std::memcpy(m_destination, frame, m_copySize_bytes);
        m_deliveredNumber = number;
    }
    m_grab.store(false, std::memory_order_release);
    emit grabDone();
}
