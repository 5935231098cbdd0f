#include <atomic>
#include <cstring>
#include <thread>
#include <vector>

#include <sys/mman.h>

#include <QtTest>

#include "CameraTools.h"

namespace {

// The size of memory that is refused, one piece like another; 0: none.
std::size_t g_refused_bytes = 0;

const uchar g_anything = 0;

} // namespace

// The linker sends every request here (-Wl,--wrap), by names of its own making.
// NOLINTBEGIN(bugprone-reserved-identifier)
extern "C" void* __real_calloc(std::size_t count, std::size_t size);
extern "C" void* __wrap_calloc(std::size_t count, std::size_t size)
{
    return g_refused_bytes != 0 && count * size == g_refused_bytes ? nullptr : __real_calloc(count, size);
}
// NOLINTEND(bugprone-reserved-identifier)

namespace {

// Whether every pixel is the first one's: a frame of one value has no other.
bool isUniform(const uchar* rgb)
{
    return std::memcmp(rgb, rgb + 3, kVgaRgbSize - 3) == 0;
}

/// A driver that goes on writing into buffers which it has handed out.
class ScribbledCamera : public ScriptedCamera
{
public:
    ~ScribbledCamera() override { endScribbling(); }

    void* mmap(std::size_t length, int protection, int flags, int fd, off_t offset) override
    {
        void* const mapped = ScriptedCamera::mmap(length, protection, flags, fd, offset);
        if (mapped != MAP_FAILED)
            m_buffers.push_back({static_cast<uchar*>(mapped), length});
        return mapped;
    }
    /// Between opening and closing.
    void beginScribbling()
    {
        m_on = true;
        m_scribbler = std::thread([this] {
            for (int value = 0; m_on; value = (value + 1) % 256)
                for (const Buffer& buffer : m_buffers)
                    std::memset(buffer.start, value, buffer.length);
        });
    }
    void endScribbling()
    {
        m_on = false;
        if (m_scribbler.joinable())
            m_scribbler.join();
    }

private:
    struct Buffer
    {
        uchar* start;
        std::size_t length;
    };

    std::vector<Buffer> m_buffers;
    std::atomic<bool> m_on{false};
    std::thread m_scribbler;
};

} // namespace

class TestCameraFrames : public QObject
{
    Q_OBJECT

private slots:
    // Of each stream's.
    void beforeAnyFrameTheEmptyCopyOfIndexZeroIsConverted()
    {
        RiggedCamera camera;
        for (int stream = 0; stream < 2; ++stream) {
            QVERIFY(camera.open(0, "", false));
            unsigned int index = 99;
            QCOMPARE(copyOf(camera.getFrame(index)), rgbOf(0));
            QCOMPARE(index, 0u);
            QVERIFY(camera.machine.deliver({90, kVgaSize}));
            QVERIFY(camera.machine.deliver({91, kVgaSize}));
            QVERIFY(camera.close());
        }
    }

    void aClosedCameraHasNoFrame()
    {
        RiggedCamera camera;
        QCOMPARE(camera.getFrame(), nullptr);
        unsigned int index = 99;
        QCOMPARE(camera.getFrame(index), nullptr);
        QVERIFY(camera.open(0, "", false));
        QVERIFY(camera.getFrame() != nullptr);
        QVERIFY(camera.close());
        QCOMPARE(camera.getFrame(), nullptr);
    }

    void withoutMemoryForItThereIsNoFrame_data()
    {
        QTest::addColumn<std::size_t>("refused_bytes");
        QTest::addColumn<int>("frames");
        QTest::newRow("for the copies") << std::size_t(kVgaSize) << 0;
        QTest::newRow("for what is shown") << kVgaRgbSize << 1;
    }

    void withoutMemoryForItThereIsNoFrame()
    {
        QFETCH(std::size_t, refused_bytes);
        QFETCH(int, frames);
        RiggedCamera camera;
        g_refused_bytes = refused_bytes;
        const bool opened = camera.open(0, "", false);
        g_refused_bytes = 0;
        QVERIFY(opened);
        for (int round = 0; round < 2; ++round) {
            QCOMPARE(camera.getFrame(), nullptr);
            const uchar* others = &g_anything;
            std::thread([&] { others = camera.getFrame(); }).join();
            QCOMPARE(others, nullptr);
            QCOMPARE(camera.framesCaptured(), std::uint64_t(round * frames));
            QVERIFY(camera.machine.deliver({90, kVgaSize}));
        }
        QVERIFY(camera.close());
        QVERIFY(camera.open(0, "", false));
        QCOMPARE(copyOf(camera.getFrame()), rgbOf(0));
    }

