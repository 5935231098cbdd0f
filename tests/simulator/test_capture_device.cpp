#include <algorithm>
#include <cerrno>
#include <vector>

#include <QtTest>

#include "CaptureBench.h"
#include "simulator/camera/ScriptedFrames.h"

namespace {

using Bench = CaptureBench;
using std::chrono::milliseconds;

} // namespace

/// What the simulator's device does beyond what every driver does (test_capture_contract).
class TestCaptureDevice : public QObject
{
    Q_OBJECT

private slots:
    void aRequestWithoutARecordIsRefused()
    {
        Bench bench;
        QCOMPARE(bench.call(VIDIOC_S_FMT, nullptr), EFAULT);
    }

    void onlyBuffersOfTheDeviceAreTaken()
    {
        Bench bench;
        v4l2_requestbuffers request = requestOf(4);
        request.memory = V4L2_MEMORY_USERPTR;
        QCOMPARE(bench.call(VIDIOC_REQBUFS, &request), EINVAL);
        bench.start(3);
        v4l2_buffer buffer = bufferOf(0);
        buffer.memory = V4L2_MEMORY_USERPTR;
        QCOMPARE(bench.call(VIDIOC_DQBUF, &buffer), EINVAL);
    }

    // As kernels before 4.20 do; later ones let the mapping outlive the buffer.
    void mappedBuffersAreNotExchanged()
    {
        Bench bench;
        QCOMPARE(bench.allocate(), 0);
        const auto memory = bench.map(0);
        QCOMPARE(bench.allocate(), EBUSY);
        QCOMPARE(bench.allocate(0), EBUSY);
    }

    void aSizeIsAdjustedToTheNearestOfThree_data()
    {
        QTest::addColumn<unsigned>("width");
        QTest::addColumn<unsigned>("height");
        QTest::addColumn<unsigned>("gotWidth");
        QTest::addColumn<unsigned>("gotHeight");
        QTest::addColumn<unsigned>("rate");
        QTest::newRow("VGA") << 640U << 480U << 640U << 480U << 30U;
        QTest::newRow("1280") << 1280U << 960U << 1280U << 960U << 30U;
        QTest::newRow("5M") << 2592U << 1944U << 2592U << 1944U << 15U;
        QTest::newRow("nothing") << 0U << 0U << 640U << 480U << 30U;
        QTest::newRow("PAL") << 720U << 576U << 640U << 480U << 30U;
        QTest::newRow("720 lines") << 1280U << 720U << 1280U << 960U << 30U;
        QTest::newRow("1080 lines") << 1920U << 1080U << 1280U << 960U << 30U;
        QTest::newRow("huge") << 0xFFFFFFFFU << 0xFFFFFFFFU << 2592U << 1944U << 15U;
    }

