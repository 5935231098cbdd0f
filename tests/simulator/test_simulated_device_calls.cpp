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

#include "SimulatedCameraBench.h"

using Bench = SimulatedCameraBench;

class TestSimulatedDeviceCalls : public QObject
{
    Q_OBJECT

private slots:
    void onlyTheCamerasOwnPathsCanBeOpened_data()
    {
        QTest::addColumn<QByteArray>("path");
        QTest::addColumn<QString>("fault");
        QTest::addColumn<bool>("opens");
        QTest::newRow("video") << QByteArray("/dev/video0") << QString() << true;
        QTest::newRow("bus") << QByteArray("/dev/i2c-1") << QString() << true;
        QTest::newRow("other") << QByteArray("/dev/video1") << QString() << false;
        QTest::newRow("no video") << QByteArray("/dev/video0") << QString("no-camera") << false;
        QTest::newRow("bus without video") << QByteArray("/dev/i2c-1") << QString("no-camera") << true;
        QTest::newRow("no bus") << QByteArray("/dev/i2c-1") << QString("no-i2c") << false;
        QTest::newRow("video without bus") << QByteArray("/dev/video0") << QString("no-i2c") << true;
    }

    void onlyTheCamerasOwnPathsCanBeOpened()
    {
        QFETCH(QByteArray, path);
        QFETCH(QString, fault);
        QFETCH(bool, opens);
        Bench bench;
        QVERIFY(fault.isEmpty() || bench.calls.faults().enable(fault.toStdString()));
        errno = 0;
        const int fd = bench.calls.open(path.constData(), O_RDWR);
        QCOMPARE(fd >= 0, opens);
        QCOMPARE(errno, opens ? 0 : ENOENT);
        QCOMPARE(bench.calls.openDescriptors(), std::size_t(opens ? 1 : 0));
        QCOMPARE(bench.calls.trace().calls(CallKind::Open).back().name, path.toStdString());
    }

    void aDescriptorIsNoneOfTheSystems()
    {
        Bench bench;
        const int fd = bench.calls.open("/dev/video0", O_RDWR);
        QCOMPARE(::fcntl(fd, F_GETFD), -1);
        QCOMPARE(errno, EBADF);
        QCOMPARE(bench.calls.close(fd), 0);
        QCOMPARE(bench.calls.close(fd), -1);
        QCOMPARE(errno, EBADF);
    }

    void aClosedDescriptorIsGoodForNothing()
    {
        Bench bench;
        const int fd = bench.calls.open("/dev/video0", O_RDWR);
        QCOMPARE(bench.calls.close(fd), 0);
        std::uint8_t byte = 0;
        v4l2_buffer buffer = Bench::bufferOf(0);
        const auto isRefused = [](auto result) { return result == decltype(result)(-1) && errno == EBADF; };
        QVERIFY(isRefused(bench.calls.read(fd, &byte, 1)));
        QVERIFY(isRefused(bench.calls.write(fd, &byte, 1)));
        QVERIFY(isRefused(bench.calls.fcntl(fd, F_GETFD, 0)));
        QVERIFY(isRefused(bench.calls.ioctl(fd, kForcedAddress, kSensor)));
        QVERIFY(isRefused(bench.calls.captureIoctl(fd, VIDIOC_DQBUF, &buffer)));
        QVERIFY(isRefused(bench.calls.waitReadable(fd, 10)));
        QCOMPARE(bench.calls.mmap(4096, PROT_READ, MAP_SHARED, fd, 0), MAP_FAILED);
        QCOMPARE(errno, EBADF);
    }

    void descriptorFlagsAreKept()
    {
        Bench bench;
        const int fd = bench.calls.open("/dev/video0", O_RDWR | O_NONBLOCK);
        QCOMPARE(bench.calls.fcntl(fd, F_GETFD, 0), 0);
        QCOMPARE(bench.calls.fcntl(fd, F_SETFD, FD_CLOEXEC), 0);
        QCOMPARE(bench.calls.fcntl(fd, F_GETFD, 0), FD_CLOEXEC);
        QCOMPARE(bench.calls.fcntl(fd, F_DUPFD, 0), -1);
        QCOMPARE(errno, EINVAL);
        const int closing = bench.calls.open("/dev/i2c-1", O_RDWR | O_CLOEXEC);
        QCOMPARE(bench.calls.fcntl(closing, F_GETFD, 0), FD_CLOEXEC);
    }

