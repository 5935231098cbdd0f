#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <vector>

#include <QtTest>

#include "CaptureFixture.h"
#include "platform/SystemDeviceCalls.h"
#include "simulator/camera/CameraDevices.h"
#include "simulator/camera/ScriptedFrames.h"

namespace {

constexpr unsigned kWidth_px = 640;
constexpr unsigned kHeight_px = 480;

struct Misuse
{
    const char* name;
    int error;
    std::function<int(OpenedDevice&)> attempt;
};

template <class Record, class Change>
auto with(unsigned long request, Record record, Change change)
{
    return [=](OpenedDevice& device) {
        Record changed = record;
        change(changed);
        return device.call(request, &changed);
    };
}

template <class Attempt>
auto allocated(Attempt attempt)
{
    return [attempt](OpenedDevice& device) {
        const int error = device.allocate();
        return error != 0 ? -error : attempt(device);
    };
}

template <class Attempt>
auto streaming(Attempt attempt)
{
    return [attempt](OpenedDevice& device) {
        device.start(3);
        return attempt(device);
    };
}

const std::vector<Misuse>& misuses()
{
    const auto otherType = [](auto& record) { record.type = V4L2_BUF_TYPE_VIDEO_OUTPUT; };
    const auto noMemory = [](auto& record) { record.memory = 0; };
    const auto otherMemory = [](v4l2_buffer& buffer) { buffer.memory = V4L2_MEMORY_USERPTR; };
    const auto otherIndex = [](v4l2_buffer& buffer) { buffer.index = 99; };
    const auto asItIs = [](auto&) {};
    const auto output = [](int& type) { type = V4L2_BUF_TYPE_VIDEO_OUTPUT; };
    const v4l2_buffer buffer = bufferOf(0);
    const v4l2_format vga = formatOf(kWidth_px, kHeight_px);
    const auto setFormat = [](OpenedDevice& device) { return device.format(kWidth_px, kHeight_px); };
    static const std::vector<Misuse> kMisuses{
        {"unknown request", ENOTTY, with(_IO('V', 250), 0, asItIs)},
        {"format of another type", EINVAL, with(VIDIOC_S_FMT, vga, otherType)},
        {"format while allocated", EBUSY, allocated(setFormat)},
        {"format while queued", EBUSY, allocated([=](OpenedDevice& device) {
             device.queue(0);
             return setFormat(device);
         })},
        {"format while mapped", EBUSY, allocated([=](OpenedDevice& device) {
             device.map(0);
             return setFormat(device);
         })},
        {"format while streaming", EBUSY, streaming(setFormat)},
        {"format after the stream", EBUSY, streaming([=](OpenedDevice& device) {
             device.stream(false);
             return setFormat(device);
         })},
        {"buffers of another type", EINVAL, with(VIDIOC_REQBUFS, requestOf(4), otherType)},
        {"buffers of no memory", EINVAL, with(VIDIOC_REQBUFS, requestOf(4), noMemory)},
        {"new buffers while streaming", EBUSY,
         streaming([](OpenedDevice& device) { return device.allocate(); })},
        {"no buffers while streaming", EBUSY,
         streaming([](OpenedDevice& device) { return device.allocate(0); })},
        {"query without buffers", EINVAL, with(VIDIOC_QUERYBUF, buffer, asItIs)},
        {"query of another type", EINVAL, allocated(with(VIDIOC_QUERYBUF, buffer, otherType))},
        {"query of a missing buffer", EINVAL, allocated(with(VIDIOC_QUERYBUF, buffer, otherIndex))},
        {"queue without buffers", EINVAL, with(VIDIOC_QBUF, buffer, asItIs)},
        {"queue of another type", EINVAL, allocated(with(VIDIOC_QBUF, buffer, otherType))},
        {"queue of another memory", EINVAL, allocated(with(VIDIOC_QBUF, buffer, otherMemory))},
        {"queue of a missing buffer", EINVAL, allocated(with(VIDIOC_QBUF, buffer, otherIndex))},
        {"queue of a queued buffer", EINVAL, streaming([](OpenedDevice& device) { return device.queue(0); })},
        {"queue of a finished buffer", EINVAL,
         streaming([](OpenedDevice& device) { return device.waitForFrame() ? device.queue(0) : ETIMEDOUT; })},
        {"dequeue without a stream", EINVAL, allocated(with(VIDIOC_DQBUF, buffer, asItIs))},
        {"dequeue of another type", EINVAL, streaming(with(VIDIOC_DQBUF, buffer, otherType))},
        {"dequeue before the first frame", EAGAIN, streaming(with(VIDIOC_DQBUF, buffer, asItIs))},
        {"start without buffers", EINVAL, [](OpenedDevice& device) { return device.stream(true); }},
        {"start of another type", EINVAL, allocated(with(VIDIOC_STREAMON, 0, output))},
        {"stop of another type", EINVAL, streaming(with(VIDIOC_STREAMOFF, 0, output))},
        {"mapping without buffers", EINVAL, [](OpenedDevice& device) { return device.map(0, 4096); }},
        {"mapping between buffers", EINVAL,
         allocated([](OpenedDevice& device) { return device.map(4096, 4096); })},
        {"mapping beyond a buffer", EINVAL,
         allocated([](OpenedDevice& device) { return device.map(0, kWidth_px * kHeight_px * 2 + 65536); })},
        {"mapping of one's own", EINVAL, allocated([](OpenedDevice& device) {
             return device.map(0, 4096, PROT_READ | PROT_WRITE, MAP_PRIVATE);
         })},
        {"mapping for writing alone", EINVAL,
         allocated([](OpenedDevice& device) { return device.map(0, 4096, PROT_WRITE); })},
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
    const QString m_kernelHindrance = kernelHindrance();
    ScriptedFrames m_frames;
    std::unique_ptr<DeviceCalls> m_calls;
    std::unique_ptr<OpenedDevice> m_device;

private slots:
    void initTestCase_data()
    {
        QTest::addColumn<bool>("ofKernel");
        QTest::newRow("simulated") << false;
        QTest::newRow("kernel") << true;
    }

    void init()
    {
        QFETCH_GLOBAL(bool, ofKernel);
        if (ofKernel && !m_kernelHindrance.isEmpty())
            QSKIP(qPrintable(m_kernelHindrance));
        m_frames.showEndlessly(true);
        if (ofKernel)
            m_calls = std::make_unique<SystemDeviceCalls>();
        else
            m_calls = std::make_unique<CameraDevices>(CameraDeviceParameters(), m_frames);
        m_device = std::make_unique<OpenedDevice>(*m_calls);
        QVERIFY(m_device->open());
        QCOMPARE(m_device->format(kWidth_px, kHeight_px), 0);
    }

    // Nothing stays behind in a driver of the kernel's.
    void cleanup()
    {
        if (m_device) {
            m_device->stream(false);
            m_device->unmap();
            m_device->close();
        }
        m_device.reset();
        m_calls.reset();
    }

    void misuseIsRefused_data()
    {
        QTest::addColumn<int>("row");
        for (std::size_t row = 0; row < misuses().size(); ++row)
            QTest::newRow(misuses()[row].name) << int(row);
    }

    void misuseIsRefused()
    {
        QFETCH(int, row);
        const Misuse& misuse = misuses()[std::size_t(row)];
        QCOMPARE(misuse.attempt(*m_device), misuse.error);
    }

    void theFormatIsFreeOnceTheBuffersAreGivenBack()
    {
        m_device->start();
        QCOMPARE(m_device->stream(false), 0);
        QCOMPARE(m_device->format(kWidth_px, kHeight_px), EBUSY);
        QCOMPARE(m_device->allocate(0), 0);
        QCOMPARE(m_device->format(kWidth_px, kHeight_px), 0);
    }

    void buffersAreAllocatedMappedAndHandedOver()
    {
        v4l2_format format = formatOf(kWidth_px, kHeight_px);
        QCOMPARE(m_device->call(VIDIOC_S_FMT, &format), 0);
        QCOMPARE(format.fmt.pix.width, kWidth_px);
        QCOMPARE(format.fmt.pix.height, kHeight_px);
        QCOMPARE(format.fmt.pix.pixelformat, __u32(V4L2_PIX_FMT_YUYV));
        QCOMPARE(format.fmt.pix.bytesperline, kWidth_px * 2);
        v4l2_requestbuffers request = requestOf(kBuffers);
        QCOMPARE(m_device->call(VIDIOC_REQBUFS, &request), 0);
        QCOMPARE(request.count, kBuffers);

        off_t lastOffset = -1;
        for (unsigned index = 0; index < kBuffers; ++index) {
            v4l2_buffer buffer = bufferOf(index);
            QCOMPARE(m_device->call(VIDIOC_QUERYBUF, &buffer), 0);
            QVERIFY(buffer.length >= kWidth_px * kHeight_px * 2);
            QVERIFY(off_t(buffer.m.offset) > lastOffset);
            lastOffset = buffer.m.offset;
            QVERIFY((buffer.flags & V4L2_BUF_FLAG_MAPPED) == 0);
            QCOMPARE(m_device->map(index), 0);
            QCOMPARE(m_device->call(VIDIOC_QUERYBUF, &buffer), 0);
            QVERIFY((buffer.flags & V4L2_BUF_FLAG_MAPPED) != 0);
            QCOMPARE(m_device->ownerFlags(index), 0U);
        }

        // Twice, for a stopped stream hands every buffer back.
        for (int stream = 0; stream < 2; ++stream) {
            for (const unsigned index : {2U, 0U, 3U, 1U}) {
                QCOMPARE(m_device->queue(index), 0);
                QCOMPARE(m_device->ownerFlags(index), unsigned(V4L2_BUF_FLAG_QUEUED));
            }
            QCOMPARE(m_device->stream(true), 0);
            QCOMPARE(m_device->stream(true), 0); // a second time is harmless
            v4l2_buffer buffer{};
            unsigned sequence = 0;
            for (const unsigned index : {2U, 0U, 3U}) {
                QVERIFY(m_device->waitForFrame());
                QCOMPARE(m_device->ownerFlags(index), unsigned(V4L2_BUF_FLAG_DONE));
                QCOMPARE(m_device->dequeue(buffer), 0);
                QCOMPARE(buffer.index, index);
                QCOMPARE(buffer.bytesused, kWidth_px * kHeight_px * 2);
                QVERIFY(index == 2U || buffer.sequence > sequence);
                sequence = buffer.sequence;
                QCOMPARE(m_device->ownerFlags(index), 0U);
            }
            QCOMPARE(m_device->stream(false), 0);
            QCOMPARE(m_device->stream(false), 0);
            QCOMPARE(m_device->dequeue(buffer), EINVAL);
            for (unsigned index = 0; index < kBuffers; ++index)
                QCOMPARE(m_device->ownerFlags(index), 0U);
        }
    }
};

QTEST_GUILESS_MAIN(TestCaptureContract)
#include "test_capture_contract.moc"