    void aSizeIsAdjustedToTheNearestOfThree()
    {
        QFETCH(unsigned, width);
        QFETCH(unsigned, height);
        QFETCH(unsigned, gotWidth);
        QFETCH(unsigned, gotHeight);
        QFETCH(unsigned, rate);
        Bench bench;
        v4l2_format format = formatOf(width, height);
        format.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB24;
        QCOMPARE(bench.call(VIDIOC_S_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.width, gotWidth);
        QCOMPARE(format.fmt.pix.height, gotHeight);
        QCOMPARE(format.fmt.pix.pixelformat, __u32(V4L2_PIX_FMT_YUYV));
        QCOMPARE(format.fmt.pix.bytesperline, gotWidth * 2);
        QCOMPARE(format.fmt.pix.sizeimage, gotWidth * gotHeight * 2);
        bench.start();
        QCOMPARE(bench.device.nextFrameTime()->count(), std::int64_t((1000000 + rate - 1) / rate));
    }

    void aLenientDriverOnlyLooksAtMappingsAndStream()
    {
        CaptureParameters parameters;
        parameters.formatHeldByBuffers = false;
        Bench bench(parameters);
        QCOMPARE(bench.allocate(), 0);
        QCOMPARE(bench.format(1280, 960), 0);
        // The buffers are still those of the smaller format.
        QCOMPARE(bench.queue(0), EINVAL);
        const auto memory = bench.map(0);
        QCOMPARE(bench.format(640, 480), EBUSY);
    }

    void aDriverMayGrantASmallerPictureInLongerRows_data()
    {
        QTest::addColumn<int>("columns");
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("padding");
        QTest::addColumn<unsigned>("gotWidth");
        QTest::addColumn<unsigned>("gotHeight");
        QTest::addColumn<unsigned>("gotLine");
        QTest::newRow("fewer rows") << 2592 << 720 << 0 << 1280U << 720U << 2560U;
        QTest::newRow("fewer columns") << 1001 << 1944 << 0 << 1000U << 960U << 2000U;
        QTest::newRow("longer rows") << 2592 << 1944 << 64 << 1280U << 960U << 2624U;
        QTest::newRow("all of it") << 800 << 600 << 32 << 800U << 600U << 1632U;
    }

    void aDriverMayGrantASmallerPictureInLongerRows()
    {
        QFETCH(int, columns);
        QFETCH(int, rows);
        QFETCH(int, padding);
        QFETCH(unsigned, gotWidth);
        QFETCH(unsigned, gotHeight);
        QFETCH(unsigned, gotLine);
        CaptureParameters parameters;
        parameters.mostColumns_px = columns;
        parameters.mostRows_px = rows;
        parameters.rowPadding_bytes = padding;
        Bench bench(parameters);
        v4l2_format format = formatOf(1280, 960);
        QCOMPARE(bench.call(VIDIOC_S_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.width, gotWidth);
        QCOMPARE(format.fmt.pix.height, gotHeight);
        QCOMPARE(format.fmt.pix.bytesperline, gotLine);
        QCOMPARE(format.fmt.pix.sizeimage, gotLine * gotHeight);
        bench.start();
        const auto memory = bench.map(0);
        bench.now = milliseconds(40);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.bytesused, gotLine * gotHeight);
        QCOMPARE(buffer.length, gotLine * gotHeight);
        for (const unsigned row : {0U, gotHeight - 1}) {
            const std::uint8_t* bytes = memory->data() + std::size_t(row) * gotLine;
            QCOMPARE(int(bytes[0]), 1);
            const std::size_t used = std::size_t(gotWidth) * 2;
            QCOMPARE(int(bytes[used - 1]), 1);
            if (padding > 0)
                QCOMPARE(int(bytes[used]), 0);
        }
    }

    void aDriverMayHaveBuffersOfAnotherLength_data()
    {
        QTest::addColumn<unsigned>("length");
        QTest::newRow("shorter than a frame") << 8192U;
        QTest::newRow("longer than a frame") << 700000U;
    }

    void aDriverMayHaveBuffersOfAnotherLength()
    {
        QFETCH(unsigned, length);
        CaptureParameters parameters;
        parameters.bufferLength_bytes = length;
        Bench bench(parameters);
        bench.start();
        const auto memory = bench.map(0);
        bench.now = milliseconds(40);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.length, length);
        QCOMPARE(buffer.bytesused, 640U * 480U * 2U);
        const unsigned last = std::min(length, buffer.bytesused) - 1;
        QCOMPARE(int(memory->data()[last]), 1);
        QCOMPARE(int(memory->data()[length - 1]), length < buffer.bytesused ? 1 : 0);
    }

