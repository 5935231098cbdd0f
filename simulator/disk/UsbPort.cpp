#include "simulator/disk/UsbPort.h"

#include <sys/mount.h>
#include <unistd.h>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTimer>

#include "platform/InstrumentPath.h"
#include "simulator/disk/ShellScript.h"

namespace {

const QString kLinks = QStringLiteral("/dev/disk/by-uuid");
const QString kMountTable = QStringLiteral("/etc/mtab");
const QString kMountPoint = QLatin1String(kDiskMountPoint);
const QString kStandIns = QStringLiteral("/bin");
const QString kDisks = QStringLiteral("/usb");
const QString kCommands = QStringLiteral("/usb/commands");

// Where a pulled disk keeps its files, out of reach of the mount point.
const QString kPulledFiles = QStringLiteral("/pulled");
const QString kUnmountable = QStringLiteral("/unmountable");

constexpr char kSmallDiskSize[] = "size=16k";
constexpr int kSmallDiskSize_bytes = 16 * 1024;

// Shared by both stand-ins. The last line of the table for $mnt decides what that shows, so
// that a disk mounted over another uncovers it when it is unmounted. What was written to the
// bare directory is hidden, not lost, while a disk is mounted over it.
constexpr char kCommonLines[] = R"(table="$root/etc/mtab"
echo "${0##*/}${1:+ }${1#"$root"}${2:+ }${2#"$root"}" >> "$root/usb/commands"
show() {
    top=$(awk -v mnt="$mnt" '$2 == mnt { device = $1 } END { print device }' "$table")
    if [ -L "$root$mnt" ]; then rm "$root$mnt"; else mv "$root$mnt" "$root/below"; fi
    if [ -n "$top" ]; then
        ln -s "usb/${top#/dev/}/files" "$root$mnt"
    else
        mv "$root/below" "$root$mnt"
    fi
}
)";

constexpr char kMountLines[] = R"([ $# -eq 2 ] || { echo "usage: mount device directory" >&2; exit 1; }
device=${1#"$root"}
disk="$root/usb/${device#/dev/}"
[ "${2#"$root"}" = "$mnt" ] || { echo "mount: $2: no such mount point" >&2; exit 32; }
[ -d "$root$device/files" ] && [ ! -e "$disk/unmountable" ] || { echo "mount: $1: failed" >&2; exit 32; }
if grep -q "^$device $mnt " "$table"; then echo "mount: $1 is mounted" >&2; exit 32; fi
echo "$device $mnt vfat rw,relatime 0 0" >> "$table"
show
)";

constexpr char kUnmountLines[] = R"([ $# -eq 1 ] || { echo "usage: umount device|directory" >&2; exit 1; }
line=$(awk -v what="${1#"$root"}" '$1 == what || $2 == what { line = NR } END { print line }' "$table")
[ -n "$line" ] || { echo "umount: $1: not mounted" >&2; exit 32; }
sed "${line}d" "$table" > "$table.new" && mv "$table.new" "$table"
show
)";

QByteArray path(const QString& name)
{
    return QFile::encodeName(name);
}

// Writes as much of a small disk's full size as fits.
void fill(const QString& directory)
{
    QFile file(directory + QStringLiteral("/old pictures"));
    if (file.open(QIODevice::WriteOnly | QIODevice::Unbuffered))
        file.write(QByteArray(kSmallDiskSize_bytes, 'x'));
}

} // namespace

UsbPort::UsbPort(const QString& root) : m_root(root) {}

UsbPort::~UsbPort()
{
    if (!m_installed)
        return;
    const QStringList devices = QDir(m_root + kDisks).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
    for (const QString& device : devices)
        pull(device);
    qputenv("PATH", m_searchPath);
}

bool UsbPort::install()
{
    for (const QString& directory : {kLinks, QStringLiteral("/etc"), kMountPoint, kStandIns, kDisks})
        if (!QDir().mkpath(m_root + directory))
            return false;
    m_root = QFileInfo(m_root).canonicalFilePath();
    const QByteArray common = QByteArray("mnt=") + kDiskMountPoint + '\n' + kCommonLines;
    QFile table(m_root + kMountTable);
    if (!table.open(QIODevice::WriteOnly) ||
        !writeShellScript(m_root, kStandIns + QStringLiteral("/mount"), common + kMountLines) ||
        !writeShellScript(m_root, kStandIns + QStringLiteral("/umount"), common + kUnmountLines))
        return false;
    if (!m_installed)
        m_searchPath = qgetenv("PATH");
    qputenv("PATH", path(m_root + kStandIns) + ':' + m_searchPath);
    m_installed = true;
    return true;
}

