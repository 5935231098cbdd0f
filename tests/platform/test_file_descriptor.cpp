#include <cerrno>
#include <string>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <QtTest>

#include "platform/FileDescriptor.h"
#include "support/WithoutStandardInput.h"

namespace {

bool isOpen(int fd)
{
    return ::fcntl(fd, F_GETFD) >= 0;
}

} // namespace

class TestFileDescriptor : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        int ends[2] = {-1, -1};
        QCOMPARE(::pipe2(ends, O_CLOEXEC | O_NONBLOCK), 0);
        m_reading.reset(ends[0]);
        m_writing.reset(ends[1]);
    }

    void itClosesWithItsBlockAndLeavesErrnoAlone()
    {
        const int fd = m_writing.release();
        QCOMPARE(m_writing.get(), -1);
        {
            const FileDescriptor owner(fd);
            QVERIFY(owner.isOpen() && isOpen(fd));
            errno = ENOSPC;
        }
        QCOMPARE(errno, ENOSPC);
        QVERIFY(!isOpen(fd));
    }

    void theNumberOfStandardInputIsClosedAsWell()
    {
        const WithoutStandardInput without;
        FileDescriptor owner(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        QCOMPARE(owner.get(), STDIN_FILENO);
        owner.reset(-1);
        QVERIFY(!isOpen(STDIN_FILENO));
    }

    void itIsHandedOver()
    {
        const int fd = m_writing.get();
        FileDescriptor next(std::move(m_writing));
        QCOMPARE(next.get(), fd);
        next.reset(m_reading.release());
        QVERIFY(!isOpen(fd) && next.isOpen());
        m_writing = std::move(next);
        QVERIFY(m_writing.isOpen() && isOpen(m_writing.get()));
    }

    void closingTellsWhatTheSystemSays()
    {
        QVERIFY(m_writing.close());
        QVERIFY(!m_writing.isOpen());
        QVERIFY2(m_writing.close(), "there is none any more");
        ::close(m_reading.get());
        QVERIFY(!m_reading.close());
        QCOMPARE(errno, EBADF);
    }

    void everythingIsWrittenOrItTells()
    {
        QVERIFY(m_writing.writeAll("some", 4));
        char read[8] = {};
        QCOMPARE(::read(m_reading.get(), read, sizeof read), ssize_t(4));
        QCOMPARE(std::string(read), std::string("some"));

        // More than a pipe holds: the first piece goes, the next is refused.
        const std::string much(std::size_t(4) << 20U, 'x');
        QVERIFY(!m_writing.writeAll(much.data(), much.size()));
        QCOMPARE(errno, EAGAIN);
    }

    void whatCannotBeForcedToAMediumTells()
    {
        QVERIFY(!m_writing.sync());
        QCOMPARE(errno, EINVAL);
        const FileDescriptor file(::open("/tmp", O_TMPFILE | O_WRONLY | O_CLOEXEC, 0600));
        QVERIFY(file.isOpen() && file.writeAll("x", 1) && file.sync());
    }

private:
    FileDescriptor m_reading;
    FileDescriptor m_writing;
};

QTEST_GUILESS_MAIN(TestFileDescriptor)
#include "test_file_descriptor.moc"
