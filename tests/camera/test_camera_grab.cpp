#include <algorithm>
#include <memory>
#include <vector>

#include <QtTest>

#include "CameraTools.h"
#include "camera/GrabThread.h"

namespace {

constexpr uchar kUntouched = 0xA7;

// Several of the thread's rounds.
constexpr int kIdle_ms = 150;

} // namespace

class TestCameraGrab : public QObject
{
    Q_OBJECT

private:
    // A streaming camera, the window's buffer and a grab thread that fills it.
    struct Bench
    {
        RiggedCamera camera;
        Bytes buffer = Bytes(kVgaRgbSize, kUntouched);
        GrabThread grabber;
        int delivered = 0;
        QList<QStringList> messages;

        explicit Bench(bool streaming = true)
        {
            if (streaming)
                camera.open(0, "", false);
            // Queued, as the window's are: the counts change on this thread only.
            connect(
                &grabber, &GrabThread::grabDone, &camera, [this] { ++delivered; });
            connect(&grabber, &GrabThread::sig_debug_Message, &camera,
                    [this](const QStringList& parts) { messages << parts; });
        }

        ~Bench()
        {
            grabber.stop();
            grabber.wait();
        }

        bool deliver(quint8 value) { return camera.machine.deliver({value, kVgaSize}); }
    };

private slots:
    void everyStepWritesItsSignature()
    {
        QTest::ignoreMessage(QtDebugMsg, "GrabThread::GrabThread(QObject*)");
        Bench bench;
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(bench.messages.size(), 2);
        QCOMPARE(bench.messages.at(0),
                 QStringList({"void GrabThread::registerCamera(OV5642Camera*, uchar*)"}));
        QCOMPARE(bench.messages.at(1), QStringList({"virtual void GrabThread::run()"}));
    }

    void theFirstFrameIsTakenAtOnceAndThenNoMore()
    {
        Bench bench;
        QVERIFY(bench.deliver(70));
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        QVERIFY(!bench.grabber.frameDelivered());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(bench.delivered, 1);
        QVERIFY(bench.grabber.frameDelivered());
        QCOMPARE(bench.buffer, rgbOf(70));

        QVERIFY(bench.deliver(170));
        QTest::qWait(kIdle_ms);
        QCOMPARE(bench.delivered, 1);
        QVERIFY(bench.grabber.frameDelivered());
        QCOMPARE(bench.buffer, rgbOf(70));
    }

    void eachAnswerBringsOneMoreFrame()
    {
        Bench bench;
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(bench.delivered, 1);
        for (int i = 2; i <= 5; ++i) {
            QVERIFY(bench.deliver(quint8(30 * i)));
            bench.grabber.grab();
            QTRY_COMPARE(bench.delivered, i);
            QVERIFY(bench.grabber.frameDelivered());
            QCOMPARE(bench.buffer, rgbOf(quint8(30 * i)));
        }
        // Asked twice before it could answer is asked once.
        bench.grabber.stop();
        QVERIFY(bench.grabber.wait());
        bench.grabber.grab();
        bench.grabber.grab();
        QVERIFY(!bench.grabber.frameDelivered());
    }

    void theHandShakeRunsAsLongAsItIsAnswered()
    {
        Bench bench;
        bench.camera.machine.deliverEndlessly();
        int torn = 0;
        connect(&bench.grabber, &GrabThread::grabDone, &bench.camera, [&] {
            const Bytes& rgb = bench.buffer;
            if (!bench.grabber.frameDelivered() || !std::equal(rgb.begin() + 3, rgb.end(), rgb.begin()))
                ++torn;
            bench.grabber.grab();
        });
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_VERIFY(bench.delivered >= 20);
        QCOMPARE(torn, 0);
    }

    void theThreadRestsTenMillisecondsARound()
    {
        constexpr int kRounds = 20;
        constexpr qint64 kRest_ms = 10;
        Bench bench;
        // Answered on the thread itself, before it rests: a frame a round.
        connect(
            &bench.grabber, &GrabThread::grabDone, &bench.grabber, [&bench] { bench.grabber.grab(); },
            Qt::DirectConnection);
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        QElapsedTimer timer;
        timer.start();
        bench.grabber.start(QThread::InheritPriority);
        QTRY_VERIFY(bench.delivered >= kRounds);
        QVERIFY(timer.elapsed() >= (kRounds - 1) * kRest_ms);
    }

