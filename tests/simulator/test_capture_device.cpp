#include <algorithm>
#include <cerrno>
#include <cstring>
#include <limits>
#include <set>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include <QtTest>

#include "CaptureFixture.h"
#include "FrameMappings.h"
#include "simulator/camera/ScriptedFrames.h"

namespace {

using std::chrono::milliseconds;

/// A picture no two rows of which are alike, and no byte of which is 0.
class PlacedPictures : public FrameSource
{
public:
    static std::uint8_t byteAt(std::size_t row, std::size_t column)
    {
        return std::uint8_t((row * 31 + column * 7 + column / 251) % 251 + 1);
    }
    std::uint64_t look(InstrumentTime /*time*/, const PictureMode& mode) override
    {
        m_mode = &mode;
        return 1;
    }
    void draw(std::uint8_t* yuyv) override
    {
        const auto columns = std::size_t(m_mode->width_px) * 2;
        for (std::size_t row = 0; row < std::size_t(m_mode->height_px); ++row)
            for (std::size_t column = 0; column < columns; ++column)
                *yuyv++ = byteAt(row, column);
    }

private:
    const PictureMode* m_mode = nullptr;
};

} // namespace

/// What the simulator's device does beyond what every driver does (test_capture_contract).
class TestCaptureDevice : public QObject
{
    Q_OBJECT

private slots:
    void onlyBuffersOfTheDeviceAreTaken()
    {
        CaptureFixture<> capture;
        v4l2_requestbuffers request = requestOf(4);
        request.memory = V4L2_MEMORY_USERPTR;
        QCOMPARE(capture.call(VIDIOC_REQBUFS, &request), EINVAL);
        capture.start(3);
        v4l2_buffer buffer = bufferOf(0);
        buffer.memory = V4L2_MEMORY_USERPTR;
        QCOMPARE(capture.call(VIDIOC_DQBUF, &buffer), EINVAL);
    }

