#include <memory>

#include <dirent.h>
#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

#include "media/MediaMonitor.h"
#include "platform/DiskFile.h"
#include "platform/InstrumentPath.h"
#include "simulator/disk/UsbPort.h"
#include "tests/support/FileBytes.h"
#include "tests/support/InChild.h"

namespace {

const UsbDisk kFirst{"sda1", "1111-1111", UsbDiskCondition::Good};
const UsbDisk kSecond{"sdb1", "2222-2222", UsbDiskCondition::Good};

constexpr qint64 kImageSize_bytes = 1 << 20;

void put(const char* fixedPath, const QByteArray& bytes)
{
    putBytes(instrumentPath(QString(fixedPath)), bytes);
}

/// A monitor, and the states that it has told.
class WatchedMonitor : public MediaMonitor
{
public:
    QList<int> states() const
    {
        QList<int> states;
        for (const QList<QVariant>& arguments : m_told)
            states.append(arguments.first().toInt());
        return states;
    }
    void forgetStates() { m_told.clear(); }
    // Delivers the directory's change at once, and lets the watcher's own follow.
    void notify()
    {
        directoryChanged("unused");
        QCoreApplication::processEvents();
    }

private:
    QSignalSpy m_told{this, &MediaMonitor::detectSignal};
};

// What became of the disk on a loop device, as exit statuses. From kNoNamespace on: why it
// could not be tried.
enum RealDisk {
    kAllWell,
    kNotMounted,
    kNotWritten,
    kLedAstray,
    kNotUnmounted,
    kNoNamespace,
    kNoLoopDevice,
    kNoDeviceNode,
    kNoFileSystem
};

// Binds a loop device of the machine to an image; closing the descriptor gives it back.
int loopDeviceOn(const QString& image, dev_t& device)
{
    const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
    const int number = control < 0 ? -1 : ::ioctl(control, LOOP_CTL_GET_FREE);
    const int disk = ::open(qPrintable(QStringLiteral("/dev/loop%1").arg(number)), O_RDWR | O_CLOEXEC);
    const int file = ::open(qPrintable(image), O_RDWR | O_CLOEXEC);
    struct stat node = {};
    loop_info64 info = {};
    info.lo_flags = LO_FLAGS_AUTOCLEAR;
    const bool bound = disk >= 0 && file >= 0 && ::fstat(disk, &node) == 0 &&
                       ::ioctl(disk, LOOP_SET_FD, file) == 0 && ::ioctl(disk, LOOP_SET_STATUS64, &info) == 0;
    ::close(file);
    ::close(control);
    device = node.st_rdev;
    return bound ? disk : -1;
}

RealDisk useRealDisk(const QString& root)
{
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return kNoNamespace;
    // What a hostile stick may hold: links out of it, and nodes of the machine's devices.
    const QString hostile = root + "/hostile";
    for (const char* folder : {"/hostile", "/outside"})
        if (!QDir().mkpath(root + folder))
            return kNoFileSystem;
    const QByteArray outside = QFile::encodeName(root + "/outside");
    if (::symlink((outside + "/a").constData(), qPrintable(hostile + "/a.tif")) != 0 ||
        ::symlink(outside.constData(), qPrintable(hostile + "/ORLA-II")) != 0 ||
        ::mknod(qPrintable(hostile + "/null.tif"), S_IFCHR | 0666, makedev(1, 3)) != 0)
        return kNoDeviceNode;
    const QString image = root + "/image";
    QFile file(image);
    if (!file.open(QIODevice::WriteOnly) || !file.resize(kImageSize_bytes))
        return kNoFileSystem;
    file.close();
    if (QProcess::execute("mkfs.ext2", {"-q", "-F", "-d", hostile, image}) != 0)
        return kNoFileSystem;
    dev_t device = 0;
    if (loopDeviceOn(image, device) < 0)
        return kNoLoopDevice;
    if (::mknod(qPrintable(root + "/dev/sda1"), S_IFBLK | 0600, device) != 0)
        return kNoDeviceNode;
    if (::symlink("../../sda1", qPrintable(root + "/dev/disk/by-uuid/real")) != 0 ||
        !QFile::link("/proc/self/mounts", root + "/etc/mtab"))
        return kNoFileSystem;

    setInstrumentRoot(root);
    MediaMonitor monitor;
    if (!monitor.searchUSB())
        return kNotMounted;
    QFile picture(instrumentPath(QStringLiteral("/mnt/a picture.tif")));
    if (!picture.open(QIODevice::WriteOnly) || picture.write("pixels") != 6)
        return kNotWritten;
    picture.close();
    if (!QFileInfo(instrumentPath(QStringLiteral("/mnt/a.tif"))).isSymLink())
        return kNoFileSystem;
    if (disk_file::write("/mnt/a.tif", "x", 1) || disk_file::write("/mnt/null.tif", "x", 1) ||
        disk_file::write("/mnt/ORLA-II/b", "x", 1) || disk_file::makeFolder("/mnt/ORLA-II/Autofocus") ||
        !QDir(root + "/outside").isEmpty())
        return kLedAstray;
    if (!disk_file::makeFolder("/mnt/ours/Step1") || !disk_file::write("/mnt/ours/Step1/c.tif", "x", 1))
        return kNotWritten;
    monitor.unmount("/dev/sda1");
    return monitor.searchUSB() || picture.exists() ? kNotUnmounted : kAllWell;
}

} // namespace