    void aRegisterIsWrittenInThreeBytesAndReadThroughThePointer()
    {
        Bench bench;
        const int fd = bench.openSensor();
        QVERIFY(fd >= 0);
        QCOMPARE(bench.write(fd, {0x35, 0x01, 0x1E}), ssize_t(3));
        QCOMPARE(int(bench.calls.sensorRegister(0x3501)), 0x1E);
        QCOMPARE(bench.calls.sensorSettings().exposure_lines, 0x1E00 / 16.0);
        QCOMPARE(bench.readRegister(fd, 0x300A), 0x56);
        QCOMPARE(bench.readRegister(fd, 0x300B), 0x42);
        QCOMPARE(bench.readRegister(fd, 0x3501), 0x1E);
        // The pointer outlives the descriptor: it is the sensor's.
        QCOMPARE(bench.calls.close(fd), 0);
        const int again = bench.openSensor();
        std::uint8_t value = 0;
        QCOMPARE(bench.calls.read(again, &value, 1), ssize_t(1));
        QCOMPARE(int(value), 0x1E);
    }

    void longerWritesGoOnToTheNextRegisters()
    {
        Bench bench;
        const int fd = bench.openSensor();
        QCOMPARE(bench.write(fd, {0x34, 0x00, 0x01, 0x02, 0x03}), ssize_t(5));
        QCOMPARE(int(bench.calls.sensorRegister(0x3400)), 1);
        QCOMPARE(int(bench.calls.sensorRegister(0x3401)), 2);
        QCOMPARE(int(bench.calls.sensorRegister(0x3402)), 3);
        QCOMPARE(bench.readRegister(fd, 0x3400), 1);
        QCOMPARE(bench.write(fd, {0x35}), ssize_t(1));
        std::uint8_t value = 0;
        QCOMPARE(bench.calls.read(fd, &value, 1), ssize_t(1));
        QCOMPARE(int(value), 1);
    }

    void busRequestsAreAnsweredAsTheKernelDoes_data()
    {
        QTest::addColumn<unsigned long>("request");
        QTest::addColumn<unsigned long>("argument");
        QTest::addColumn<int>("error");
        QTest::newRow("sensor") << kForcedAddress << kSensor << 0;
        QTest::newRow("another device") << kForcedAddress << 0x50UL << 0;
        QTest::newRow("address beyond 7 bits") << kForcedAddress << 0x80UL << EINVAL;
        QTest::newRow("unknown request") << 0x0799UL << 0UL << ENOTTY;
    }

    void busRequestsAreAnsweredAsTheKernelDoes()
    {
        QFETCH(unsigned long, request);
        QFETCH(unsigned long, argument);
        QFETCH(int, error);
        Bench bench;
        const int fd = bench.calls.open("/dev/i2c-1", O_RDWR);
        errno = 0;
        QCOMPARE(bench.calls.ioctl(fd, request, argument), error == 0 ? 0 : -1);
        QCOMPARE(errno, error);
        QCOMPARE(bench.calls.trace().calls(CallKind::BusAddress).back().error, error);
        v4l2_buffer buffer = Bench::bufferOf(0);
        QCOMPARE(bench.calls.captureIoctl(fd, VIDIOC_QBUF, &buffer), -1);
        QCOMPARE(errno, ENOTTY);
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
        Bench bench;
        const int fd = bench.calls.open("/dev/i2c-1", O_RDWR);
        if (addressed)
            QCOMPARE(bench.calls.ioctl(fd, kForcedAddress, 0x50), 0);
        QCOMPARE(bench.write(fd, {0x35, 0x01, 0x77}), ssize_t(-1));
        QCOMPARE(errno, EREMOTEIO);
        std::uint8_t value = 0;
        QCOMPARE(bench.calls.read(fd, &value, 1), ssize_t(-1));
        QCOMPARE(errno, EREMOTEIO);
        QVERIFY(bench.calls.sensorRegister(0x3501) != 0x77);
    }

