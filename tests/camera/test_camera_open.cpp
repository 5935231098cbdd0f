#include <algorithm>

#include <fcntl.h>

#include <QtTest>

#include "CameraTools.h"
#include "settings/GlobalIni.h"
#include "settings/SettingsFiles.h"
#include "support/NoMoreThreads.h"

namespace {

const QString kOpenText = "bool OV5642Camera::open(int, std::string, bool)";
const QString kOpenVideo = QString("open /dev/video0 read-write non-blocking");
const QString kCloseOnExec = QString("F_SETFD FD_CLOEXEC");

struct Mode
{
    quint32 width;
    quint32 height;
    quint32 rgbSize;
    const char* busFailure;
};

constexpr Mode kModes[] = {
    {640, 480, 921600, "[Error] I2C failed: VGA"},
    {1280, 960, 3686400, "[Error] I2C failed: 1280"},
    {2592, 1944, 15116544, "[Error] I2C failed: 5M"},
};

// What the driver is asked to begin a stream with that many buffers.
QStringList streamCalls(int mode, int buffers)
{
    const quint32 length = kModes[mode].width * kModes[mode].height * 2;
    QStringList calls;
    calls << QString("VIDIOC_S_FMT %1x%2 YUYV type 1").arg(kModes[mode].width).arg(kModes[mode].height)
          << "VIDIOC_REQBUFS count 4 type 1 memory 1";
    for (int i = 0; i < buffers; ++i) {
        calls << QString("VIDIOC_QUERYBUF %1 type 1 memory 1").arg(i)
              << QString("mmap %1 of %2 bytes").arg(i).arg(length)
              << QString("VIDIOC_QBUF %1 type 1 memory 1").arg(i);
    }
    return calls << "VIDIOC_STREAMON type 1";
}

QStringList opening(int mode, const QString& file)
{
    return {kOpenText, "camera_mode:", QString::number(mode), ", ini_file", file};
}

void checkClosed(OV5642Camera& camera, const ScriptedCamera& machine)
{
    QVERIFY(!camera.isStreaming());
    QVERIFY(camera.openFailed());
    QCOMPARE(camera.getFrame(), nullptr);
    QCOMPARE(machine.openMappings(), std::size_t(0));
    QCOMPARE(machine.misuses(), QStringList());
}

} // namespace

