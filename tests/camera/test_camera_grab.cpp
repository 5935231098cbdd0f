#include <algorithm>
#include <memory>

#include <QDir>
#include <QtTest>

#include "CameraTools.h"
#include "camera/GrabThread.h"
#include "support/FileBytes.h"

namespace {

constexpr uchar kUntouched = 0xA7;

// Several of the thread's rounds.
constexpr int kIdle_ms = 150;
// Frames of 5M come slowly where a processor is emulated.
constexpr int kManyFrames_ms = 60000;

/// How often the grab threads of this process have gone to sleep by themselves; -1 without one.
int restsOfGrabThreads()
{
    constexpr char kLabel[] = "\nvoluntary_ctxt_switches:";
    int rests = -1;
    for (const QString& task : QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        if (bytesOf("/proc/self/task/" + task + "/comm") != "GrabThread\n")
            continue;
        const QByteArray status = bytesOf("/proc/self/task/" + task + "/status");
        const QByteArray rest = status.mid(status.indexOf(kLabel) + int(sizeof kLabel) - 1);
        rests = std::max(rests, 0) + rest.left(rest.indexOf('\n')).trimmed().toInt();
    }
    return rests;
}

} // namespace

class TestCameraGrab : public QObject
{
    Q_OBJECT

private:
    // A streaming camera, the window's buffer and a grab thread that fills it.
    struct Fixture
    {
        RiggedCamera camera;
        Bytes buffer = Bytes(kVgaRgbSize, kUntouched);
        GrabThread grabber;
        int delivered = 0;
        QList<QStringList> messages;

        explicit Fixture(bool streaming = true)
        {
            if (streaming)
                camera.open(0, "", false);
            // Queued, as the window's are: the counts change on this thread only.
            connect(
                &grabber, &GrabThread::grabDone, &camera, [this] { ++delivered; });
            connect(&grabber, &GrabThread::sig_debug_Message, &camera,
                    [this](const QStringList& parts) { messages << parts; });
        }

        ~Fixture() { stop(); }

