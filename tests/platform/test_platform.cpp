#include <algorithm>
#include <cerrno>
#include <csignal>

#include <dlfcn.h>
#include <fcntl.h>
#include <linux/videodev2.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/select.h>
#include <sys/time.h>
#include <unistd.h>

#include <QTemporaryDir>
#include <QtTest>

#include "platform/DebugLog.h"
#include "platform/InstrumentPath.h"
#include "platform/SystemDeviceCalls.h"
#include "support/Emulation.h"
#include "support/FileBytes.h"

namespace {

int g_syncs = 0;
volatile std::sig_atomic_t g_signals = 0;

timeval g_askedTime{};
bool g_timePasses = true;

} // namespace

/// In the place of the system's own, whose effect nobody can see.
extern "C" void sync() noexcept
{
    ++g_syncs;
}

/// The same, but that time need not pass.
extern "C" int select(int count, fd_set* readable, fd_set* writable, fd_set* exceptional, timeval* time)
{
    if (time != nullptr) {
        g_askedTime = *time;
        *time = g_timePasses ? *time : timeval{};
    }
    const auto original = reinterpret_cast<decltype(&select)>(::dlsym(RTLD_NEXT, "select"));
    return original(count, readable, writable, exceptional, time);
}

namespace {

class Sender : public QObject
{
    Q_OBJECT

signals:
    void sig_debug_Message(QStringList parts);
};

} // namespace

class TestPlatform : public QObject
{
    Q_OBJECT

private slots:
    void cleanup() { setInstrumentRoot("/"); }

    void theRecordOfAFrameIsTheOneThatTheBoardsKernelHands()
    {
        // Its size is part of the request's number, and the time in it part of the size: a build
        // with wider times than the system's own would send requests that older kernels refuse.
        QCOMPARE(sizeof(v4l2_buffer::timestamp), 2 * sizeof(long));
        QCOMPARE(sizeof(v4l2_buffer), sizeof(long) == 8 ? std::size_t(88) : std::size_t(68));
        QCOMPARE(static_cast<unsigned int>(VIDIOC_DQBUF), sizeof(long) == 8 ? 0xC0585611U : 0xC0445611U);
    }

    void aFixedPathStaysAsItIsOnTheMachineItself_data()
    {
        QTest::addColumn<QString>("root");
        for (const char* root : {"", "/", "//", "/usr/.."})
            QTest::addRow("\"%s\"", root) << root;
    }

    void aFixedPathStaysAsItIsOnTheMachineItself()
    {
        QFETCH(QString, root);
        setInstrumentRoot("/usr");
        setInstrumentRoot(root);
        QCOMPARE(instrumentPath(QStringLiteral("/dev/ttyS2")), QStringLiteral("/dev/ttyS2"));
        QCOMPARE(instrumentPath(std::string("/mnt")), std::string("/mnt"));
        QCOMPARE(fixedPathOf("/dev/sda1"), QStringLiteral("/dev/sda1"));
    }

    void aRootStandsInForTheMachineAndBack()
    {
        QTemporaryDir directory;
        setInstrumentRoot(directory.path());
        const QString machine = instrumentPath(QStringLiteral("/mnt/a b.tif"));
        QCOMPARE(machine, QFileInfo(directory.path()).canonicalFilePath() + "/mnt/a b.tif");
        QCOMPARE(fixedPathOf(machine), QStringLiteral("/mnt/a b.tif"));
        QCOMPARE(fixedPathOf("/elsewhere"), QStringLiteral("/elsewhere"));
        QCOMPARE(fixedPathOf(QFileInfo(directory.path()).canonicalFilePath() + "2/x"),
                 QFileInfo(directory.path()).canonicalFilePath() + "2/x");
        QCOMPARE(instrumentPath(QString()), QString());
        QCOMPARE(instrumentPath(std::string()), std::string());
    }

    void aMessageReachesTheStreamAndTheSignalWithTheSameParts()
    {
        Sender sender;
        QSignalSpy spy(&sender, &Sender::sig_debug_Message);
        QTest::ignoreMessage(QtDebugMsg, "void f() label: 7");
        logMessage(&sender, {"void f()", "label:", "7"});
        QCOMPARE(spy.count(), 1);
        QCOMPARE(spy.at(0).at(0).toStringList(), QStringList({"void f()", "label:", "7"}));
    }