    void theIgnoredArgumentsChangeNothing()
    {
        StreamingCamera camera;
        QVERIFY(camera.machine.deliver({77, kVgaSize}));
        const Bytes expected = rgbOf(77);
        unsigned int index = 99;
        QCOMPARE(copyOf(camera.getFrame(true, 1, 2, 3)), expected);
        QCOMPARE(copyOf(camera.getFrame(index, true, 255, 255, 255)), expected);
        QCOMPARE(index, 0u);
    }

    void oneRoundPausesWaitsTakesAndGivesBack()
    {
        StreamingCamera camera;
        QVERIFY(camera.machine.deliver({10, kVgaSize}));
        QVERIFY(camera.machine.deliver({20, kVgaSize}));
        QVERIFY(camera.close());
        QStringList rounds = camera.machine.captureCalls();
        for (int i = 1; i < rounds.size();) {
            // A round in which nothing came ends with the wait.
            if (rounds.at(i - 1) == "select 1000" && rounds.at(i) == "pause 10000") {
                rounds.removeAt(i);
                rounds.removeAt(i - 1);
                i = qMax(1, i - 1);
            } else {
                ++i;
            }
        }
        const QStringList expected = {
            "pause 10000", "select 1000", "VIDIOC_DQBUF", "VIDIOC_QBUF 0 type 1 memory 1",
            "pause 10000", "select 1000", "VIDIOC_DQBUF", "VIDIOC_QBUF 1 type 1 memory 1"};
        QCOMPARE(rounds.mid(0, 8), expected);
        QVERIFY(rounds.size() <= 10);
    }

