#include <cerrno>
#include <functional>
#include <vector>

#include <fcntl.h>

#include <QSignalSpy>
#include <QtTest>

#include "CameraTools.h"

namespace {

const QString kOpenText = "bool OV5642Camera::open(int, std::string, bool)";
const QStringList kRefused = {kOpenText, "[Error] VIDIOC_S_FMT !"};
const QString kFormat = "VIDIOC_S_FMT 640x480 YUYV type 1";
const QString kGiveBack = "VIDIOC_REQBUFS count 0 type 1 memory 1";
const QStringList kReopen = {"close /dev/video0", QString("open /dev/video0 read-write non-blocking"),
                             QString("F_SETFD FD_CLOEXEC")};

using Adjustment = std::function<void(v4l2_pix_format&)>;

// The calls that decide over the format: everything before the buffers are asked for.
QStringList formatCalls(const ScriptedCamera& machine)
{
    const QStringList calls = machine.calls();
    return calls.mid(0, calls.indexOf("VIDIOC_REQBUFS count 4 type 1 memory 1"));
}

QStringList errors(const QSignalSpy& spy)
{
    QStringList lines;
    for (const QList<QVariant>& signal : spy)
        lines << signal.at(0).toStringList().join(' ');
    return lines.filter("[Error]");
}

// The camera's frame.
Bytes shown(OV5642Camera& camera)
{
    const uchar* frame = camera.getFrame();
    return frame == nullptr ? Bytes() : Bytes(frame, frame + camera.rgbFrameSize());
}

} // namespace

Q_DECLARE_METATYPE(Adjustment)

/// How the camera gets along with what drivers do differently.
class TestCameraDrivers : public QObject
{
    Q_OBJECT

private slots:
    void everyModeStreamsAfterEveryOther_data()
    {
        QTest::addColumn<bool>("held");
        QTest::newRow("buffers hold the format") << true;
        QTest::newRow("only the stream holds it") << false;
    }

    void everyModeStreamsAfterEveryOther()
    {
        QFETCH(bool, held);
        ScriptedCamera machine;
        machine.driver.formatHeldByBuffers = held;
        machine.applyDriver();
        machine.deliverEndlessly();
        OV5642Camera camera;
        bool first = true;
        for (const int mode : {1, 1, 0, 2, 1}) {
            QSignalSpy spy(&camera, &OV5642Camera::sig_debug_Message);
            machine.trace().clear();
            QVERIFY(camera.open(mode, "", false));
            const QString format = machine.calls().at(0);
            QCOMPARE(formatCalls(machine),
                     first || !held ? QStringList(format) : QStringList({format, kGiveBack, format}));
            QCOMPARE(spy.count(), first || !held ? 1 : 2);
            QCOMPARE(errors(spy), QStringList());
            const std::uint64_t before = camera.framesCaptured();
            QTRY_VERIFY(camera.framesCaptured() > before);
            QVERIFY(camera.close());
            first = false;
        }
        QCOMPARE(machine.misuses(), QStringList());
    }

    void aDriverThatDoesNotTakeItsBuffersBackIsOpenedAnew_data()
    {
        QTest::addColumn<int>("busyFormats");
        QTest::addColumn<bool>("buffersRefused");
        QTest::addColumn<QStringList>("calls");
        QTest::newRow("buffers refused")
            << 1 << true << QStringList({kFormat, kGiveBack}) + kReopen + QStringList(kFormat);
        QTest::newRow("busy all the same")
            << 2 << false << QStringList({kFormat, kGiveBack, kFormat}) + kReopen + QStringList(kFormat);
    }

