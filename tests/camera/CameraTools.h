#pragma once

#include <algorithm>
#include <vector>

#include <malloc.h>

#include <QSignalSpy>

#include "ScriptedCamera.h"
#include "camera/OV5642Camera.h"
#include "camera/YuvConversion.h"

using Bytes = std::vector<uchar>;

constexpr quint32 kVgaSize = 640 * 480 * 2;
constexpr std::size_t kVgaRgbSize = 921600;

// Calls to the sensor's bus.
const QString kOpenBus = QStringLiteral("open /dev/i2c-1 read-write");
const QString kAddress = QStringLiteral("I2C_SLAVE_FORCE 3C");
const QString kCloseBus = QStringLiteral("close /dev/i2c-1");
const QString kPause = QStringLiteral("pause 5000");

/// A row for each capture mode, with the size of its pictures.
inline void addModes()
{
    QTest::addColumn<int>("mode");
    QTest::addColumn<QSize>("size");
    QTest::newRow("VGA") << 0 << QSize(640, 480);
    QTest::newRow("1280") << 1 << QSize(1280, 960);
    QTest::newRow("5M") << 2 << QSize(2592, 1944);
}

/// What the process has allocated. A sanitizer's allocator tells nothing here, but of leaks.
inline std::size_t allocatedBytes()
{
    const auto info = mallinfo2();
    return info.uordblks + info.hblkhd;
}

/// Is there before the camera, and goes after it.
struct MachineOfCamera
{
    ScriptedCamera machine;
};

/// A camera on a machine of its own, and what it tells. What its construction called is
/// forgotten.
class RiggedCamera : public MachineOfCamera, public OV5642Camera
{
public:
    RiggedCamera() { machine.trace().clear(); }

    /// What was told, by its parts.
    QList<QStringList> messages() const
    {
        QList<QStringList> messages;
        for (const QList<QVariant>& signal : told)
            messages << signal.at(0).toStringList();
        return messages;
    }
    /// The lines among it that tell of an error.
    QStringList errors() const
    {
        QStringList lines;
        for (const QStringList& parts : messages())
            lines << parts.join(' ');
        return lines.filter("[Error]");
    }

    QSignalSpy told{this, &OV5642Camera::sig_debug_Message};
};

/// The same, streaming VGA.
class StreamingCamera : public RiggedCamera
{
public:
    StreamingCamera() { QVERIFY(open(0, "", false)); }
};

/// What a picture holds, or nothing where there is none.
inline Bytes copyOf(const uchar* rgb, std::size_t size = kVgaRgbSize)
{
    return rgb == nullptr ? Bytes() : Bytes(rgb, rgb + size);
}

/// A frame of that byte throughout, with another one in its first bytes, as RGB.
inline Bytes rgbOf(quint8 value, std::size_t headSize = 0, quint8 head = 0, int width = 640, int height = 480)
{
    Bytes yuyv(std::size_t(width) * height * 2, value);
    std::fill_n(yuyv.begin(), headSize, head);
    Bytes rgb(std::size_t(width) * height * 3);
    sws_yuv2rgb24(width, height, yuyv.data(), rgb.data());
    return rgb;
}