    void theSystemsCallsReachARealFile()
    {
        QTemporaryDir directory;
        setInstrumentRoot(directory.path());
        SystemDeviceCalls calls;
        QCOMPARE(calls.open("/missing", O_RDONLY), -1);
        QCOMPARE(errno, ENOENT);

        putBytes(directory.filePath("device"), "abc");
        const int fd = calls.open("/device", O_RDWR);
        QVERIFY(fd >= 0);
        QCOMPARE(calls.fcntl(fd, F_SETFD, FD_CLOEXEC), 0);
        QCOMPARE(calls.fcntl(fd, F_GETFD, 0), FD_CLOEXEC);
        char text[4] = {};
        QCOMPARE(calls.read(fd, text, 3), ssize_t(3));
        QCOMPARE(text, "abc");
        QCOMPARE(calls.write(fd, "d", 1), ssize_t(1));
        QCOMPARE(calls.waitReadable(fd, 0), 1);
        QCOMPARE(calls.ioctl(fd, 0x0706, 0x3C), -1);
        const int refusal = errno;
        QCOMPARE(calls.close(fd), 0);
        QCOMPARE(calls.close(fd), -1);
        SKIP_UNDER_EMULATION("it refuses requests that it does not know by itself, with ENOSYS");
        QCOMPARE(refusal, ENOTTY);
    }

    void aMappingIsThatPartOfTheDeviceAndSharedWithIt()
    {
        const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        QTemporaryDir directory;
        setInstrumentRoot(directory.path());
        putBytes(directory.filePath("device"), QByteArray(int(page), 'a') + QByteArray(int(page), 'b'));
        SystemDeviceCalls calls;
        const int fd = calls.open("/device", O_RDWR);
        QCOMPARE(calls.mmap(page, PROT_READ | PROT_WRITE, MAP_SHARED, -1, 0), MAP_FAILED);
        auto* memory = static_cast<char*>(
            calls.mmap(page, PROT_READ | PROT_WRITE, MAP_SHARED, fd, static_cast<off_t>(page)));
        QVERIFY(memory != MAP_FAILED);
        QCOMPARE(memory[0], 'b');
        memory[0] = 'c';
        QCOMPARE(calls.munmap(memory, page), 0);
        QCOMPARE(bytesOf(directory.filePath("device")).at(int(page)), 'c');
        QCOMPARE(calls.close(fd), 0);
        SKIP_UNDER_EMULATION("the request of a place without memory succeeds");
        // No longer mapped, so that another request of it fails.
        QCOMPARE(::msync(memory, page, MS_ASYNC), -1);
    }

    void aFileIsNoCaptureDevice()
    {
        QTemporaryDir directory;
        setInstrumentRoot(directory.path());
        putBytes(directory.filePath("device"), {});
        SystemDeviceCalls calls;
        const int fd = calls.open("/device", O_RDWR);
        v4l2_capability capability = {};
        QCOMPARE(calls.captureIoctl(fd, VIDIOC_QUERYCAP, &capability), -1);
        const int refusal = errno;
        QCOMPARE(calls.close(fd), 0);
        SKIP_UNDER_EMULATION("it refuses requests that it does not know by itself, with ENOSYS");
        QCOMPARE(refusal, ENOTTY);
    }

    void aPauseLastsItsMicroseconds()
    {
        SystemDeviceCalls calls;
        QElapsedTimer timer;
        timer.start();
        calls.pause(5000);
        const qint64 elapsed_ns = timer.nsecsElapsed();
        QVERIFY(elapsed_ns >= 5000000);
        QVERIFY(elapsed_ns < 1000000000);
    }

    void aSignalDoesNotCutAPauseShort()
    {
        struct sigaction heard = {};
        heard.sa_handler = [](int) { g_signals = g_signals + 1; };
        heard.sa_flags = SA_RESTART;
        struct sigaction before = {};
        QCOMPARE(::sigaction(SIGALRM, &heard, &before), 0);
        const itimerval often{{0, 10000}, {0, 10000}};
        const itimerval never{};
        SystemDeviceCalls calls;
        QElapsedTimer timer;
        timer.start();
        ::setitimer(ITIMER_REAL, &often, nullptr);
        calls.pause(200000);
        const qint64 elapsed_ns = timer.nsecsElapsed();
        ::setitimer(ITIMER_REAL, &never, nullptr);
        ::sigaction(SIGALRM, &before, nullptr);
        QVERIFY(g_signals > 1);
        QVERIFY2(elapsed_ns >= 200000000, qPrintable(QString::number(elapsed_ns)));
    }

