#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <QDir>
#include <QDirIterator>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "simulator/disk/UsbPort.h"
#include "simulator/instrument/InstrumentTree.h"
#include "support/FileBytes.h"

namespace {

constexpr int kFailed = 32;

bool put(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
}

/// What is in a directory, links that lead nowhere included.
QStringList everythingIn(const QString& directory)
{
    return QDir(directory).entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
}

/// How a command ended and what it complained of: "32 mount: /dev/sda1: failed".
QString refusalBy(const QString& command, const QStringList& arguments)
{
    QProcess process;
    process.start(command, arguments);
    process.waitForFinished();
    return QString::number(process.exitCode()) + ' ' + QString(process.readAllStandardError()).trimmed();
}

/// Whether this process may mount memory file systems.
bool mayMount(const QString& directory)
{
    return ::mount("none", qPrintable(directory), "tmpfs", 0, nullptr) == 0 &&
           ::umount2(qPrintable(directory), MNT_DETACH) == 0;
}

} // namespace

class TestUsbPort : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_directory = std::make_unique<QTemporaryDir>();
        QVERIFY(m_directory->isValid());
        // A blank and a quote in the root must not matter to the stand-ins, nor a link to it.
        QVERIFY(QFile::link(".", m_directory->filePath("link")));
        const QString root = m_directory->filePath("link/the user's root");
        m_port = std::make_unique<UsbPort>(root);
        QVERIFY(m_port->install());
        m_root = QFileInfo(root).canonicalFilePath();
    }

    void cleanup() { m_port.reset(); }

    void thePortIsEmptyAtTheStart()
    {
        QVERIFY(!m_port->isPlugged());
        QCOMPARE(everythingIn(m_root + "/dev/disk/by-uuid"), QStringList());
        QCOMPARE(everythingIn(m_root + "/mnt"), QStringList());
        QCOMPARE(bytesOf(m_root + "/etc/mtab"), QByteArray());
        QCOMPARE(m_port->commands(), QStringList());
        QVERIFY(!m_port->pull());
    }

    void aSpoiledPortSpoilsEveryGoodDisk()
    {
        QVERIFY(m_port->spoilDisks(UsbDiskCondition::Unmountable));
        QCOMPARE(everythingIn(m_root + "/dev/disk/by-uuid"), QStringList());
        QCOMPARE(everythingIn(m_root + "/usb"), QStringList());
        for (const UsbDisk& disk : {UsbDisk{"sda1", "A"}, UsbDisk{"sdb1", "B"}}) {
            QVERIFY(m_port->plug(disk));
            QCOMPARE(QProcess::execute("mount", {"/dev/" + disk.device, "/mnt"}), kFailed);
        }
    }

    void disksStayGoodWhereTheyCannotBeSpoiled()
    {
        // In the way of the trial.
        QVERIFY(m_port->plug({"sdb1", "trial"}));
        QVERIFY(!m_port->spoilDisks(UsbDiskCondition::Unmountable));
        QVERIFY(m_port->plug());
        QCOMPARE(mount("sda1"), 0);
    }

    void aDiskThatSomebodyPullsGoesByItself()
    {
        QVERIFY(m_port->plug({"sda1", "A", UsbDiskCondition::Pulled}));
        QVERIFY(put(m_port->filesOf() + "/picture", QByteArray(100000, 'x')));
        QTest::qWait(UsbPort::kPulledAfter_ms / 2);
        // The next one in its place has its own time.
        QVERIFY(m_port->pull("sda1"));
        QVERIFY(m_port->plug({"sda1", "B", UsbDiskCondition::Pulled}));
        QTest::qWait(UsbPort::kPulledAfter_ms * 3 / 4);
        QVERIFY(m_port->isPlugged("sda1"));
        QTRY_VERIFY(!m_port->isPlugged("sda1"));
        QCOMPARE(everythingIn(m_root + "/dev/disk/by-uuid"), QStringList());
    }

    void theStandInsComeFirstOnTheSearchPathAndGoWithThePortAndItsDisks()
    {
        QVERIFY(qgetenv("PATH").startsWith(QFile::encodeName(m_root + "/bin:")));
        const QFile::Permissions forAll = QFile::ExeOwner | QFile::ExeGroup | QFile::ExeOther;
        for (const char* command : {"/bin/mount", "/bin/umount"})
            QCOMPARE(QFile::permissions(m_root + command) & forAll, forAll);
        QVERIFY(m_port->install());
        const QByteArray once = qgetenv("PATH");
        QCOMPARE(once.count(QFile::encodeName(m_root)), 1);
        QVERIFY(m_port->plug());
        m_port.reset();
        QVERIFY(!qgetenv("PATH").contains(QFile::encodeName(m_root)));
        QCOMPARE(everythingIn(m_root + "/dev/disk/by-uuid"), QStringList());
        QVERIFY(!QFileInfo(m_root + "/dev/sda1").isSymLink());
    }

    void aRootThatCannotBeWrittenIsAFailure_data()
    {
        QTest::addColumn<QString>("root");
        QTest::addColumn<QString>("inTheWay");
        QTest::newRow("no directory") << "/dev/null/root" << QString();
        QTest::newRow("mount table") << QString() << "/etc/mtab";
        QTest::newRow("mount") << QString() << "/bin/mount";
        QTest::newRow("umount") << QString() << "/bin/umount";
    }

    void aRootThatCannotBeWrittenIsAFailure()
    {
        QFETCH(QString, root);
        QFETCH(QString, inTheWay);
        if (root.isEmpty()) {
            root = m_directory->filePath("other");
            QVERIFY(QDir().mkpath(root + inTheWay));
        }
        const QByteArray path = qgetenv("PATH");
        UsbPort port(root);
        QVERIFY(!port.install());
        QVERIFY(!port.plug());
        QCOMPARE(qgetenv("PATH"), path);
    }

    void aPluggedDiskHasALinkThatLeadsToItsDevice()
    {
        QVERIFY(m_port->plug());
        QVERIFY(m_port->isPlugged());
        QCOMPARE(QFile::symLinkTarget(m_root + "/dev/disk/by-uuid/2A5C-11F0"), m_root + "/dev/sda1");
        QVERIFY(!m_port->plug());
        QVERIFY(m_port->pull());
        QVERIFY(!m_port->isPlugged());
        QCOMPARE(everythingIn(m_root + "/dev/disk/by-uuid"), QStringList());
        QVERIFY(!m_port->pull());
    }

    void aSecondDiskOfTheSameNameIsNotPluggedIn()
    {
        QVERIFY(m_port->plug({"sda1", "A"}));
        QVERIFY(!m_port->plug({"sdb1", "A"}));
        QVERIFY(!m_port->isPlugged("sdb1"));
        QVERIFY(m_port->isPlugged("sda1"));
        QCOMPARE(QFile::symLinkTarget(m_root + "/dev/disk/by-uuid/A"), m_root + "/dev/sda1");
        QVERIFY(!QFileInfo::exists(m_port->filesOf("sdb1")));
    }

    void aDiskThatCannotBeMadeIsNotPluggedIn()
    {
        QVERIFY(QDir().mkpath(m_root + "/usb/sda1"));
        QVERIFY(put(m_port->filesOf(), "in the way of a file system"));
        QVERIFY(!m_port->plug({"sda1", "A", UsbDiskCondition::Full}));
        QVERIFY(!m_port->isPlugged());
        QCOMPARE(everythingIn(m_root + "/dev/disk/by-uuid"), QStringList());
    }

    void mountingShowsTheDisksFilesAndUnmountingHidesThem()
    {
        QVERIFY(m_port->plug());
        QVERIFY(!m_port->isMounted());
        QCOMPARE(mount("sda1"), 0);
        QVERIFY(m_port->isMounted());
        QVERIFY(!m_port->isMounted("sdb1"));
        QVERIFY(!m_port->isMounted("sda"));
        QCOMPARE(bytesOf(m_root + "/etc/mtab"), QByteArray("/dev/sda1 /mnt vfat rw,relatime 0 0\n"));
        QVERIFY(put(m_root + "/mnt/a b.tif", "x"));
        QCOMPARE(bytesOf(m_port->filesOf() + "/a b.tif"), QByteArray("x"));
        QCOMPARE(mount("sda1"), kFailed);
        QCOMPARE(unmount("/mnt"), 0);
        QCOMPARE(everythingIn(m_root + "/mnt"), QStringList());
        QCOMPARE(bytesOf(m_root + "/etc/mtab"), QByteArray());
        QCOMPARE(mount("sda1"), 0);
        QCOMPARE(unmount("/dev/sda1"), 0);
        QCOMPARE(unmount("/dev/sda1"), kFailed);
        QCOMPARE(m_port->commands(),
                 QStringList({"mount /dev/sda1 /mnt", "mount /dev/sda1 /mnt", "umount /mnt",
                              "mount /dev/sda1 /mnt", "umount /dev/sda1", "umount /dev/sda1"}));
    }

    void filesOnTheInstrumentItselfAreNotTakenForTheDisks()
    {
        QVERIFY(m_port->plug());
        QCOMPARE(mount("sda1"), 0);
        QCOMPARE(unmount("/mnt"), 0);
        QVERIFY(put(m_root + "/mnt/stray", "x"));
        QVERIFY(!QFile::exists(m_port->filesOf() + "/stray"));
        QCOMPARE(mount("sda1"), 0);
        QCOMPARE(everythingIn(m_root + "/mnt"), QStringList());
        QCOMPARE(unmount("/mnt"), 0);
        QCOMPARE(bytesOf(m_root + "/mnt/stray"), QByteArray("x"));
    }

    void aDiskMountedOverAnotherUncoversItWhenUnmounted()
    {
        QVERIFY(m_port->plug());
        QVERIFY(m_port->plug({"sdb1", "B", UsbDiskCondition::Good}));
        QVERIFY(put(m_port->filesOf("sda1") + "/first", ""));
        QVERIFY(put(m_port->filesOf("sdb1") + "/second", ""));
        QCOMPARE(mount("sda1"), 0);
        QCOMPARE(mount("sdb1"), 0);
        QCOMPARE(QDir(m_root + "/mnt").entryList(QDir::Files), QStringList({"second"}));
        QCOMPARE(unmount("/mnt"), 0);
        QCOMPARE(QDir(m_root + "/mnt").entryList(QDir::Files), QStringList({"first"}));
        QCOMPARE(unmount("/mnt"), 0);
        QCOMPARE(everythingIn(m_root + "/mnt"), QStringList());
    }

    void wrongUseOfTheCommandsIsRejected()
    {
        QVERIFY(m_port->plug());
        const QString device = m_root + "/dev/sda1";
        const QString mountPoint = m_root + "/mnt";
        QCOMPARE(refusalBy("umount", {}), QString("1 usage: umount device|directory"));
        QCOMPARE(refusalBy("mount", {device}), QString("1 usage: mount device directory"));
        QCOMPARE(refusalBy("mount", {device, m_root + "/elsewhere"}),
                 "32 mount: " + m_root + "/elsewhere: no such mount point");
        QCOMPARE(refusalBy("mount", {device + '9', mountPoint}), "32 mount: " + device + "9: failed");
        QCOMPARE(refusalBy("umount", {mountPoint}), "32 umount: " + mountPoint + ": not mounted");
        QCOMPARE(bytesOf(m_root + "/etc/mtab"), QByteArray());
        QCOMPARE(mount("sda1"), 0);
        QCOMPARE(refusalBy("mount", {device, mountPoint}), "32 mount: " + device + " is mounted");
    }

    void aPulledDiskStaysInTheTableAndTakesNoFiles()
    {
        QVERIFY(m_port->plug());
        QCOMPARE(mount("sda1"), 0);
        QVERIFY(put(m_root + "/mnt/kept", "x"));
        QFile open(m_root + "/mnt/half");
        QVERIFY(open.open(QIODevice::WriteOnly));
        QVERIFY(m_port->pull());
        QVERIFY(bytesOf(m_root + "/etc/mtab").contains("/dev/sda1 /mnt"));
        QVERIFY(!put(m_root + "/mnt/new", "x"));
        QVERIFY(!QFile::exists(m_root + "/mnt/kept"));
        QCOMPARE(open.write("y"), qint64(1));
        open.close();

        QCOMPARE(unmount("/dev/sda1"), 0);
        QCOMPARE(everythingIn(m_root + "/mnt"), QStringList());
        QVERIFY(QFileInfo(m_root + "/mnt").isDir());
        QCOMPARE(mount("sda1"), kFailed);
        QVERIFY(m_port->plug());
        QCOMPARE(mount("sda1"), 0);
        QCOMPARE(bytesOf(m_root + "/mnt/kept"), QByteArray("x"));
    }

    void aDiskCanBeUnmountableAndGoodTheNextTime()
    {
        QVERIFY(m_port->plug({"sda1", "A", UsbDiskCondition::Unmountable}));
        QCOMPARE(mount("sda1"), kFailed);
        QCOMPARE(bytesOf(m_root + "/etc/mtab"), QByteArray());
        QVERIFY(m_port->pull());
        QVERIFY(m_port->plug());
        QCOMPARE(mount("sda1"), 0);
    }

    void aSmallDiskRefusesToBeWritten_data()
    {
        QTest::addColumn<int>("condition");
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<int>("error");
        QTest::newRow("full") << int(UsbDiskCondition::Full) << QStringList("old pictures") << ENOSPC;
        QTest::newRow("read-only") << int(UsbDiskCondition::ReadOnly) << QStringList() << EROFS;
    }

    void aSmallDiskRefusesToBeWritten()
    {
        QFETCH(int, condition);
        QFETCH(QStringList, files);
        QFETCH(int, error);
        const UsbDisk disk{"sda1", "A", UsbDiskCondition(condition)};
        if (!mayMount(m_root + "/mnt"))
            QSKIP("mounting a memory file system is not permitted here");
        QVERIFY(m_port->plug(disk));
        QCOMPARE(everythingIn(m_port->filesOf()), files);
        QCOMPARE(mount("sda1"), 0);
        const int fd = ::open(QFile::encodeName(m_root + "/mnt/new"), O_WRONLY | O_CREAT, 0644);
        const ssize_t written = fd < 0 ? -1 : ::write(fd, "x", 1);
        const int found = errno;
        if (fd >= 0)
            ::close(fd);
        QCOMPARE(written, ssize_t(-1));
        QCOMPARE(found, error);
        // Whoever is using it.
        const QDirIterator user(m_port->filesOf());
        QVERIFY(m_port->pull());
        QVERIFY(
            !bytesOf("/proc/mounts").contains(QFile::encodeName(m_port->filesOf()).replace(' ', "\\040")));
        QVERIFY(m_port->plug());
        QVERIFY(put(m_root + "/mnt/new", "x"));
    }

    void theTreeHasAllThatTheVerifierLooksFor()
    {
        InstrumentTree tree(m_root);
        QVERIFY(tree.create());
        for (const char* name : {"ORLA3.ini", "Calibration_CUS.ini", "Calibration_BFN.ini"})
            QVERIFY(QFileInfo(m_root + "/opt/ORLA3/conf/" + name).size() > 0);
        QVERIFY(QFileInfo(m_root + "/root/Orla2/Orla2.ini").size() > 0);
        QVERIFY(QFileInfo(m_root + "/opt/ORLA3/bin/set_password.sh").isExecutable());
        QCOMPARE(tree.displayLayerProtect(), QString("1"));
        QVERIFY(put(m_root + "/sys/module/disp/parameters/disp_layer_protect", "0"));
        QCOMPARE(tree.displayLayerProtect(), QString("0"));
        QVERIFY(tree.passwordRuns().isEmpty());
    }

    void theUsersOwnSettingsAreCopiedInAndWhatElseIsThereStays()
    {
        const QString own = m_directory->filePath("own");
        QVERIFY(QDir().mkpath(own));
        QVERIFY(put(own + "/ORLA3.ini", "[ORLA-III]\nSerial=OR3-9-9\n"));
        QVERIFY(put(own + "/Orla2.ini", "[Z stage]\nStep=99\n"));
        QVERIFY(put(own + "/set_password.sh", "not copied"));
        InstrumentTree tree(m_root);
        QVERIFY(tree.create());
        const QString kept = m_root + "/opt/ORLA3/conf/Calibration_CUS.ini";
        QVERIFY(put(kept, "[a]\n"));
        QVERIFY(tree.create());
        QCOMPARE(bytesOf(kept), QByteArray("[a]\n"));
        QVERIFY(tree.create(own));
        QCOMPARE(bytesOf(m_root + "/opt/ORLA3/conf/ORLA3.ini"), bytesOf(own + "/ORLA3.ini"));
        QCOMPARE(bytesOf(m_root + "/root/Orla2/Orla2.ini"), bytesOf(own + "/Orla2.ini"));
        QCOMPARE(bytesOf(kept), QByteArray("[a]\n"));
        QVERIFY(bytesOf(m_root + "/opt/ORLA3/bin/set_password.sh").startsWith("#!"));
    }

    void aSettingsFolderThatIsNoneIsAFailure()
    {
        InstrumentTree tree(m_root);
        QVERIFY(!tree.create(m_directory->filePath("missing")));
        QVERIFY(!InstrumentTree("/dev/null/root").create());
    }

    void thePasswordScriptLeavesWhatItWasGiven()
    {
        InstrumentTree tree(m_root);
        QVERIFY(tree.create());
        const QString script = m_root + "/opt/ORLA3/bin/set_password.sh";
        QCOMPARE(QProcess::execute(script, {}), 0);
        QVERIFY(put(m_root + "/opt/ORLA3/conf/ORLA3.ini", "[ORLA-III]\nSerial=OR3-07-00042\n"));
        QCOMPARE(QProcess::execute(script, {"a b", "c"}), 0);
        const QVector<PasswordRun> runs = tree.passwordRuns();
        QCOMPARE(runs.size(), 2);
        QCOMPARE(runs[0].password, QString("OR3-01-00042"));
        QCOMPARE(runs[0].arguments, QStringList());
        QCOMPARE(runs[1].password, QString("OR3-07-00042"));
        QCOMPARE(runs[1].arguments, QStringList({"a b", "c"}));
    }

private:
    int mount(const QString& device) const
    {
        return QProcess::execute("mount", {m_root + "/dev/" + device, m_root + "/mnt"});
    }

    int unmount(const QString& fixedPath) const { return QProcess::execute("umount", {m_root + fixedPath}); }

    std::unique_ptr<QTemporaryDir> m_directory;
    std::unique_ptr<UsbPort> m_port;
    QString m_root;
};

QTEST_GUILESS_MAIN(TestUsbPort)
#include "test_usb_port.moc"
