#pragma once

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QStringList>

/// What a simulated USB disk is like.
enum class UsbDiskCondition {
    Good,
    Unmountable, ///< mount refuses it
    Full,        ///< holds 16 KiB, all of them in use
    ReadOnly,    ///< nothing can be written to it
    Pulled,      ///< somebody pulls it kPulledAfter_ms after it was plugged in
};

/// One USB disk. The same device name means the same disk: its files are there again when it
/// is plugged in again, but not those of a full or read-only one.
struct UsbDisk
{
    QString device = QStringLiteral("sda1");    ///< name below "/dev"
    QString uuid = QStringLiteral("2A5C-11F0"); ///< name of its link below "/dev/disk/by-uuid"
    UsbDiskCondition condition = UsbDiskCondition::Good;
};

/// The instrument's USB port below a private root directory: device, by-uuid link, mount
/// table, "/mnt", and stand-ins for mount and umount that are found before the real ones.
///
/// A plugged disk is a directory, "<root>/usb/<device>/files"; "/mnt" is an empty directory,
/// or a link to the files of the disk that is mounted there. The stand-ins take machine
/// paths, keep the mount table ("/etc/mtab", in fixed paths) and fail as the commands do:
/// 1 for wrong use, 32 for a disk that is not there, unmountable, or not mounted.
///
/// Differs from the kernel in two points. A disk that is pulled while mounted refuses new
/// files at once, but a file that is open goes on being written until it is closed; and
/// umount never finds a disk busy. A full and a read-only disk are small memory file
/// systems, which the process must be permitted to mount.
///
/// GUI thread.
class UsbPort
{
public:
    /// When a disk of the condition Pulled goes out again: in the middle of an autofocus log.
    static constexpr int kPulledAfter_ms = 4000;

    /// root: machine path of the directory that stands in for "/"; need not exist.
    explicit UsbPort(const QString& root);
    /// Pulls all disks and puts PATH back as it was.
    ~UsbPort();

    UsbPort(const UsbPort&) = delete;
    UsbPort& operator=(const UsbPort&) = delete;

    /// Creates the directories, an empty mount table and the stand-ins, and puts these first
    /// on the process's PATH. False if the root directory cannot be written.
    bool install();

    /// From now on every good disk that is plugged in has this condition. False, and nothing
    /// changed, if the condition cannot be made here.
    bool spoilDisks(UsbDiskCondition condition);

    /// Plugs a disk in. False if a disk of that device is plugged in already, or if its
    /// condition cannot be made here; nothing is plugged in then.
    bool plug(const UsbDisk& disk = UsbDisk());

    /// Pulls a disk even if it is mounted or being written to; false if there is none. It stays in
    /// the mount table until it is unmounted, as on the real system.
    bool pull(const QString& device = UsbDisk().device);

    /// Whether the disk of that device name is in.
    bool isPlugged(const QString& device = UsbDisk().device) const;

    /// Whether the mount table lists the disk.
    bool isMounted(const QString& device = UsbDisk().device) const;

    /// Machine path of the directory of a disk's files; exists while the disk is plugged in.
    QString filesOf(const QString& device = UsbDisk().device) const;

    /// The mount and umount commands so far, each as "mount /dev/sda1 /mnt" in fixed paths.
    QStringList commands() const;

private:
    bool makeCondition(const UsbDisk& disk);
    void pullLater(const QString& device);

    QString m_root; ///< canonical once installed
    QByteArray m_searchPath;
    bool m_installed = false;
    UsbDiskCondition m_goodDisk = UsbDiskCondition::Good; ///< what a good disk is like here
    QObject m_timers;                                     ///< for the disks that will be pulled
};