    void aDriverThatDoesNotTakeItsBuffersBackIsOpenedAnew()
    {
        QFETCH(int, busyFormats);
        QFETCH(bool, buffersRefused);
        QFETCH(QStringList, calls);
        RiggedCamera camera;
        for (int n = 1; n <= busyFormats; ++n)
            camera.machine.failCall("VIDIOC_S_FMT", n, -1, EBUSY);
        if (buffersRefused)
            camera.machine.failCall("VIDIOC_REQBUFS", 1, -1, EINVAL);
        QVERIFY(camera.open(0, "", false));
        QCOMPARE(formatCalls(camera.machine), calls);
        QCOMPARE(camera.told.count(), 3);
        const QString setFormat = "bool OV5642Camera::setFormat()";
        QCOMPARE(camera.told.at(1).at(0).toStringList(),
                 QStringList({setFormat, "VIDIOC_S_FMT: busy, the buffers are given back"}));
        QCOMPARE(camera.told.at(2).at(0).toStringList(),
                 QStringList({setFormat, "VIDIOC_S_FMT: still busy, the device is opened anew"}));
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kVideo), std::size_t(1));
        QVERIFY(camera.machine.deliver({70, 640 * 480 * 2}));
        QVERIFY(camera.close());
    }

    void aDriverThatStaysBusyIsAFailure()
    {
        RiggedCamera camera;
        camera.machine.failCall("VIDIOC_S_FMT", ScriptedCamera::kAlways, -1, EBUSY);
        QVERIFY(!camera.open(0, "", false));
        QCOMPARE(camera.machine.calls(),
                 QStringList({kFormat, kGiveBack, kFormat}) + kReopen + QStringList(kFormat));
        QCOMPARE(errors(camera.told), QStringList(kRefused.join(' ')));
        QCOMPARE(camera.told.last().at(0).toStringList(), kRefused);
        QCOMPARE(camera.openFailure(), QString("VIDIOC_S_FMT"));
        camera.machine.healCalls();
        QVERIFY(camera.open(0, "", false));
    }

    void aDeviceThatCannotBeOpenedAnewIsAFailure()
    {
        RiggedCamera camera;
        camera.machine.failCall("VIDIOC_S_FMT", ScriptedCamera::kAlways, -1, EBUSY);
        camera.machine.setMissing(ScriptedCamera::kVideo, true);
        QVERIFY(!camera.open(0, "", false));
        QCOMPARE(camera.told.last().at(0).toStringList(), kRefused);
        QCOMPARE(camera.openFailure(), QString("open /dev/video0"));
        camera.machine.healCalls();
        camera.machine.setMissing(ScriptedCamera::kVideo, false);
        QVERIFY(camera.open(0, "", false));
        QCOMPARE(camera.machine.misuses(), QStringList());
    }

    void anotherRefusalOfTheFormatIsTakenAsItIs()
    {
        RiggedCamera camera;
        camera.machine.failCall("VIDIOC_S_FMT", 1, -1, EINVAL);
        QVERIFY(!camera.open(0, "", false));
        QCOMPARE(camera.machine.calls(), QStringList(kFormat));
    }

    void whatARefusedStartLeavesBehindDoesNotBlockTheNext_data()
    {
        QTest::addColumn<QString>("refused");
        for (const char* call : {"VIDIOC_QUERYBUF", "mmap", "VIDIOC_QBUF", "VIDIOC_STREAMON"})
            QTest::newRow(call) << call;
    }

    void whatARefusedStartLeavesBehindDoesNotBlockTheNext()
    {
        QFETCH(QString, refused);
        RiggedCamera camera;
        camera.machine.failCall(refused, 1);
        QVERIFY(!camera.open(1, "", false));
        QVERIFY(camera.open(0, "", false));
        QVERIFY(camera.machine.deliver({70, 640 * 480 * 2}));
        QCOMPARE(shown(camera), rgbOf(70));
    }

    void anotherSizeOrPixelFormatIsAFailure_data()
    {
        QTest::addColumn<Adjustment>("adjust");
        QTest::addColumn<QString>("granted");
        QTest::newRow("fewer rows") << Adjustment([](v4l2_pix_format& pix) { pix.height = 720; })
                                    << "1280 x 720 YUYV";
        QTest::newRow("more rows") << Adjustment([](v4l2_pix_format& pix) { pix.height = 1024; })
                                   << "1280 x 1024 YUYV";
        QTest::newRow("wider") << Adjustment([](v4l2_pix_format& pix) { pix.width = 1920; })
                               << "1920 x 960 YUYV";
        QTest::newRow("other pixels")
            << Adjustment([](v4l2_pix_format& pix) { pix.pixelformat = V4L2_PIX_FMT_UYVY; })
            << "1280 x 960 UYVY";
        QTest::newRow("pixels without a name")
            << Adjustment([](v4l2_pix_format& pix) { pix.pixelformat = 0x0102A30F; })
            << "1280 x 960 0x0102A30F";
    }

    void anotherSizeOrPixelFormatIsAFailure()
    {
        QFETCH(Adjustment, adjust);
        QFETCH(QString, granted);
        ScriptedCamera machine;
        machine.setFormatAdjustment(adjust);
        OV5642Camera camera;
        QSignalSpy spy(&camera, &OV5642Camera::sig_debug_Message);
        machine.trace().clear();
        QVERIFY(!camera.open(1, "", false));
        QCOMPARE(machine.calls(), QStringList("VIDIOC_S_FMT 1280x960 YUYV type 1"));
        const QStringList lines = errors(spy);
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines.at(0).endsWith("[Error] asked: 1280 x 960 YUYV , granted: " + granted));
        QCOMPARE(lines.at(1), kRefused.join(' '));
        QCOMPARE(camera.openFailure(), QString("VIDIOC_S_FMT"));
        QVERIFY(!camera.isStreaming());
        QCOMPARE(camera.getFrame(), nullptr);
        machine.setFormatAdjustment({});
        QVERIFY(camera.open(1, "", false));
    }

    void paddedRowsAreCopiedWithoutTheirPadding_data()
    {
        QTest::addColumn<quint32>("bytesPerLine");
        QTest::addColumn<quint32>("bytesUsed");
        QTest::addColumn<int>("copied");
        const int whole = 640 * 480 * 2;
        QTest::newRow("padded") << 1344u << 1344u * 480 << whole;
        QTest::newRow("last row without padding") << 1344u << 1344u * 479 + 1280 << whole;
        QTest::newRow("one byte more") << 1281u << 1281u * 480 << whole;
        QTest::newRow("huge") << 65536u << 65536u * 480 << whole;
        QTest::newRow("ends in a row") << 1344u << 1344u * 10 + 100 << 1280 * 10 + 100;
        QTest::newRow("ends in the padding") << 1344u << 1344u * 10 - 1 << 1280 * 10;
        QTest::newRow("claims too much") << 1344u << 0xFFFFFFFFu << whole;
        QTest::newRow("not told") << 0u << 1280u * 480 << whole;
        QTest::newRow("less than a row") << 640u << 1280u * 480 << whole;
    }

    void paddedRowsAreCopiedWithoutTheirPadding()
    {
        QFETCH(quint32, bytesPerLine);
        QFETCH(quint32, bytesUsed);
        QFETCH(int, copied);
        ScriptedCamera machine;
        machine.setFormatAdjustment([&](v4l2_pix_format& pix) { pix.bytesperline = bytesPerLine; });
        OV5642Camera camera;
        QSignalSpy spy(&camera, &OV5642Camera::sig_debug_Message);
        QVERIFY(camera.open(0, "", false));
        QCOMPARE(errors(spy), QStringList());
        const bool padded = bytesPerLine > 1280;
        QCOMPARE(spy.count(), padded ? 2 : 1);
        if (padded) {
            const QString line = spy.at(1).at(0).toStringList().join(' ');
            QVERIFY(line.endsWith(QString("granted: 640 x 480 YUYV , bytes per line: %1").arg(bytesPerLine)));
        }
        QVERIFY(machine.deliver({200, bytesUsed}));
        QVERIFY(shown(camera) == rgbOf(0, std::size_t(copied), 200));
        // The next mode's rows are its own.
        machine.setFormatAdjustment({});
        QVERIFY(camera.open(1, "", false));
        QVERIFY(machine.deliver({90, 1280 * 960 * 2}));
        QVERIFY(shown(camera) == rgbOf(90, 0, 0, 1280, 960));
        QCOMPARE(machine.misuses(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestCameraDrivers)
#include "test_camera_drivers.moc"
