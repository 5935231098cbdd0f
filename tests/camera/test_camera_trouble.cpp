#include <cerrno>
#include <functional>

#include <QRegularExpression>
#include <QtTest>

#include "CameraTools.h"
#include "settings/SettingsFiles.h"
#include "support/NoMoreThreads.h"

/// What the camera tells of its state when something is wrong.
class TestCameraTrouble : public QObject
{
    Q_OBJECT

private slots:
    void theCallThatAnOpenFailedWithIsNamed_data()
    {
        QTest::addColumn<QString>("refused");
        QTest::addColumn<QString>("failure");
        for (const char* call :
             {"VIDIOC_S_FMT", "VIDIOC_REQBUFS", "VIDIOC_QUERYBUF", "mmap", "VIDIOC_QBUF", "VIDIOC_STREAMON"})
            QTest::newRow(call) << call << call;
        QTest::newRow("no device") << "open"
                                   << "open /dev/video0";
    }

    void theCallThatAnOpenFailedWithIsNamed()
    {
        QFETCH(QString, refused);
        ScriptedCamera machine;
        machine.failCall(refused, ScriptedCamera::kAlways);
        // As in a program without standard input: that, too, is a device that could be opened.
        machine.setNextDescriptor(0);
        OV5642Camera camera;
        QCOMPARE(camera.openFailure(), QString());
        QVERIFY(!camera.open(0, "", false));
        QTEST(camera.openFailure(), "failure");
        machine.healCalls();
        QVERIFY(camera.open(0, "", false));
        QCOMPARE(camera.openFailure(), QString());
    }

    void aMissingModeAndAMissingThreadAreFailuresToo()
    {
        RiggedCamera camera;
        QVERIFY(!camera.open(3, "", false));
        QCOMPARE(camera.openFailure(), QString("no such mode"));

        const NoMoreThreads none;
        QVERIFY(!camera.open(0, "", false));
        QCOMPARE(camera.openFailure(), QString("pthread_create"));
    }

    void capturedFramesAreCountedOverAllStreams()
    {
        RiggedCamera camera;
        QCOMPARE(camera.framesCaptured(), std::uint64_t(0));
        for (std::uint64_t stream = 0; stream < 2; ++stream) {
            QVERIFY(camera.open(0, "", false));
            QCOMPARE(camera.framesCaptured(), 3 * stream);
            for (int frame = 0; frame < 3; ++frame)
                camera.machine.hand({50, kVgaSize});
            QTRY_COMPARE(camera.framesCaptured(), 3 * (stream + 1));
            QVERIFY(camera.close());
        }
    }

