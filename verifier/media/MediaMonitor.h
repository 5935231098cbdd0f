#pragma once

#include <memory>

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QStringList>

/// Finds USB disks, keeps the first one mounted at "/mnt" and tells when one comes or goes.
///
/// Device paths are the instrument's fixed ones ("/dev/sda1") throughout. GUI thread;
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

    /// Catches up on changes that no notification reported; to be called about once a second.
    ///
    /// "/dev/disk/by-uuid" is watched again if it is not: it may have come after the start, or
    /// have gone with its last link and come back. What came or went meanwhile is handled as by
    /// directoryChanged(). A disk that was passed over is mounted: a question such as
    /// searchUSB() may have counted it before the notification came.
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