class TestMediaMonitor : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_directory = std::make_unique<QTemporaryDir>();
        QVERIFY(m_directory->isValid());
        m_port = std::make_unique<UsbPort>(m_directory->path());
        QVERIFY(m_port->install());
        setInstrumentRoot(m_directory->path());
    }

    void cleanup()
    {
        m_port.reset();
        setInstrumentRoot("/");
    }

    void onlyUsbDevicesAreFound_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("device");
        const auto row = [](const char* name, const char* target, const char* device) {
            QTest::newRow(name) << target << device;
        };
        row("sd", "../../sdb1", "/dev/sdb1");
        row("ub", "../../ub0p1", "/dev/ub0p1");
        row("sd alone", "../../sd", "/dev/sd");
        row("absolute", "/dev/sdz9", "/dev/sdz9");
        row("internal memory", "../../mmcblk0p1", "");
        row("capital letters", "../../SDa1", "");
        row("other directory", "../../mapper/sda1", "");
        row("not below dev", "../../../sda1", "");
        row("shorter", "../../s", "");
    }

    void onlyUsbDevicesAreFound()
    {
        QFETCH(QString, target);
        QFETCH(QString, device);
        link("A", target);
        MediaMonitor monitor;
        QStringList list;
        QCOMPARE(monitor.searchConnectedDevList(list), !device.isEmpty());
        QCOMPARE(list, device.isEmpty() ? QStringList() : QStringList({device}));
    }

    void whatIsNoLinkIsNoDevice()
    {
        put("/dev/disk/by-uuid/file", "");
        QVERIFY(QDir().mkpath(instrumentPath(QStringLiteral("/dev/disk/by-uuid/directory"))));
        MediaMonitor monitor;
        QStringList list{"before"};
        QVERIFY(!monitor.searchConnectedDevList(list));
        QVERIFY(list.isEmpty());
    }

    void aLinkThatIsStillBeingBuiltIsNoDevice()
    {
        link(".#A", "../../sda1");
        MediaMonitor monitor;
        QStringList list;
        QVERIFY(!monitor.searchConnectedDevList(list));
    }

    void aLinkIsFollowedOnceOnly()
    {
        link("A", "B");
        link("B", "../../sda1");
        link("../../sda1", "../elsewhere/disk");
        MediaMonitor monitor;
        QStringList list;
        QVERIFY(monitor.searchConnectedDevList(list));
        QCOMPARE(list, QStringList("/dev/sda1"));
    }

    void devicesComeInTheDirectorysOwnOrder()
    {
        const QString directory = instrumentPath(QStringLiteral("/dev/disk/by-uuid"));
        for (int i = 0; i < 40; ++i)
            link(qPrintable(QString::number(i * 7919 % 997, 16)), QString("../../sd%1").arg(i));
        QStringList expected;
        DIR* links = ::opendir(qPrintable(directory));
        QVERIFY(links != nullptr);
        while (const dirent* entry = ::readdir(links))
            if (entry->d_name[0] != '.')
                expected += fixedPathOf(QFile::symLinkTarget(directory + '/' + entry->d_name));
        ::closedir(links);
        MediaMonitor monitor;
        QStringList list;
        QVERIFY(monitor.searchConnectedDevList(list));
        QCOMPARE(list, expected);
        QCOMPARE(m_port->commands(), QStringList("mount " + expected.first() + " /mnt"));
    }

    void aMissingLinkDirectoryMeansNoDisk()
    {
        QVERIFY(QDir(instrumentPath(QStringLiteral("/dev/disk"))).removeRecursively());
        MediaMonitor monitor;
        QStringList list;
        QVERIFY(!monitor.searchConnectedDevList(list));
        QVERIFY(!monitor.searchUSB());
        QVERIFY(m_port->commands().isEmpty());
    }

    void withoutADiskNothingIsRunAtTheStart()
    {
        WatchedMonitor monitor;
        QVERIFY(m_port->commands().isEmpty());
        QVERIFY(!monitor.searchUSB());
        monitor.forgetStates();
        monitor.initialize();
        QCOMPARE(monitor.states(), QList<int>({1}));
    }

    void aDiskThatIsPresentIsMountedAtTheStart()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        QCOMPARE(m_port->commands(), QStringList({"mount /dev/sda1 /mnt"}));
        QVERIFY(monitor.searchUSB());
        put("/mnt/a.tif", "x");
        QVERIFY(QFile::exists(m_port->filesOf("sda1") + "/a.tif"));

        monitor.forgetStates();
        monitor.initialize();
        QCOMPARE(monitor.states(), QList<int>({0}));
    }

    void ofTwoDisksTheFirstInListingOrderIsMounted()
    {
        QVERIFY(m_port->plug(kFirst));
        QVERIFY(m_port->plug(kSecond));
        MediaMonitor monitor;
        QStringList list;
        QVERIFY(monitor.searchConnectedDevList(list));
        QCOMPARE(list.size(), 2);
        QCOMPARE(m_port->commands(), QStringList({"mount " + list.first() + " /mnt"}));
        QVERIFY(monitor.checkMountedUSB(list.first()));
        QVERIFY(!monitor.checkMountedUSB(list.last()));
    }

    void staleMountsAreRemovedAtTheStart_data()
    {
        QTest::addColumn<QByteArray>("table");
        QTest::addColumn<int>("runs");
        QTest::newRow("none") << QByteArray("proc /proc proc rw 0 0\n") << 0;
        QTest::newRow("one") << QByteArray("/dev/sda1 /mnt vfat rw 0 0\n") << 1;
        QTest::newRow("two lines") << QByteArray("/dev/sda1 /mnt vfat rw 0 0\n/dev/sdb1 /mnt vfat rw 0 0\n")
                                   << 2;
        QTest::newRow("below") << QByteArray("/dev/sda1 /mnt/disk vfat rw 0 0\n") << 1;
        QTest::newRow("twice in a line") << QByteArray("/mnt/image /mnt ext2 rw 0 0\n") << 2;
        QTest::newRow("side by side") << QByteArray("/mnt/mnt/mnt") << 3;
        QTest::newRow("behind a NUL byte") << QByteArray("/mnt\0/mnt", 9) << 1;
    }

    void staleMountsAreRemovedAtTheStart()
    {
        QFETCH(QByteArray, table);
        QFETCH(int, runs);
        put("/etc/mtab", table);
        MediaMonitor monitor;
        QStringList expected;
        for (int i = 0; i < runs; ++i)
            expected.append("umount /mnt");
        QCOMPARE(m_port->commands(), expected);
    }

    void aDiskThatWasStillMountedIsMountedAgain()
    {
        QVERIFY(m_port->plug(kFirst));
        {
            MediaMonitor monitor;
        }
        MediaMonitor monitor;
        QCOMPARE(m_port->commands(),
                 QStringList({"mount /dev/sda1 /mnt", "umount /mnt", "mount /dev/sda1 /mnt"}));
        QVERIFY(monitor.searchUSB());
    }

    void aDiskIsMountedWhenItIsPluggedIn()
    {
        WatchedMonitor monitor;
        QVERIFY(m_port->plug(kFirst));
        QTRY_COMPARE(monitor.states(), QList<int>({0}));
        QVERIFY(monitor.searchUSB());
        // There is no disk to unmount yet; the command alone rejects that.
        QCOMPARE(m_port->commands(), QStringList({"umount", "mount /dev/sda1 /mnt"}));
    }

    void theOnlyDiskIsUnmountedWhenItIsPulled()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        QVERIFY(m_port->pull("sda1"));
        QTRY_COMPARE(monitor.states(), QList<int>({1}));
        QVERIFY(!monitor.searchUSB());
        QCOMPARE(m_port->commands(), QStringList({"mount /dev/sda1 /mnt", "umount /dev/sda1"}));
        put("/mnt/on the instrument itself", "x");
    }

    void theSignalComesWhenTheCommandsHaveRun()
    {
        MediaMonitor monitor;
        QStringList commands;
        QVector<bool> mounted;
        connect(&monitor, &MediaMonitor::detectSignal, this, [&] {
            commands += m_port->commands().last();
            mounted += monitor.searchUSB();
        });
        QVERIFY(m_port->plug(kFirst));
        QTRY_COMPARE(mounted, QVector<bool>({true}));
        QVERIFY(m_port->pull("sda1"));
        QTRY_COMPARE(mounted, QVector<bool>({true, false}));
        QCOMPARE(commands, QStringList({"mount /dev/sda1 /mnt", "umount /dev/sda1"}));
    }

    void aDiskThatComesBackIsUnmountedOnceMoreAndMounted()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        QVERIFY(m_port->pull("sda1"));
        QTRY_COMPARE(monitor.states(), QList<int>({1}));
        QVERIFY(m_port->plug(kFirst));
        QTRY_COMPARE(monitor.states(), QList<int>({1, 0}));
        // The name of the disk that was mounted last is kept.
        QCOMPARE(m_port->commands(), QStringList({"mount /dev/sda1 /mnt", "umount /dev/sda1",
                                                  "umount /dev/sda1", "mount /dev/sda1 /mnt"}));
        QVERIFY(monitor.searchUSB());
    }

    void aDiskThatWasUnmountedCountsAsNewAtTheNextChange()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        monitor.unmount("/dev/sda1");
        const int before = m_port->commands().size();
        monitor.forgetStates();
        monitor.directoryChanged("unused");
        QCOMPARE(monitor.states(), QList<int>({0}));
        QCOMPARE(m_port->commands().mid(before), QStringList({"umount /dev/sda1", "mount /dev/sda1 /mnt"}));
    }

    void aDeviceMountedByNameCountsAsPresentUntilTheNextSearch()
    {
        WatchedMonitor monitor;
        monitor.mount("/dev/sdx1", "/mnt");
        link("A", "../../sda1");
        monitor.forgetStates();
        monitor.directoryChanged("unused");
        // One device before, one now: nothing is mounted.
        QVERIFY(monitor.states().isEmpty());
        QCOMPARE(m_port->commands(), QStringList({"mount /dev/sdx1 /mnt", "umount /dev/sdx1"}));
    }

    void aSecondDiskBesideTheMountedOneChangesNothing()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        QVERIFY(m_port->plug(kSecond));
        monitor.notify();
        QVERIFY(monitor.states().isEmpty());
        QVERIFY(monitor.checkMountedUSB("/dev/sda1"));
        QCOMPARE(m_port->commands(), QStringList({"mount /dev/sda1 /mnt"}));
    }

    void whenOneOfTwoIsPulledTheOtherIsMounted()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        QVERIFY(m_port->plug(kSecond));
        monitor.notify();
        monitor.forgetStates();
        QVERIFY(m_port->pull("sda1"));
        QTRY_COMPARE(monitor.states(), QList<int>({0}));
        QCOMPARE(m_port->commands(),
                 QStringList({"mount /dev/sda1 /mnt", "umount /dev/sda1", "mount /dev/sdb1 /mnt"}));
        QVERIFY(monitor.searchUSB());
        QVERIFY(monitor.checkMountedUSB("/dev/sdb1"));
    }

    void asManyDisksAsBeforeAreLeftAlone()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        // Swapped so quickly that the monitor sees only the result.
        QVERIFY(m_port->pull("sda1"));
        QVERIFY(m_port->plug(kSecond));
        monitor.notify();
        QVERIFY(monitor.states().isEmpty());
        QCOMPARE(m_port->commands().mid(0, 2), QStringList({"mount /dev/sda1 /mnt", "umount /dev/sda1"}));
        QCOMPARE(m_port->commands().filter("sdb1"), QStringList());
        QVERIFY(!monitor.searchUSB());
    }

    // udev makes the directory with the first link and removes it with the last.
    void aDirectoryThatComesWithTheDiskIsWatchedAndItsDiskMounted()
    {
        removeLinkDirectory();
        WatchedMonitor monitor;
        monitor.keepWatching();
        QVERIFY2(m_port->commands().isEmpty(), "nothing has come");
        makeLinkDirectory();
        QVERIFY(m_port->plug(kFirst));
        monitor.keepWatching();
        QCOMPARE(monitor.states(), QList<int>({0}));
        QCOMPARE(m_port->commands(), QStringList({"umount", "mount /dev/sda1 /mnt"}));
        QVERIFY(monitor.searchUSB());

        // From now on the directory tells by itself.
        QVERIFY(m_port->pull("sda1"));
        QTRY_COMPARE(monitor.states(), QList<int>({0, 1}));
        QVERIFY(m_port->plug(kSecond));
        QTRY_COMPARE(monitor.states(), QList<int>({0, 1, 0}));
        QVERIFY(monitor.searchUSB());
    }

    void aDirectoryThatGoesWithTheDiskIsWatchedAgainWhenItComesBack()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        for (int times = 1; times <= 3; ++times) {
            monitor.forgetStates();
            QVERIFY(m_port->pull("sda1"));
            removeLinkDirectory();
            QTRY_COMPARE(monitor.states(), QList<int>({1}));
            QCoreApplication::processEvents();
            monitor.keepWatching();
            QVERIFY(!monitor.searchUSB());
            makeLinkDirectory();
            QVERIFY(m_port->plug(kFirst));
            monitor.keepWatching();
            QCOMPARE(monitor.states(), QList<int>({1, 0}));
            QVERIFY(monitor.searchUSB());
        }
    }

    void aDirectoryThatComesEmptyIsWatched()
    {
        removeLinkDirectory();
        WatchedMonitor monitor;
        makeLinkDirectory();
        monitor.keepWatching();
        QVERIFY(m_port->commands().isEmpty());
        QVERIFY(m_port->plug(kFirst));
        QTRY_COMPARE(monitor.states(), QList<int>({0}));
        QVERIFY(monitor.searchUSB());
    }

    // A press that asks for the disk may have its turn before the directory's notification.
    void aDiskThatAQuestionHadAlreadyCountedIsMounted()
    {
        WatchedMonitor monitor;
        QVERIFY(m_port->plug(kFirst));
        QVERIFY(!monitor.searchUSB());
        monitor.notify();
        QVERIFY2(monitor.states().isEmpty(), "the notification finds as many disks as before");
        monitor.keepWatching();
        QCOMPARE(monitor.states(), QList<int>({0}));
        QVERIFY(monitor.searchUSB());

        // The same again: also after it went unnoticed.
        QVERIFY(m_port->pull("sda1"));
        QVERIFY(!monitor.searchUSB());
        monitor.notify();
        QVERIFY(m_port->plug(kSecond));
        QVERIFY(!monitor.searchUSB());
        monitor.notify();
        monitor.keepWatching();
        QVERIFY(monitor.checkMountedUSB("/dev/sdb1"));
        QVERIFY(monitor.searchUSB());
    }

    void theDiskThatIsLeftIsMountedThoughAQuestionHadAlreadyMissedTheOther()
    {
        QVERIFY(m_port->plug(kFirst));
        WatchedMonitor monitor;
        QVERIFY(m_port->plug(kSecond));
        monitor.notify();
        QVERIFY(m_port->pull("sda1"));
        QVERIFY(!monitor.searchUSB());
        monitor.notify();
        QVERIFY(!monitor.searchUSB());
        monitor.keepWatching();
        QVERIFY(monitor.checkMountedUSB("/dev/sdb1"));
        QVERIFY(monitor.searchUSB());
    }

    // The second of the poll may come before the notification, which then has nothing to do.
    void aDiskIsMountedOnceHoweverItIsNoticed()
    {
        WatchedMonitor monitor;
        QVERIFY(m_port->plug(kFirst));
        monitor.keepWatching();
        monitor.notify();
        monitor.keepWatching();
        QCOMPARE(monitor.states(), QList<int>({0}));
        QCOMPARE(m_port->commands(), QStringList({"umount", "mount /dev/sda1 /mnt"}));

        QVERIFY(m_port->pull("sda1"));
        monitor.keepWatching();
        QTRY_COMPARE(m_port->commands().mid(2), QStringList("umount /dev/sda1"));
        QCoreApplication::processEvents();
        monitor.keepWatching();
        QCOMPARE(m_port->commands().mid(2), QStringList("umount /dev/sda1"));
    }

    void whatWasDealtWithIsNotTriedEverySecond_data()
    {
        QTest::addColumn<int>("scene");
        QTest::newRow("does not mount") << 0;
        QTest::newRow("swapped") << 1;
        QTest::newRow("unmounted by hand") << 2;
        QTest::newRow("second disk") << 3;
        QTest::newRow("no directory") << 4;
        QTest::newRow("came later, does not mount") << 5;
    }

    void whatWasDealtWithIsNotTriedEverySecond()
    {
        QFETCH(int, scene);
        const UsbDisk unmountable{"sda1", "1111-1111", UsbDiskCondition::Unmountable};
        if (scene == 0)
            QVERIFY(m_port->plug(unmountable));
        else if (scene < 4)
            QVERIFY(m_port->plug(kFirst));
        else if (scene == 4)
            removeLinkDirectory();
        WatchedMonitor monitor;
        if (scene == 1) {
            QVERIFY(m_port->pull("sda1"));
            QVERIFY(m_port->plug(kSecond));
            monitor.notify();
        } else if (scene == 2) {
            monitor.unmount("/dev/sda1");
        } else if (scene == 3) {
            QVERIFY(m_port->plug(kSecond));
            monitor.notify();
        } else if (scene == 5) {
            QVERIFY(m_port->plug(unmountable));
            monitor.notify();
            QVERIFY(m_port->commands().contains("mount /dev/sda1 /mnt"));
        }
        const QStringList before = m_port->commands();
        for (int second = 0; second < 3; ++second) {
            monitor.keepWatching();
            monitor.searchUSB();
        }
        QCOMPARE(m_port->commands(), before);
    }

    void aDiskThatDoesNotMountIsNotReadyForFiles()
    {
        WatchedMonitor monitor;
        QVERIFY(m_port->plug({"sda1", "1111-1111", UsbDiskCondition::Unmountable}));
        QTRY_COMPARE(monitor.states(), QList<int>({0}));
        QVERIFY(!monitor.searchUSB());
        QVERIFY(m_port->commands().contains("mount /dev/sda1 /mnt"));
    }

    void theMountTableIsSearchedForTheNameAnywhere()
    {
        link("A", "../../sda1");
        MediaMonitor monitor;
        put("/etc/mtab", "/dev/sda10 /elsewhere ext4 rw 0 0\n");
        QVERIFY(monitor.checkMountedUSB("/dev/sda1"));
        QVERIFY(!monitor.checkMountedUSB("/dev/sda10"));
        QVERIFY(!monitor.checkMountedUSB(""));
        put("/etc/mtab", QByteArray("proc\0/dev/sda1 /mnt", 19));
        QVERIFY2(!monitor.checkMountedUSB("/dev/sda1"), "what stands behind a NUL byte does not count");
    }

    void anUnreadableMountTableMeansNotMounted()
    {
        QVERIFY(m_port->plug(kFirst));
        MediaMonitor monitor;
        QVERIFY(monitor.searchUSB());
        QVERIFY(QFile::remove(instrumentPath(QStringLiteral("/etc/mtab"))));
        QVERIFY(!monitor.searchUSB());
        const int before = m_port->commands().size();
        MediaMonitor other;
        QCOMPARE(m_port->commands().mid(before).filter("umount"), QStringList());
    }

    void aQuestionWithoutAMountTableForgetsNoDisk()
    {
        WatchedMonitor monitor;
        link("A", "../../sda1");
        const QString table = instrumentPath(QStringLiteral("/etc/mtab"));
        QVERIFY(QFile::rename(table, table + ".away"));
        QVERIFY(!monitor.searchUSB());
        QVERIFY(QFile::rename(table + ".away", table));
        // No disk was searched for, so that the one plugged in is still news.
        monitor.forgetStates();
        monitor.directoryChanged("unused");
        QCOMPARE(monitor.states(), QList<int>({0}));
    }

    void mountingRecordsTheDeviceWhateverComesOfIt()
    {
        MediaMonitor monitor;
        monitor.mount("/dev/sdx1", "/mnt");
        QCOMPARE(m_port->commands(), QStringList({"mount /dev/sdx1 /mnt"}));
        QVERIFY(!monitor.searchUSB());
        put("/etc/mtab", "/dev/sdx1 /mnt vfat rw 0 0\n");
        link("X", "../../sdx1");
        QVERIFY(monitor.searchUSB());
    }

    void argumentsReachTheCommandsOneByOne()
    {
        const QString record = m_directory->filePath("arguments");
        for (const char* command : {"mount", "umount"})
            putBytes(m_directory->filePath("bin/") + command,
                     "#!/bin/sh\nfor a in \"${0##*/}\" \"$@\"; do echo \"<$a>\" >> '" + record.toUtf8() +
                         "'; done\n");
        MediaMonitor monitor;
        monitor.mount("/dev/sd a;1", "/mnt/$(x)");
        monitor.unmount("/dev/sd 'b");
        monitor.unmount("");
        const QString root = instrumentPath(QStringLiteral("/")).chopped(1);
        QCOMPARE(QString::fromUtf8(bytesOf(record)).remove(root),
                 QString("<mount>\n</dev/sd a;1>\n</mnt/$(x)>\n<umount>\n</dev/sd 'b>\n<umount>\n"));
    }

    void commandsThatAreMissingAreSurvived()
    {
        const QByteArray path = qgetenv("PATH");
        qputenv("PATH", "/nowhere");
        QVERIFY(m_port->plug(kFirst));
        {
            MediaMonitor monitor;
            QVERIFY(!monitor.searchUSB());
            monitor.unmount("/dev/sda1");
        }
        qputenv("PATH", path);
        QVERIFY(m_port->commands().isEmpty());
    }

    void aRealDiskIsMountedWrittenAndUnmounted()
    {
#ifdef __SANITIZE_THREAD__
        QSKIP(
            "no signal is delivered in a copy of a process with threads, so that no child's end is noticed");
#endif
        m_port.reset(); // the machine's own commands
        if (::geteuid() != 0)
            QSKIP("a loop device can only be set up by root");
        if (QStandardPaths::findExecutable("mkfs.ext2").isEmpty())
            QSKIP("mkfs.ext2 is not installed");
        QTemporaryDir directory;
        for (const char* name : {"dev/disk/by-uuid", "etc", "mnt"})
            QVERIFY(QDir().mkpath(directory.filePath(name)));
        const QString root = QFileInfo(directory.path()).canonicalFilePath();
        const int outcome = inChild([root] { return int(useRealDisk(root)); });
        switch (outcome) {
        case kNoNamespace:
            QSKIP("a private mount namespace is not permitted here");
        case kNoLoopDevice:
            QSKIP("there is no loop device to be had here");
        case kNoDeviceNode:
            QSKIP("a device node cannot be created here");
        case kNoFileSystem:
            QSKIP("a file system image cannot be created here");
        default:
            QCOMPARE(outcome, int(kAllWell));
        }
    }

private:
    void link(const char* name, const QString& target)
    {
        const QString path = instrumentPath(QStringLiteral("/dev/disk/by-uuid/")) + name;
        QCOMPARE(::symlink(qPrintable(target), qPrintable(path)), 0);
    }

    static void removeLinkDirectory()
    {
        QVERIFY(QDir(instrumentPath(QStringLiteral("/dev/disk/by-uuid"))).removeRecursively());
    }

    static void makeLinkDirectory()
    {
        QVERIFY(QDir().mkpath(instrumentPath(QStringLiteral("/dev/disk/by-uuid"))));
    }

    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<UsbPort> m_port;
};

QTEST_GUILESS_MAIN(TestMediaMonitor)
#include "test_media_monitor.moc"