    void theVideoDeviceNeitherReadsNorWrites()
    {
        Bench bench;
        const int fd = bench.calls.open("/dev/video0", O_RDWR);
        std::uint8_t byte = 0;
        QCOMPARE(bench.calls.read(fd, &byte, 1), ssize_t(-1));
        QCOMPARE(errno, EINVAL);
        QCOMPARE(bench.calls.write(fd, &byte, 1), ssize_t(-1));
        QCOMPARE(errno, EINVAL);
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
        Bench bench;
        const int fd = bench.openSensor();
        QVERIFY(bench.calls.faults().enable(fault.toStdString()));
        for (int i = 0; i < results.size(); ++i) {
            const auto value = std::uint8_t(0x10 + i);
            QCOMPARE(int(bench.write(fd, {0x50, 0x00, value})), results[i]);
            QCOMPARE(bench.calls.sensorRegister(0x5000) == value, results[i] == 3);
        }
    }

    void aShortReadTransfersNothing()
    {
        Bench bench;
        const int fd = bench.openSensor();
        QVERIFY(bench.calls.faults().enable("i2c-short"));
        std::uint8_t value = 0xEE;
        QCOMPARE(bench.calls.read(fd, &value, 1), ssize_t(0));
        QCOMPARE(int(value), 0xEE);
    }

