#include "settings/FileReplacement.h"

#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include "platform/FileDescriptor.h"
#include "settings/StoredObjects.h"

namespace {

constexpr mode_t kPrivateMode = 0700;
constexpr mode_t kNewFileMode = 0666; // less what the umask takes
constexpr mode_t kModeBits = 07777;
constexpr int kMostLinks = 40; // as the kernel
constexpr long kNanosecondsPerMillisecond = 1000000;
constexpr qint64 kMillisecondsPerSecond = 1000;
constexpr qint64 kClockStep_ms = 10000;

// The file that a path leads to, which need not exist. The path itself where more links lead on
// than the system follows: one of them in between would be taken for the file and replaced.
QString resolved(const QString& path)
{
    QString file = path;
    for (int links = 0; links <= kMostLinks; ++links) {
        const QString target = QFile::symLinkTarget(file);
        if (target.isEmpty())
            return file;
        file = target;
    }
    return path;
}

qint64 modified_ms(const struct stat& file)
{
    return qint64(file.st_mtim.tv_sec) * kMillisecondsPerSecond +
           file.st_mtim.tv_nsec / kNanosecondsPerMillisecond;
}

// QSettings remembers files by path and takes one for unchanged whose size and time of
// change, in milliseconds, are the same. The system's clock for files ticks slower than
// files can be replaced, so the new file is made younger than the old one. A larger lead
// of the old one is a clock that was set back, which needs no help.
bool makeYounger(int fd, const struct stat& old)
{
    struct stat file = {};
    if (::fstat(fd, &file) != 0)
        return false;
    const qint64 lead_ms = modified_ms(old) - modified_ms(file);
    if (lead_ms < 0 || lead_ms > kClockStep_ms)
        return true;
    const qint64 time_ms = modified_ms(old) + 1;
    const timespec time{static_cast<time_t>(time_ms / kMillisecondsPerSecond),
                        static_cast<long>(time_ms % kMillisecondsPerSecond) * kNanosecondsPerMillisecond};
    const timespec times[2] = {time, time};
    return ::futimens(fd, times) == 0;
}

// A change of owner takes the set-user-ID bits away, so the mode comes last. Who may write the
// file but not give files away becomes its owner.
bool takeAfter(int fd, const struct stat& old)
{
    struct stat file = {};
    if (::fstat(fd, &file) != 0)
        return false;
    const bool sameOwner = file.st_uid == old.st_uid && file.st_gid == old.st_gid;
    return (sameOwner || ::fchown(fd, old.st_uid, old.st_gid) == 0 || errno == EPERM) &&
           ::fchmod(fd, old.st_mode & kModeBits) == 0 && makeYounger(fd, old);
}

} // namespace

FileReplacement::FileReplacement(const QString& path) : m_path(resolved(path)) {}

FileReplacement::~FileReplacement()
{
    if (!m_scratch.isEmpty())
        QDir(m_scratch).removeRecursively();
}

bool FileReplacement::begin()
{
    const QFileInfo file(m_path);
    if (!QDir().mkpath(file.path()))
        return fail("create directory");
    const QString scratch = file.path() + QStringLiteral("/.") + file.fileName() + QStringLiteral(".saving");
    // What a power cut left behind, but nothing that a link leads to.
    if (!QFileInfo(scratch).isSymLink())
        QDir(scratch).removeRecursively();
    if (::mkdir(QFile::encodeName(scratch).constData(), kPrivateMode) != 0)
        return fail("create scratch directory");
    m_scratch = scratch;
    return true;
}

bool FileReplacement::read(QByteArray& content)
{
    content.clear();
    if (isSpecialFile(m_path)) {
        m_reason = QLatin1String(kSpecialFileReason);
        return false;
    }
    const FileDescriptor file(::open(QFile::encodeName(m_path).constData(), O_RDONLY | O_CLOEXEC));
    if (file.get() < 0)
        return errno == ENOENT || fail("open");
    char block[4096];
    ssize_t got = 0;
    while ((got = ::read(file.get(), block, sizeof block)) != 0) {
        if (got < 0 && errno != EINTR)
            return fail("read");
        content.append(block, static_cast<int>(qMax<ssize_t>(got, 0)));
    }
    return true;
}

QString FileReplacement::scratchFile() const
{
    static std::atomic<unsigned int> count{0};
    return m_scratch + QLatin1Char('/') + QString::number(++count);
}

bool FileReplacement::commit(const QByteArray& content)
{
    // A text at the end of the old content, where its bytes end too early, may be an object elsewhere.
    if (holdsUnsafeObject(content)) {
        m_reason = QLatin1String(kUnsafeObjectReason);
        return false;
    }
    const QByteArray target = QFile::encodeName(m_path);
    struct stat old = {};
    const bool exists = ::stat(target.constData(), &old) == 0;
    if (!exists && errno != ENOENT)
        return fail("look up");
    // A new name needs no leave to write the old file; a save does.
    if (exists && ::access(target.constData(), W_OK) != 0)
        return fail("write");

    const QByteArray fresh = QFile::encodeName(scratchFile());
    FileDescriptor file(::open(fresh.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, kNewFileMode));
    if (file.get() < 0)
        return fail("create");
    if (!file.writeAll(content.constData(), static_cast<std::size_t>(content.size())))
        return fail("write");
    if (exists && !takeAfter(file.get(), old))
        return fail("keep owner and mode");
    // The content must be on the disk before the name leads to it.
    if (!file.sync() || !file.close())
        return fail("flush");
    if (::rename(fresh.constData(), target.constData()) != 0)
        return fail("replace");

    // Makes the new name last; either name is a whole file, so a failure costs nothing.
    const QByteArray directory = QFile::encodeName(QFileInfo(m_path).path());
    const FileDescriptor parent(::open(directory.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parent.isOpen())
        parent.sync();
    return true;
}

bool FileReplacement::fail(const char* step)
{
    const int error = errno;
    m_reason = QLatin1String(step) + QLatin1String(": ") + QString::fromLocal8Bit(std::strerror(error));
    return false;
}