    void aFailureInTheLoopCostsOneRound_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<int>("result");
        QTest::newRow("wait fails") << "select" << -1;
        QTest::newRow("wait ends empty") << "select" << 0;
        QTest::newRow("no buffer to be had") << "VIDIOC_DQBUF" << -1;
    }

    void aFailureInTheLoopCostsOneRound()
    {
        QFETCH(QString, call);
        QFETCH(int, result);
        StreamingCamera camera;
        camera.machine.failCall(call, 1, result);
        QVERIFY(camera.machine.deliver({123, kVgaSize}));
        QCOMPARE(copyOf(camera.getFrame()), rgbOf(123));
        QCOMPARE(camera.machine.misuses(), QStringList());
        QVERIFY(camera.close());
    }

    void aDriverThatTakesNoBufferBackRunsDryButTheCameraCloses()
    {
        StreamingCamera camera;
        camera.machine.failCall("VIDIOC_QBUF", ScriptedCamera::kAlways);
        camera.machine.deliverEndlessly();
        QTRY_COMPARE(camera.machine.captureCalls().filter("VIDIOC_QBUF ").size(), 4);
        QVERIFY(camera.getFrame() != nullptr);
        QVERIFY(camera.close());
    }

    void reportedBytesNeverReachBeyondTheFrame_data()
    {
        QTest::addColumn<quint32>("bytesUsed");
        QTest::addColumn<quint32>("bufferLength");
        QTest::addColumn<quint32>("copied");
        QTest::newRow("exact") << kVgaSize << kVgaSize << kVgaSize;
        QTest::newRow("short") << 1280u << kVgaSize << 1280u;
        QTest::newRow("none") << 0u << kVgaSize << 0u;
        QTest::newRow("more than buffer and frame") << 0xFFFFFFFFu << kVgaSize << kVgaSize;
        QTest::newRow("long buffer") << 2 * kVgaSize << 2 * kVgaSize << kVgaSize;
        QTest::newRow("buffer shorter than a frame") << kVgaSize << 4096u << 4096u;
    }

    void reportedBytesNeverReachBeyondTheFrame()
    {
        QFETCH(quint32, bytesUsed);
        QFETCH(quint32, bufferLength);
        QFETCH(quint32, copied);
        RiggedCamera camera;
        camera.machine.driver.bufferLength_bytes = bufferLength;
        camera.machine.applyDriver();
        QVERIFY(camera.open(0, "", false));
        QVERIFY(camera.machine.deliver({200, bytesUsed}));
        QCOMPARE(copyOf(camera.getFrame()), rgbOf(0, copied, 200));
    }

    void theNewestFrameIsConvertedAndItsBufferNamed_data()
    {
        QTest::addColumn<unsigned>("buffers");
        QTest::newRow("one buffer is enough") << 1U;
        QTest::newRow("as many as there are copies") << 4U;
        QTest::newRow("more, which share the copies") << 8U;
        QTest::newRow("as many as there can be") << 32U;
    }

    void theNewestFrameIsConvertedAndItsBufferNamed()
    {
        QFETCH(unsigned, buffers);
        RiggedCamera camera;
        camera.machine.grantBuffers(buffers);
        QVERIFY(camera.open(0, "", false));
        for (unsigned int i = 0; i < buffers + 2; ++i) {
            const auto value = quint8(7 * (i + 1));
            QVERIFY(camera.machine.deliver({value, kVgaSize}));
            unsigned int index = 99;
            QCOMPARE(copyOf(camera.getFrame(index)), rgbOf(value));
            QCOMPARE(index, i % buffers);
            QCOMPARE(g_v4l2_buffer.index, i % buffers);
        }
        QVERIFY(camera.close());
        QCOMPARE(camera.machine.misuses(), QStringList());
    }

    void anIndexThatWasNeverGrantedIsIgnored_data()
    {
        QTest::addColumn<int>("index");
        QTest::newRow("next") << 4;
        QTest::newRow("far") << 0x7FFFFFFF;
    }

    void anIndexThatWasNeverGrantedIsIgnored()
    {
        QFETCH(int, index);
        StreamingCamera camera;
        QVERIFY(camera.machine.deliver({90, kVgaSize}));
        QVERIFY(camera.machine.deliver({180, kVgaSize, unsigned(index)}));
        unsigned int newest = 99;
        QCOMPARE(copyOf(camera.getFrame(newest)), rgbOf(90));
        QCOMPARE(newest, 0u);
        QVERIFY(camera.machine.deliver({210, kVgaSize}));
        QCOMPARE(copyOf(camera.getFrame()), rgbOf(210));
    }

    void anIndexOfAnotherBufferCostsABufferEachTime()
    {
        StreamingCamera camera;
        // The buffer that came is not known, so it is not given back: the stream runs dry, and
        // closing and opening it makes it whole again.
        constexpr int kBuffers = 4;
        for (unsigned int i = 0; i < kBuffers; ++i) {
            QVERIFY(camera.machine.deliver({200, kVgaSize, (i + 1) % kBuffers}));
            QVERIFY(camera.getFrame() != nullptr);
        }
        QVERIFY(camera.close());
        QVERIFY(camera.open(0, "", false));
        for (const quint8 value : {70, 80, 90, 100, 110}) {
            QVERIFY(camera.machine.deliver({value, kVgaSize}));
            QCOMPARE(copyOf(camera.getFrame()), rgbOf(value));
        }
        QVERIFY(camera.close());
        QCOMPARE(camera.machine.openMappings(), std::size_t(0));
    }

    void aStallCostsNothingButItsTime()
    {
        constexpr int kWaits = 50; // each as a second of the driver's
        StreamingCamera camera;
        QVERIFY(camera.machine.deliver({90, kVgaSize}));
        const Bytes before = copyOf(camera.getFrame());
        const std::uint64_t frames = camera.framesCaptured();
        const int waits = camera.machine.captureCalls().filter("select").size();
        QTRY_VERIFY(camera.machine.captureCalls().filter("select").size() >= waits + kWaits);
        QCOMPARE(copyOf(camera.getFrame()), before);
        QCOMPARE(camera.framesCaptured(), frames);
        QVERIFY(camera.isStreaming());
        QVERIFY(camera.machine.deliver({150, kVgaSize}));
        QCOMPARE(copyOf(camera.getFrame()), rgbOf(150));
        QCOMPARE(camera.framesCaptured(), frames + 1);
    }

    void aStallDoesNotKeepTheCameraFromClosing()
    {
        StreamingCamera camera;
        const int waits = camera.machine.captureCalls().filter("select").size();
        QTRY_VERIFY(camera.machine.captureCalls().filter("select").size() > waits);
        QVERIFY(camera.close());
        const QStringList calls = camera.machine.captureCalls();
        // The thread is gone: nothing waits any more.
        QTest::qWait(20);
        QCOMPARE(camera.machine.captureCalls(), calls);
        QCOMPARE(camera.machine.misuses(), QStringList());
    }

    void aBufferThatChangesWhileItIsCopiedIsNoMoreThanATornFrame()
    {
#ifdef __SANITIZE_THREAD__
        QSKIP("such a driver is a race by intention");
#endif
        ScribbledCamera machine;
        machine.deliverEndlessly();
        OV5642Camera camera;
        QVERIFY(camera.open(0, "", false));
        machine.beginScribbling();
        constexpr int kFrames = 30;
        for (int i = 0; i < kFrames; ++i) {
            const int taken = machine.requeued();
            QTRY_VERIFY(machine.requeued() > taken);
            const uchar* frame = camera.getFrame();
            QVERIFY(frame != nullptr);
            // What has been taken is the camera's own: it changes no more.
            const Bytes first = copyOf(frame);
            QTest::qWait(1);
            QCOMPARE(copyOf(frame), first);
        }
        machine.endScribbling();
        // The frames after that are whole: at most those in the buffers were touched.
        constexpr int kBuffers = 4;
        const int taken = machine.requeued();
        QTRY_VERIFY(machine.requeued() > taken + 2 * kBuffers);
        QVERIFY(isUniform(camera.getFrame()));
        QVERIFY(camera.close());
        QCOMPARE(machine.openMappings(), std::size_t(0));
    }

    void theGuiAndOtherThreadsHaveBuffersOfTheirOwn()
    {
        StreamingCamera camera;
        QVERIFY(camera.machine.deliver({60, kVgaSize}));
        const uchar* own = camera.getFrame();
        QVERIFY(camera.machine.deliver({160, kVgaSize}));
        const uchar* others = nullptr;
        std::thread([&] { others = camera.getFrame(); }).join();
        QVERIFY(own != others);
        QCOMPARE(copyOf(own), rgbOf(60));
        QCOMPARE(copyOf(others), rgbOf(160));
        QVERIFY(camera.machine.deliver({240, kVgaSize}));
        QCOMPARE(copyOf(camera.getFrame()), rgbOf(240));
        QCOMPARE(copyOf(others), rgbOf(160));
    }

    void noFrameIsEverTornWhileTwoThreadsFetch_data()
    {
        QTest::addColumn<int>("buffers");
        QTest::newRow("one buffer") << 1;
        QTest::newRow("four buffers") << 4;
        QTest::newRow("eight buffers") << 8;
        QTest::newRow("thirty-two buffers") << 32;
    }

    void noFrameIsEverTornWhileTwoThreadsFetch()
    {
        QFETCH(int, buffers);
        constexpr int kFetches = 150;
        RiggedCamera camera;
        camera.machine.grantBuffers(unsigned(buffers));
        camera.machine.deliverEndlessly();
        QVERIFY(camera.open(0, "", false));
        std::atomic<int> torn{0};
        auto fetch = [&] {
            for (int i = 0; i < kFetches; ++i) {
                unsigned int index = 99;
                const uchar* frame = camera.getFrame(index);
                if (frame == nullptr || !isUniform(frame) || index >= unsigned(buffers))
                    ++torn;
            }
        };
        std::thread other(fetch);
        fetch();
        other.join();
        QCOMPARE(torn.load(), 0);
        QTRY_VERIFY(camera.machine.requeued() > 0);
        QVERIFY(camera.close());
        QCOMPARE(camera.machine.misuses(), QStringList());
    }
};

QTEST_GUILESS_MAIN(TestCameraFrames)
#include "test_camera_frames.moc"