class TestCameraOpen : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        std::copy(kCalibrationRegisters.begin(), kCalibrationRegisters.end(), g_RegIdx);
        g_global_ini = {};
    }

    void theDeviceIsOpenFromConstructionToDestruction()
    {
        ScriptedCamera machine;
        {
            const OV5642Camera camera;
            QCOMPARE(camera.width(), 0u);
            QCOMPARE(camera.height(), 0u);
            QCOMPARE(camera.rgbFrameSize(), 0u);
            QCOMPARE(machine.calls(), QStringList({kOpenVideo, kCloseOnExec}));
            QVERIFY(!camera.isStreaming());
            QVERIFY(!camera.openFailed());
            QCOMPARE(camera.mode(), 0);
            machine.trace().clear();
        }
        QCOMPARE(machine.calls(), QStringList({"close /dev/video0"}));
        QCOMPARE(machine.openDescriptors(ScriptedCamera::kVideo), std::size_t(0));
    }

    void aCameraBegunAnewHasForgottenItsSettings()
    {
        StreamingCamera camera;
        QVERIFY(camera.set(kCalibrationRegisters[0], 0x12));
        QVERIFY(camera.close());
        QCOMPARE(camera.calibrationRecord(kModeVga, 0).value, quint16(0x12));
        camera.machine.trace().clear();
        camera.init();
        QCOMPARE(camera.machine.calls(), QStringList());
        QCOMPARE(camera.calibrationRecord(kModeVga, 0).value, quint16(0));
    }

    // Which a program without standard input is given.
    void descriptorZeroIsOneLikeAnyOther_data()
    {
        QTest::addColumn<bool>("bus");
        QTest::newRow("of the capture device") << false;
        QTest::newRow("of the bus") << true;
    }

    void descriptorZeroIsOneLikeAnyOther()
    {
        QFETCH(bool, bus);
        ScriptedCamera machine;
        if (!bus)
            machine.setNextDescriptor(0);
        {
            OV5642Camera camera;
            if (bus)
                machine.setNextDescriptor(0);
            QVERIFY(camera.open(0, "", false));
            QVERIFY(machine.deliver({100, kVgaSize}));
            QCOMPARE(copyOf(camera.getFrame()), rgbOf(100));
            camera.close();
        }
        const QStringList begin = QStringList{kOpenVideo, kCloseOnExec} + streamCalls(0, 4) +
                                  QStringList{kOpenBus, kAddress, kCloseBus};
        QCOMPARE(machine.calls().mid(0, begin.size()), begin);
        QCOMPARE(machine.calls().last(), QString("close /dev/video0"));
        QCOMPARE(machine.openDescriptors(), std::size_t(0));
        QCOMPARE(machine.misuses(), QStringList());
    }

    void aMissingDeviceIsNeitherMarkedNorClosed()
    {
        ScriptedCamera machine;
        machine.setMissing(ScriptedCamera::kVideo, true);
        {
            const OV5642Camera camera;
        }
        QCOMPARE(machine.calls(), QStringList({kOpenVideo}));
    }

    void eachModeStreamsInItsSize_data() { addModes(); }

    void eachModeStreamsInItsSize()
    {
        QFETCH(int, mode);
        RiggedCamera camera;
        QVERIFY(camera.open(mode, "", false));
        QCOMPARE(camera.machine.calls(), streamCalls(mode, 4) + QStringList({kOpenBus, kAddress, kCloseBus}));
        QCOMPARE(camera.messages(), QList<QStringList>({opening(mode, "")}));
        QCOMPARE(camera.mode(), mode);
        QCOMPARE(camera.width(), kModes[mode].width);
        QCOMPARE(camera.height(), kModes[mode].height);
        QCOMPARE(camera.rgbFrameSize(), kModes[mode].rgbSize);
        QVERIFY(camera.isStreaming());
        QVERIFY(!camera.openFailed());
        QVERIFY(camera.machine.isStreaming());
        QCOMPARE(camera.machine.misuses(), QStringList());
    }

    void theModesCalibrationIsWrittenOnceTheStreamRuns()
    {
        RiggedCamera camera;
        QStringList expected = streamCalls(1, 4) << kOpenBus << kAddress;
        for (int i = 0; i < 10; ++i) {
            g_global_ini.BFN_reg[1][i] = quint16(0xA0 + i);
            const quint16 reg = kCalibrationRegisters[i];
            expected << QString::asprintf("write %02X %02X %02X", reg >> 8, reg & 0xFF, 0xA0 + i) << kPause;
        }
        expected << kCloseBus;
        camera.machine.trace().clear();
        QVERIFY(camera.open(1, "/opt/ORLA3/conf/Calibration_BFN.ini", false));
        QCOMPARE(camera.machine.calls(), expected);
    }

    void theStartUpTableComesBeforeTheCalibration_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("writes");
        QTest::newRow("known settings") << "/opt/ORLA3/conf/Calibration_CUS.ini" << 504;
        QTest::newRow("unknown settings") << "/tmp/none.ini" << 494;
    }

    void theStartUpTableComesBeforeTheCalibration()
    {
        QFETCH(QString, file);
        QFETCH(int, writes);
        g_global_ini.CUS_reg[0][0] = 0x5A;
        RiggedCamera camera;
        QVERIFY(camera.open(0, file.toStdString(), true));
        const QStringList sent = camera.machine.calls().filter("write ");
        QCOMPARE(sent.size(), writes);
        QCOMPARE(camera.machine.calls().filter(kPause).size(), writes);
        QCOMPARE(sent.at(0), QString("write 31 03 93"));
        QCOMPARE(sent.at(493), QString("write 38 27 00"));
        if (writes > 494)
            QCOMPARE(sent.at(494), QString("write 35 01 5A"));
        QCOMPARE(camera.setRegisters(1000), writes);
    }

    void aSettingsFileThatNobodyKnowsStillStreams()
    {
        RiggedCamera camera;
        QVERIFY(camera.open(0, "/opt/ORLA3/conf/ORLA3.ini", false));
        QVERIFY(camera.machine.trace().calls(CallKind::BusWrite).empty());
        QCOMPARE(camera.machine.calls().count(kOpenBus), 1);
        QVERIFY(camera.isStreaming());
    }

    void aSilentSensorIsReportedAndTheCameraStreamsAllTheSame_data() { addModes(); }

    void aSilentSensorIsReportedAndTheCameraStreamsAllTheSame()
    {
        QFETCH(int, mode);
        RiggedCamera camera;
        camera.machine.failCall("write", 4, 2);
        QStringList lastCalls;
        connect(&camera, &OV5642Camera::sig_debug_Message, this, [&] {
            const QStringList calls = camera.machine.calls() + camera.machine.captureCalls();
            lastCalls << (calls.isEmpty() ? QString() : calls.last());
        });
        QVERIFY(camera.open(mode, kCusCalibrationFile, false));
        // Told before frames are captured.
        QCOMPARE(lastCalls, QStringList({QString(), kCloseBus}));
        QCOMPARE(camera.messages(), QList<QStringList>({opening(mode, kCusCalibrationFile),
                                                        {kOpenText, kModes[mode].busFailure}}));
        QVERIFY(camera.isStreaming());
    }

    void aMissingBusIsNoFailureAtAll_data()
    {
        QTest::addColumn<bool>("missing");
        QTest::newRow("no bus") << true;
        QTest::newRow("no sensor on it") << false;
    }

    void aMissingBusIsNoFailureAtAll()
    {
        QFETCH(bool, missing);
        RiggedCamera camera;
        camera.machine.setMissing(ScriptedCamera::kBus, missing);
        camera.machine.failCall("I2C_SLAVE_FORCE", ScriptedCamera::kAlways);
        QVERIFY(camera.open(1, kCusCalibrationFile, false));
        QCOMPARE(camera.messages().first(), opening(1, kCusCalibrationFile));
        QCOMPARE(camera.told.count(), missing ? 2 : 1);
    }

    void aDriverThatRefusesAnythingLeavesTheCameraClosed_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<int>("n");
        QTest::addColumn<QString>("message");
        QTest::newRow("format") << "VIDIOC_S_FMT" << 1 << "[Error] VIDIOC_S_FMT !";
        QTest::newRow("buffers") << "VIDIOC_REQBUFS" << 1 << "[Error] VIDIOC_REQBUFS !";
        for (int n = 1; n <= 4; ++n) {
            QTest::addRow("query of buffer %d", n) << "VIDIOC_QUERYBUF" << n << "[Error] VIDIOC_QUERYBUF !";
            QTest::addRow("mapping of buffer %d", n) << "mmap" << n << "[Error] mmap !";
            QTest::addRow("queueing of buffer %d", n) << "VIDIOC_QBUF" << n << "[Error] VIDIOC_QBUF !";
        }
        QTest::newRow("stream") << "VIDIOC_STREAMON" << 1 << "[Error] VIDIOC_STREAMON !";
    }

    void aDriverThatRefusesAnythingLeavesTheCameraClosed()
    {
        QFETCH(QString, call);
        QFETCH(int, n);
        QFETCH(QString, message);
        RiggedCamera camera;
        camera.machine.failCall(call, n);
        QVector<int> callsBefore;
        connect(&camera, &OV5642Camera::sig_debug_Message, this,
                [&] { callsBefore << camera.machine.calls().size(); });
        QVERIFY(!camera.open(1, kCusCalibrationFile, false));
        QCOMPARE(camera.messages(),
                 QList<QStringList>({opening(1, kCusCalibrationFile), {kOpenText, message}}));
        checkClosed(camera, camera.machine);

        // Everything up to the refused call, then what was mapped is unmapped, and no more.
        QStringList expected = streamCalls(1, 4);
        int seen = 0;
        int last = 0;
        while (!expected.at(last).startsWith(call + ' ') && expected.at(last) != call)
            ++last;
        for (; ++seen < n; ++last)
            while (!expected.at(last + 1).startsWith(call))
                ++last;
        expected = expected.mid(0, last + 1);
        QCOMPARE(callsBefore, QVector<int>({0, expected.size()}));
        const int mapped = expected.filter("mmap").size() - (call == "mmap" ? 1 : 0);
        for (int i = 0; i < mapped; ++i)
            expected << QString("munmap %1 of %2 bytes").arg(i).arg(1280 * 960 * 2);
        QCOMPARE(camera.machine.calls(), expected);

        // The window sizes its picture by a camera that failed, too.
        QCOMPARE(camera.mode(), 1);
        QCOMPARE(camera.width(), 1280u);
        QCOMPARE(camera.height(), 960u);
        QCOMPARE(camera.rgbFrameSize(), 3686400u);
        QCOMPARE(camera.setRegisters(10), 0);

        QVERIFY(camera.open(1, kCusCalibrationFile, false));
        QVERIFY(!camera.openFailed());
        QVERIFY(camera.close());
        QCOMPARE(camera.machine.openMappings(), std::size_t(0));
    }

    void aMissingDeviceFailsTheFormatAndIsTriedAgainEachTime()
    {
        ScriptedCamera machine;
        machine.setMissing(ScriptedCamera::kVideo, true);
        OV5642Camera camera;
        QSignalSpy told(&camera, &OV5642Camera::sig_debug_Message);
        for (int i = 0; i < 2; ++i) {
            machine.trace().clear();
            told.clear();
            QVERIFY(!camera.open(1, "", false));
            QCOMPARE(machine.calls(), QStringList({kOpenVideo, "VIDIOC_S_FMT 1280x960 YUYV type 1"}));
            QCOMPARE(told.count(), 2);
            QCOMPARE(told.at(0).at(0).toStringList(), opening(1, ""));
            QCOMPARE(told.at(1).at(0).toStringList(), QStringList({kOpenText, "[Error] VIDIOC_S_FMT !"}));
            checkClosed(camera, machine);
        }
        machine.setMissing(ScriptedCamera::kVideo, false);
        machine.trace().clear();
        QVERIFY(camera.open(1, "", false));
        QCOMPARE(machine.calls().mid(0, 2), QStringList({kOpenVideo, kCloseOnExec}));
        QVERIFY(camera.isStreaming());
        QVERIFY(camera.close());
        machine.trace().clear();
        QVERIFY(camera.open(2, "", false));
        QVERIFY(!machine.calls().contains(kOpenVideo));
    }

    void aModeThatDoesNotExistFailsWithoutACall_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("below") << -1;
        QTest::newRow("above") << 3;
        QTest::newRow("far") << 1000000;
    }

    void aModeThatDoesNotExistFailsWithoutACall()
    {
        QFETCH(int, mode);
        RiggedCamera camera;
        QVERIFY(camera.open(1, "", false));
        QVERIFY(camera.close());
        camera.told.clear();
        camera.machine.trace().clear();
        QVERIFY(!camera.open(mode, "x", false));
        QCOMPARE(camera.machine.calls(), QStringList());
        QCOMPARE(camera.messages(), QList<QStringList>({opening(mode, "x")}));
        QCOMPARE(camera.mode(), 1);
        checkClosed(camera, camera.machine);
    }

    void asManyBuffersAreMappedAsTheDriverGrants_data()
    {
        QTest::addColumn<int>("buffers");
        for (int buffers : {1, 2, 3, 5, 8, 32})
            QTest::addRow("%d", buffers) << buffers;
    }

    void asManyBuffersAreMappedAsTheDriverGrants()
    {
        QFETCH(int, buffers);
        RiggedCamera camera;
        camera.machine.grantBuffers(unsigned(buffers));
        QVERIFY(camera.open(0, "", false));
        QCOMPARE(camera.machine.calls().mid(0, 3 * buffers + 3), streamCalls(0, buffers));
        QCOMPARE(camera.machine.openMappings(), std::size_t(buffers));
        QVERIFY(camera.close());
        QCOMPARE(camera.machine.openMappings(), std::size_t(0));
    }

    void openingTwiceEndsTheFirstStream()
    {
        StreamingCamera camera;
        camera.machine.deliverEndlessly();
        QVERIFY(camera.open(1, "", false));
        QCOMPARE(camera.width(), 1280u);
        QCOMPARE(camera.machine.openMappings(), std::size_t(4));
        QVERIFY(camera.close());
        QCOMPARE(camera.machine.openMappings(), std::size_t(0));
        QCOMPARE(camera.machine.misuses(), QStringList());
    }

    void withoutACaptureThreadTheCameraStaysClosedAndTheDriverFree()
    {
        RiggedCamera camera;
        {
            const NoMoreThreads none;
            QVERIFY(!camera.open(0, "", false));
        }
        checkClosed(camera, camera.machine);
        QVERIFY(!camera.machine.isStreaming());
        QVERIFY(camera.machine.captureCalls().isEmpty());
        QVERIFY(camera.open(0, "", false));
    }
};

QTEST_GUILESS_MAIN(TestCameraOpen)
#include "test_camera_open.moc"
