#include <cerrno>
#include <functional>
#include <tuple>

#include <fcntl.h>

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
        RiggedCamera camera;
        camera.machine.driver.formatHeldByBuffers = held;
        camera.machine.applyDriver();
        camera.machine.deliverEndlessly();
        bool first = true;
        for (const int mode : {1, 1, 0, 2, 1}) {
            camera.told.clear();
            camera.machine.trace().clear();
            QVERIFY(camera.open(mode, "", false));
            const QString format = camera.machine.calls().at(0);
            QCOMPARE(formatCalls(camera.machine),
                     first || !held ? QStringList(format) : QStringList({format, kGiveBack, format}));
            QCOMPARE(camera.told.count(), first || !held ? 1 : 2);
            QCOMPARE(camera.errors(), QStringList());
            const std::uint64_t before = camera.framesCaptured();
            QTRY_VERIFY(camera.framesCaptured() > before);
            QVERIFY(camera.close());
            first = false;
        }
        QCOMPARE(camera.machine.misuses(), QStringList());
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
        RiggedCamera camera;
        for (int n = 1; n <= busyFormats; ++n)
            camera.machine.failCall("VIDIOC_S_FMT", n, -1, EBUSY);
        if (buffersRefused)
            camera.machine.failCall("VIDIOC_REQBUFS", 1, -1, EINVAL);
        QVERIFY(camera.open(0, "", false));
        QTEST(formatCalls(camera.machine), "calls");
        const QString setFormat = "bool OV5642Camera::setFormat()";
        QCOMPARE(camera.messages().mid(1),
                 QList<QStringList>({{setFormat, "VIDIOC_S_FMT: busy, the buffers are given back"},
                                     {setFormat, "VIDIOC_S_FMT: still busy, the device is opened anew"}}));
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
        QCOMPARE(camera.errors(), QStringList(kRefused.join(' ')));
        QCOMPARE(camera.messages().last(), kRefused);
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
        QCOMPARE(camera.messages().last(), kRefused);
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
        QCOMPARE(copyOf(camera.getFrame()), rgbOf(70));
    }

    void anotherSizeOrPixelFormatIsAFailure_data()
    {
        QTest::addColumn<Adjustment>("adjust");
        QTest::addColumn<QString>("granted");
        const std::tuple<const char*, Adjustment, const char*> rows[] = {
            {"fewer rows", [](auto& pix) { pix.height = 720; }, "1280 x 720 YUYV"},
            {"more rows", [](auto& pix) { pix.height = 1024; }, "1280 x 1024 YUYV"},
            {"wider", [](auto& pix) { pix.width = 1920; }, "1920 x 960 YUYV"},
            {"other pixels", [](auto& pix) { pix.pixelformat = V4L2_PIX_FMT_UYVY; }, "1280 x 960 UYVY"},
            {"nameless pixels", [](auto& pix) { pix.pixelformat = 0x0102A30F; }, "1280 x 960 0x0102A30F"},
        };
        for (const auto& [name, adjust, granted] : rows)
            QTest::newRow(name) << adjust << granted;
    }

    void anotherSizeOrPixelFormatIsAFailure()
    {
        QFETCH(Adjustment, adjust);
        QFETCH(QString, granted);
        RiggedCamera camera;
        camera.machine.setFormatAdjustment(adjust);
        QVERIFY(!camera.open(1, "", false));
        QCOMPARE(camera.machine.calls(), QStringList("VIDIOC_S_FMT 1280x960 YUYV type 1"));
        const QStringList lines = camera.errors();
        QCOMPARE(lines.size(), 2);
        QVERIFY(lines.at(0).endsWith("[Error] asked: 1280 x 960 YUYV , granted: " + granted));
        QCOMPARE(lines.at(1), kRefused.join(' '));
        QCOMPARE(camera.openFailure(), QString("VIDIOC_S_FMT"));
        QVERIFY(!camera.isStreaming());
        QCOMPARE(camera.getFrame(), nullptr);
        camera.machine.setFormatAdjustment({});
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
        RiggedCamera camera;
        camera.machine.setFormatAdjustment([&](v4l2_pix_format& pix) { pix.bytesperline = bytesPerLine; });
        QVERIFY(camera.open(0, "", false));
        QCOMPARE(camera.errors(), QStringList());
        const bool padded = bytesPerLine > 1280;
        QCOMPARE(camera.told.count(), padded ? 2 : 1);
        if (padded) {
            const QString line = camera.messages().at(1).join(' ');
            QVERIFY(line.endsWith(QString("granted: 640 x 480 YUYV , bytes per line: %1").arg(bytesPerLine)));
        }
        QVERIFY(camera.machine.deliver({200, bytesUsed}));
        QVERIFY(copyOf(camera.getFrame()) == rgbOf(0, std::size_t(copied), 200));
        // The next mode's rows are its own.
        camera.machine.setFormatAdjustment({});
        QVERIFY(camera.open(1, "", false));
        QVERIFY(camera.machine.deliver({90, 1280 * 960 * 2}));
        QVERIFY(copyOf(camera.getFrame(), camera.rgbFrameSize()) == rgbOf(90, 0, 0, 1280, 960));
        QCOMPARE(camera.machine.misuses(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestCameraDrivers)
#include "test_camera_drivers.moc"
