#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <QTemporaryDir>
#include <QtTest>

#include "platform/ChildProcess.h"
#include "platform/ProcessSetup.h"
#include "support/FileBytes.h"
#include "support/InChild.h"

namespace {

constexpr int kFirstOther = STDERR_FILENO + 1;

bool isNull(int fd)
{
    struct stat file = {};
    return ::fstat(fd, &file) == 0 && S_ISCHR(file.st_mode) && file.st_rdev == ::makedev(1, 3);
}

bool isOpen(int fd)
{
    return ::fcntl(fd, F_GETFD) >= 0;
}

bool isBlocked(int number)
{
    sigset_t blocked;
    ::pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    return sigismember(&blocked, number) == 1;
}

} // namespace

/// What a process has after its beginning, whatever it was given. Each but the last in a process of
/// its own.
class TestProcessSetup : public QObject
{
    Q_OBJECT

private slots:
    void aMissingStreamLeadsNowhere_data()
    {
        QTest::addColumn<QVector<int>>("missing");
        QTest::newRow("input") << QVector<int>{STDIN_FILENO};
        QTest::newRow("errors") << QVector<int>{STDERR_FILENO};
        QTest::newRow("input and errors") << QVector<int>{STDIN_FILENO, STDERR_FILENO};
        QTest::newRow("all") << QVector<int>{STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO};
    }

    void aMissingStreamLeadsNowhere()
    {
        QFETCH(QVector<int>, missing);
        const int status = inChild([&] {
            ::close(kFirstOther);
            for (const int stream : missing)
                ::close(stream);
            setUpProcess();
            int wrong = isOpen(kFirstOther) ? 1 : 0;
            for (const int stream : missing) {
                const int mode = ::fcntl(stream, F_GETFL) & O_ACCMODE;
                const bool closedOnExec = (::fcntl(stream, F_GETFD) & FD_CLOEXEC) != 0;
                wrong += isNull(stream) && mode == O_RDWR && !closedOnExec ? 0 : 1;
            }
            return wrong;
        });
        QCOMPARE(status, 0);
    }

    void streamsThatAreThereStay()
    {
        QTemporaryDir directory;
        const QString path = directory.filePath("log");
        const int status = inChild([&] {
            const int log = ::open(qPrintable(path), O_WRONLY | O_CREAT, 0600);
            ::dup2(log, STDOUT_FILENO);
            ::dup2(log, STDERR_FILENO);
            setUpProcess();
            return ::write(STDOUT_FILENO, "one ", 4) == 4 && ::write(STDERR_FILENO, "two", 3) == 3 ? 0 : 1;
        });
        QCOMPARE(status, 0);
        QCOMPARE(bytesOf(path), QByteArray("one two"));
    }

    void aReaderWhoHasGoneFailsTheWrite()
    {
        const int status = inChild([] {
            int ends[2] = {-1, -1};
            if (::pipe(ends) != 0)
                return 2;
            ::close(ends[0]);
            setUpProcess();
            return ::write(ends[1], "x", 1) == -1 && errno == EPIPE ? 0 : 1;
        });
        QCOMPARE(status, 0);
    }

    void aFileThatMayNotGrowFailsTheWrite()
    {
        QTemporaryDir directory;
        const QString path = directory.filePath("picture");
        const int status = inChild([&] {
            const int file = ::open(qPrintable(path), O_WRONLY | O_CREAT, 0600);
            const rlimit limit{0, 0};
            if (::setrlimit(RLIMIT_FSIZE, &limit) != 0)
                return 2;
            setUpProcess();
            return ::write(file, "x", 1) == -1 && errno == EFBIG ? 0 : 1;
        });
        QCOMPARE(status, 0);
    }

    void theSignalsThatItAnswersToComeThrough()
    {
        const int status = inChild([] {
            sigset_t all;
            sigfillset(&all);
            ::pthread_sigmask(SIG_SETMASK, &all, nullptr);
            setUpProcess();
            int wrong = 0;
            for (const int number : {SIGTERM, SIGINT, SIGHUP, SIGCHLD})
                wrong += isBlocked(number) ? 1 : 0;
            // What somebody in the same process waits for by itself is left to it.
            return wrong + (isBlocked(SIGUSR1) ? 0 : 1);
        });
        QCOMPARE(status, 0);
    }

    // A command in a shell's pipe ends by the signal. In this process, which ignores it from here on:
    // under ThreadSanitizer a copy of a process with threads does not hear of its child's end.
    void aChildIsEndedByItAsEver()
    {
        QTemporaryDir directory;
        const QString path = directory.filePath("ignored");
        setUpProcess();
        runChildProcess("sh", {"-c", "grep SigIgn /proc/self/status >" + path});
        const QByteArray line = bytesOf(path).simplified();
        bool isNumber = false;
        const qulonglong ignored = line.mid(line.indexOf(":") + 1).trimmed().toULongLong(&isNumber, 16);
        QVERIFY2(isNumber, line.constData());
        QCOMPARE(ignored >> (SIGPIPE - 1) & 1U, 0ULL);
    }
};

QTEST_APPLESS_MAIN(TestProcessSetup)
#include "test_process_setup.moc"
