#pragma once

#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include <fcntl.h>
#include <linux/i2c-dev.h>

#include <QStringList>
#include <QtTest>

#include "simulator/camera/CameraDevices.h"
#include "simulator/camera/ScriptedFrames.h"

/// The simulated camera's devices in force as long as the object lives, with frames that a test
/// hands over, no pauses, and waits that are over at once. Calls go by the names of callName().
class ScriptedCamera : private ScriptedFrames, public CameraDevices
{
public:
    static constexpr const char* kBus = "/dev/i2c-1";
    static constexpr const char* kVideo = "/dev/video0";
    static constexpr int kAlways = 0;

    struct Frame
    {
        quint8 value;
        quint32 bytesUsed;
        std::optional<unsigned> index{};
    };

    ScriptedCamera() : CameraDevices(parameters(), static_cast<ScriptedFrames&>(*this))
    {
        driver = parameters().capture;
        trace().setListener([this](const TracedCall& call) {
            m_requeued += !call.onOwnThread && call.name == "VIDIOC_QBUF" ? 1 : 0;
        });
        installDeviceCalls(this);
    }
    ~ScriptedCamera() override { installDeviceCalls(nullptr); }

    /// Makes the n-th call from now, or every one, return that without any effect.
    void failCall(const QString& call, int n, int result = -1, int error = EIO)
    {
        faults().enable({CameraFault::CallFails, n, call.toStdString(), error, result});
    }
    /// Takes a device away, or puts it back.
    void setMissing(const std::string& path, bool missing)
    {
        const CameraFault fault = path == kBus ? CameraFault::NoBus : CameraFault::NoVideoDevice;
        faults().disable(fault);
        if (missing)
            faults().enable({fault});
    }
    void healCalls() { faults().disable(CameraFault::CallFails); }
    /// Has the driver be as `driver` says.
    void applyDriver() { setCapture(driver); }
    /// What a driver does to a format that it grants.
    void setFormatAdjustment(std::function<void(v4l2_pix_format&)> adjust)
    {
        driver.adjustFormat = std::move(adjust);
        applyDriver();
    }
    void grantBuffers(unsigned count)
    {
        driver.fewestBuffers = driver.mostBuffers = count;
        applyDriver();
    }
    void deliverEndlessly()
    {
        showEndlessly(true);
        clockMoved();
    }
    void hand(const Frame& frame)
    {
        add({frame.value, {frame.bytesUsed, frame.index}});
        clockMoved();
    }
    /// Hands over a frame and waits until the camera has given its buffer back.
    bool deliver(const Frame& frame)
    {
        const int before = m_requeued;
        hand(frame);
        return QTest::qWaitFor([&] { return m_requeued > before; });
    }
    void setRegister(quint16 reg, quint8 value)
    {
        const quint8 bytes[] = {quint8(reg >> 8), quint8(reg), value};
        const int fd = open(kBus, O_RDWR);
        ioctl(fd, I2C_SLAVE_FORCE, 0x3C);
        write(fd, bytes, sizeof bytes);
        close(fd);
    }

    /// The calls of the thread that made this object, and those of all others.
    QStringList calls() const { return lines(true); }
    QStringList captureCalls() const { return lines(false); }
    /// Buffers that the capture thread gave back, or tried to.
    int requeued() const { return m_requeued; }
    QStringList misuses() const
    {
        QStringList told;
        for (const std::string& misuse : trace().misuses())
            told << QString::fromStdString(misuse);
        return told;
    }

    CaptureParameters driver;

private:
    static CameraDeviceParameters parameters()
    {
        CameraDeviceParameters parameters;
        parameters.instantPauses = true;
        parameters.longestWait = std::chrono::milliseconds(2);
        parameters.traceWaits = true;
        parameters.capture.framesPerSecond = kFramesAtOnce_hz;
        return parameters;
    }
    QStringList lines(bool ofOwnThread) const
    {
        QStringList lines;
        for (const TracedCall& call : trace().calls())
            if (call.onOwnThread == ofOwnThread)
                lines << QString::fromStdString(callLine(call));
        return lines;
    }

    std::atomic<int> m_requeued{0};
};
