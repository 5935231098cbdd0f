#include <cerrno>
#include <functional>
#include <vector>

#include <QtTest>

#include "CaptureBench.h"

namespace {

using Bench = CaptureBench;
using std::chrono::milliseconds;

struct Misuse
{
    const char* name;
    int error;
    std::function<int(Bench&)> attempt;
};

const std::vector<Misuse>& misuses()
{
    static const int output = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    const auto withBuffer = [](unsigned long request, auto change) {
        return [=](Bench& bench) {
            v4l2_buffer buffer = bufferOf(0);
            change(buffer);
            return bench.call(request, &buffer);
        };
    };
    const auto otherType = [](v4l2_buffer& buffer) { buffer.type = V4L2_BUF_TYPE_VIDEO_OUTPUT; };
    const auto otherMemory = [](v4l2_buffer& buffer) { buffer.memory = V4L2_MEMORY_USERPTR; };
    const auto otherIndex = [](v4l2_buffer& buffer) { buffer.index = 4; };
    const auto withFormatType = [](unsigned long request) {
        return [request](Bench& bench) {
            v4l2_format format = formatOf(640, 480);
            format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
            return bench.call(request, &format);
        };
    };
    const auto allocated = [](auto attempt) {
        return [attempt](Bench& bench) {
            bench.allocate();
            return attempt(bench);
        };
    };
    const auto streaming = [](auto attempt) {
        return [attempt](Bench& bench) {
            bench.start(3);
            return attempt(bench);
        };
    };
    const auto mapped = [](auto attempt) {
        return [attempt](Bench& bench) {
            bench.allocate();
            const auto memory = bench.map(0);
            return attempt(bench);
        };
    };
    const auto streamType = [](unsigned long request) {
        return [request](Bench& bench) {
            int type = output;
            return bench.call(request, &type);
        };
    };
    static const std::vector<Misuse> kMisuses{
        {"no record", EFAULT, [](Bench& bench) { return bench.call(VIDIOC_QUERYCAP, nullptr); }},
        {"unknown request", ENOTTY,
         [](Bench& bench) {
             v4l2_control control{};
             return bench.call(VIDIOC_G_CTRL, &control);
         }},
        {"second format", EINVAL,
         [](Bench& bench) {
             v4l2_fmtdesc format{};
             format.index = 1;
             format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
             return bench.call(VIDIOC_ENUM_FMT, &format);
         }},
        {"format list of another type", EINVAL,
         [](Bench& bench) {
             v4l2_fmtdesc format{};
             format.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
             return bench.call(VIDIOC_ENUM_FMT, &format);
         }},
        {"get format of another type", EINVAL, withFormatType(VIDIOC_G_FMT)},
        {"try format of another type", EINVAL, withFormatType(VIDIOC_TRY_FMT)},
        {"set format of another type", EINVAL, withFormatType(VIDIOC_S_FMT)},
        {"set format while allocated", EBUSY, allocated([](Bench& bench) { return bench.format(640, 480); })},
        {"set format while queued", EBUSY, allocated([](Bench& bench) {
             bench.queue(0);
             return bench.format(640, 480);
         })},
        {"set format after the stream", EBUSY, streaming([](Bench& bench) {
             bench.stream(false);
             return bench.format(640, 480);
         })},
        {"set format while mapped", EBUSY, mapped([](Bench& bench) { return bench.format(640, 480); })},
        {"set format while streaming", EBUSY, streaming([](Bench& bench) { return bench.format(640, 480); })},
        {"rate of another type", EINVAL,
         [](Bench& bench) {
             v4l2_streamparm parameters{};
             parameters.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
             return bench.call(VIDIOC_G_PARM, &parameters);
         }},
        {"buffers of another type", EINVAL,
         [](Bench& bench) {
             v4l2_requestbuffers request = requestOf(4);
             request.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
             return bench.call(VIDIOC_REQBUFS, &request);
         }},
        {"buffers of another memory", EINVAL,
         [](Bench& bench) {
             v4l2_requestbuffers request = requestOf(4);
             request.memory = V4L2_MEMORY_USERPTR;
             return bench.call(VIDIOC_REQBUFS, &request);
         }},
        {"new buffers while mapped", EBUSY, mapped([](Bench& bench) { return bench.allocate(); })},
        {"freeing buffers while mapped", EBUSY, mapped([](Bench& bench) { return bench.allocate(0); })},
        {"new buffers while streaming", EBUSY, streaming([](Bench& bench) { return bench.allocate(); })},
        {"freeing buffers while streaming", EBUSY, streaming([](Bench& bench) { return bench.allocate(0); })},
        {"query without buffers", EINVAL, withBuffer(VIDIOC_QUERYBUF, [](v4l2_buffer&) {})},
        {"query of another type", EINVAL, allocated(withBuffer(VIDIOC_QUERYBUF, otherType))},
        {"query of a missing buffer", EINVAL, allocated(withBuffer(VIDIOC_QUERYBUF, otherIndex))},
        {"queue without buffers", EINVAL, [](Bench& bench) { return bench.queue(0); }},
        {"queue of another type", EINVAL, allocated(withBuffer(VIDIOC_QBUF, otherType))},
        {"queue of another memory", EINVAL, allocated(withBuffer(VIDIOC_QBUF, otherMemory))},
        {"queue of a missing buffer", EINVAL, allocated(withBuffer(VIDIOC_QBUF, otherIndex))},
        {"queue of a queued buffer", EINVAL, streaming([](Bench& bench) { return bench.queue(0); })},
        {"queue of a finished buffer", EINVAL, streaming([](Bench& bench) {
             bench.now = milliseconds(40);
             return bench.queue(0);
         })},
        {"dequeue without a stream", EINVAL, allocated(withBuffer(VIDIOC_DQBUF, [](v4l2_buffer&) {}))},
        {"dequeue of another type", EINVAL, streaming(withBuffer(VIDIOC_DQBUF, otherType))},
        {"dequeue of another memory", EINVAL, streaming(withBuffer(VIDIOC_DQBUF, otherMemory))},
        {"dequeue before the first frame", EAGAIN, streaming(withBuffer(VIDIOC_DQBUF, [](v4l2_buffer&) {}))},
        {"start without buffers", EINVAL, [](Bench& bench) { return bench.stream(true); }},
        {"start of another type", EINVAL, allocated(streamType(VIDIOC_STREAMON))},
        {"stop of another type", EINVAL, streaming(streamType(VIDIOC_STREAMOFF))},
    };
    return kMisuses;
}

} // namespace