    void aFormatMayBeGrantedInAnotherForm()
    {
        CaptureParameters parameters;
        parameters.adjustFormat = [](v4l2_pix_format& pix) {
            pix.bytesperline = 2000;
            pix.pixelformat = V4L2_PIX_FMT_UYVY;
        };
        Bench bench;
        bench.device.setParameters(parameters);
        v4l2_format format = formatOf(640, 480);
        QCOMPARE(bench.call(VIDIOC_S_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.pixelformat, __u32(V4L2_PIX_FMT_UYVY));
        QCOMPARE(format.fmt.pix.bytesperline, 2000U);
        QCOMPARE(bench.allocate(), 0);
        v4l2_buffer buffer = bufferOf(0);
        QCOMPARE(bench.call(VIDIOC_QUERYBUF, &buffer), 0);
        QCOMPARE(buffer.length, 2000U * 480U);
    }

    void framesAtOnceWaitForABufferAndAPicture()
    {
        CaptureParameters parameters;
        parameters.framesPerSecond = kFramesAtOnce_hz;
        ScriptedFrames frames;
        CaptureDevice device(parameters, frames);
        struct ScriptedBench : CaptureRequests
        {
            explicit ScriptedBench(CaptureDevice& served) : device(served) {}
            int call(unsigned long request, void* argument) override
            {
                return device.handle(request, argument, now += InstrumentTime(2));
            }
            CaptureDevice& device;
            InstrumentTime now{0};
        } bench(device);
        bench.start(2);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), EAGAIN);
        QVERIFY(!device.nextFrameTime().has_value());
        frames.add({7});
        QVERIFY(device.nextFrameTime().has_value());
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.index, 0U);
        QCOMPARE(buffer.bytesused, 640U * 480U * 2U);
        frames.add({9, {100U, 17U}});
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.index, 17U);
        QCOMPARE(buffer.bytesused, 100U);
        // Both buffers are out: the next picture has to wait.
        frames.add({11});
        QCOMPARE(bench.dequeue(buffer), EAGAIN);
        QVERIFY(!device.nextFrameTime().has_value());
        QCOMPARE(bench.queue(1), 0);
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.index, 1U);
    }

    void atLeastFourBuffersAreGranted_data()
    {
        QTest::addColumn<unsigned>("asked");
        QTest::addColumn<bool>("more");
        QTest::addColumn<bool>("fewer");
        QTest::addColumn<unsigned>("granted");
        QTest::newRow("one") << 1U << false << false << 4U;
        QTest::newRow("four") << 4U << false << false << 4U;
        QTest::newRow("six") << 6U << false << false << 6U;
        QTest::newRow("too many") << 100U << false << false << 32U;
        QTest::newRow("generous driver") << 4U << true << false << 8U;
        QTest::newRow("driver short of memory") << 4U << false << true << 2U;
    }

    void atLeastFourBuffersAreGranted()
    {
        QFETCH(unsigned, asked);
        QFETCH(bool, more);
        QFETCH(bool, fewer);
        QFETCH(unsigned, granted);
        Bench bench;
        CaptureFlaws flaws;
        flaws.moreBuffers = more;
        flaws.fewerBuffers = fewer;
        bench.device.setFlaws(flaws);
        v4l2_requestbuffers request = requestOf(asked);
        QCOMPARE(bench.call(VIDIOC_REQBUFS, &request), 0);
        QCOMPARE(request.count, granted);
        v4l2_buffer last = bufferOf(granted - 1);
        QCOMPARE(bench.call(VIDIOC_QUERYBUF, &last), 0);
        QCOMPARE(last.length, 640U * 480U * 2U);
        v4l2_buffer beyond = bufferOf(granted);
        QCOMPARE(bench.call(VIDIOC_QUERYBUF, &beyond), EINVAL);
    }

    void framesEndOnTheFrameClock_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("VGA") << 0;
        QTest::newRow("1280") << 1;
        QTest::newRow("5M") << 2;
    }

    void framesEndOnTheFrameClock()
    {
        QFETCH(int, mode);
        const PictureMode& picture = kPictureModes[std::size_t(mode)];
        Bench bench;
        bench.now = milliseconds(1234);
        const InstrumentTime start = bench.now;
        QCOMPARE(bench.format(unsigned(picture.width_px), unsigned(picture.height_px)), 0);
        bench.start();
        for (int frame = 1; frame <= 2 * picture.framesPerSecond; ++frame) {
            QVERIFY(bench.device.nextFrameTime().has_value());
            const InstrumentTime end = *bench.device.nextFrameTime();
            QVERIFY(std::abs(seconds(end - start) - double(frame) / picture.framesPerSecond) < 2e-6);
            QVERIFY(!bench.device.readable(end - InstrumentTime(2)));
            QVERIFY(bench.device.readable(end));
            bench.now = end;
            v4l2_buffer buffer{};
            QCOMPARE(bench.dequeue(buffer), 0);
            QCOMPARE(buffer.sequence, unsigned(frame - 1));
            QCOMPARE(buffer.bytesused, unsigned(picture.frameBytes()));
            QCOMPARE(InstrumentTime(buffer.timestamp.tv_sec * 1000000 + buffer.timestamp.tv_usec), end);
            QCOMPARE(bench.pictures.times.back(), end);
            const unsigned index = buffer.index;
            QCOMPARE(bench.dequeue(buffer), EAGAIN);
            QCOMPARE(bench.queue(index), 0);
        }
    }

    void framesWithoutABufferAreLostAndCounted()
    {
        Bench bench;
        bench.start(2);
        bench.now = milliseconds(500);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.sequence, 0U);
        QCOMPARE(bench.queue(buffer.index), 0);
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.sequence, 1U);
        bench.now = milliseconds(540);
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.sequence, 15U);
        QCOMPARE(bench.device.framesDelivered(), std::uint64_t(3));
    }

    void aFrameCountsAsReturnedWithItsBufferOrItsStream()
    {
        Bench bench;
        bench.start(2);
        QCOMPARE(bench.device.framesReturned(), std::uint64_t(0));
        bench.now = milliseconds(100);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(bench.device.framesDelivered(), std::uint64_t(2));
        QCOMPARE(bench.device.framesReturned(), std::uint64_t(0));
        QCOMPARE(bench.queue(buffer.index), 0);
        QCOMPARE(bench.device.framesReturned(), std::uint64_t(1));
        // A buffer that never held a frame of this stream returns none.
        QCOMPARE(bench.queue(3), 0);
        QCOMPARE(bench.device.framesReturned(), std::uint64_t(1));
        QCOMPARE(bench.stream(false), 0);
        QCOMPARE(bench.device.framesReturned(), bench.device.framesDelivered());
    }

    void thereIsNothingToWaitForWithoutAStream()
    {
        Bench bench;
        QVERIFY(bench.device.readable(bench.now));
        bench.start();
        QVERIFY(!bench.device.readable(bench.now));
        bench.device.release();
        QVERIFY(bench.device.readable(bench.now));
        QVERIFY(!bench.device.nextFrameTime().has_value());
        QCOMPARE(bench.queue(0), EINVAL);
    }

    void aPictureIsDrawnOnceAndCopiedOnlyWhereItIsMissing()
    {
        Bench bench;
        bench.start();
        std::vector<std::shared_ptr<FrameMemory>> memory;
        for (unsigned index = 0; index < 4; ++index)
            memory.push_back(bench.map(index));
        const auto runFrames = [&bench, &memory](int count) {
            for (int frame = 0; frame < count; ++frame) {
                bench.now = *bench.device.nextFrameTime();
                v4l2_buffer buffer{};
                QCOMPARE(bench.dequeue(buffer), 0);
                const std::uint8_t* bytes = memory[buffer.index]->data();
                QCOMPARE(std::uint64_t(bytes[0]), bench.pictures.picture);
                QCOMPARE(std::uint64_t(bytes[buffer.bytesused - 1]), bench.pictures.picture);
                QCOMPARE(bench.queue(buffer.index), 0);
            }
        };
        runFrames(20);
        QCOMPARE(bench.device.drawings(), std::uint64_t(1));
        QCOMPARE(bench.device.copies(), std::uint64_t(3));
        bench.pictures.picture = 2;
        runFrames(20);
        QCOMPARE(bench.device.drawings(), std::uint64_t(2));
        QCOMPARE(bench.device.copies(), std::uint64_t(6));
        QCOMPARE(bench.device.framesDelivered(), std::uint64_t(40));
    }

    void aBufferInTheProgramsHandsIsNotCopiedFrom()
    {
        Bench bench;
        bench.start(2);
        const auto first = bench.map(0);
        const auto second = bench.map(1);
        v4l2_buffer buffer{};
        bench.now = milliseconds(34);
        QCOMPARE(bench.dequeue(buffer), 0);
        first->data()[0] = 99;
        bench.now = milliseconds(67);
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.index, 1U);
        QCOMPARE(int(second->data()[0]), 1);
        QCOMPARE(bench.device.drawings(), std::uint64_t(2));
    }

    void flawedFramesSaySo_data()
    {
        QTest::addColumn<bool>("isShort");
        QTest::newRow("short") << true;
        QTest::newRow("oversized") << false;
    }

    void flawedFramesSaySo()
    {
        QFETCH(bool, isShort);
        Bench bench;
        bench.start();
        CaptureFlaws flaws;
        flaws.shortFrames = isShort;
        flaws.oversizedFrames = !isShort;
        bench.device.setFlaws(flaws);
        bench.now = milliseconds(34);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), 0);
        if (isShort)
            QCOMPARE(buffer.bytesused, buffer.length / 2);
        else
            QVERIFY(buffer.bytesused > buffer.length);
    }

    void aStalledStreamDeliversNothingUntilItGoesOn()
    {
        Bench bench;
        bench.start();
        CaptureFlaws flaws;
        flaws.stalled = true;
        bench.device.setFlaws(flaws);
        bench.now = milliseconds(3000);
        QVERIFY(!bench.device.readable(bench.now));
        QVERIFY(!bench.device.nextFrameTime().has_value());
        bench.device.setFlaws({});
        QVERIFY(!bench.device.readable(bench.now));
        bench.now += milliseconds(34);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.sequence, 0U);
    }

    void mappedMemoryOutlivesTheDevicesBuffers()
    {
        Bench bench;
        bench.start();
        const auto memory = bench.map(0);
        bench.now = milliseconds(34);
        QVERIFY(bench.device.readable(bench.now));
        bench.device.release();
        QCOMPARE(int(memory->data()[640 * 480 * 2 - 1]), 1);
    }
};

QTEST_GUILESS_MAIN(TestCaptureDevice)
#include "test_capture_device.moc"
