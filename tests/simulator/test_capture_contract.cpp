#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>

#include <QtTest>

#include "CaptureBench.h"
#include "platform/SystemDeviceCalls.h"
#include "simulator/camera/CameraDevices.h"
#include "simulator/camera/ScriptedFrames.h"

namespace {

constexpr unsigned kWidth_px = 640;
constexpr unsigned kHeight_px = 480;
constexpr int kFrameLimit_ms = 5000;
constexpr unsigned kBuffers = 4;

/// A capture device as a program has it, opened not to block, in VGA.
class DeviceBench : public CaptureRequests
{
public:
    explicit DeviceBench(DeviceCalls& calls)
        : m_calls(calls), m_fd(calls.open("/dev/video0", O_RDWR | O_NONBLOCK))
    {
        m_ready = m_fd >= 0 && format(kWidth_px, kHeight_px) == 0;
    }
    ~DeviceBench() override
    {
        stream(false);
        for (const auto& mapping : m_mappings)
            m_calls.munmap(mapping.first, mapping.second);
        m_calls.close(m_fd);
    }

    bool isReady() const { return m_ready; }
    int call(unsigned long request, void* argument) override
    {
        return m_calls.captureIoctl(m_fd, request, argument) == 0 ? 0 : errno;
    }
    int map(off_t offset, std::size_t length, int protection = PROT_READ | PROT_WRITE, int flags = MAP_SHARED)
    {
        void* const address = m_calls.mmap(length, protection, flags, m_fd, offset);
        if (address == MAP_FAILED)
            return errno;
        m_mappings.emplace_back(address, length);
        return 0;
    }
    int map(unsigned index)
    {
        v4l2_buffer buffer = bufferOf(index);
        const int error = call(VIDIOC_QUERYBUF, &buffer);
        return error != 0 ? error : map(off_t(buffer.m.offset), buffer.length);
    }
    bool waitForFrame() { return m_calls.waitReadable(m_fd, kFrameLimit_ms) == 1; }

private:
    DeviceCalls& m_calls;
    int m_fd;
    bool m_ready = false;
    std::vector<std::pair<void*, std::size_t>> m_mappings;
};

struct Misuse
{
    const char* name;
    int error;
    std::function<int(DeviceBench&)> attempt;
};

template <class Record, class Change>
auto with(unsigned long request, Record record, Change change)
{
    return [=](DeviceBench& bench) {
        Record changed = record;
        change(changed);
        return bench.call(request, &changed);
    };
}

template <class Attempt>
auto allocated(Attempt attempt)
{
    return [attempt](DeviceBench& bench) {
        const int error = bench.allocate();
        return error != 0 ? -error : attempt(bench);
    };
}

template <class Attempt>
auto streaming(Attempt attempt)
{
    return [attempt](DeviceBench& bench) {
        bench.start(3);
        return attempt(bench);
    };
}

const std::vector<Misuse>& misuses()
{
    using Bench = DeviceBench;
    const auto otherType = [](auto& record) { record.type = V4L2_BUF_TYPE_VIDEO_OUTPUT; };
    const auto noMemory = [](auto& record) { record.memory = 0; };
    const auto otherMemory = [](v4l2_buffer& buffer) { buffer.memory = V4L2_MEMORY_USERPTR; };
    const auto otherIndex = [](v4l2_buffer& buffer) { buffer.index = 99; };
    const auto asItIs = [](auto&) {};
    const auto output = [](int& type) { type = V4L2_BUF_TYPE_VIDEO_OUTPUT; };
    const v4l2_buffer buffer = bufferOf(0);
    const v4l2_format vga = formatOf(kWidth_px, kHeight_px);
    const auto setFormat = [](Bench& bench) { return bench.format(kWidth_px, kHeight_px); };
    static const std::vector<Misuse> kMisuses{
        {"unknown request", ENOTTY, with(_IO('V', 250), 0, asItIs)},
        {"format of another type", EINVAL, with(VIDIOC_S_FMT, vga, otherType)},
        {"format while allocated", EBUSY, allocated(setFormat)},
        {"format while queued", EBUSY, allocated([=](Bench& bench) {
             bench.queue(0);
             return setFormat(bench);
         })},
        {"format while mapped", EBUSY, allocated([=](Bench& bench) {
             bench.map(0);
             return setFormat(bench);
         })},
        {"format while streaming", EBUSY, streaming(setFormat)},
        {"format after the stream", EBUSY, streaming([=](Bench& bench) {
             bench.stream(false);
             return setFormat(bench);
         })},
        {"buffers of another type", EINVAL, with(VIDIOC_REQBUFS, requestOf(4), otherType)},
        {"buffers of no memory", EINVAL, with(VIDIOC_REQBUFS, requestOf(4), noMemory)},
        {"new buffers while streaming", EBUSY, streaming([](Bench& bench) { return bench.allocate(); })},
        {"no buffers while streaming", EBUSY, streaming([](Bench& bench) { return bench.allocate(0); })},
        {"query without buffers", EINVAL, with(VIDIOC_QUERYBUF, buffer, asItIs)},
        {"query of another type", EINVAL, allocated(with(VIDIOC_QUERYBUF, buffer, otherType))},
        {"query of a missing buffer", EINVAL, allocated(with(VIDIOC_QUERYBUF, buffer, otherIndex))},
        {"queue without buffers", EINVAL, with(VIDIOC_QBUF, buffer, asItIs)},
        {"queue of another type", EINVAL, allocated(with(VIDIOC_QBUF, buffer, otherType))},
        {"queue of another memory", EINVAL, allocated(with(VIDIOC_QBUF, buffer, otherMemory))},
        {"queue of a missing buffer", EINVAL, allocated(with(VIDIOC_QBUF, buffer, otherIndex))},
        {"queue of a queued buffer", EINVAL, streaming([](Bench& bench) { return bench.queue(0); })},
        {"queue of a finished buffer", EINVAL,
         streaming([](Bench& bench) { return bench.waitForFrame() ? bench.queue(0) : ETIMEDOUT; })},
        {"dequeue without a stream", EINVAL, allocated(with(VIDIOC_DQBUF, buffer, asItIs))},
        {"dequeue of another type", EINVAL, streaming(with(VIDIOC_DQBUF, buffer, otherType))},
        {"dequeue before the first frame", EAGAIN, streaming(with(VIDIOC_DQBUF, buffer, asItIs))},
        {"start without buffers", EINVAL, [](Bench& bench) { return bench.stream(true); }},
        {"start of another type", EINVAL, allocated(with(VIDIOC_STREAMON, 0, output))},
        {"stop of another type", EINVAL, streaming(with(VIDIOC_STREAMOFF, 0, output))},
        {"mapping without buffers", EINVAL, [](Bench& bench) { return bench.map(0, 4096); }},
        {"mapping between buffers", EINVAL, allocated([](Bench& bench) { return bench.map(4096, 4096); })},
        {"mapping beyond a buffer", EINVAL,
         allocated([](Bench& bench) { return bench.map(0, kWidth_px * kHeight_px * 2 + 65536); })},
        {"mapping of one's own", EINVAL,
         allocated([](Bench& bench) { return bench.map(0, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE); })},
        {"mapping for writing alone", EINVAL,
         allocated([](Bench& bench) { return bench.map(0, 4096, PROT_WRITE); })},
    };
    return kMisuses;
}

/// Why the kernel's test driver cannot be asked; empty when it can.
QString kernelHindrance()
{
    SystemDeviceCalls calls;
    const int fd = calls.open("/dev/video0", O_RDWR | O_NONBLOCK);
    if (fd < 0)
        return QString("no /dev/video0 of the kernel's: %1").arg(std::strerror(errno));
    v4l2_capability capability{};
    const bool asked = calls.captureIoctl(fd, VIDIOC_QUERYCAP, &capability) == 0;
    calls.close(fd);
    const QByteArray driver(reinterpret_cast<const char*>(capability.driver));
    return asked && driver == "vivid" ? QString() : QString("/dev/video0 is not vivid's: ") + driver;
}

} // namespace