    // As kernels before 4.20 do; later ones let the mapping outlive the buffer.
    void mappedBuffersAreNotExchanged()
    {
        CaptureFixture<> capture;
        QCOMPARE(capture.allocate(), 0);
        const auto memory = capture.map(0);
        QCOMPARE(capture.allocate(), EBUSY);
        QCOMPARE(capture.allocate(0), EBUSY);
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
        QTest::newRow("as near to two") << 960U << 720U << 640U << 480U << 30U;
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
        CaptureFixture<> capture;
        v4l2_format format = formatOf(width, height);
        // Whatever the program left in the record beyond its wishes is overwritten.
        std::memset(&format.fmt.pix, 0xA5, sizeof format.fmt.pix);
        format.fmt.pix.width = width;
        format.fmt.pix.height = height;
        format.fmt.pix.pixelformat = V4L2_PIX_FMT_RGB24;
        QCOMPARE(capture.call(VIDIOC_S_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.width, gotWidth);
        QCOMPARE(format.fmt.pix.height, gotHeight);
        QCOMPARE(format.fmt.pix.pixelformat, __u32(V4L2_PIX_FMT_YUYV));
        QCOMPARE(format.fmt.pix.bytesperline, gotWidth * 2);
        QCOMPARE(format.fmt.pix.sizeimage, gotWidth * gotHeight * 2);
        QCOMPARE(format.fmt.pix.field, __u32(V4L2_FIELD_NONE));
        QCOMPARE(format.fmt.pix.colorspace, __u32(V4L2_COLORSPACE_SRGB));
        QCOMPARE(format.fmt.pix.priv, 0U);
        QCOMPARE(format.fmt.pix.flags, 0U);
        QCOMPARE(format.fmt.pix.ycbcr_enc, 0U);
        QCOMPARE(format.fmt.pix.quantization, 0U);
        QCOMPARE(format.fmt.pix.xfer_func, 0U);
        capture.start();
        QCOMPARE(capture.device.nextFrameTime()->count(), std::int64_t((1000000 + rate - 1) / rate));
    }

    void aLenientDriverOnlyLooksAtMappingsAndStream()
    {
        CaptureParameters parameters;
        parameters.formatHeldByBuffers = false;
        CaptureFixture<> capture(parameters);
        QCOMPARE(capture.allocate(), 0);
        QCOMPARE(capture.format(1280, 960), 0);
        // The buffers are still those of the smaller format.
        QCOMPARE(capture.queue(0), EINVAL);
        const auto memory = capture.map(0);
        QCOMPARE(capture.format(640, 480), EBUSY);
    }

    void aDriverMayGrantAnotherPictureInOtherBuffers_data()
    {
        QTest::addColumn<int>("columns");
        QTest::addColumn<int>("rows");
        QTest::addColumn<int>("padding");
        QTest::addColumn<unsigned>("gotWidth");
        QTest::addColumn<unsigned>("gotHeight");
        QTest::addColumn<unsigned>("gotLine");
        QTest::addColumn<unsigned>("length");
        QTest::newRow("fewer rows") << 2592 << 720 << 0 << 1280U << 720U << 2560U << 0U;
        QTest::newRow("fewer columns") << 1001 << 1944 << 0 << 1000U << 960U << 2000U << 0U;
        QTest::newRow("longer rows") << 2592 << 1944 << 64 << 1280U << 960U << 2624U << 0U;
        QTest::newRow("all of it") << 800 << 600 << 32 << 800U << 600U << 1632U << 0U;
        QTest::newRow("as many bytes as the whole") << 2592 << 768 << 640 << 1280U << 768U << 3200U << 0U;
        QTest::newRow("room for the whole") << 2592 << 720 << 0 << 1280U << 720U << 2560U << 2457600U;
        QTest::newRow("room for half a row less") << 800 << 600 << 32 << 800U << 600U << 1632U << 978400U;
        QTest::newRow("shorter than a frame") << 2592 << 1944 << 0 << 1280U << 960U << 2560U << 8192U;
        QTest::newRow("longer than a frame") << 2592 << 1944 << 0 << 1280U << 960U << 2560U << 2500000U;
    }

    void aDriverMayGrantAnotherPictureInOtherBuffers()
    {
        QFETCH(int, columns);
        QFETCH(int, rows);
        QFETCH(int, padding);
        QFETCH(unsigned, gotWidth);
        QFETCH(unsigned, gotHeight);
        QFETCH(unsigned, gotLine);
        QFETCH(unsigned, length);
        CaptureParameters parameters;
        parameters.mostColumns_px = columns;
        parameters.mostRows_px = rows;
        parameters.rowPadding_bytes = padding;
        parameters.bufferLength_bytes = length;
        CaptureFixture<PlacedPictures> capture(parameters);
        v4l2_format format = formatOf(1280, 960);
        QCOMPARE(capture.call(VIDIOC_S_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.width, gotWidth);
        QCOMPARE(format.fmt.pix.height, gotHeight);
        QCOMPARE(format.fmt.pix.bytesperline, gotLine);
        QCOMPARE(format.fmt.pix.sizeimage, gotLine * gotHeight);
        capture.start();
        const auto memory = capture.map(0);
        v4l2_buffer buffer{};
        QCOMPARE(capture.dequeueAt(40, buffer), 0);
        QCOMPARE(buffer.bytesused, gotLine * gotHeight);
        QCOMPARE(buffer.length, length != 0 ? length : gotLine * gotHeight);
        for (std::size_t at = 0; at < buffer.length; ++at) {
            const std::size_t row = at / gotLine;
            const std::size_t column = at % gotLine;
            const bool isShown = row < gotHeight && column < std::size_t(gotWidth) * 2;
            if (memory->data()[at] != (isShown ? PlacedPictures::byteAt(row, column) : 0))
                QFAIL(qPrintable(QStringLiteral("row %1, byte %2").arg(row).arg(column)));
        }
    }

    void aFormatMayBeGrantedInAnotherForm()
    {
        CaptureParameters parameters;
        parameters.adjustFormat = [](v4l2_pix_format& pix) {
            pix.bytesperline = 2000;
            pix.pixelformat = V4L2_PIX_FMT_UYVY;
        };
        CaptureFixture<> capture;
        capture.device.setParameters(parameters);
        v4l2_format format = formatOf(640, 480);
        QCOMPARE(capture.call(VIDIOC_S_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.pixelformat, __u32(V4L2_PIX_FMT_UYVY));
        QCOMPARE(format.fmt.pix.bytesperline, 2000U);
        QCOMPARE(capture.allocate(), 0);
        v4l2_buffer buffer = bufferOf(0);
        QCOMPARE(capture.call(VIDIOC_QUERYBUF, &buffer), 0);
        QCOMPARE(buffer.length, 2000U * 480U);
    }

    void framesAtOnceWaitForABufferAndAPicture()
    {
        CaptureParameters parameters;
        parameters.framesPerSecond = kFramesAtOnce_hz;
        CaptureFixture<ScriptedFrames> capture(parameters);
        // A request of its own takes a moment.
        const auto dequeue = [&capture](v4l2_buffer& buffer) {
            capture.now += InstrumentTime(2);
            return capture.dequeue(buffer);
        };
        capture.start(2);
        v4l2_buffer buffer{};
        QCOMPARE(dequeue(buffer), EAGAIN);
        QVERIFY(!capture.device.nextFrameTime().has_value());
        capture.pictures.add({7});
        QVERIFY(capture.device.nextFrameTime().has_value());
        QCOMPARE(dequeue(buffer), 0);
        QCOMPARE(buffer.index, 0U);
        QCOMPARE(buffer.bytesused, kVgaBytes);
        capture.pictures.add({9, {100U, 17U}});
        QCOMPARE(dequeue(buffer), 0);
        QCOMPARE(buffer.index, 17U);
        QCOMPARE(buffer.bytesused, 100U);
        // Both buffers are out: the next picture has to wait.
        capture.pictures.add({11});
        QCOMPARE(dequeue(buffer), EAGAIN);
        QVERIFY(!capture.device.nextFrameTime().has_value());
        QCOMPARE(capture.queue(1), 0);
        QCOMPARE(dequeue(buffer), 0);
        QCOMPARE(buffer.index, 1U);
    }

    void scriptedFramesComeInTurnAfterThoseThatWereAdded()
    {
        std::vector<std::uint8_t> bytes(kVgaBytes);
        ScriptedFrames frames;
        QVERIFY(!frames.hasFrame());
        frames.add({77, {100U, 17U}});
        QVERIFY(frames.hasFrame());
        frames.showEndlessly(true);
        std::uint64_t number = 0;
        const auto nextValue = [&] {
            number = frames.look(InstrumentTime(0), kPictureModes[0]);
            std::fill(bytes.begin(), bytes.end(), std::uint8_t(0));
            frames.draw(bytes.data());
            const bool isOneValue =
                std::count(bytes.begin(), bytes.end(), bytes[0]) == std::ptrdiff_t(kVgaBytes);
            return isOneValue ? int(bytes[0]) : -1;
        };
        QCOMPARE(nextValue(), 77);
        const std::uint64_t numberOf77 = number;
        QCOMPARE(frames.report().bytesUsed.value_or(0), 100U);
        QCOMPARE(frames.report().bufferIndex.value_or(0), 17U);
        int before = nextValue();
        QVERIFY(!frames.report().bytesUsed.has_value());
        std::set<std::uint64_t> numbers{number};
        for (int frame = 1; frame < 255; ++frame) {
            const int value = nextValue();
            QCOMPARE(value, before == 255 ? 1 : before + 1);
            QCOMPARE(number == numberOf77, value == 77);
            numbers.insert(number);
            before = value;
        }
        QCOMPARE(numbers.size(), std::size_t(255));
        QVERIFY(numbers.count(0) == 0);
        frames.showEndlessly(false);
        QVERIFY(!frames.hasFrame());
    }

    void scriptedStripesAreTwoPixelsWide()
    {
        const PictureMode& mode = kPictureModes[0];
        ScriptedFrames frames;
        frames.add({9, {100U, 17U}});
        frames.look(InstrumentTime(0), mode);
        std::set<std::uint64_t> numbers;
        for (const int contrast : {0, 1, 150, 200}) {
            frames.showStripes(contrast);
            QVERIFY(frames.hasFrame());
            numbers.insert(frames.look(InstrumentTime(0), mode));
            QVERIFY(!frames.report().bytesUsed.has_value() && !frames.report().bufferIndex.has_value());
            std::vector<std::uint8_t> bytes(kVgaBytes);
            frames.draw(bytes.data());
            for (std::size_t pixel = 0; pixel < bytes.size() / 2; ++pixel) {
                const int luma = pixel / 2 % 2 == 0 ? 40 : 40 + contrast;
                if (bytes[2 * pixel] != luma || bytes[2 * pixel + 1] != 128)
                    QFAIL(qPrintable(QStringLiteral("pixel %1").arg(pixel)));
            }
        }
        QCOMPARE(numbers.size(), std::size_t(4));
        QVERIFY(*numbers.begin() > 256);
    }

    void atLeastFourBuffersAreGranted_data()
    {
        QTest::addColumn<unsigned>("asked");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<unsigned>("granted");
        QTest::newRow("one") << 1U << "" << 4U;
        QTest::newRow("four") << 4U << "" << 4U;
        QTest::newRow("six") << 6U << "" << 6U;
        QTest::newRow("too many") << 100U << "" << 32U;
        QTest::newRow("generous driver") << 4U << "more-buffers" << 8U;
        QTest::newRow("driver short of memory") << 4U << "fewer-buffers" << 2U;
    }

    void atLeastFourBuffersAreGranted()
    {
        QFETCH(unsigned, asked);
        QFETCH(QString, fault);
        QFETCH(unsigned, granted);
        CaptureFixture<> capture;
        QVERIFY(fault.isEmpty() || capture.faults.enable(fault.toStdString()));
        v4l2_requestbuffers request = requestOf(asked);
        QCOMPARE(capture.call(VIDIOC_REQBUFS, &request), 0);
        QCOMPARE(request.count, granted);
        QCOMPARE(request.capabilities, __u32(V4L2_BUF_CAP_SUPPORTS_MMAP));
        v4l2_buffer last = bufferOf(granted - 1);
        QCOMPARE(capture.call(VIDIOC_QUERYBUF, &last), 0);
        QCOMPARE(last.length, kVgaBytes);
        v4l2_buffer beyond = bufferOf(granted);
        QCOMPARE(capture.call(VIDIOC_QUERYBUF, &beyond), EINVAL);
    }

    void framesEndOnTheFrameClock_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("driversRate");
        QTest::newRow("VGA") << 0 << 0;
        QTest::newRow("1280") << 1 << 0;
        QTest::newRow("5M") << 2 << 0;
        QTest::newRow("a driver with a rate of its own") << 0 << 7;
    }

    void framesEndOnTheFrameClock()
    {
        QFETCH(int, mode);
        QFETCH(int, driversRate);
        const PictureMode& picture = kPictureModes[std::size_t(mode)];
        const int rate = driversRate != 0 ? driversRate : picture.framesPerSecond;
        CaptureParameters parameters;
        parameters.framesPerSecond = driversRate;
        CaptureFixture<> capture(parameters);
        capture.now = milliseconds(1234);
        const InstrumentTime start = capture.now;
        QCOMPARE(capture.format(unsigned(picture.width_px), unsigned(picture.height_px)), 0);
        capture.start();
        for (int frame = 1; frame <= 2 * rate; ++frame) {
            QVERIFY(capture.device.nextFrameTime().has_value());
            const InstrumentTime end = *capture.device.nextFrameTime();
            QVERIFY(std::abs(seconds(end - start) - double(frame) / rate) < 1e-6);
            QVERIFY(!capture.device.readable(end - InstrumentTime(1)));
            QVERIFY(capture.device.readable(end));
            capture.now = end;
            v4l2_buffer buffer{};
            QCOMPARE(capture.dequeue(buffer), 0);
            QCOMPARE(buffer.sequence, unsigned(frame - 1));
            QCOMPARE(buffer.bytesused, unsigned(picture.frameBytes()));
            QCOMPARE(InstrumentTime(buffer.timestamp.tv_sec * 1000000 + buffer.timestamp.tv_usec), end);
            QCOMPARE(capture.pictures.times.back(), end);
            const unsigned index = buffer.index;
            QCOMPARE(capture.dequeue(buffer), EAGAIN);
            QCOMPARE(capture.queue(index), 0);
        }
    }

    void framesWithoutABufferAreLostAndCounted()
    {
        CaptureFixture<> capture;
        capture.start(2);
        v4l2_buffer buffer{};
        QCOMPARE(capture.dequeueAt(500, buffer), 0);
        QCOMPARE(buffer.sequence, 0U);
        QCOMPARE(capture.queue(buffer.index), 0);
        QCOMPARE(capture.dequeue(buffer), 0);
        QCOMPARE(buffer.sequence, 1U);
        QCOMPARE(capture.dequeueAt(540, buffer), 0);
        QCOMPARE(buffer.sequence, 15U);
        QCOMPARE(capture.device.framesDelivered(), std::uint64_t(3));
    }

    void aFrameCountsAsReturnedWithItsBufferOrItsStream()
    {
        CaptureFixture<> capture;
        capture.start(2);
        QCOMPARE(capture.device.framesReturned(), std::uint64_t(0));
        v4l2_buffer buffer{};
        QCOMPARE(capture.dequeueAt(100, buffer), 0);
        QCOMPARE(capture.device.framesDelivered(), std::uint64_t(2));
        QCOMPARE(capture.device.framesReturned(), std::uint64_t(0));
        QCOMPARE(capture.queue(buffer.index), 0);
        QCOMPARE(capture.device.framesReturned(), std::uint64_t(1));
        // A buffer that never held a frame of this stream returns none.
        QCOMPARE(capture.queue(3), 0);
        QCOMPARE(capture.device.framesReturned(), std::uint64_t(1));
        QCOMPARE(capture.dequeue(buffer), 0);
        QCOMPARE(capture.stream(false), 0);
        QCOMPARE(capture.device.framesReturned(), capture.device.framesDelivered());
        // A buffer that the program still had when the stream ended is not counted twice.
        for (unsigned index = 0; index < 4; ++index)
            QCOMPARE(capture.queue(index), 0);
        QCOMPARE(capture.device.framesReturned(), capture.device.framesDelivered());
    }

    void aStreamThatBeginsAnewKnowsNothingOfTheOneBefore()
    {
        CaptureFixture<> capture;
        capture.start(3);
        v4l2_buffer buffer{};
        // One frame is taken, one waits to be, and one buffer is queued.
        QCOMPARE(capture.dequeueAt(67, buffer), 0);
        QCOMPARE(capture.ownerFlags(1), unsigned(V4L2_BUF_FLAG_DONE));
        QCOMPARE(capture.ownerFlags(2), unsigned(V4L2_BUF_FLAG_QUEUED));
        QCOMPARE(capture.stream(false), 0);
        for (unsigned index = 0; index < 4; ++index)
            QCOMPARE(capture.ownerFlags(index), 0U);
        capture.now = milliseconds(500);
        QCOMPARE(capture.queue(3), 0);
        QCOMPARE(capture.stream(true), 0);
        QCOMPARE(capture.dequeue(buffer), EAGAIN);
        QCOMPARE(capture.device.nextFrameTime()->count(), std::int64_t(533334));
        capture.now = InstrumentTime(533334);
        QCOMPARE(capture.dequeue(buffer), 0);
        QCOMPARE(buffer.index, 3U);
        QCOMPARE(buffer.sequence, 0U);
        QCOMPARE(buffer.timestamp.tv_sec, decltype(buffer.timestamp.tv_sec)(0));
        QCOMPARE(buffer.timestamp.tv_usec, decltype(buffer.timestamp.tv_usec)(533334));
        QVERIFY(!capture.device.nextFrameTime().has_value());
    }

    void newBuffersAreNotQueuedForThoseBefore()
    {
        CaptureFixture<> capture;
        QCOMPARE(capture.allocate(), 0);
        QCOMPARE(capture.queue(2), 0);
        QCOMPARE(capture.allocate(), 0);
        QCOMPARE(capture.stream(true), 0);
        QVERIFY(!capture.device.nextFrameTime().has_value());
        v4l2_buffer buffer{};
        QCOMPARE(capture.dequeueAt(100, buffer), EAGAIN);
        QCOMPARE(capture.queue(2), 0);
    }

    void aBufferIsDescribedWholly()
    {
        CaptureFixture<> capture;
        QCOMPARE(capture.allocate(), 0);
        for (const unsigned long request : {VIDIOC_QUERYBUF, VIDIOC_QBUF}) {
            v4l2_buffer buffer{};
            std::memset(&buffer, 0xA5, sizeof buffer);
            buffer.index = 1;
            buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
            buffer.memory = V4L2_MEMORY_MMAP;
            QCOMPARE(capture.call(request, &buffer), 0);
            v4l2_buffer expected = bufferOf(1);
            expected.field = V4L2_FIELD_NONE;
            expected.length = kVgaBytes;
            const auto page = unsigned(::sysconf(_SC_PAGESIZE));
            expected.m.offset = (kVgaBytes + page - 1) / page * page;
            expected.flags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
            expected.flags |= request == VIDIOC_QBUF ? V4L2_BUF_FLAG_QUEUED : 0U;
            QCOMPARE(QByteArray(reinterpret_cast<const char*>(&buffer), sizeof buffer),
                     QByteArray(reinterpret_cast<const char*>(&expected), sizeof expected));
        }
    }

    void aMappingCoversTheBuffersPagesAtMost()
    {
        const auto page = std::size_t(::sysconf(_SC_PAGESIZE));
        QCOMPARE(FrameMemory::inWholePages(0), std::size_t(0));
        QCOMPARE(FrameMemory::inWholePages(1), page);
        QCOMPARE(FrameMemory::inWholePages(page), page);
        QCOMPARE(FrameMemory::inWholePages(page + 1), 2 * page);
        CaptureFixture<> capture;
        QCOMPARE(capture.allocate(), 0);
        const std::size_t whole = FrameMemory::inWholePages(kVgaBytes);
        QVERIFY(capture.device.memoryAt(0, 0) == nullptr);
        QVERIFY(capture.device.memoryAt(0, 1) != nullptr);
        QVERIFY(capture.device.memoryAt(0, whole) != nullptr);
        QVERIFY(capture.device.memoryAt(0, whole + 1) == nullptr);
    }

    void buffersTooLargeForTheMemoryAreRefused()
    {
        CaptureParameters parameters;
        parameters.bufferLength_bytes = std::numeric_limits<std::size_t>::max() / 2;
        CaptureFixture<> capture(parameters);
        QCOMPARE(capture.allocate(), ENOMEM);
        v4l2_buffer buffer = bufferOf(0);
        QCOMPARE(capture.call(VIDIOC_QUERYBUF, &buffer), EINVAL);
    }

    // What was had of them before the memory ran out is given back.
    void buffersThatAreNotAllToBeHadAreRefusedTogether()
    {
        CaptureFixture<> capture;
        const int mappings = frameMappings();
        const int next = ::dup(STDERR_FILENO);
        rlimit usual{};
        QCOMPARE(::getrlimit(RLIMIT_NOFILE, &usual), 0);
        const rlimit forOneOrTwo{rlim_t(next) + 2, usual.rlim_max};
        ::close(next);
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &forOneOrTwo), 0);
        const int error = capture.allocate();
        QCOMPARE(::setrlimit(RLIMIT_NOFILE, &usual), 0);
        QCOMPARE(error, ENOMEM);
        v4l2_buffer buffer = bufferOf(0);
        QCOMPARE(capture.call(VIDIOC_QUERYBUF, &buffer), EINVAL);
        QCOMPARE(frameMappings(), mappings);
    }