    void aSensorThatDoesNotAnswerIsKnownUntilItDoes_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<int>("result");
        QTest::newRow("no bus") << "open" << -1;
        QTest::newRow("no address") << "I2C_SLAVE_FORCE" << -1;
        QTest::newRow("no write") << "write" << -1;
        QTest::newRow("short write") << "write" << 1;
    }

    void aSensorThatDoesNotAnswerIsKnownUntilItDoes()
    {
        QFETCH(QString, call);
        QFETCH(int, result);
        RiggedCamera camera;
        QVERIFY(camera.sensorAnswers());
        quint16 value = 0;
        const auto accesses = {
            std::function<void()>([&] { camera.get(0x300A, value); }),
            std::function<void()>([&] { camera.set(0x3501, 1); }),
            std::function<void()>([&] { camera.open(0, kBfnCalibrationFile, false); }),
        };
        for (const auto& access : accesses) {
            camera.machine.failCall(call, ScriptedCamera::kAlways, result);
            access();
            QVERIFY(!camera.sensorAnswers());
            camera.machine.healCalls();
            access();
            QVERIFY(camera.sensorAnswers());
        }
        camera.machine.failCall("read", 1);
        QVERIFY(!camera.get(0x300A, value));
        QVERIFY(!camera.sensorAnswers());
        // Nothing is sent: that tells nothing.
        QCOMPARE(camera.setRegisters(0), 0);
        QVERIFY(!camera.sensorAnswers());
        QVERIFY(camera.set(0x3501, 1));
        QVERIFY(camera.sensorAnswers());
    }

    void aBusThatCannotBeOpenedIsToldOnceUntilItCanAgain()
    {
        const QString told =
            "bool OV5642Camera::openBus(SensorBus&) [Error] /dev/i2c-1: No such file or directory";
        RiggedCamera camera;
        camera.machine.setMissing(ScriptedCamera::kBus, true);
        quint16 value = 0;
        for (int i = 0; i < 3; ++i) {
            QVERIFY(!camera.set(0x3501, 1));
            QVERIFY(!camera.get(0x3501, value));
        }
        QCOMPARE(camera.errors(), QStringList(told));
        QVERIFY(camera.open(0, kBfnCalibrationFile, false));
        QCOMPARE(camera.errors(), QStringList(told));

        camera.machine.setMissing(ScriptedCamera::kBus, false);
        QVERIFY(camera.set(0x3501, 1));
        camera.machine.setMissing(ScriptedCamera::kBus, true);
        QVERIFY(camera.open(1, kBfnCalibrationFile, false));
        QVERIFY(!camera.set(0x3501, 1));
        QCOMPARE(camera.errors(), QStringList({told, told}));
    }

    void theBusIsNamedOnTheDebugStreamToo()
    {
        ScriptedCamera machine;
        machine.failCall("open", 2, -1, EACCES);
        OV5642Camera camera;
        QTest::ignoreMessage(QtDebugMsg, QRegularExpression("\\[Error\\] /dev/i2c-1: Permission denied$"));
        QVERIFY(!camera.set(0x3501, 1));
    }

    void aCameraThatGoesAwayIsToldOnceAndLeftAlone_data()
    {
        QTest::addColumn<QString>("call");
        QTest::newRow("frame") << "VIDIOC_DQBUF";
        QTest::newRow("wait") << "select";
        QTest::newRow("buffer") << "VIDIOC_QBUF";
    }

    void aCameraThatGoesAwayIsToldOnceAndLeftAlone()
    {
        QFETCH(QString, call);
        constexpr int kWatch_ms = 400;
        StreamingCamera camera;
        camera.machine.deliverEndlessly();
        QTRY_VERIFY(camera.framesCaptured() > 0);
        QVERIFY(!camera.isGone());
        camera.told.clear();
        camera.machine.failCall(call, ScriptedCamera::kAlways, -1, ENODEV);
        QTRY_VERIFY(camera.isGone());
        QTRY_COMPARE(camera.messages(), QList<QStringList>({{"void OV5642Camera::tellGone()",
                                                             "[Error] /dev/video0: No such device"}}));
        camera.machine.trace().clear();
        QTest::qWait(kWatch_ms);
        // One more look may have fallen into that time, not one every 10 ms.
        QVERIFY(camera.machine.captureCalls().filter("select").size() <= 1);
        QCOMPARE(camera.told.count(), 1);
        QVERIFY(camera.isStreaming());
        QVERIFY(camera.close());
    }

    void aCameraThatGoesAgainIsToldAgain()
    {
        RiggedCamera camera;
        camera.machine.deliverEndlessly();
        for (int times = 1; times <= 2; ++times) {
            QVERIFY(camera.open(0, "", false));
            const std::uint64_t before = camera.framesCaptured();
            QTRY_VERIFY(camera.framesCaptured() > before);
            camera.told.clear();
            camera.machine.trace().clear();
            camera.machine.failCall("VIDIOC_DQBUF", ScriptedCamera::kAlways, -1, ENODEV);
            // However often it is looked at.
            QTRY_VERIFY(camera.machine.captureCalls().filter("open /dev/video0").size() >= 2);
            QCoreApplication::processEvents();
            QCOMPARE(camera.told.count(), 1);
            camera.machine.healCalls();
            QVERIFY(camera.close());
        }
    }

    void aFrameAfterAllIsTaken_data()
    {
        QTest::addColumn<int>("lookedAtWith");
        QTest::newRow("any descriptor") << 1000;
        QTest::newRow("without standard input") << 0;
    }

    void aFrameAfterAllIsTaken()
    {
        QFETCH(int, lookedAtWith);
        constexpr int kWaits = 20;
        StreamingCamera camera;
        camera.machine.setNextDescriptor(lookedAtWith);
        camera.machine.failCall("VIDIOC_DQBUF", 1, -1, ENODEV);
        camera.machine.hand({50, kVgaSize});
        QTRY_VERIFY(camera.isGone());
        QTRY_COMPARE(camera.framesCaptured(), std::uint64_t(1));
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kVideo), std::size_t(1));
        // From then on it is looked at as ever, also while no frame comes.
        const int waits = camera.machine.captureCalls().filter("select").size();
        QTRY_VERIFY(camera.machine.captureCalls().filter("select").size() >= waits + kWaits);
        QVERIFY(camera.close());
    }

    void onlyADeviceThatIsNotThereIsLetGo_data()
    {
        QTest::addColumn<int>("refusal");
        QTest::addColumn<bool>("letGo");
        QTest::newRow("no such name") << ENOENT << true;
        QTest::newRow("no device behind it") << ENXIO << true;
        QTest::newRow("device unplugged") << ENODEV << true;
        QTest::newRow("a second user") << EBUSY << false;
        QTest::newRow("not allowed") << EACCES << false;
        QTest::newRow("too many files") << EMFILE << false;
    }

    void onlyADeviceThatIsNotThereIsLetGo()
    {
        QFETCH(int, refusal);
        QFETCH(bool, letGo);
        ScriptedCamera machine;
        machine.setNextDescriptor(0);
        OV5642Camera camera;
        QVERIFY(camera.open(0, "", false));
        machine.failCall("open", ScriptedCamera::kAlways, -1, refusal);
        machine.failCall("select", ScriptedCamera::kAlways, -1, ENODEV);
        QTRY_VERIFY(!machine.captureCalls().filter("open /dev/video0").isEmpty());
        // Joins the thread: what it does about the answer is done.
        camera.close();
        const QStringList calls = machine.captureCalls();
        QCOMPARE(calls.filter("munmap").size(), letGo ? 4 : 0);
        QCOMPARE(calls.count("close /dev/video0"), letGo ? 1 : 0);
        QCOMPARE(machine.openDescriptors(ScriptedCamera::kVideo), std::size_t(letGo ? 0 : 1));
    }

    // The kernel keeps the name for a descriptor or mapping of the device that has gone, and
    // calls the camera "/dev/video1" when it is plugged in again.
    void aCameraWhoseNameHasGoneIsLetGo()
    {
        StreamingCamera camera;
        camera.machine.deliverEndlessly();
        QTRY_VERIFY(camera.framesCaptured() > 0);
        const int mapped = camera.machine.calls().filter("mmap").size();
        QVERIFY(mapped > 0);
        camera.machine.trace().clear();
        camera.machine.setMissing(ScriptedCamera::kVideo, true);
        for (const char* call : {"VIDIOC_DQBUF", "VIDIOC_STREAMOFF"})
            camera.machine.failCall(call, ScriptedCamera::kAlways, -1, ENODEV);
        QTRY_COMPARE(camera.machine.openDescriptors(ScriptedCamera::kVideo), std::size_t(0));
        QCOMPARE(camera.machine.captureCalls().filter("munmap").size(), mapped);
        QVERIFY(camera.isGone());
        QVERIFY(camera.isStreaming());

        camera.machine.setMissing(ScriptedCamera::kVideo, false);
        camera.machine.healCalls();
        QVERIFY(!camera.close());
        QVERIFY(camera.open(0, "", false));
        QVERIFY(!camera.isGone());
        const std::uint64_t before = camera.framesCaptured();
        QTRY_VERIFY(camera.framesCaptured() > before);
        QVERIFY(camera.close());
    }

    void aCameraThatIsBackIsOpenedAnew_data()
    {
        QTest::addColumn<bool>("whileStreaming");
        QTest::newRow("went while it streamed") << true;
        QTest::newRow("went while it was closed") << false;
    }

    void aCameraThatIsBackIsOpenedAnew()
    {
        QFETCH(bool, whileStreaming);
        StreamingCamera camera;
        if (!whileStreaming)
            QVERIFY(camera.close());
        for (const char* call : {"VIDIOC_DQBUF", "VIDIOC_S_FMT", "VIDIOC_STREAMOFF"})
            camera.machine.failCall(call, ScriptedCamera::kAlways, -1, ENODEV);
        camera.machine.deliverEndlessly();
        if (whileStreaming) {
            QTRY_VERIFY(camera.isGone());
            QVERIFY(!camera.close());
        }
        QVERIFY(!camera.open(0, "", false));
        QVERIFY(camera.isGone());
        QCOMPARE(camera.openFailure(), QString("VIDIOC_S_FMT"));

        camera.machine.healCalls();
        camera.machine.trace().clear();
        QVERIFY(camera.open(0, "", false));
        QCOMPARE(camera.machine.calls().at(0), QString("close /dev/video0"));
        QVERIFY(camera.machine.calls().at(1).startsWith("open /dev/video0"));
        QVERIFY(!camera.isGone());
        QTRY_VERIFY(camera.framesCaptured() > 0);
        QCOMPARE(camera.machine.openDescriptors(ScriptedCamera::kVideo), std::size_t(1));
    }
};

QTEST_GUILESS_MAIN(TestCameraTrouble)
#include "test_camera_trouble.moc"