class TestCaptureDevice : public QObject
{
    Q_OBJECT

private slots:
    void misuseIsRefusedAsAKernelDriverDoes_data()
    {
        QTest::addColumn<int>("row");
        for (std::size_t row = 0; row < misuses().size(); ++row)
            QTest::newRow(misuses()[row].name) << int(row);
    }

    void misuseIsRefusedAsAKernelDriverDoes()
    {
        QFETCH(int, row);
        const Misuse& misuse = misuses()[std::size_t(row)];
        Bench bench;
        QCOMPARE(misuse.attempt(bench), misuse.error);
    }

    void theDeviceCapturesAndStreams()
    {
        Bench bench;
        v4l2_capability capability{};
        QCOMPARE(bench.call(VIDIOC_QUERYCAP, &capability), 0);
        QVERIFY((capability.device_caps & V4L2_CAP_VIDEO_CAPTURE) != 0);
        QVERIFY((capability.capabilities & V4L2_CAP_STREAMING) != 0);
        v4l2_fmtdesc format{};
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        QCOMPARE(bench.call(VIDIOC_ENUM_FMT, &format), 0);
        QCOMPARE(format.pixelformat, __u32(0x56595559));
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
        for (int look = 0; look < 2; ++look) {
            QCOMPARE(format.fmt.pix.width, gotWidth);
            QCOMPARE(format.fmt.pix.height, gotHeight);
            QCOMPARE(format.fmt.pix.pixelformat, __u32(V4L2_PIX_FMT_YUYV));
            QCOMPARE(format.fmt.pix.bytesperline, gotWidth * 2);
            QCOMPARE(format.fmt.pix.sizeimage, gotWidth * gotHeight * 2);
            format.fmt.pix = {};
            QCOMPARE(bench.call(VIDIOC_G_FMT, &format), 0);
        }
        v4l2_streamparm parameters{};
        parameters.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        QCOMPARE(bench.call(VIDIOC_G_PARM, &parameters), 0);
        QCOMPARE(parameters.parm.capture.timeperframe.numerator, 1U);
        QCOMPARE(parameters.parm.capture.timeperframe.denominator, rate);
    }

