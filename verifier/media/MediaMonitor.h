#pragma once

#include <memory>

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QStringList>

/// Finds USB disks, keeps the first one mounted at "/mnt" and tells when one comes or goes.
///
/// Device paths are the instrument's fixed ones ("/dev/sda1") throughout. GUI thread only;
/// each mount or umount blocks it for up to 30 s. Nothing here reports a failed command:
/// searchUSB() is false when the disk did not get mounted.
class MediaMonitor : public QObject
{
    Q_OBJECT

public:
    /// Cleans up and mounts (see initialize()), then watches "/dev/disk/by-uuid". A directory
    /// that does not exist at this moment is watched from the next keepWatching() on.
    explicit MediaMonitor(QObject* parent = nullptr);

    /// Unmounts "/mnt" once for every "/mnt" in the mount table, then mounts the first disk
    /// there and emits detectSignal(0), or emits detectSignal(1) when there is none. Run by
    /// the constructor, when no receiver is connected yet.
    void initialize();

    /// Puts the USB devices that are present into list, in the directory's own order, and
    /// remembers them. Returns whether there is one. A device counts as soon as its link is
    /// there, even if the device node itself is not.
    bool searchConnectedDevList(QStringList& list);

    /// Runs "mount dev mountPoint" and remembers dev as the mounted device, whatever comes of it.
    void mount(QString dev, QString mountPoint);

    /// Forgets dev and runs "umount dev"; an empty dev runs "umount" alone, which does nothing.
    void unmount(QString dev);

    /// Whether dev is present and the mount table mentions it. Searches the devices again,
    /// unless the mount table cannot be read.
    bool checkMountedUSB(QString dev);

    /// Makes up for changes that no notification tells of; to be called every second or so. Where
    /// "/dev/disk/by-uuid" is not watched (it came after the start, or went with its last link
    /// and came back), it is watched again, and what came or went meanwhile is handled as by
    /// directoryChanged(). A disk that is present but was passed over, because a question such
    /// as searchUSB() had already counted it when the notification came, is mounted.
    void keepWatching();

    /// Whether the disk that was mounted last is present and mounted: ask before writing to it.
    bool searchUSB();

signals:
    /// 0: a disk has just been mounted at "/mnt"; 1: no USB disk is present.
    void detectSignal(int state);

public slots:
    /// A link came or went. Does nothing while the mounted disk is still there; else unmounts
    /// it and mounts the first of the present ones, but not when as many as before are present.
    void directoryChanged(QString path);

private:
    void followChange(int countBefore, const QStringList& now);
    void mountFirstOf(const QStringList& devices);

    std::unique_ptr<QFileSystemWatcher> m_watcher;
    QStringList m_devList;  ///< of the last search, and what was mounted since; no duplicates
    QString m_mountedDev;   ///< passed to mount last; empty at start
    int m_settledCount = 0; ///< devices present when a change was last dealt with
};
