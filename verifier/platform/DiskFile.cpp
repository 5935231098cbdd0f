#include "platform/DiskFile.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QStringList>

#include "platform/FileDescriptor.h"
#include "platform/InstrumentPath.h"

namespace {

constexpr mode_t kFileMode = 0666;   // less what the umask takes
constexpr mode_t kFolderMode = 0777; // the same
// Whatever stands in the name's place is neither waited for nor made this process's terminal.
constexpr int kWriteFlags = O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
constexpr int kFolderFlags = O_PATH | O_DIRECTORY | O_CLOEXEC;

bool fail(int error)
{
    errno = error;
    return false;
}

// The names below the mount point; false for a path that does not lie there.
bool namesOnDisk(const QString& fixedPath, QStringList& names)
{
    const QString disk = QLatin1String(kDiskMountPoint) + QLatin1Char('/');
    const QString path = QDir::cleanPath(fixedPath);
    if (!path.startsWith(disk))
        return false;
    names = path.mid(disk.size()).split(QLatin1Char('/'));
    return true;
}

QByteArray machinePath(const QString& fixedPath)
{
    return QFile::encodeName(instrumentPath(fixedPath));
}

// Goes down from the mount point, a name at a time, each looked up in the folder at hand and
// not beyond a link; with make, folders that are missing are created. False, and errno, where
// there is no such folder.
bool enter(FileDescriptor& folder, const QStringList& names, bool make)
{
    folder.reset(::open(machinePath(QLatin1String(kDiskMountPoint)).constData(), kFolderFlags));
    for (const QString& name : names) {
        if (folder.get() < 0)
            return false;
        const QByteArray entry = QFile::encodeName(name);
        if (make && ::mkdirat(folder.get(), entry.constData(), kFolderMode) != 0 && errno != EEXIST)
            return false;
        folder.reset(::openat(folder.get(), entry.constData(), kFolderFlags | O_NOFOLLOW));
    }
    return folder.get() >= 0;
}

bool isOrdinary(const struct stat& entry)
{
    return S_ISREG(entry.st_mode) || fail(S_ISDIR(entry.st_mode) ? EISDIR : EPERM);
}

// Opening a device may do something already, so the name is looked at before; and what was
// opened once more, for the disk may change between the two.
int openOnDisk(const FileDescriptor& folder, const QByteArray& name)
{
    struct stat entry = {};
    if (::fstatat(folder.get(), name.constData(), &entry, AT_SYMLINK_NOFOLLOW) == 0) {
        if (S_ISLNK(entry.st_mode))
            errno = ELOOP;
        if (S_ISLNK(entry.st_mode) || !isOrdinary(entry))
            return -1;
    } else if (errno != ENOENT) {
        return -1;
    }
    FileDescriptor file(::openat(folder.get(), name.constData(), kWriteFlags | O_NOFOLLOW, kFileMode));
    if (file.get() < 0 || ::fstat(file.get(), &entry) != 0 || !isOrdinary(entry) ||
        ::ftruncate(file.get(), 0) != 0)
        return -1;
    return file.release();
}

} // namespace

namespace disk_file {

int openForWriting(const QString& fixedPath)
{
    QStringList names;
    if (!namesOnDisk(fixedPath, names))
        return ::open(machinePath(fixedPath).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC,
                      kFileMode);
    const QByteArray name = QFile::encodeName(names.takeLast());
    FileDescriptor folder;
    return enter(folder, names, false) ? openOnDisk(folder, name) : -1;
}

bool write(const QString& fixedPath, const void* bytes, std::size_t count)
{
    FileDescriptor file(openForWriting(fixedPath));
    if (file.get() < 0)
        return false;
    // Some file systems tell only when the file is closed that there was no room.
    return file.writeAll(bytes, count) && file.close();
}

bool makeFolder(const QString& fixedPath)
{
    QStringList names;
    if (!namesOnDisk(fixedPath, names))
        return QDir().mkpath(instrumentPath(fixedPath));
    // A board without the mount point is no reason to fail.
    QDir().mkpath(instrumentPath(QString(kDiskMountPoint)));
    FileDescriptor folder;
    return enter(folder, names, true);
}

} // namespace disk_file