    void tryingAFormatChangesNothing()
    {
        Bench bench;
        v4l2_format format = formatOf(2592, 1944);
        QCOMPARE(bench.call(VIDIOC_TRY_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.width, 2592U);
        QCOMPARE(bench.call(VIDIOC_G_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.width, 640U);
    }

    void buffersThatAreOnlyAllocatedHoldTheFormat()
    {
        Bench bench;
        QCOMPARE(bench.allocate(), 0);
        QCOMPARE(bench.queue(0), 0);
        QCOMPARE(bench.format(1280, 960), EBUSY);
        QCOMPARE(bench.allocate(0), 0);
        QCOMPARE(bench.format(1280, 960), 0);
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
            QCOMPARE(int(bytes[gotWidth * 2 - 1]), 1);
            if (padding > 0)
                QCOMPARE(int(bytes[gotWidth * 2]), 0);
        }
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

    void aMappingHasToMatchABuffer()
    {
        Bench bench;
        QCOMPARE(bench.allocate(), 0);
        v4l2_buffer buffer = bufferOf(1);
        QCOMPARE(bench.call(VIDIOC_QUERYBUF, &buffer), 0);
        QVERIFY((buffer.flags & V4L2_BUF_FLAG_MAPPED) == 0);
        QVERIFY(buffer.m.offset > 0);
        const auto memory = bench.device.memoryAt(buffer.m.offset, buffer.length);
        QVERIFY(memory != nullptr);
        QCOMPARE(bench.call(VIDIOC_QUERYBUF, &buffer), 0);
        QVERIFY((buffer.flags & V4L2_BUF_FLAG_MAPPED) != 0);
        QVERIFY(bench.map(2) != memory);
        QVERIFY(bench.device.memoryAt(buffer.m.offset + 4096, buffer.length) == nullptr);
        QVERIFY(bench.device.memoryAt(buffer.m.offset, buffer.length + 8192) == nullptr);
        QVERIFY(bench.device.memoryAt(buffer.m.offset, 0) == nullptr);
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

    void buffersComeBackInTheirOrder()
    {
        Bench bench;
        QCOMPARE(bench.allocate(), 0);
        for (unsigned index : {2U, 0U, 3U, 1U})
            QCOMPARE(bench.queue(index), 0);
        QCOMPARE(bench.stream(true), 0);
        bench.now = milliseconds(140);
        for (unsigned index : {2U, 0U, 3U, 1U}) {
            v4l2_buffer buffer{};
            QCOMPARE(bench.dequeue(buffer), 0);
            QCOMPARE(buffer.index, index);
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

    void aBufferBelongsToOneSideAtATime()
    {
        Bench bench;
        const auto flagsOf = [&bench](unsigned index) {
            v4l2_buffer buffer = bufferOf(index);
            bench.call(VIDIOC_QUERYBUF, &buffer);
            return buffer.flags & (V4L2_BUF_FLAG_QUEUED | V4L2_BUF_FLAG_DONE);
        };
        QCOMPARE(bench.allocate(), 0);
        QCOMPARE(flagsOf(0), 0U);
        QCOMPARE(bench.queue(0), 0);
        QCOMPARE(flagsOf(0), unsigned(V4L2_BUF_FLAG_QUEUED));
        QCOMPARE(bench.stream(true), 0);
        bench.now = milliseconds(34);
        QCOMPARE(flagsOf(0), unsigned(V4L2_BUF_FLAG_DONE));
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(flagsOf(0), 0U);
        QCOMPARE(flagsOf(1), 0U);
    }

    void stoppingHandsEveryBufferBack()
    {
        Bench bench;
        bench.start();
        bench.now = milliseconds(40);
        QCOMPARE(bench.stream(false), 0);
        QVERIFY(!bench.device.isStreaming());
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), EINVAL);
        for (unsigned index = 0; index < 4; ++index)
            QCOMPARE(bench.queue(index), 0);
        QCOMPARE(bench.stream(true), 0);
        QCOMPARE(bench.dequeue(buffer), EAGAIN);
        bench.now += milliseconds(34);
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(buffer.sequence, 0U);
    }

    void startingAndStoppingTwiceIsHarmless()
    {
        Bench bench;
        QCOMPARE(bench.stream(false), 0);
        bench.start();
        bench.now = milliseconds(34);
        QCOMPARE(bench.stream(true), 0);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(buffer), 0);
        QCOMPARE(bench.stream(false), 0);
        QCOMPARE(bench.stream(false), 0);
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