/// What the program may count on with every driver: the same of the simulator's device and of
/// the kernel's own test driver, where that is loaded.
class TestCaptureContract : public QObject
{
    Q_OBJECT

private:
    // Leaves nullptr where the device of this row is not there.
    std::unique_ptr<DeviceCalls> device(bool ofKernel)
    {
        if (ofKernel)
            return m_kernelHindrance.isEmpty() ? std::make_unique<SystemDeviceCalls>() : nullptr;
        m_frames.showEndlessly(true);
        return std::make_unique<CameraDevices>(CameraDeviceParameters(), m_frames);
    }
    static void addDevices()
    {
        QTest::addColumn<bool>("ofKernel");
        QTest::newRow("simulated") << false;
        QTest::newRow("kernel") << true;
    }

    const QString m_kernelHindrance = kernelHindrance();
    ScriptedFrames m_frames;

private slots:
    void misuseIsRefused_data()
    {
        QTest::addColumn<bool>("ofKernel");
        QTest::addColumn<int>("row");
        for (const bool ofKernel : {false, true})
            for (std::size_t row = 0; row < misuses().size(); ++row)
                QTest::addRow("%s: %s", ofKernel ? "kernel" : "simulated", misuses()[row].name)
                    << ofKernel << int(row);
    }

    void misuseIsRefused()
    {
        QFETCH(bool, ofKernel);
        QFETCH(int, row);
        const auto calls = device(ofKernel);
        if (calls == nullptr)
            QSKIP(qPrintable(m_kernelHindrance));
        DeviceBench bench(*calls);
        QVERIFY(bench.isReady());
        const Misuse& misuse = misuses()[std::size_t(row)];
        QCOMPARE(misuse.attempt(bench), misuse.error);
    }

