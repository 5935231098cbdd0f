#include "media/MediaMonitor.h"

#include <QDir>
#include <QFile>

#include "platform/ChildProcess.h"
#include "platform/InstrumentPath.h"

namespace {

const QString kLinkDirectory = QStringLiteral("/dev/disk/by-uuid");
const QString kMountTable = QStringLiteral("/etc/mtab");
const QString kMountPoint = QLatin1String(kDiskMountPoint);
// USB disks show up as "sd", or as "ub" under the older block driver.
const QString kUsbDevicePrefixes[] = {QStringLiteral("/dev/ub"), QStringLiteral("/dev/sd")};

constexpr int kDiskMounted = 0;
constexpr int kNoDisk = 1;

bool isUsbDevice(const QString& device)
{
    for (const QString& prefix : kUsbDevicePrefixes)
        if (device.startsWith(prefix, Qt::CaseSensitive))
            return true;
    return false;
}

// The mount table up to its first NUL byte; false when it cannot be opened.
bool readMountTable(QString& text)
{
    QFile table(instrumentPath(kMountTable));
    if (!table.open(QIODevice::ReadOnly))
        return false;
    const QByteArray bytes = table.readAll();
    text = QFile::decodeName(bytes.left(static_cast<int>(qstrnlen(bytes.constData(), bytes.size()))));
    return true;
}

} // namespace

MediaMonitor::MediaMonitor(QObject* parent) : QObject(parent)
{
    initialize();
    m_watcher = std::make_unique<QFileSystemWatcher>();
    m_watcher->addPath(instrumentPath(kLinkDirectory));
    connect(m_watcher.get(), &QFileSystemWatcher::directoryChanged, this, &MediaMonitor::directoryChanged);
}

void MediaMonitor::initialize()
{
    QString table;
    readMountTable(table);
    int position = table.indexOf(kMountPoint);
    while (position >= 0) {
        runChildProcess(QStringLiteral("umount"), {instrumentPath(kMountPoint)});
        position = table.indexOf(kMountPoint, position + kMountPoint.size());
    }

    QStringList devices;
    if (searchConnectedDevList(devices))
        mountFirstOf(devices);
    else
        emit detectSignal(kNoDisk);
    m_settledCount = devices.size();
}

bool MediaMonitor::searchConnectedDevList(QStringList& list)
{
    // System includes links whose device node is not there. Hidden names stay out: they are
    // links that udev is still building.
    const QDir links(instrumentPath(kLinkDirectory));
    const QStringList names =
        links.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot, QDir::Unsorted);
    list.clear();
    for (const QString& name : names) {
        const QString device = fixedPathOf(QFile::symLinkTarget(links.filePath(name)));
        if (isUsbDevice(device))
            list.append(device);
    }
    m_devList = list;
    return !list.isEmpty();
}

// Device names are taken by value: the members that callers pass change on the way.
// NOLINTBEGIN(performance-unnecessary-value-param)
void MediaMonitor::mount(QString dev, QString mountPoint)
{
    m_mountedDev = dev;
    m_devList.append(dev);
    m_devList.removeDuplicates();
    runChildProcess(QStringLiteral("mount"), {instrumentPath(dev), instrumentPath(mountPoint)});
}

void MediaMonitor::unmount(QString dev)
{
    m_devList.removeAll(dev);
    // Without a device the command stands alone: an empty argument would be one of its own.
    const QStringList arguments = dev.isEmpty() ? QStringList() : QStringList{instrumentPath(dev)};
    runChildProcess(QStringLiteral("umount"), arguments);
}

bool MediaMonitor::checkMountedUSB(QString dev)
{
    QString table;
    if (!readMountTable(table))
        return false;
    QStringList devices;
    searchConnectedDevList(devices);
    return devices.contains(dev) && table.contains(dev);
}

bool MediaMonitor::searchUSB()
{
    return checkMountedUSB(m_mountedDev);
}

void MediaMonitor::directoryChanged(QString)
{
    const int countBefore = m_devList.size();
    QStringList now;
    searchConnectedDevList(now);
    followChange(countBefore, now);
}

// NOLINTEND(performance-unnecessary-value-param)

// udev makes the directory with the first link and removes it with the last.
void MediaMonitor::keepWatching()
{
    const bool watched = !m_watcher->directories().isEmpty();
    if (!watched)
        m_watcher->addPath(instrumentPath(kLinkDirectory));
    QStringList now;
    const bool present = searchConnectedDevList(now);
    // Of a disk that went from a watched directory, the notification tells without fail.
    if (now.size() != m_settledCount && (present || !watched))
        followChange(m_settledCount, now);
}

void MediaMonitor::followChange(int countBefore, const QStringList& now)
{
    if (checkMountedUSB(m_mountedDev)) {
        m_settledCount = now.size();
        return;
    }
    unmount(m_mountedDev);
    if (now.isEmpty())
        m_settledCount = 0;
    if (now.size() == countBefore)
        return;
    m_settledCount = now.size();
    if (now.isEmpty())
        emit detectSignal(kNoDisk);
    else
        mountFirstOf(now);
}

void MediaMonitor::mountFirstOf(const QStringList& devices)
{
    mount(devices.first(), kMountPoint);
    emit detectSignal(kDiskMounted);
}
