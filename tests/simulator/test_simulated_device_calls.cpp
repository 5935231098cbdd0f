#include <algorithm>
#include <atomic>
#include <cerrno>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/mman.h>

#include <QElapsedTimer>
#include <QtTest>

#include "CameraFixture.h"
#include "FrameMappings.h"
#include "simulator/camera/ScriptedFrames.h"

namespace {

QStringList toldBy(const CameraFixture& camera)
{
    QStringList lines;
    for (const TracedCall& call : camera.calls.trace().calls())
        lines << QString::fromStdString(callLine(call));
    return lines;
}

/// The errno that a call failed with; 0 where it did not fail.
template <class Result>
int errorOf(Result result)
{
    return result == Result(-1) ? errno : 0;
}

} // namespace

class TestSimulatedDeviceCalls : public QObject
{
    Q_OBJECT

private slots:
    void onlyTheCamerasOwnPathsCanBeOpened_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<bool>("opens");
        const QString video = "/dev/video0";
        const QString bus = "/dev/i2c-1";
        QTest::newRow("video") << video << QString() << true;
        QTest::newRow("bus") << bus << QString() << true;
        QTest::newRow("other") << QString("/dev/video1") << QString() << false;
        QTest::newRow("no video") << video << QString("no-camera") << false;
        QTest::newRow("bus without video") << bus << QString("no-camera") << true;
        QTest::newRow("no bus") << bus << QString("no-i2c") << false;
        QTest::newRow("video without bus") << video << QString("no-i2c") << true;
    }

    void onlyTheCamerasOwnPathsCanBeOpened()
    {
        QFETCH(QString, path);
        QFETCH(QString, fault);
        QFETCH(bool, opens);
        CameraFixture camera;
        QVERIFY(fault.isEmpty() || camera.calls.faults().enable(fault.toStdString()));
        QCOMPARE(errorOf(camera.calls.open(qPrintable(path), O_RDWR)), opens ? 0 : ENOENT);
        QCOMPARE(camera.calls.openDescriptors(), std::size_t(opens ? 1 : 0));
        QCOMPARE(camera.calls.trace().calls(CallKind::Open).back().name, path.toStdString());
    }

    void aDescriptorIsNoneOfTheSystemsAndOnceClosedGoodForNothing()
    {
        CameraFixture camera;
        const int fd = camera.calls.open("/dev/video0", O_RDWR);
        QCOMPARE(::fcntl(fd, F_GETFD), -1);
        QCOMPARE(errno, EBADF);
        QCOMPARE(camera.calls.close(fd), 0);
        QCOMPARE(errorOf(camera.calls.close(fd)), EBADF);
        std::uint8_t byte = 0;
        v4l2_buffer buffer = bufferOf(0);
        QCOMPARE(errorOf(camera.calls.read(fd, &byte, 1)), EBADF);
        QCOMPARE(errorOf(camera.calls.write(fd, &byte, 1)), EBADF);
        QCOMPARE(errorOf(camera.calls.fcntl(fd, F_GETFD, 0)), EBADF);
        QCOMPARE(errorOf(camera.calls.ioctl(fd, I2C_SLAVE_FORCE, kSensor)), EBADF);
        QCOMPARE(errorOf(camera.calls.captureIoctl(fd, VIDIOC_DQBUF, &buffer)), EBADF);
        QCOMPARE(errorOf(camera.calls.waitReadable(fd, 10)), EBADF);
        QCOMPARE(errorOf(camera.calls.mmap(4096, PROT_READ, MAP_SHARED, fd, 0)), EBADF);
    }

    void descriptorFlagsAreKept()
    {
        CameraFixture camera;
        const int fd = camera.calls.open("/dev/video0", O_RDWR | O_NONBLOCK);
        QCOMPARE(camera.calls.fcntl(fd, F_GETFD, 0), 0);
        QCOMPARE(camera.calls.fcntl(fd, F_SETFD, FD_CLOEXEC), 0);
        QCOMPARE(camera.calls.fcntl(fd, F_GETFD, 0), FD_CLOEXEC);
        QCOMPARE(errorOf(camera.calls.fcntl(fd, F_DUPFD, 0)), EINVAL);
        const int closing = camera.calls.open("/dev/i2c-1", O_RDWR | O_CLOEXEC);
        QCOMPARE(camera.calls.fcntl(closing, F_GETFD, 0), FD_CLOEXEC);
    }

    void aRegisterIsWrittenInThreeBytesAndReadThroughThePointer()
    {
        CameraFixture camera;
        const int fd = camera.openSensor();
        QVERIFY(fd >= 0);
        QCOMPARE(camera.write(fd, {0x35, 0x01, 0x1E}), ssize_t(3));
        QCOMPARE(int(camera.calls.sensorRegister(0x3501)), 0x1E);
        QCOMPARE(camera.calls.sensorSettings().exposure_lines, 0x1E00 / 16.0);
        QCOMPARE(camera.readRegister(fd, 0x300A), 0x56);
        QCOMPARE(camera.readRegister(fd, 0x300B), 0x42);
        QCOMPARE(camera.readRegister(fd, 0x3501), 0x1E);
        // The pointer outlives the descriptor: it is the sensor's.
        QCOMPARE(camera.calls.close(fd), 0);
        const int again = camera.openSensor();
        std::uint8_t value = 0;
        QCOMPARE(camera.calls.read(again, &value, 1), ssize_t(1));
        QCOMPARE(int(value), 0x1E);
    }

    void longerWritesGoOnToTheNextRegisters()
    {
        CameraFixture camera;
        const int fd = camera.openSensor();
        QCOMPARE(camera.write(fd, {0x34, 0x00, 0x01, 0x02, 0x03}), ssize_t(5));
        QCOMPARE(int(camera.calls.sensorRegister(0x3400)), 1);
        QCOMPARE(int(camera.calls.sensorRegister(0x3401)), 2);
        QCOMPARE(int(camera.calls.sensorRegister(0x3402)), 3);
        QCOMPARE(camera.readRegister(fd, 0x3400), 1);
        QCOMPARE(camera.write(fd, {0x35}), ssize_t(1));
        std::uint8_t value = 0;
        QCOMPARE(camera.calls.read(fd, &value, 1), ssize_t(1));
        QCOMPARE(int(value), 1);
    }

    void busRequestsAreAnsweredAsTheKernelDoes_data()
    {
        QTest::addColumn<unsigned long>("request");
        QTest::addColumn<unsigned long>("argument");
        QTest::addColumn<int>("error");
        const unsigned long setAddress = I2C_SLAVE_FORCE;
        QTest::newRow("sensor") << setAddress << kSensor << 0;
        QTest::newRow("another device") << setAddress << 0x50UL << 0;
        QTest::newRow("last address") << setAddress << 0x7FUL << 0;
        QTest::newRow("address beyond 7 bits") << setAddress << 0x80UL << EINVAL;
        QTest::newRow("unknown request") << 0x0799UL << 0UL << ENOTTY;
    }

    void busRequestsAreAnsweredAsTheKernelDoes()
    {
        QFETCH(unsigned long, request);
        QFETCH(unsigned long, argument);
        QFETCH(int, error);
        CameraFixture camera;
        const int fd = camera.calls.open("/dev/i2c-1", O_RDWR);
        QCOMPARE(errorOf(camera.calls.ioctl(fd, request, argument)), error);
        QCOMPARE(camera.calls.trace().calls(CallKind::BusAddress).back().error, error);
        v4l2_buffer buffer = bufferOf(0);
        QCOMPARE(errorOf(camera.calls.captureIoctl(fd, VIDIOC_QBUF, &buffer)), ENOTTY);
    }

    void nobodyAnswersAtAnotherAddress_data()
    {
        QTest::addColumn<bool>("addressed");
        QTest::newRow("other address") << true;
        QTest::newRow("none") << false;
    }

    void nobodyAnswersAtAnotherAddress()
    {
        QFETCH(bool, addressed);
        CameraFixture camera;
        const int fd = camera.calls.open("/dev/i2c-1", O_RDWR);
        if (addressed)
            QCOMPARE(camera.calls.ioctl(fd, I2C_SLAVE_FORCE, 0x50), 0);
        QCOMPARE(errorOf(camera.write(fd, {0x35, 0x01, 0x77})), EREMOTEIO);
        std::uint8_t value = 0;
        QCOMPARE(errorOf(camera.calls.read(fd, &value, 1)), EREMOTEIO);
        QVERIFY(camera.calls.sensorRegister(0x3501) != 0x77);
    }

    void theVideoDeviceNeitherReadsNorWrites()
    {
        CameraFixture camera;
        const int fd = camera.calls.open("/dev/video0", O_RDWR);
        std::uint8_t byte = 0;
        QCOMPARE(errorOf(camera.calls.read(fd, &byte, 1)), EINVAL);
        QCOMPARE(errorOf(camera.calls.write(fd, &byte, 1)), EINVAL);
    }

    void theNthTransferFails_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QList<int>>("results");
        QTest::newRow("NACK always") << "i2c-nack" << QList<int>{-1, -1, -1};
        QTest::newRow("NACK at the second") << "i2c-nack:2" << QList<int>{3, -1, 3};
        QTest::newRow("short always") << "i2c-short" << QList<int>{2, 2, 2};
        QTest::newRow("short at the third") << "i2c-short:3" << QList<int>{3, 3, 2};
    }

    void theNthTransferFails()
    {
        QFETCH(QString, fault);
        QFETCH(QList<int>, results);
        CameraFixture camera;
        const int fd = camera.openSensor();
        QVERIFY(camera.calls.faults().enable(fault.toStdString()));
        for (int i = 0; i < results.size(); ++i) {
            const auto value = std::uint8_t(0x10 + i);
            QCOMPARE(int(camera.write(fd, {0x50, 0x00, value})), results[i]);
            QCOMPARE(camera.calls.sensorRegister(0x5000) == value, results[i] == 3);
        }
    }

    void aShortReadTransfersNothing()
    {
        CameraFixture camera;
        const int fd = camera.openSensor();
        QVERIFY(camera.calls.faults().enable("i2c-short"));
        std::uint8_t value = 0xEE;
        QCOMPARE(camera.calls.read(fd, &value, 1), ssize_t(0));
        QCOMPARE(int(value), 0xEE);
        // Nothing cannot be shorter.
        QCOMPARE(camera.write(fd, {}), ssize_t(0));
    }

    void aCallThatReturnsZeroHasNoErrno()
    {
        CameraFixture camera;
        const int fd = camera.openSensor();
        camera.calls.faults().enable({CameraFault::CallFails, 0, "read", EIO, 0});
        std::uint8_t value = 0;
        errno = EDOM;
        QCOMPARE(camera.calls.read(fd, &value, 1), ssize_t(0));
        QCOMPARE(errno, EDOM);
        QCOMPARE(camera.calls.trace().calls(CallKind::BusRead).back().error, 0);
    }

    void descriptorsGoOnFromTheOneThatIsSet()
    {
        CameraFixture camera;
        camera.calls.setNextDescriptor(0);
        QCOMPARE(camera.calls.open("/dev/video0", O_RDWR), 0);
        QCOMPARE(camera.calls.open("/dev/i2c-1", O_RDWR), 1);
        QCOMPARE(camera.calls.close(0), 0);
    }

    void nobodyWaitsForFramesWithoutAStream()
    {
        CameraFixture camera;
        QVERIFY(!camera.calls.waitForFreshFrames(1, std::chrono::milliseconds(1)));
        QVERIFY(!camera.calls.waitForReturnedFrames(0, std::chrono::milliseconds(1)));
        QVERIFY(camera.calls.faults().enable("stall"));
        camera.startStream();
        QVERIFY(!camera.calls.waitForFreshFrames(1, std::chrono::milliseconds(1)));
        QVERIFY(camera.calls.waitForReturnedFrames(0, std::chrono::milliseconds(1)));
        camera.stopStream();
    }

    void everyRequestCanBeMadeToFail_data()
    {
        QTest::addColumn<unsigned long>("request");
        QTest::newRow("VIDIOC_S_FMT") << static_cast<unsigned long>(VIDIOC_S_FMT);
        QTest::newRow("VIDIOC_REQBUFS") << static_cast<unsigned long>(VIDIOC_REQBUFS);
        QTest::newRow("VIDIOC_QUERYBUF") << static_cast<unsigned long>(VIDIOC_QUERYBUF);
        QTest::newRow("VIDIOC_QBUF") << static_cast<unsigned long>(VIDIOC_QBUF);
        QTest::newRow("VIDIOC_DQBUF") << static_cast<unsigned long>(VIDIOC_DQBUF);
        QTest::newRow("VIDIOC_STREAMON") << static_cast<unsigned long>(VIDIOC_STREAMON);
        QTest::newRow("VIDIOC_STREAMOFF") << static_cast<unsigned long>(VIDIOC_STREAMOFF);
    }

    void everyRequestCanBeMadeToFail()
    {
        QFETCH(unsigned long, request);
        const std::string name = QTest::currentDataTag();
        CameraFixture camera;
        QVERIFY(camera.video.open());
        QVERIFY(camera.calls.faults().enable("ioctl:" + name + ":ENOSPC:2"));
        for (const bool fails : {false, true, false}) {
            alignas(v4l2_format) std::array<std::uint8_t, 512> record{};
            QCOMPARE(camera.video.call(request, record.data()) == ENOSPC, fails);
        }
        const TracedCall call = camera.calls.trace().calls(CallKind::Request)[1];
        QCOMPARE(call.name, name);
        QCOMPARE(call.error, ENOSPC);
    }

    void theBusRequestCanBeMadeToFail()
    {
        CameraFixture camera;
        const int fd = camera.calls.open("/dev/i2c-1", O_RDWR);
        QVERIFY(camera.calls.faults().enable("ioctl:I2C_SLAVE_FORCE"));
        QCOMPARE(errorOf(camera.calls.ioctl(fd, I2C_SLAVE_FORCE, kSensor)), EIO);
        camera.calls.faults().disable(CameraFault::CallFails);
        QCOMPARE(camera.calls.ioctl(fd, I2C_SLAVE_FORCE, kSensor), 0);
    }

    void mappingsAreRefusedAsTheKernelDoes_data()
    {
        QTest::addColumn<int>("protection");
        QTest::addColumn<int>("flags");
        QTest::addColumn<int>("offset");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<int>("error");
        const int both = PROT_READ | PROT_WRITE;
        QTest::newRow("shared") << both << MAP_SHARED << 0 << QString() << 0;
        QTest::newRow("read only") << PROT_READ << MAP_SHARED << 0 << QString() << 0;
        QTest::newRow("private") << both << MAP_PRIVATE << 0 << QString() << EINVAL;
        QTest::newRow("write only") << PROT_WRITE << MAP_SHARED << 0 << QString() << EINVAL;
        QTest::newRow("between buffers") << both << MAP_SHARED << 4096 << QString() << EINVAL;
        QTest::newRow("no memory") << both << MAP_SHARED << 0 << QString("mmap") << ENOMEM;
        QTest::newRow("no memory later") << both << MAP_SHARED << 0 << QString("mmap:2") << 0;
    }

    void mappingsAreRefusedAsTheKernelDoes()
    {
        QFETCH(int, protection);
        QFETCH(int, flags);
        QFETCH(int, offset);
        QFETCH(QString, fault);
        QFETCH(int, error);
        CameraFixture camera;
        QVERIFY(camera.video.open());
        QCOMPARE(camera.video.allocate(), 0);
        QVERIFY(fault.isEmpty() || camera.calls.faults().enable(fault.toStdString()));
        const int before = frameMappings();
        void* address = camera.calls.mmap(kVgaBytes, protection, flags, camera.video.fd(), offset);
        QCOMPARE(errorOf(address), error);
        QCOMPARE(frameMappings(), error == 0 ? before + 1 : before);
        if (error != 0)
            return;
        QCOMPARE(camera.calls.openMappings(), std::size_t(1));
        QCOMPARE(camera.calls.trace().calls(CallKind::Map).back().error, 0);
        QCOMPARE(errorOf(camera.calls.munmap(address, kVgaBytes - 1)), EINVAL);
        QCOMPARE(camera.calls.munmap(address, kVgaBytes), 0);
        QCOMPARE(camera.calls.munmap(address, kVgaBytes), -1);
        QCOMPARE(camera.calls.openMappings(), std::size_t(0));
        QCOMPARE(frameMappings(), before);
    }

    void theTraceTellsAnUnusualMapping()
    {
        CameraFixture camera;
        QVERIFY(camera.video.open());
        QCOMPARE(camera.video.allocate(), 0);
        camera.calls.trace().clear();
        const auto map = [&camera](int protection, int flags, off_t offset) {
            camera.calls.mmap(kVgaBytes, protection, flags, camera.video.fd(), offset);
        };
        map(PROT_READ | PROT_WRITE, MAP_SHARED, 0);
        map(PROT_READ, MAP_SHARED, 0);
        map(PROT_READ | PROT_WRITE, MAP_PRIVATE, 0);
        map(PROT_READ, MAP_PRIVATE, 1);
        QCOMPARE(camera.video.call(VIDIOC_S_FMT, nullptr), EFAULT);
        QCOMPARE(toldBy(camera),
                 QStringList({"mmap 0 of 614400 bytes", "mmap 0 of 614400 bytes protection 1 flags 1",
                              "mmap 0 of 614400 bytes protection 3 flags 2",
                              "mmap ? of 614400 bytes protection 1 flags 2", "VIDIOC_S_FMT nothing"}));
    }

    void aMappingOutlivesItsDescriptor()
    {
        CameraFixture camera;
        camera.startStream();
        QVERIFY(camera.video.waitForFrame());
        QCOMPARE(camera.video.close(), 0);
        QVERIFY(camera.video.bytes(0)[0] > 100);
        QVERIFY(camera.video.unmap());
    }

    void framesArriveInRealTimeAndShowTheLight()
    {
        CameraFixture camera;
        camera.startStream();
        v4l2_buffer buffer{};
        QCOMPARE(camera.video.dequeue(buffer), EAGAIN);
        QElapsedTimer timer;
        timer.start();
        unsigned sequence = 0;
        for (int frame = 0; frame < 6; ++frame) {
            QVERIFY(camera.video.take(buffer));
            QVERIFY(frame == 0 || buffer.sequence > sequence);
            sequence = buffer.sequence;
            QCOMPARE(camera.video.queue(buffer.index), 0);
        }
        QVERIFY(timer.elapsed() >= 150);
        const auto luma = [&] { return int(camera.video.bytes(buffer.index)[0]); };
        const int bright = luma();
        camera.ledLevel = 0;
        for (int frame = 0; frame < 5; ++frame) {
            QVERIFY(camera.video.take(buffer));
            QCOMPARE(camera.video.queue(buffer.index), 0);
        }
        QVERIFY(luma() < 30 && bright > 100);
        QCOMPARE(camera.calls.counters().drawings, std::uint64_t(2));
        QVERIFY(camera.calls.counters().framesDelivered >= 11);
        // Each buffer was either drawn or copied into, for either light.
        QVERIFY(camera.calls.counters().copies >= 2 && camera.calls.counters().copies <= 6);
        camera.stopStream();
    }

    // A step of the wait is 20 ms long. Once in many frames is enough, for the machine may be busy.
    void aWaitEndsWithItsFrameAndNotWithItsStep()
    {
        SimulatedCameraParameters parameters = quickParameters();
        parameters.capture.framesPerSecond = 1000;
        CameraFixture camera(parameters);
        QVERIFY(camera.video.open());
        camera.video.start(1);
        bool inTime = false;
        for (int frame = 0; frame < 50 && !inTime; ++frame) {
            QElapsedTimer timer;
            timer.start();
            v4l2_buffer buffer{};
            QVERIFY(camera.video.take(buffer));
            inTime = timer.elapsed() < 15;
            QCOMPARE(camera.video.queue(buffer.index), 0);
        }
        QVERIFY(inTime);
        camera.stopStream();
    }

    // The same of a wait that somebody wakes.
    void aWaitEndsAtOnceWhereTheClockWasMoved()
    {
        ScriptedFrames frames;
        CameraDeviceParameters parameters;
        parameters.capture.framesPerSecond = kFramesAtOnce_hz;
        QElapsedTimer time;
        time.start();
        std::atomic<int> looksAtTheClock{0};
        CameraDevices devices(parameters, frames, [&] {
            ++looksAtTheClock;
            return InstrumentTime(time.nsecsElapsed() / 1000);
        });
        OpenedDevice video(devices);
        QVERIFY(video.open());
        video.start();
        bool inTime = false;
        for (int frame = 0; frame < 50 && !inTime; ++frame) {
            looksAtTheClock = 0;
            std::atomic<bool> came{false};
            std::thread waiting([&] { came = video.waitForFrame(); });
            // The last look before it sleeps is the fourth, and nobody gets in between.
            while (looksAtTheClock < 4)
                std::this_thread::yield();
            frames.add({7});
            QElapsedTimer timer;
            timer.start();
            devices.clockMoved();
            waiting.join();
            inTime = timer.elapsed() < 10;
            QVERIFY(came);
            v4l2_buffer buffer{};
            QCOMPARE(video.dequeue(buffer), 0);
            QCOMPARE(video.queue(buffer.index), 0);
        }
        QVERIFY(inTime);
        QCOMPARE(video.close(), 0);
    }

    void waitingForAStalledStreamTimesOut()
    {
        CameraFixture camera;
        camera.startStream();
        QVERIFY(camera.calls.faults().enable("stall"));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(camera.calls.waitReadable(camera.video.fd(), 120), 0);
        QVERIFY(timer.elapsed() >= 119);
        camera.calls.faults().disable(CameraFault::StalledStream);
        QVERIFY(camera.video.waitForFrame());
    }

    void anUnpluggedCameraAnswersNothingUntilItIsOpenedAnew()
    {
        CameraFixture camera;
        camera.startStream();
        QVERIFY(camera.calls.faults().enable("stall"));
        QElapsedTimer timer;
        timer.start();
        std::thread unplugging([&camera] {
            QTest::qSleep(50);
            camera.calls.faults().enable("unplugged");
        });
        QCOMPARE(camera.calls.waitReadable(camera.video.fd(), 60000), 1);
        unplugging.join();
        QVERIFY(timer.elapsed() < 30000);
        v4l2_buffer buffer{};
        QCOMPARE(camera.video.dequeue(buffer), ENODEV);
        QCOMPARE(errorOf(camera.calls.open("/dev/video0", O_RDWR)), ENODEV);
        QVERIFY(camera.openSensor() >= 0);

        camera.calls.faults().clear();
        QCOMPARE(camera.video.dequeue(buffer), ENODEV);
        QCOMPARE(camera.calls.waitReadable(camera.video.fd(), 60000), 1);
        QCOMPARE(camera.video.map(0, kVgaBytes), ENODEV);
        QCOMPARE(camera.video.close(), 0);
        QVERIFY(camera.video.unmap());
        camera.startStream();
        QVERIFY(camera.video.take(buffer));
    }

    void whatDoesNotStreamIsReadableAtOnce()
    {
        CameraFixture camera;
        QCOMPARE(camera.calls.waitReadable(camera.calls.open("/dev/video0", O_RDWR), 60000), 1);
        QCOMPARE(camera.calls.waitReadable(camera.calls.open("/dev/i2c-1", O_RDWR), 60000), 1);
    }

    void theTraceTellsTheOrderAndTheBytes()
    {
        CameraFixture camera;
        const int bus = camera.openSensor();
        QCOMPARE(camera.write(bus, {0x35, 0x01, 0x0E}), ssize_t(3));
        QCOMPARE(camera.readRegister(bus, 0x300A), 0x56);
        QCOMPARE(camera.write(bus, {0xAB, 0x0C, 0xFF}), ssize_t(3));
        QCOMPARE(camera.calls.close(bus), 0);
        QVERIFY(camera.video.open());
        QCOMPARE(camera.video.format(1280, 960), 0);
        QCOMPARE(toldBy(camera), QStringList({"open /dev/i2c-1 read-write", "I2C_SLAVE_FORCE 3C",
                                              "write 35 01 0E", "write 30 0A", "read 1 56", "write AB 0C FF",
                                              "close /dev/i2c-1", "open /dev/video0 read-write non-blocking",
                                              "VIDIOC_S_FMT 1280x960 YUYV type 1"}));
        camera.calls.trace().clear();
        QVERIFY(camera.calls.trace().calls().empty());
    }

    void aCallOfAnyNameCanBeMadeToFailOnceOrAlways()
    {
        CameraFixture camera;
        const int fd = camera.openSensor();
        camera.calls.faults().enable({CameraFault::CallFails, 2, "write", EIO, 2});
        camera.calls.faults().enable({CameraFault::CallFails, 0, "read", EACCES, -1});
        for (const int transferred : {3, 2, 3}) {
            const auto value = std::uint8_t(0x40 + transferred);
            QCOMPARE(int(camera.write(fd, {0x50, 0x00, value})), transferred);
            QCOMPARE(camera.calls.sensorRegister(0x5000), std::uint8_t(0x43)); // a short one writes nothing
        }
        std::uint8_t value = 0;
        for (int i = 0; i < 2; ++i)
            QCOMPARE(errorOf(camera.calls.read(fd, &value, 1)), EACCES);
        camera.calls.faults().enable({CameraFault::CallFails, 1, "close", EINTR, -1});
        QCOMPARE(errorOf(camera.calls.close(fd)), EINTR);
        QCOMPARE(camera.calls.openDescriptors("/dev/i2c-1"), std::size_t(1));
        QCOMPARE(camera.calls.close(fd), 0);
        QCOMPARE(camera.calls.openDescriptors("/dev/i2c-1"), std::size_t(0));
    }

    void callsOfOtherThreadsAreKeptApartAndWaitsOnlyOnRequest()
    {
        SimulatedCameraParameters parameters = quickParameters();
        for (const bool traced : {false, true}) {
            parameters.traceWaits = traced;
            CameraFixture camera(parameters);
            QStringList heard;
            camera.calls.trace().setListener(
                [&heard](const TracedCall& call) { heard << QString::fromStdString(callLine(call)); });
            std::thread([&camera] { camera.calls.pause(70); }).join();
            QCOMPARE(heard, traced ? QStringList("pause 70") : QStringList());
            QCOMPARE(camera.calls.close(-1), -1);
            for (const TracedCall& call : camera.calls.trace().calls())
                QCOMPARE(call.onOwnThread, call.kind != CallKind::Pause);
            QCOMPARE(camera.calls.trace().calls().size(), std::size_t(traced ? 2 : 1));
        }
    }

    void whatNoProgramMustDoIsRemembered()
    {
        CameraFixture camera;
        camera.startStream();
        QVERIFY(camera.calls.faults().enable("stall"));
        std::thread waiting([&camera] { camera.calls.waitReadable(camera.video.fd(), 400); });
        QTest::qWait(150);
        QVERIFY(camera.calls.trace().misuses().empty());
        std::uint8_t noMapping = 0;
        camera.stopStream();
        waiting.join();
        QCOMPARE(camera.calls.munmap(&noMapping, kVgaBytes), -1);
        QCOMPARE(camera.video.close(), -1);
        QVERIFY(camera.video.open());
        int record = 0;
        QCOMPARE(camera.video.call(0, &record), ENOTTY);
        QCOMPARE(
            camera.calls.trace().misuses(),
            std::vector<std::string>({"stream stopped while a thread waits for its frames",
                                      "munmap of no mapping", "close of no descriptor", "unknown request"}));
    }

    void aFrameForABufferThatIsNotMappedIsRemembered()
    {
        CameraFixture camera;
        camera.startStream();
        QVERIFY(camera.video.waitForFrame());
        QVERIFY(camera.video.unmap());
        v4l2_buffer buffer{};
        QCOMPARE(camera.video.dequeue(buffer), 0);
        QCOMPARE(camera.calls.trace().misuses(),
                 std::vector<std::string>({"streaming into a buffer that is not mapped"}));
    }

    void pausesAndSyncsAreCounted_data()
    {
        QTest::addColumn<bool>("instant");
        QTest::newRow("instant") << true;
        QTest::newRow("real") << false;
    }

    void pausesAndSyncsAreCounted()
    {
        QFETCH(bool, instant);
        SimulatedCameraParameters parameters;
        parameters.instantPauses = instant;
        CameraFixture camera(parameters);
        QElapsedTimer timer;
        timer.start();
        camera.calls.pause(instant ? 3600000000U : 20000U);
        camera.calls.syncFileSystems();
        QVERIFY(timer.elapsed() >= (instant ? 0 : 19));
        QCOMPARE(camera.calls.counters().pauses, std::uint64_t(1));
        QCOMPARE(camera.calls.counters().paused_us, std::uint64_t(instant ? 3600000000U : 20000U));
        QCOMPARE(camera.calls.counters().fileSystemSyncs, std::uint64_t(1));
    }

    void whoWaitsForFramesIsWokenByThemAndByTheEndOfTheStream()
    {
        constexpr std::chrono::seconds kPatience(20);
        CameraFixture camera;
        camera.startStream();
        QElapsedTimer timer;
        timer.start();
        std::atomic<bool> done{false};
        bool came = false;
        std::thread frames([&] {
            came = camera.calls.waitForFreshFrames(2, kPatience);
            done = true;
        });
        while (!done && timer.elapsed() < 5000) {
            v4l2_buffer buffer{};
            if (camera.video.take(buffer))
                camera.video.queue(buffer.index);
        }
        frames.join();
        QVERIFY(came);
        std::thread endless([&] { came = camera.calls.waitForReturnedFrames(1000000, kPatience); });
        QTest::qSleep(30);
        QCOMPARE(camera.video.close(), 0);
        endless.join();
        QVERIFY(!came);
        // Neither wait lasted until its time was up.
        QVERIFY2(timer.elapsed() < 15000, qPrintable(QString::number(timer.elapsed())));
        QVERIFY(camera.video.unmap());
    }

    void theBusAndTheStreamCanBeUsedAtOnce()
    {
        CameraFixture camera;
        camera.startStream();
        std::atomic<bool> stop{false};
        std::atomic<int> frames{0};
        std::thread capture([&] {
            while (!stop) {
                v4l2_buffer buffer{};
                if (camera.video.take(buffer)) {
                    frames += camera.video.bytes(buffer.index)[0] > 0 ? 1 : 0;
                    camera.video.queue(buffer.index);
                }
            }
        });
        int writes = 0;
        while (frames < 8) {
            const int bus = camera.openSensor();
            QVERIFY(bus >= 0);
            QCOMPARE(camera.write(bus, {0x35, 0x02, std::uint8_t(writes)}), ssize_t(3));
            QCOMPARE(camera.readRegister(bus, 0x3502), writes & 0xFF);
            camera.calls.close(bus);
            camera.stagePosition_steps = 32000.0 + writes;
            ++writes;
            QTest::qSleep(2);
        }
        stop = true;
        capture.join();
        camera.stopStream();
        QCOMPARE(camera.calls.openDescriptors(), std::size_t(0));
        QCOMPARE(camera.calls.openMappings(), std::size_t(0));
    }
};

QTEST_GUILESS_MAIN(TestSimulatedDeviceCalls)
#include "test_simulated_device_calls.moc"