    void aCameraWithoutAFrameIsSurvivedAndAnswered()
    {
        Bench bench(false);
        bench.camera.machine.failCall("VIDIOC_S_FMT", 1);
        QVERIFY(!bench.camera.open(0, "", false));
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        for (int i = 1; i <= 3; ++i) {
            QTRY_COMPARE(bench.delivered, i);
            QVERIFY(bench.grabber.frameDelivered());
            QCOMPARE(bench.buffer, Bytes(kVgaRgbSize, kUntouched));
            bench.grabber.grab();
        }
    }

    void theLastFrameOfACameraThatIsGoneIsNotConvertedAgain()
    {
        Bench bench;
        QVERIFY(bench.deliver(70));
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(bench.delivered, 1);
        bench.camera.machine.failCall("select", ScriptedCamera::kAlways, -1, ENODEV);
        QTRY_VERIFY(bench.camera.isGone());

        // The buffer comes back as it was, with nothing to be drawn.
        for (int i = 0; i < 3; ++i) {
            std::fill(bench.buffer.begin(), bench.buffer.end(), kUntouched);
            bench.grabber.grab();
            QTRY_VERIFY(bench.grabber.frameDelivered());
            QCOMPARE(bench.buffer, Bytes(kVgaRgbSize, kUntouched));
        }
        QTest::qWait(kIdle_ms);
        QCOMPARE(bench.delivered, 1);

        // Should a frame come after all, the hand-shake goes on by itself.
        bench.camera.machine.healCalls();
        QVERIFY(bench.deliver(170));
        QTRY_COMPARE(bench.delivered, 2);
        bench.grabber.grab();
        QTRY_COMPARE(bench.delivered, 3);
        QCOMPARE(bench.buffer, rgbOf(170));
    }

    void aCameraThatIsGoneIsStillShownOnce()
    {
        Bench bench;
        QVERIFY(bench.deliver(70));
        bench.camera.machine.failCall("select", ScriptedCamera::kAlways, -1, ENODEV);
        QTRY_VERIFY(bench.camera.isGone());
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(bench.delivered, 1);
        QCOMPARE(bench.buffer, rgbOf(70));
    }

    void aStoppedThreadEndsAndDeliversNoMore()
    {
        Bench bench;
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(bench.delivered, 1);
        QVERIFY(bench.grabber.isRunning());
        bench.grabber.stop();
        QVERIFY(bench.grabber.wait());
        QVERIFY(!bench.grabber.isRunning());
        bench.grabber.grab();
        QTest::qWait(kIdle_ms);
        QCOMPARE(bench.delivered, 1);

        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(bench.delivered, 2);
    }

    void aThreadStoppedBeforeItRunsTakesNoFrame()
    {
        Bench bench;
        bench.grabber.registerCamera(&bench.camera, bench.buffer.data());
        bench.grabber.stop();
        bench.grabber.start(QThread::InheritPriority);
        QVERIFY(bench.grabber.wait());
        QCoreApplication::processEvents();
        QCOMPARE(bench.delivered, 0);
        QVERIFY(bench.grabber.frameDelivered());
        QCOMPARE(bench.buffer, Bytes(kVgaRgbSize, kUntouched));
    }

    void deletingARunningThreadStopsItFirst()
    {
        Bench bench;
        auto thread = std::make_unique<GrabThread>(nullptr);
        thread->registerCamera(&bench.camera, bench.buffer.data());
        thread->start(QThread::InheritPriority);
        QTRY_VERIFY(thread->frameDelivered());
        thread.reset();
        QCOMPARE(bench.buffer, rgbOf(0));
    }

    void theWholeFrameOfTheModeAndNoMoreIsCopied_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("size");
        QTest::newRow("VGA") << 0 << 921600;
        QTest::newRow("1280") << 1 << 3686400;
        QTest::newRow("5M") << 2 << 15116544;
    }

    void theWholeFrameOfTheModeAndNoMoreIsCopied()
    {
        QFETCH(int, mode);
        QFETCH(int, size);
        Bench bench(false);
        QVERIFY(bench.camera.open(mode, "", false));
        Bytes buffer(std::size_t(size) + 1, kUntouched);
        const Bytes expected(bench.camera.getFrame(), bench.camera.getFrame() + size);
        bench.grabber.registerCamera(&bench.camera, buffer.data());
        bench.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(bench.delivered, 1);
        bench.grabber.stop();
        QVERIFY(bench.grabber.wait());
        QVERIFY(bench.grabber.frameDelivered());
        QCOMPARE(buffer.back(), kUntouched);
        buffer.pop_back();
        QVERIFY(buffer == expected);
    }
};

QTEST_GUILESS_MAIN(TestCameraGrab)
#include "test_camera_grab.moc"