    void waitingOnAnUnusableDescriptorIsAnError_data()
    {
        QTest::addColumn<int>("fd");
        QTest::newRow("none") << -1;
        QTest::newRow("beyond the set") << (1 << 20);
    }

    void waitingOnAnUnusableDescriptorIsAnError()
    {
        QFETCH(int, fd);
        SystemDeviceCalls calls;
        QCOMPARE(calls.waitReadable(fd, 1000), -1);
        QCOMPARE(errno, EBADF);
    }

    void aDescriptorIsWaitedForAsLongAsTheSetHoldsIt_data()
    {
        QTest::addColumn<int>("fd");
        QTest::addColumn<int>("result");
        QTest::newRow("first") << 0 << 1;
        QTest::newRow("last") << FD_SETSIZE - 1 << 1;
        QTest::newRow("one too many") << FD_SETSIZE << -1;
    }

    void aDescriptorIsWaitedForAsLongAsTheSetHoldsIt()
    {
        QFETCH(int, fd);
        QFETCH(int, result);
        rlimit limit{};
        QCOMPARE(::getrlimit(RLIMIT_NOFILE, &limit), 0);
        const rlimit raised{std::max<rlim_t>(limit.rlim_cur, FD_SETSIZE + 1), limit.rlim_max};
        if (::setrlimit(RLIMIT_NOFILE, &raised) != 0)
            QSKIP("this system does not allow so many descriptors");
        int ends[2];
        QCOMPARE(::pipe(ends), 0);
        QCOMPARE(::write(ends[1], "x", 1), ssize_t(1));
        const int before = ::dup(fd);
        QCOMPARE(::dup2(ends[0], fd), fd);
        SystemDeviceCalls calls;
        errno = 0;
        const int answer = calls.waitReadable(fd, 5000);
        const int error = errno;
        // Descriptor 0 belongs to somebody.
        if (before >= 0)
            ::dup2(before, fd);
        for (const int mine : {before, before >= 0 ? -1 : fd, ends[0], ends[1]})
            if (mine >= 0)
                ::close(mine);
        QCOMPARE(answer, result);
        QCOMPARE(error, result < 0 ? EBADF : 0);
    }

    void theDisksAreFlushedOncePerCall()
    {
        SystemDeviceCalls calls;
        g_syncs = 0;
        calls.syncFileSystems();
        QCOMPARE(g_syncs, 1);
    }

    void waitingForASilentDeviceEndsAfterItsTime_data()
    {
        QTest::addColumn<int>("timeout_ms");
        for (const int timeout_ms : {0, 30, 999, 1000, 1001, 2030})
            QTest::addRow("%d ms", timeout_ms) << timeout_ms;
    }

    void waitingForASilentDeviceEndsAfterItsTime()
    {
        QFETCH(int, timeout_ms);
        int ends[2];
        QCOMPARE(::pipe(ends), 0);
        SystemDeviceCalls calls;
        g_timePasses = timeout_ms < 100;
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(calls.waitReadable(ends[0], timeout_ms), 0);
        QVERIFY(!g_timePasses || timer.elapsed() >= timeout_ms - 1);
        g_timePasses = true;
        QCOMPARE(int(g_askedTime.tv_sec), timeout_ms / 1000);
        QCOMPARE(int(g_askedTime.tv_usec), timeout_ms % 1000 * 1000);
        ::close(ends[0]);
        ::close(ends[1]);
    }

    void otherCallsCanStandInAndTheSystemsComeBack()
    {
        DeviceCalls& system = deviceCalls();
        SystemDeviceCalls other;
        QCOMPARE(installDeviceCalls(&other), nullptr);
        QCOMPARE(&deviceCalls(), static_cast<DeviceCalls*>(&other));
        QCOMPARE(installDeviceCalls(nullptr), static_cast<DeviceCalls*>(&other));
        QCOMPARE(&deviceCalls(), &system);
    }
};

QTEST_GUILESS_MAIN(TestPlatform)
#include "test_platform.moc"