    void freedBuffersAreGivenBackToTheSystem()
    {
        const int before = frameMappings();
        CaptureFixture<> capture;
        QCOMPARE(capture.allocate(), 0);
        QCOMPARE(frameMappings(), before + 4);
        QCOMPARE(capture.allocate(0), 0);
        QCOMPARE(frameMappings(), before);
    }

    void thereIsNothingToWaitForWithoutAStream()
    {
        CaptureFixture<> capture;
        QVERIFY(capture.device.readable(capture.now));
        capture.start();
        QVERIFY(!capture.device.readable(capture.now));
        capture.device.release();
        QVERIFY(capture.device.readable(capture.now));
        QVERIFY(!capture.device.nextFrameTime().has_value());
        QCOMPARE(capture.queue(0), EINVAL);
    }

    void aPictureIsDrawnOnceAndCopiedOnlyWhereItIsMissing()
    {
        CaptureFixture<> capture;
        capture.start();
        std::vector<std::shared_ptr<FrameMemory>> memory;
        for (unsigned index = 0; index < 4; ++index)
            memory.push_back(capture.map(index));
        const auto runFrames = [&capture, &memory](int count) {
            for (int frame = 0; frame < count; ++frame) {
                capture.now = *capture.device.nextFrameTime();
                v4l2_buffer buffer{};
                QCOMPARE(capture.dequeue(buffer), 0);
                const std::uint8_t* bytes = memory[buffer.index]->data();
                QCOMPARE(std::uint64_t(bytes[0]), capture.pictures.picture);
                QCOMPARE(std::uint64_t(bytes[buffer.bytesused - 1]), capture.pictures.picture);
                QCOMPARE(capture.queue(buffer.index), 0);
            }
        };
        runFrames(20);
        QCOMPARE(capture.device.drawings(), std::uint64_t(1));
        QCOMPARE(capture.device.copies(), std::uint64_t(3));
        // Straight into its buffer.
        QCOMPARE(capture.pictures.drawnAt, memory[0]->data());
        capture.pictures.picture = 2;
        runFrames(20);
        QCOMPARE(capture.device.drawings(), std::uint64_t(2));
        QCOMPARE(capture.device.copies(), std::uint64_t(6));
        QCOMPARE(capture.device.framesDelivered(), std::uint64_t(40));
    }

