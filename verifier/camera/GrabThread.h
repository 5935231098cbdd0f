#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include <QStringList>
#include <QThread>

class OV5642Camera;

/// Fetches one RGB24 frame from the camera, copies it into a buffer of the main window and
/// announces it by grabDone(). The next frame is taken only when grab() asks for it.
///
/// A camera that is gone delivers its last frame once. Later requests are answered without
/// grabDone() and leave the buffer as it is, until there is a new frame.
///
/// GUI thread; only run() is executed on the grab thread.
class GrabThread : public QThread
{
    Q_OBJECT

public:
    explicit GrabThread(QObject* parent = nullptr);
    /// Stops the thread and waits for it, should it still run.
    ~GrabThread() override;

    /// Sets the frame source and the buffer that is filled: at least the camera's RGB frame
    /// size, tightly packed R G B. The first frame is taken as soon as the thread runs. Both
    /// are borrowed and must outlive the thread. Before start(), after the camera's open().
    void registerCamera(OV5642Camera* camera, uchar* destination);

    /// Makes run() return within one round (10 ms and a frame's conversion). Any thread.
    void stop();

    /// Whether the buffer is complete and belongs to the caller: from shortly before grabDone()
    /// until the next grab(), and once the thread has ended. While it is false the grab thread
    /// may be writing into the buffer. GUI thread.
    bool frameDelivered() const;
    /// Number of the frame in the buffer, as OV5642Camera::frameNumber() gives it; 0 when this
    /// thread has not filled it yet. While frameDelivered(), on the GUI thread.
    std::uint64_t deliveredNumber() const { return m_deliveredNumber; }

public slots:
    /// Hands the buffer back and asks for the next frame. GUI thread.
    void grab();

signals:
    /// A frame is in the buffer, or no frame could be had and the buffer is as it was.
    /// Emitted on the grab thread.
    void grabDone();
    void sig_debug_Message(QStringList parts);

protected:
    void run() override;

private:
    // How far run() has come; its own.
    struct Progress
    {
        // The camera's count of frames when one was last delivered.
        std::optional<std::uint64_t> framesSeen;
        // Whether grabDone() is owed for the next frame.
        bool resting = false;
    };

    void deliverFrame(Progress& progress);
    bool nothingNewWillCome(const Progress& progress) const;

    // Written by the GUI thread before start(), which orders them before run().
    OV5642Camera* m_camera = nullptr;
    uchar* m_destination = nullptr;
    quint32 m_copySize_bytes = 0;

    // Written by the GUI thread, read by run().
    std::atomic<bool> m_stop{false};
    // Of the destination buffer's content; belongs to whom the buffer belongs.
    std::uint64_t m_deliveredNumber = 0;
    // Also says who owns the destination buffer. Set (release) by the GUI thread when it has
    // done with the buffer, cleared (release) by run() when the frame is complete in it or
    // when it ends; each side reads it with acquire before it touches the buffer.
    std::atomic<bool> m_grab{false};
};
