#include <array>
#include <new>

#include <QDir>
#include <QtTest>

#include "CameraTools.h"
#include "camera/CaptureBuffers.h"
#include "platform/SystemDeviceCalls.h"
#include "settings/SettingsFiles.h"

namespace {

const QStringList kRefused = {"bool OV5642Camera::close()", "[Error] VIDIOC_STREAMOFF"};
const QStringList kUnmaps = {"munmap 0 of 614400 bytes", "munmap 1 of 614400 bytes",
                             "munmap 2 of 614400 bytes", "munmap 3 of 614400 bytes"};

int entriesOf(const char* directory)
{
    return QDir(directory).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
}

/// Maps no memory, and tells what is given back.
class RecordedMappings : public SystemDeviceCalls
{
public:
    RecordedMappings() { installDeviceCalls(this); }
    ~RecordedMappings() override { installDeviceCalls(nullptr); }

    void* mmap(std::size_t /*length*/, int /*protection*/, int /*flags*/, int /*fd*/, off_t offset) override
    {
        return m_memory + offset;
    }
    int munmap(void* address, std::size_t length) override
    {
        unmapped.append({static_cast<char*>(address) - m_memory, length});
        return 0;
    }

    QVector<QPair<std::ptrdiff_t, std::size_t>> unmapped;

private:
    char m_memory[16] = {};
};

} // namespace