    void everyRequestCanBeMadeToFail_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<unsigned long>("request");
        QTest::newRow("S_FMT") << "VIDIOC_S_FMT" << static_cast<unsigned long>(VIDIOC_S_FMT);
        QTest::newRow("REQBUFS") << "VIDIOC_REQBUFS" << static_cast<unsigned long>(VIDIOC_REQBUFS);
        QTest::newRow("QUERYBUF") << "VIDIOC_QUERYBUF" << static_cast<unsigned long>(VIDIOC_QUERYBUF);
        QTest::newRow("QBUF") << "VIDIOC_QBUF" << static_cast<unsigned long>(VIDIOC_QBUF);
        QTest::newRow("DQBUF") << "VIDIOC_DQBUF" << static_cast<unsigned long>(VIDIOC_DQBUF);
        QTest::newRow("STREAMON") << "VIDIOC_STREAMON" << static_cast<unsigned long>(VIDIOC_STREAMON);
        QTest::newRow("STREAMOFF") << "VIDIOC_STREAMOFF" << static_cast<unsigned long>(VIDIOC_STREAMOFF);
    }

    void everyRequestCanBeMadeToFail()
    {
        QFETCH(QString, name);
        QFETCH(unsigned long, request);
        Bench bench;
        const int fd = bench.calls.open("/dev/video0", O_RDWR | O_NONBLOCK);
        QVERIFY(bench.calls.faults().enable("ioctl:" + name.toStdString() + ":ENOSPC:2"));
        const auto failsWithIt = [&bench, fd, request] {
            alignas(v4l2_format) std::array<std::uint8_t, 512> record{};
            errno = 0;
            return bench.calls.captureIoctl(fd, request, record.data()) == -1 && errno == ENOSPC;
        };
        QVERIFY(!failsWithIt());
        QVERIFY(failsWithIt());
        QVERIFY(!failsWithIt());
        const TracedCall call = bench.calls.trace().calls(CallKind::Request)[1];
        QCOMPARE(call.name, name.toStdString());
        QCOMPARE(call.error, ENOSPC);
    }

    void theBusRequestCanBeMadeToFail()
    {
        Bench bench;
        const int fd = bench.calls.open("/dev/i2c-1", O_RDWR);
        QVERIFY(bench.calls.faults().enable("ioctl:I2C_SLAVE_FORCE"));
        QCOMPARE(bench.calls.ioctl(fd, kForcedAddress, kSensor), -1);
        QCOMPARE(errno, EIO);
        bench.calls.faults().disable(CameraFault::CallFails);
        QCOMPARE(bench.calls.ioctl(fd, kForcedAddress, kSensor), 0);
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
        Bench bench;
        const int fd = bench.calls.open("/dev/video0", O_RDWR);
        v4l2_requestbuffers request{};
        request.count = 4;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        QCOMPARE(bench.calls.captureIoctl(fd, VIDIOC_REQBUFS, &request), 0);
        QVERIFY(fault.isEmpty() || bench.calls.faults().enable(fault.toStdString()));
        void* address = bench.calls.mmap(kVgaBytes, protection, flags, fd, offset);
        QCOMPARE(address == MAP_FAILED, error != 0);
        if (error != 0) {
            QCOMPARE(errno, error);
            return;
        }
        QCOMPARE(bench.calls.openMappings(), std::size_t(1));
        QCOMPARE(bench.calls.munmap(address, kVgaBytes - 1), -1);
        QCOMPARE(errno, EINVAL);
        QCOMPARE(bench.calls.munmap(address, kVgaBytes), 0);
        QCOMPARE(bench.calls.munmap(address, kVgaBytes), -1);
        QCOMPARE(bench.calls.openMappings(), std::size_t(0));
    }

    void aMappingOutlivesItsDescriptor()
    {
        Bench bench;
        const int fd = bench.startStream();
        QVERIFY(fd >= 0);
        QCOMPARE(bench.calls.waitReadable(fd, 5000), 1);
        QCOMPARE(bench.calls.close(fd), 0);
        QVERIFY(static_cast<const std::uint8_t*>(bench.memory[0])[0] > 100);
        for (void* address : bench.memory)
            QCOMPARE(bench.calls.munmap(address, kVgaBytes), 0);
    }

    void framesArriveInRealTimeAndShowTheLight()
    {
        Bench bench;
        const int fd = bench.startStream();
        QVERIFY(fd >= 0);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(fd, buffer), -1);
        QCOMPARE(errno, EAGAIN);
        QElapsedTimer timer;
        timer.start();
        unsigned sequence = 0;
        for (int frame = 0; frame < 6; ++frame) {
            QCOMPARE(bench.calls.waitReadable(fd, 5000), 1);
            QCOMPARE(bench.dequeue(fd, buffer), 0);
            QVERIFY(frame == 0 || buffer.sequence > sequence);
            sequence = buffer.sequence;
            QCOMPARE(bench.calls.captureIoctl(fd, VIDIOC_QBUF, &buffer), 0);
        }
        QVERIFY(timer.elapsed() >= 150);
        const auto luma = [&] {
            return int(static_cast<const std::uint8_t*>(bench.memory[buffer.index])[0]);
        };
        const int bright = luma();
        bench.ledLevel = 0;
        for (int frame = 0; frame < 5; ++frame) {
            QCOMPARE(bench.calls.waitReadable(fd, 5000), 1);
            QCOMPARE(bench.dequeue(fd, buffer), 0);
            QCOMPARE(bench.calls.captureIoctl(fd, VIDIOC_QBUF, &buffer), 0);
        }
        QVERIFY(luma() < 30 && bright > 100);
        QCOMPARE(bench.calls.counters().drawings, std::uint64_t(2));
        QVERIFY(bench.calls.counters().framesDelivered >= 11);
        bench.stopStream(fd);
    }

    void anotherSlideIsSeenInTheFramesThatFollow()
    {
        SimulatedCameraParameters parameters = quickParameters();
        parameters.slide.kind = SlideKind::Empty;
        Bench bench(parameters);
        const int fd = bench.startStream();
        QVERIFY(fd >= 0);
        const auto darkestAfter = [&](int frames) {
            v4l2_buffer buffer{};
            for (int frame = 0; frame < frames; ++frame) {
                bench.calls.waitReadable(fd, 5000);
                if (bench.dequeue(fd, buffer) != 0 || bench.calls.captureIoctl(fd, VIDIOC_QBUF, &buffer) != 0)
                    return -1;
            }
            const auto* luma = static_cast<const std::uint8_t*>(bench.memory[buffer.index]);
            int darkest = 255;
            for (std::size_t i = 0; i < kVgaBytes; i += 2)
                darkest = std::min(darkest, int(luma[i]));
            return darkest;
        };
        QVERIFY(darkestAfter(1) > 100);
        parameters.slide.kind = SlideKind::Target;
        // In the middle of the field, which is what this mode shows.
        parameters.slide.targetDots = {SlidePoint{1296.0, 972.0}, SlidePoint{1500.0, 972.0}};
        bench.calls.changeSlide(parameters.slide);
        QCOMPARE(bench.calls.slide().targetDistance_px(), 204.0);
        const int dark = darkestAfter(5);
        QVERIFY(dark >= 0 && dark < 60);
        QCOMPARE(bench.calls.counters().drawings, std::uint64_t(2));
        bench.stopStream(fd);
    }

    void waitingForAStalledStreamTimesOut()
    {
        Bench bench;
        const int fd = bench.startStream();
        QVERIFY(fd >= 0);
        QVERIFY(bench.calls.faults().enable("stall"));
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(bench.calls.waitReadable(fd, 120), 0);
        QVERIFY(timer.elapsed() >= 119);
        bench.calls.faults().disable(CameraFault::StalledStream);
        QCOMPARE(bench.calls.waitReadable(fd, 5000), 1);
    }

    void anUnpluggedCameraAnswersNothingUntilItIsOpenedAnew()
    {
        Bench bench;
        const int fd = bench.startStream();
        QVERIFY(fd >= 0);
        QVERIFY(bench.calls.faults().enable("stall"));
        QElapsedTimer timer;
        timer.start();
        std::thread unplugging([&bench] {
            QTest::qSleep(50);
            bench.calls.faults().enable("unplugged");
        });
        QCOMPARE(bench.calls.waitReadable(fd, 60000), 1);
        unplugging.join();
        QVERIFY(timer.elapsed() < 30000);
        const auto isGone = [](int result) { return result == -1 && errno == ENODEV; };
        v4l2_buffer buffer{};
        QVERIFY(isGone(bench.dequeue(fd, buffer)));
        QVERIFY(isGone(bench.calls.open("/dev/video0", O_RDWR)));
        QVERIFY(bench.openSensor() >= 0);

        bench.calls.faults().clear();
        QVERIFY(isGone(bench.dequeue(fd, buffer)));
        QCOMPARE(bench.calls.waitReadable(fd, 60000), 1);
        QCOMPARE(bench.calls.mmap(kVgaBytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0), MAP_FAILED);
        QCOMPARE(errno, ENODEV);
        QCOMPARE(bench.calls.close(fd), 0);
        for (void* address : bench.memory)
            QCOMPARE(bench.calls.munmap(address, kVgaBytes), 0);
        const int again = bench.startStream();
        QVERIFY(again >= 0);
        QCOMPARE(bench.calls.waitReadable(again, 5000), 1);
        QCOMPARE(bench.dequeue(again, buffer), 0);
    }

    void whatDoesNotStreamIsReadableAtOnce()
    {
        Bench bench;
        QCOMPARE(bench.calls.waitReadable(bench.calls.open("/dev/video0", O_RDWR), 60000), 1);
        QCOMPARE(bench.calls.waitReadable(bench.calls.open("/dev/i2c-1", O_RDWR), 60000), 1);
    }

    void frameFaultsReachTheFrames_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<bool>("isShort");
        QTest::newRow("short") << "short-frames" << true;
        QTest::newRow("oversized") << "oversized-frames" << false;
    }

    void frameFaultsReachTheFrames()
    {
        QFETCH(QString, fault);
        QFETCH(bool, isShort);
        Bench bench;
        const int fd = bench.startStream();
        QVERIFY(bench.calls.faults().enable(fault.toStdString()));
        QCOMPARE(bench.calls.waitReadable(fd, 5000), 1);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(fd, buffer), 0);
        QVERIFY(isShort ? buffer.bytesused < buffer.length : buffer.bytesused > buffer.length);
    }

    void grantFaultsReachTheGrant_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<unsigned>("granted");
        QTest::newRow("more") << "more-buffers" << 8U;
        QTest::newRow("fewer") << "fewer-buffers" << 2U;
    }

    void grantFaultsReachTheGrant()
    {
        QFETCH(QString, fault);
        QFETCH(unsigned, granted);
        Bench bench;
        QVERIFY(bench.calls.faults().enable(fault.toStdString()));
        const int fd = bench.calls.open("/dev/video0", O_RDWR);
        v4l2_requestbuffers request{};
        request.count = 4;
        request.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        request.memory = V4L2_MEMORY_MMAP;
        QCOMPARE(bench.calls.captureIoctl(fd, VIDIOC_REQBUFS, &request), 0);
        QCOMPARE(request.count, granted);
    }

    void theTraceTellsTheOrderAndTheBytes()
    {
        Bench bench;
        const int bus = bench.openSensor();
        QCOMPARE(bench.write(bus, {0x35, 0x01, 0x0E}), ssize_t(3));
        QCOMPARE(bench.readRegister(bus, 0x300A), 0x56);
        QCOMPARE(bench.calls.close(bus), 0);
        const int fd = bench.calls.open("/dev/video0", O_RDWR);
        v4l2_format format{};
        format.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
        format.fmt.pix.width = 1280;
        format.fmt.pix.height = 960;
        format.fmt.pix.pixelformat = V4L2_PIX_FMT_YUYV;
        QCOMPARE(bench.calls.captureIoctl(fd, VIDIOC_S_FMT, &format), 0);
        QStringList told;
        for (const TracedCall& call : bench.calls.trace().calls())
            told << QString::fromStdString(callLine(call));
        QCOMPARE(told, QStringList({"open /dev/i2c-1 read-write", "I2C_SLAVE_FORCE 3C", "write 35 01 0E",
                                    "write 30 0A", "read 1 56", "close /dev/i2c-1",
                                    "open /dev/video0 read-write", "VIDIOC_S_FMT 1280x960 YUYV type 1"}));
        bench.calls.trace().clear();
        QVERIFY(bench.calls.trace().calls().empty());
    }

    void aCallOfAnyNameCanBeMadeToFailOnceOrAlways()
    {
        Bench bench;
        const int fd = bench.openSensor();
        bench.calls.faults().enable({CameraFault::CallFails, 2, "write", EIO, 2});
        bench.calls.faults().enable({CameraFault::CallFails, 0, "read", EACCES, -1});
        for (const int transferred : {3, 2, 3}) {
            const auto value = std::uint8_t(0x40 + transferred);
            QCOMPARE(int(bench.write(fd, {0x50, 0x00, value})), transferred);
            QCOMPARE(bench.calls.sensorRegister(0x5000), std::uint8_t(0x43)); // a short one writes nothing
        }
        std::uint8_t value = 0;
        for (int i = 0; i < 2; ++i) {
            QCOMPARE(bench.calls.read(fd, &value, 1), ssize_t(-1));
            QCOMPARE(errno, EACCES);
        }
        bench.calls.faults().enable({CameraFault::CallFails, 1, "close", EINTR, -1});
        QCOMPARE(bench.calls.close(fd), -1);
        QCOMPARE(errno, EINTR);
        QCOMPARE(bench.calls.openDescriptors("/dev/i2c-1"), std::size_t(1));
        QCOMPARE(bench.calls.close(fd), 0);
        QCOMPARE(bench.calls.openDescriptors("/dev/i2c-1"), std::size_t(0));
    }

    void callsOfOtherThreadsAreKeptApartAndWaitsOnlyOnRequest()
    {
        SimulatedCameraParameters parameters = quickParameters();
        for (const bool traced : {false, true}) {
            parameters.traceWaits = traced;
            Bench bench(parameters);
            QStringList heard;
            bench.calls.trace().setListener(
                [&heard](const TracedCall& call) { heard << QString::fromStdString(callLine(call)); });
            std::thread([&bench] { bench.calls.pause(70); }).join();
            QCOMPARE(heard, traced ? QStringList("pause 70") : QStringList());
            QCOMPARE(bench.calls.close(-1), -1);
            for (const TracedCall& call : bench.calls.trace().calls())
                QCOMPARE(call.onOwnThread, call.kind != CallKind::Pause);
            QCOMPARE(bench.calls.trace().calls().size(), std::size_t(traced ? 2 : 1));
        }
    }

    void whatNoProgramMustDoIsRemembered()
    {
        Bench bench;
        const int fd = bench.startStream();
        QVERIFY(bench.calls.faults().enable("stall"));
        std::thread waiting([&bench, fd] { bench.calls.waitReadable(fd, 400); });
        QTest::qWait(150);
        QVERIFY(bench.calls.trace().misuses().empty());
        bench.stopStream(fd);
        waiting.join();
        QCOMPARE(bench.calls.munmap(bench.memory[0], kVgaBytes), -1);
        QCOMPARE(bench.calls.close(fd), -1);
        int record = 0;
        QCOMPARE(bench.calls.captureIoctl(bench.calls.open("/dev/video0", O_RDWR), 0, &record), -1);
        QCOMPARE(
            bench.calls.trace().misuses(),
            std::vector<std::string>({"stream stopped while a thread waits for its frames",
                                      "munmap of no mapping", "close of no descriptor", "unknown request"}));
    }

    void aFrameForABufferThatIsNotMappedIsRemembered()
    {
        Bench bench;
        const int fd = bench.startStream();
        QCOMPARE(bench.calls.waitReadable(fd, 5000), 1);
        QCOMPARE(bench.calls.munmap(bench.memory[0], kVgaBytes), 0);
        v4l2_buffer buffer{};
        QCOMPARE(bench.dequeue(fd, buffer), 0);
        QCOMPARE(bench.calls.trace().misuses(),
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
        Bench bench(parameters);
        QElapsedTimer timer;
        timer.start();
        bench.calls.pause(instant ? 3600000000U : 20000U);
        bench.calls.syncFileSystems();
        QVERIFY(timer.elapsed() >= (instant ? 0 : 19));
        QCOMPARE(bench.calls.counters().pauses, std::uint64_t(1));
        QCOMPARE(bench.calls.counters().paused_us, std::uint64_t(instant ? 3600000000U : 20000U));
        QCOMPARE(bench.calls.counters().fileSystemSyncs, std::uint64_t(1));
    }

    void theBusAndTheStreamCanBeUsedAtOnce()
    {
        Bench bench;
        const int fd = bench.startStream();
        QVERIFY(fd >= 0);
        std::atomic<bool> stop{false};
        std::atomic<int> frames{0};
        std::thread capture([&] {
            while (!stop) {
                v4l2_buffer buffer{};
                if (bench.calls.waitReadable(fd, 1000) == 1 && bench.dequeue(fd, buffer) == 0) {
                    frames += static_cast<const std::uint8_t*>(bench.memory[buffer.index])[0] > 0 ? 1 : 0;
                    bench.calls.captureIoctl(fd, VIDIOC_QBUF, &buffer);
                }
            }
        });
        int writes = 0;
        while (frames < 8) {
            const int bus = bench.openSensor();
            QVERIFY(bus >= 0);
            QCOMPARE(bench.write(bus, {0x35, 0x02, std::uint8_t(writes)}), ssize_t(3));
            QCOMPARE(bench.readRegister(bus, 0x3502), writes & 0xFF);
            bench.calls.close(bus);
            bench.stagePosition_steps = 32000.0 + writes;
            ++writes;
            QTest::qSleep(2);
        }
        stop = true;
        capture.join();
        bench.stopStream(fd);
        QCOMPARE(bench.calls.openDescriptors(), std::size_t(0));
        QCOMPARE(bench.calls.openMappings(), std::size_t(0));
    }
};

QTEST_GUILESS_MAIN(TestSimulatedDeviceCalls)
#include "test_simulated_device_calls.moc"