        /// Has a frame copied there as soon as it is asked for, which it is at once.
        void start(Bytes& destination)
        {
            grabber.registerCamera(&camera, destination.data());
            grabber.start(QThread::InheritPriority);
        }
        bool stop()
        {
            grabber.stop();
            return grabber.wait();
        }
        bool deliver(quint8 value) { return camera.machine.deliver({value, kVgaSize}); }
    };

private slots:
    void everyStepWritesItsSignature()
    {
        QTest::ignoreMessage(QtDebugMsg, "GrabThread::GrabThread(QObject*)");
        Fixture fixture;
        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.messages.size(), 2);
        QCOMPARE(fixture.messages.at(0),
                 QStringList({"void GrabThread::registerCamera(OV5642Camera*, uchar*)"}));
        QCOMPARE(fixture.messages.at(1), QStringList({"virtual void GrabThread::run()"}));
    }

    void theFirstFrameIsTakenAtOnceAndThenNoMore()
    {
        Fixture fixture;
        QVERIFY(fixture.deliver(70));
        fixture.grabber.registerCamera(&fixture.camera, fixture.buffer.data());
        QVERIFY(!fixture.grabber.frameDelivered());
        fixture.grabber.start(QThread::InheritPriority);
        QTRY_COMPARE(fixture.delivered, 1);
        QVERIFY(fixture.grabber.frameDelivered());
        QCOMPARE(fixture.buffer, rgbOf(70));

        QVERIFY(fixture.deliver(170));
        QTest::qWait(kIdle_ms);
        QCOMPARE(fixture.delivered, 1);
        QVERIFY(fixture.grabber.frameDelivered());
        QCOMPARE(fixture.buffer, rgbOf(70));
    }

    void eachAnswerBringsOneMoreFrame()
    {
        Fixture fixture;
        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.delivered, 1);
        for (int i = 2; i <= 5; ++i) {
            QVERIFY(fixture.deliver(quint8(30 * i)));
            fixture.grabber.grab();
            QTRY_COMPARE(fixture.delivered, i);
            QVERIFY(fixture.grabber.frameDelivered());
            QCOMPARE(fixture.buffer, rgbOf(quint8(30 * i)));
        }
        // Asked twice before it could answer is asked once.
        QVERIFY(fixture.stop());
        fixture.grabber.grab();
        fixture.grabber.grab();
        QVERIFY(!fixture.grabber.frameDelivered());
    }

    void whatTheBufferHoldsAlreadyIsToldAgainButNotCopied()
    {
        Fixture fixture;
        QVERIFY(fixture.deliver(70));
        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.delivered, 1);
        std::fill(fixture.buffer.begin(), fixture.buffer.end(), kUntouched);
        for (int i = 2; i <= 3; ++i) {
            fixture.grabber.grab();
            QTRY_COMPARE(fixture.delivered, i);
            QCOMPARE(fixture.buffer, Bytes(kVgaRgbSize, kUntouched));
        }
        QVERIFY(fixture.deliver(170));
        fixture.grabber.grab();
        QTRY_COMPARE(fixture.delivered, 4);
        QCOMPARE(fixture.buffer, rgbOf(170));
    }

    void anotherBufferGetsTheFrameThatTheFirstOneHas()
    {
        Fixture fixture;
        QVERIFY(fixture.deliver(70));
        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.delivered, 1);
        QVERIFY(fixture.stop());
        Bytes other(kVgaRgbSize, kUntouched);
        fixture.start(other);
        QTRY_COMPARE(fixture.delivered, 2);
        QCOMPARE(other, rgbOf(70));
    }

    void theHandShakeRunsAsLongAsItIsAnswered()
    {
        Fixture fixture;
        fixture.camera.machine.deliverEndlessly();
        int torn = 0;
        connect(&fixture.grabber, &GrabThread::grabDone, &fixture.camera, [&] {
            const Bytes& rgb = fixture.buffer;
            if (!fixture.grabber.frameDelivered() || !std::equal(rgb.begin() + 3, rgb.end(), rgb.begin()))
                ++torn;
            fixture.grabber.grab();
        });
        fixture.start(fixture.buffer);
        QTRY_VERIFY_WITH_TIMEOUT(fixture.delivered >= 20, kManyFrames_ms);
        QCOMPARE(torn, 0);
    }

    void theThreadRestsTenMillisecondsARound()
    {
        constexpr int kRounds = 20;
        constexpr qint64 kRest_ms = 10;
        Fixture fixture;
        // Answered on the thread itself, before it rests: a frame a round.
        connect(
            &fixture.grabber, &GrabThread::grabDone, &fixture.grabber, [&fixture] { fixture.grabber.grab(); },
            Qt::DirectConnection);
        fixture.grabber.registerCamera(&fixture.camera, fixture.buffer.data());
        QElapsedTimer timer;
        timer.start();
        fixture.grabber.start(QThread::InheritPriority);
        QTRY_VERIFY_WITH_TIMEOUT(fixture.delivered >= kRounds, kManyFrames_ms);
        QVERIFY(timer.elapsed() >= (kRounds - 1) * kRest_ms);
    }

    void theThreadRestsAsLongInARoundWithoutAFrame()
    {
        constexpr int kRounds = 20;
        constexpr qint64 kRest_ms = 10;
        // One that has ended is there for a moment.
        QTRY_COMPARE(restsOfGrabThreads(), -1);
        Fixture fixture;
        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.delivered, 1);
        QElapsedTimer timer;
        timer.start();
        const int before = restsOfGrabThreads();
        QVERIFY(before >= 0);
        QTRY_VERIFY(restsOfGrabThreads() - before >= kRounds);
        // Where a processor is emulated, not each is a round's.
        QVERIFY(timer.elapsed() >= kRounds * kRest_ms / 2);
    }

    void aCameraWithoutAFrameIsSurvivedAndAnswered()
    {
        Fixture fixture(false);
        fixture.camera.machine.failCall("VIDIOC_S_FMT", 1);
        QVERIFY(!fixture.camera.open(0, "", false));
        fixture.start(fixture.buffer);
        for (int i = 1; i <= 3; ++i) {
            QTRY_COMPARE(fixture.delivered, i);
            QVERIFY(fixture.grabber.frameDelivered());
            QCOMPARE(fixture.buffer, Bytes(kVgaRgbSize, kUntouched));
            fixture.grabber.grab();
        }
    }

    void theLastFrameOfACameraThatIsGoneIsNotConvertedAgain()
    {
        Fixture fixture;
        QVERIFY(fixture.deliver(70));
        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.delivered, 1);
        fixture.camera.machine.failCall("select", ScriptedCamera::kAlways, -1, ENODEV);
        QTRY_VERIFY(fixture.camera.isGone());

        // The buffer comes back as it was, with nothing to be drawn.
        for (int i = 0; i < 3; ++i) {
            std::fill(fixture.buffer.begin(), fixture.buffer.end(), kUntouched);
            fixture.grabber.grab();
            QTRY_VERIFY(fixture.grabber.frameDelivered());
            QCOMPARE(fixture.buffer, Bytes(kVgaRgbSize, kUntouched));
        }
        QTest::qWait(kIdle_ms);
        QCOMPARE(fixture.delivered, 1);

        // Should a frame come after all, the hand-shake goes on by itself.
        fixture.camera.machine.healCalls();
        QVERIFY(fixture.deliver(170));
        QTRY_COMPARE(fixture.delivered, 2);
        QTest::qWait(kIdle_ms);
        QCOMPARE(fixture.delivered, 2);
        fixture.grabber.grab();
        QTRY_COMPARE(fixture.delivered, 3);
        QCOMPARE(fixture.buffer, rgbOf(170));
    }

    void aCameraThatIsGoneIsStillShownOnce()
    {
        Fixture fixture;
        QVERIFY(fixture.deliver(70));
        fixture.camera.machine.failCall("select", ScriptedCamera::kAlways, -1, ENODEV);
        QTRY_VERIFY(fixture.camera.isGone());
        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.delivered, 1);
        QCOMPARE(fixture.buffer, rgbOf(70));
    }

    void aStoppedThreadEndsAndDeliversNoMore()
    {
        Fixture fixture;
        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.delivered, 1);
        QVERIFY(fixture.grabber.isRunning());
        QVERIFY(fixture.stop());
        QVERIFY(!fixture.grabber.isRunning());
        fixture.grabber.grab();
        QTest::qWait(kIdle_ms);
        QCOMPARE(fixture.delivered, 1);

        fixture.start(fixture.buffer);
        QTRY_COMPARE(fixture.delivered, 2);
    }

    void aThreadStoppedBeforeItRunsTakesNoFrame()
    {
        Fixture fixture;
        fixture.grabber.registerCamera(&fixture.camera, fixture.buffer.data());
        fixture.grabber.stop();
        fixture.grabber.start(QThread::InheritPriority);
        QVERIFY(fixture.grabber.wait());
        QCoreApplication::processEvents();
        QCOMPARE(fixture.delivered, 0);
        QVERIFY(fixture.grabber.frameDelivered());
        QCOMPARE(fixture.buffer, Bytes(kVgaRgbSize, kUntouched));
    }

    void deletingARunningThreadStopsItFirst()
    {
        Fixture fixture;
        auto thread = std::make_unique<GrabThread>(nullptr);
        thread->registerCamera(&fixture.camera, fixture.buffer.data());
        thread->start(QThread::InheritPriority);
        QTRY_VERIFY(thread->frameDelivered());
        thread.reset();
        QCOMPARE(fixture.buffer, rgbOf(0));
    }

    void theWholeFrameOfTheModeAndNoMoreIsCopied_data() { addModes(); }

    void theWholeFrameOfTheModeAndNoMoreIsCopied()
    {
        QFETCH(int, mode);
        QFETCH(QSize, size);
        Fixture fixture(false);
        QVERIFY(fixture.camera.open(mode, "", false));
        const std::size_t size_bytes = std::size_t(size.width()) * size.height() * 3;
        Bytes buffer(size_bytes + 1, kUntouched);
        const Bytes expected = copyOf(fixture.camera.getFrame(), size_bytes);
        fixture.start(buffer);
        QTRY_COMPARE_WITH_TIMEOUT(fixture.delivered, 1, kManyFrames_ms);
        QVERIFY(fixture.stop());
        QVERIFY(fixture.grabber.frameDelivered());
        QCOMPARE(buffer.back(), kUntouched);
        buffer.pop_back();
        QVERIFY(buffer == expected);
    }
};

QTEST_GUILESS_MAIN(TestCameraGrab)
#include "test_camera_grab.moc"
