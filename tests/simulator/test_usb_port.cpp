#include <cerrno>
#include <memory>

#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <QDir>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include "simulator/disk/UsbPort.h"
#include "simulator/instrument/InstrumentTree.h"
#include "support/FileBytes.h"

namespace {

constexpr int kWrongUse = 1;
constexpr int kFailed = 32;

bool put(const QString& path, const QByteArray& bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size() && file.flush();
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
        // A blank and a quote in the root must not matter to the stand-ins.
        const QString root = m_directory->filePath("the user's root");
        m_port = std::make_unique<UsbPort>(root);
        QVERIFY(m_port->install());
        m_root = QFileInfo(root).canonicalFilePath();
    }

    void cleanup() { m_port.reset(); }

    void thePortIsEmptyAtTheStart()
    {
        QVERIFY(!m_port->isPlugged());
        QVERIFY(QDir(m_root + "/dev/disk/by-uuid").isEmpty());
        QVERIFY(QDir(m_root + "/mnt").isEmpty());
        QCOMPARE(bytesOf(m_root + "/etc/mtab"), QByteArray());
        QCOMPARE(m_port->commands(), QStringList());
        QVERIFY(!m_port->pull());
    }

    void aSpoiledPortSpoilsEveryGoodDisk()
    {
        QVERIFY(m_port->spoilDisks(UsbDiskCondition::Unmountable));
        QVERIFY(QDir(m_root + "/dev/disk/by-uuid").isEmpty());
        QVERIFY(QDir(m_root + "/usb").entryList(QDir::Dirs | QDir::NoDotAndDotDot).isEmpty());
        for (const UsbDisk& disk : {UsbDisk{"sda1", "A"}, UsbDisk{"sdb1", "B"}}) {
            QVERIFY(m_port->plug(disk));
            QCOMPARE(QProcess::execute("mount", {"/dev/" + disk.device, "/mnt"}), kFailed);
        }
    }

    void aDiskThatSomebodyPullsGoesByItself()
    {
        QVERIFY(m_port->plug({"sda1", "A", UsbDiskCondition::Pulled}));
        QTest::qWait(UsbPort::kPulledAfter_ms / 2);
        QVERIFY(m_port->isPlugged("sda1"));
        QTRY_VERIFY(!m_port->isPlugged("sda1"));
        QVERIFY(QDir(m_root + "/dev/disk/by-uuid").isEmpty());
    }

    void theStandInsComeFirstOnTheSearchPathAndGoWithThePort()
    {
        QVERIFY(qgetenv("PATH").startsWith(QFile::encodeName(m_root + "/bin:")));
        QVERIFY(m_port->install());
        const QByteArray once = qgetenv("PATH");
        QCOMPARE(once.count(QFile::encodeName(m_root)), 1);
        m_port.reset();
        QVERIFY(!qgetenv("PATH").contains(QFile::encodeName(m_root)));
    }

    void aRootThatCannotBeWrittenIsAFailure()
    {
        const QByteArray path = qgetenv("PATH");
        UsbPort port("/dev/null/root");
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
        QVERIFY(QDir(m_root + "/dev/disk/by-uuid").isEmpty());
        QVERIFY(!m_port->pull());
    }

    void mountingShowsTheDisksFilesAndUnmountingHidesThem()
    {
        QVERIFY(m_port->plug());
        QVERIFY(!m_port->isMounted());
        QCOMPARE(mount("sda1"), 0);
        QVERIFY(m_port->isMounted());
        QVERIFY(!m_port->isMounted("sdb1"));
        QCOMPARE(bytesOf(m_root + "/etc/mtab"), QByteArray("/dev/sda1 /mnt vfat rw,relatime 0 0\n"));
        QVERIFY(put(m_root + "/mnt/a b.tif", "x"));
        QCOMPARE(bytesOf(m_port->filesOf() + "/a b.tif"), QByteArray("x"));
        QCOMPARE(mount("sda1"), kFailed);
        QCOMPARE(unmount("/mnt"), 0);
        QVERIFY(QDir(m_root + "/mnt").isEmpty());
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
        QVERIFY(QDir(m_root + "/mnt").isEmpty());
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
        QVERIFY(QDir(m_root + "/mnt").isEmpty());
    }

    void wrongUseOfTheCommandsIsRejected()
    {
        QVERIFY(m_port->plug());
        QCOMPARE(QProcess::execute("umount", {}), kWrongUse);
        QCOMPARE(QProcess::execute("mount", {m_root + "/dev/sda1"}), kWrongUse);
        QCOMPARE(QProcess::execute("mount", {m_root + "/dev/sda1", m_root + "/elsewhere"}), kFailed);
        QCOMPARE(mount("sdz1"), kFailed);
        QCOMPARE(bytesOf(m_root + "/etc/mtab"), QByteArray());
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
        QVERIFY(QDir(m_root + "/mnt").isEmpty());
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
        QTest::addColumn<int>("error");
        QTest::newRow("full") << int(UsbDiskCondition::Full) << ENOSPC;
        QTest::newRow("read-only") << int(UsbDiskCondition::ReadOnly) << EROFS;
    }

    void aSmallDiskRefusesToBeWritten()
    {
        QFETCH(int, condition);
        QFETCH(int, error);
        if (!m_port->plug({"sda1", "A", UsbDiskCondition(condition)})) {
            QVERIFY(!m_port->isPlugged());
            QVERIFY(QDir(m_root + "/dev/disk/by-uuid").isEmpty());
            QSKIP("mounting a memory file system is not permitted here");
        }
        QCOMPARE(mount("sda1"), 0);
        const int fd = ::open(QFile::encodeName(m_root + "/mnt/new"), O_WRONLY | O_CREAT, 0644);
        const ssize_t written = fd < 0 ? -1 : ::write(fd, "x", 1);
        const int found = errno;
        if (fd >= 0)
            ::close(fd);
        QCOMPARE(written, ssize_t(-1));
        QCOMPARE(found, error);
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

    void whatIsThereAlreadyStays()
    {
        InstrumentTree tree(m_root);
        QVERIFY(tree.create());
        const QString file = m_root + "/opt/ORLA3/conf/ORLA3.ini";
        QVERIFY(put(file, "[a]\n"));
        QVERIFY(tree.create());
        QCOMPARE(bytesOf(file), QByteArray("[a]\n"));
    }

    void theUsersOwnSettingsAreCopiedIn()
    {
        const QString own = m_directory->filePath("own");
        QVERIFY(QDir().mkpath(own));
        QVERIFY(put(own + "/ORLA3.ini", "[ORLA-III]\nSerial=OR3-9-9\n"));
        QVERIFY(put(own + "/Orla2.ini", "[Z stage]\nStep=99\n"));
        QVERIFY(put(own + "/set_password.sh", "not copied"));
        InstrumentTree tree(m_root);
        QVERIFY(tree.create());
        const QByteArray calibration = bytesOf(m_root + "/opt/ORLA3/conf/Calibration_CUS.ini");
        QVERIFY(tree.create(own));
        QCOMPARE(bytesOf(m_root + "/opt/ORLA3/conf/ORLA3.ini"), bytesOf(own + "/ORLA3.ini"));
        QCOMPARE(bytesOf(m_root + "/root/Orla2/Orla2.ini"), bytesOf(own + "/Orla2.ini"));
        QCOMPARE(bytesOf(m_root + "/opt/ORLA3/conf/Calibration_CUS.ini"), calibration);
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