bool UsbPort::spoilDisks(UsbDiskCondition condition)
{
    const UsbDisk trial{QStringLiteral("trial"), QStringLiteral("trial"), condition};
    const bool possible = plug(trial);
    pull(trial.device);
    QDir(m_root + kDisks + QLatin1Char('/') + trial.device).removeRecursively();
    if (possible)
        m_goodDisk = condition;
    return possible;
}

bool UsbPort::plug(const UsbDisk& wanted)
{
    UsbDisk disk = wanted;
    if (disk.condition == UsbDiskCondition::Good)
        disk.condition = m_goodDisk;
    const QString home = m_root + kDisks + QLatin1Char('/') + disk.device;
    if (!m_installed || isPlugged(disk.device) || !QDir().mkpath(home))
        return false;
    if (!QDir().rename(home + kPulledFiles, filesOf(disk.device)))
        QDir().mkpath(filesOf(disk.device));
    const QString node = m_root + QStringLiteral("/dev/") + disk.device;
    const QString link = m_root + kLinks + QLatin1Char('/') + disk.uuid;
    // The link comes last: it is what the verifier watches for.
    if (makeCondition(disk) && ::symlink(path(QStringLiteral("../usb/") + disk.device), path(node)) == 0 &&
        ::symlink(path(QStringLiteral("../../") + disk.device), path(link)) == 0) {
        if (disk.condition == UsbDiskCondition::Pulled)
            pullLater(disk.device);
        return true;
    }
    pull(disk.device);
    return false;
}

void UsbPort::pullLater(const QString& device)
{
    auto* timer = new QTimer(&m_timers);
    timer->setObjectName(device);
    QObject::connect(timer, &QTimer::timeout, &m_timers, [this, device] { pull(device); });
    timer->start(kPulledAfter_ms);
}

bool UsbPort::makeCondition(const UsbDisk& disk)
{
    const QString files = filesOf(disk.device);
    if (disk.condition == UsbDiskCondition::Unmountable)
        return QFile(m_root + kDisks + QLatin1Char('/') + disk.device + kUnmountable)
            .open(QIODevice::WriteOnly);
    if (disk.condition == UsbDiskCondition::Good || disk.condition == UsbDiskCondition::Pulled)
        return true;
    if (::mount("none", path(files), "tmpfs", 0, kSmallDiskSize) != 0)
        return false;
    if (disk.condition == UsbDiskCondition::ReadOnly)
        return ::mount("none", path(files), nullptr, MS_REMOUNT | MS_RDONLY, kSmallDiskSize) == 0;
    fill(files);
    return true;
}

bool UsbPort::pull(const QString& device)
{
    for (QTimer* timer : m_timers.findChildren<QTimer*>(device)) {
        timer->stop();
        timer->deleteLater(); // it may be the one that calls
    }
    const QString home = m_root + kDisks + QLatin1Char('/') + device;
    const bool plugged = isPlugged(device);
    const QDir links(m_root + kLinks);
    const QStringList names = links.entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    for (const QString& name : names)
        if (QFile::symLinkTarget(links.filePath(name)) == m_root + QStringLiteral("/dev/") + device)
            QFile::remove(links.filePath(name));
    QFile::remove(m_root + QStringLiteral("/dev/") + device);
    QFile::remove(home + kUnmountable);
    // Only the small disks are file systems of their own.
    ::umount2(path(filesOf(device)), MNT_DETACH);
    QDir().rename(filesOf(device), home + kPulledFiles);
    return plugged;
}

bool UsbPort::isPlugged(const QString& device) const
{
    return QFileInfo(m_root + QStringLiteral("/dev/") + device).isSymLink();
}

bool UsbPort::isMounted(const QString& device) const
{
    QFile table(m_root + kMountTable);
    return table.open(QIODevice::ReadOnly) && table.readAll().contains("/dev/" + path(device) + ' ');
}

QString UsbPort::filesOf(const QString& device) const
{
    return m_root + kDisks + QLatin1Char('/') + device + QStringLiteral("/files");
}

QStringList UsbPort::commands() const
{
    QFile file(m_root + kCommands);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromLocal8Bit(file.readAll()).split(QLatin1Char('\n'), Qt::SkipEmptyParts);
}