    void theFormatIsFreeOnceTheBuffersAreGivenBack_data() { addDevices(); }

    void theFormatIsFreeOnceTheBuffersAreGivenBack()
    {
        QFETCH(bool, ofKernel);
        const auto calls = device(ofKernel);
        if (calls == nullptr)
            QSKIP(qPrintable(m_kernelHindrance));
        DeviceBench bench(*calls);
        QVERIFY(bench.isReady());
        bench.start();
        QCOMPARE(bench.stream(false), 0);
        QCOMPARE(bench.format(kWidth_px, kHeight_px), EBUSY);
        QCOMPARE(bench.allocate(0), 0);
        QCOMPARE(bench.format(kWidth_px, kHeight_px), 0);
    }

    void buffersAreAllocatedMappedAndHandedOver_data() { addDevices(); }

    void buffersAreAllocatedMappedAndHandedOver()
    {
        QFETCH(bool, ofKernel);
        const auto calls = device(ofKernel);
        if (calls == nullptr)
            QSKIP(qPrintable(m_kernelHindrance));
        DeviceBench bench(*calls);
        QVERIFY(bench.isReady());
        v4l2_format format = formatOf(kWidth_px, kHeight_px);
        QCOMPARE(bench.call(VIDIOC_S_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.width, kWidth_px);
        QCOMPARE(format.fmt.pix.height, kHeight_px);
        QCOMPARE(format.fmt.pix.pixelformat, __u32(V4L2_PIX_FMT_YUYV));
        QCOMPARE(format.fmt.pix.bytesperline, kWidth_px * 2);
        v4l2_requestbuffers request = requestOf(kBuffers);
        QCOMPARE(bench.call(VIDIOC_REQBUFS, &request), 0);
        QCOMPARE(request.count, kBuffers);

        off_t lastOffset = -1;
        for (unsigned index = 0; index < kBuffers; ++index) {
            v4l2_buffer buffer = bufferOf(index);
            QCOMPARE(bench.call(VIDIOC_QUERYBUF, &buffer), 0);
            QVERIFY(buffer.length >= kWidth_px * kHeight_px * 2);
            QVERIFY(off_t(buffer.m.offset) > lastOffset);
            lastOffset = buffer.m.offset;
            QVERIFY((buffer.flags & V4L2_BUF_FLAG_MAPPED) == 0);
            QCOMPARE(bench.map(index), 0);
            QCOMPARE(bench.call(VIDIOC_QUERYBUF, &buffer), 0);
            QVERIFY((buffer.flags & V4L2_BUF_FLAG_MAPPED) != 0);
            QCOMPARE(bench.ownerFlags(index), 0U);
        }

        // Twice, for a stopped stream hands every buffer back.
        for (int stream = 0; stream < 2; ++stream) {
            for (const unsigned index : {2U, 0U, 3U, 1U}) {
                QCOMPARE(bench.queue(index), 0);
                QCOMPARE(bench.ownerFlags(index), unsigned(V4L2_BUF_FLAG_QUEUED));
            }
            QCOMPARE(bench.stream(true), 0);
            QCOMPARE(bench.stream(true), 0); // a second time is harmless
            v4l2_buffer buffer{};
            unsigned sequence = 0;
            for (const unsigned index : {2U, 0U, 3U}) {
                QVERIFY(bench.waitForFrame());
                QCOMPARE(bench.ownerFlags(index), unsigned(V4L2_BUF_FLAG_DONE));
                QCOMPARE(bench.dequeue(buffer), 0);
                QCOMPARE(buffer.index, index);
                QCOMPARE(buffer.bytesused, kWidth_px * kHeight_px * 2);
                QVERIFY(index == 2U || buffer.sequence > sequence);
                sequence = buffer.sequence;
                QCOMPARE(bench.ownerFlags(index), 0U);
            }
            QCOMPARE(bench.stream(false), 0);
            QCOMPARE(bench.stream(false), 0);
            QCOMPARE(bench.dequeue(buffer), EINVAL);
            for (unsigned index = 0; index < kBuffers; ++index)
                QCOMPARE(bench.ownerFlags(index), 0U);
        }
    }
};

QTEST_GUILESS_MAIN(TestCaptureContract)
#include "test_capture_contract.moc"