    void aBufferInTheProgramsHandsIsNotCopiedFrom()
    {
        CaptureFixture<> capture;
        capture.start(2);
        const auto first = capture.map(0);
        const auto second = capture.map(1);
        v4l2_buffer buffer{};
        QCOMPARE(capture.dequeueAt(34, buffer), 0);
        first->data()[0] = 99;
        QCOMPARE(capture.dequeueAt(67, buffer), 0);
        QCOMPARE(buffer.index, 1U);
        QCOMPARE(int(second->data()[0]), 1);
        QCOMPARE(capture.device.drawings(), std::uint64_t(2));
    }

    void frameFaultsReachTheFrames()
    {
        CaptureFixture<> capture;
        capture.start();
        v4l2_buffer buffer{};
        QVERIFY(capture.faults.enable("short-frames"));
        QCOMPARE(capture.dequeueAt(34, buffer), 0);
        QCOMPARE(buffer.bytesused, buffer.length / 2);
        capture.faults.clear();
        QVERIFY(capture.faults.enable("oversized-frames"));
        QCOMPARE(capture.dequeueAt(67, buffer), 0);
        QCOMPARE(buffer.bytesused, buffer.length + 65536);
    }

    void aLostFrameIsMissingInTheCount()
    {
        CaptureFixture<> capture;
        capture.start();
        QVERIFY(capture.faults.enable("lost-frames:2"));
        v4l2_buffer buffer{};
        QCOMPARE(capture.dequeueAt(34, buffer), 0);
        QCOMPARE(buffer.sequence, 0U);
        QCOMPARE(capture.dequeueAt(67, buffer), EAGAIN);
        QCOMPARE(capture.dequeueAt(100, buffer), 0);
        QCOMPARE(buffer.sequence, 2U);
    }

    void aStalledStreamDeliversNothingUntilItGoesOn()
    {
        CaptureFixture<> capture;
        capture.start();
        QVERIFY(capture.faults.enable("stall"));
        capture.now = milliseconds(3000);
        QVERIFY(!capture.device.readable(capture.now));
        QVERIFY(!capture.device.nextFrameTime().has_value());
        capture.faults.clear();
        QVERIFY(!capture.device.readable(capture.now));
        v4l2_buffer buffer{};
        QCOMPARE(capture.dequeueAt(3034, buffer), 0);
        QCOMPARE(buffer.sequence, 0U);
    }

    void mappedMemoryOutlivesTheDevicesBuffers()
    {
        CaptureFixture<> capture;
        capture.start();
        const auto memory = capture.map(0);
        capture.now = milliseconds(34);
        QVERIFY(capture.device.readable(capture.now));
        capture.device.release();
        QCOMPARE(int(memory->data()[kVgaBytes - 1]), 1);
    }
};

QTEST_GUILESS_MAIN(TestCaptureDevice)
#include "test_capture_device.moc"