class TestCameraClose : public QObject
{
    Q_OBJECT

private slots:
    void closingStopsTheStreamThenUnmapsAndKeepsTheDevice()
    {
        StreamingCamera camera;
        camera.told.clear();
        camera.machine.trace().clear();
        QVERIFY(camera.close());
        QCOMPARE(camera.machine.calls(), QStringList("VIDIOC_STREAMOFF type 1") + kUnmaps);
        QCOMPARE(camera.told.count(), 0);
        QVERIFY(!camera.isStreaming());
        QVERIFY(!camera.openFailed());
        QCOMPARE(camera.getFrame(), nullptr);
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kVideo), std::size_t(1));
        QCOMPARE(camera.machine.misuses(), QStringList());
    }

    void nothingOfTheWorkTableOutlivesTheStream()
    {
        RiggedCamera camera;
        QVERIFY(camera.open(0, kBfnCalibrationFile, false));
        QVERIFY(camera.close());
        QCOMPARE(camera.setRegisters(10), 0);
    }

    void theCaptureThreadIsGoneOnceTheStreamIsStopped()
    {
        StreamingCamera camera;
        camera.machine.deliverEndlessly();
        QTRY_VERIFY(camera.machine.requeued() > 3);
        QVERIFY(camera.close());
        const int calls = camera.machine.captureCalls().size();
        QTest::qWait(50);
        QCOMPARE(camera.machine.captureCalls().size(), calls);
    }

    void aRefusedStopIsReportedAndEverythingIsFreedAllTheSame()
    {
        StreamingCamera camera;
        camera.told.clear();
        camera.machine.failCall("VIDIOC_STREAMOFF", 1);
        std::size_t mappedWhenTold = 0;
        connect(&camera, &OV5642Camera::sig_debug_Message, this,
                [&] { mappedWhenTold = camera.machine.openMappings(); });
        QVERIFY(!camera.close());
        QCOMPARE(mappedWhenTold, std::size_t(4));
        QCOMPARE(camera.messages(), QList<QStringList>{kRefused});
        QVERIFY(!camera.isStreaming());
        QCOMPARE(camera.machine.openMappings(), std::size_t(0));
        QCOMPARE(camera.getFrame(), nullptr);
    }

    void closingWithoutAStreamStillStopsIt()
    {
        RiggedCamera camera;
        QVERIFY(camera.close());
        QCOMPARE(camera.machine.calls(), QStringList({"VIDIOC_STREAMOFF type 1"}));
        QCOMPARE(camera.told.count(), 0);

        camera.machine.failCall("VIDIOC_STREAMOFF", 1);
        QVERIFY(!camera.close());
        QCOMPARE(camera.messages(), QList<QStringList>{kRefused});
    }

    void closingWithoutADeviceIsReported()
    {
        ScriptedCamera machine;
        machine.setMissing(ScriptedCamera::kVideo, true);
        OV5642Camera camera;
        QSignalSpy told(&camera, &OV5642Camera::sig_debug_Message);
        QVERIFY(!camera.close());
        QCOMPARE(told.at(0).at(0).toStringList(), kRefused);
    }

    void aCameraMayGoWhileItStreamsAndThenSaysNothing()
    {
        ScriptedCamera machine;
        machine.deliverEndlessly();
        int messages = 0;
        {
            OV5642Camera camera;
            QVERIFY(camera.open(0, "", false));
            connect(&camera, &OV5642Camera::sig_debug_Message, this, [&messages] { ++messages; });
            machine.failCall("VIDIOC_STREAMOFF", 1);
            machine.trace().clear();
        }
        QCOMPARE(messages, 0);
        QCOMPARE(machine.calls(),
                 QStringList("VIDIOC_STREAMOFF type 1") + kUnmaps + QStringList("close /dev/video0"));
        QCOMPARE(machine.openMappings(), std::size_t(0));
        QCOMPARE(machine.misuses(), QStringList());
    }

    void noFrameOutlivesTheStreamOrARefusal_data()
    {
        QTest::addColumn<QString>("refused");
        QTest::newRow("closed") << "";
        for (const char* call :
             {"VIDIOC_S_FMT", "VIDIOC_REQBUFS", "VIDIOC_QUERYBUF", "mmap", "VIDIOC_QBUF", "VIDIOC_STREAMON"})
            QTest::newRow(call) << call;
    }

    void noFrameOutlivesTheStreamOrARefusal()
    {
        QFETCH(QString, refused);
        RiggedCamera camera;
        const std::size_t before = allocatedBytes();
        if (!refused.isEmpty())
            camera.machine.failCall(refused, 1);
        QCOMPARE(camera.open(2, "", false), refused.isEmpty());
        if (refused.isEmpty()) {
            QVERIFY(camera.getFrame() != nullptr);
            QVERIFY(camera.close());
        }
        // Its smallest buffer, a copy of one frame, has ten million bytes; logging takes some too.
        QVERIFY(allocatedBytes() < before + 1000000);
    }

    void whatIsStillMappedGoesWithItsOwner()
    {
        RecordedMappings calls;
        {
            CaptureBuffers buffers;
            QVERIFY(buffers.map(-1, 100, 4));
            QVERIFY(buffers.map(-1, 200, 8));
            buffers.unmapAll();
            QCOMPARE(calls.unmapped.size(), 2);
            calls.unmapped.clear();
            QVERIFY(buffers.map(-1, 300, 12));
        }
        QCOMPARE(calls.unmapped, (QVector<QPair<std::ptrdiff_t, std::size_t>>{{12, 300}}));
    }

    // Memory that was somebody's before is not zero: what nobody has made cannot be destroyed, and
    // is waited for.
    void aCameraInUsedMemoryCloses()
    {
        constexpr uchar kUsed = 0xFF;
        ScriptedCamera machine;
        alignas(OV5642Camera) std::array<uchar, sizeof(OV5642Camera)> memory;
        memory.fill(kUsed);
        auto* const camera = new (memory.data()) OV5642Camera;
        const bool opened = camera->open(0, "", false);
        const bool closed = camera->close();
        camera->~OV5642Camera();
        QVERIFY(opened);
        QVERIFY(closed);
        QCOMPARE(machine.misuses(), QStringList());
    }

    void thousandsOfModeSwitchesLeaveNothingBehind()
    {
#ifdef __SANITIZE_THREAD__
        constexpr int kSwitches = 200; // it takes its time to start a thread
#else
        constexpr int kSwitches = 3000;
#endif
        ScriptedCamera machine;
        // Small, so that the switches and not the frames take the time.
        machine.driver.bufferLength_bytes = 4096;
        machine.applyDriver();
        OV5642Camera camera;
        QVERIFY(camera.open(0, "", false));
        QVERIFY(camera.close());
        const int threads = entriesOf("/proc/self/task");
        const int descriptors = entriesOf("/proc/self/fd");
        for (int i = 0; i < kSwitches; ++i) {
            QVERIFY(camera.open(i % 2, "", false));
            QCOMPARE(machine.openMappings(), std::size_t(4));
            QVERIFY(camera.close());
            machine.trace().clear();
        }
        QCOMPARE(machine.openMappings(), std::size_t(0));
        QCOMPARE(machine.openDescriptors(ScriptedCamera::kVideo), std::size_t(1));
        QCOMPARE(machine.openDescriptors(ScriptedCamera::kBus), std::size_t(0));
        // A joined thread's entry may outlive it by a moment.
        QTRY_COMPARE(entriesOf("/proc/self/task"), threads);
        QCOMPARE(entriesOf("/proc/self/fd"), descriptors);
        QCOMPARE(machine.misuses(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestCameraClose)
#include "test_camera_close.moc"
