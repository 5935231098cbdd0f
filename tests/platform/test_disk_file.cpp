#include <cerrno>
#include <cstring>
#include <memory>

#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

#include "platform/DiskFile.h"
#include "platform/InstrumentPath.h"
#include "support/FileBytes.h"
#include "support/FileTime.h"
#include "support/WithoutStandardInput.h"

namespace {

constexpr char kOurs[] = "ours";
constexpr std::size_t kOursSize = sizeof kOurs - 1;
constexpr char kTheirs[] = "a long text of theirs";

bool writeOurs(const QString& path)
{
    return disk_file::write(path, kOurs, kOursSize);
}

} // namespace

/// A disk that somebody has prepared, at "/mnt" of a private root.
class TestDiskFile : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_root = std::make_unique<QTemporaryDir>();
        setInstrumentRoot(m_root->path());
        QVERIFY(QDir().mkpath(at("/mnt/folder")));
        putBytes(at("/etc/theirs"), kTheirs);
    }

    void cleanup()
    {
        setInstrumentRoot({});
        m_root.reset();
    }

    void anOrdinaryFileIsMadeAndReplaced_data()
    {
        QTest::addColumn<QString>("path");
        QTest::newRow("on the disk") << "/mnt/picture.tif";
        QTest::newRow("in a folder") << "/mnt/folder/picture.tif";
        QTest::newRow("by a way round") << "/mnt//folder/../folder/./picture.tif";
        QTest::newRow("with blanks") << "/mnt/folder/a picture.tif";
        QTest::newRow("elsewhere") << "/etc/picture.tif";
        QTest::newRow("a name that only begins like it") << "/mnt2";
    }

    void anOrdinaryFileIsMadeAndReplaced()
    {
        QFETCH(QString, path);
        const QString file = QDir::cleanPath(at(path));
        QVERIFY(disk_file::write(path, "a longer text", 13));
        QVERIFY(writeOurs(path));
        QCOMPARE(bytesOf(file), QByteArray(kOurs));
        QVERIFY(!QFileInfo(file).permission(QFileDevice::ExeOwner));
        QVERIFY(disk_file::write(path, "", 0));
        QCOMPARE(bytesOf(file), QByteArray());
    }

    // Folders and files get its number in turn.
    void aWriteNeedsNoStandardInput()
    {
        const WithoutStandardInput without;
        for (const char* path : {"/mnt/picture.tif", "/mnt/folder/picture.tif", "/elsewhere"})
            QVERIFY2(writeOurs(path), path);
        QCOMPARE(bytesOf(at("/mnt/folder/picture.tif")), QByteArray(kOurs));
    }

    void onlyTheUmaskTakesRights_data()
    {
        QTest::addColumn<QString>("folder");
        QTest::addColumn<unsigned int>("umask");
        for (const unsigned int mask : {0U, 027U}) {
            QTest::addRow("on the disk, %o", mask) << "/mnt/new" << mask;
            QTest::addRow("elsewhere, %o", mask) << "/etc/new" << mask;
        }
    }

    void onlyTheUmaskTakesRights()
    {
        QFETCH(QString, folder);
        QFETCH(unsigned int, umask);
        const mode_t before = ::umask(umask);
        const bool made = disk_file::makeFolder(folder) && writeOurs(folder + "/picture.tif");
        ::umask(before);
        QVERIFY(made);
        QCOMPARE(modeOf(folder), 0777U & ~umask);
        QCOMPARE(modeOf(folder + "/picture.tif"), 0666U & ~umask);
    }

    // A clock set wrong once is enough; a board whose time is of 32 bits must not mind.
    void aFileDatedBeyond2038IsReplaced()
    {
        QVERIFY(disk_file::write("/mnt/picture.tif", "a longer text", 13));
        const QDateTime time(QDate(2050, 1, 2), QTime(3, 4), Qt::UTC);
        QVERIFY(FileTime::setChanged(at("/mnt/picture.tif"), time.toMSecsSinceEpoch()));
        QVERIFY2(writeOurs("/mnt/picture.tif"), std::strerror(errno));
        QCOMPARE(bytesOf(at("/mnt/picture.tif")), QByteArray(kOurs));
    }

    void noLinkLeadsAWriteElsewhere_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("target");
        QTest::addColumn<QString>("written");
        QTest::addColumn<int>("error");
        const auto row = [](const char* name, const char* link, const char* target, const char* written,
                            int error) { QTest::newRow(name) << link << target << written << error; };
        row("the file itself", "/mnt/a.tif", "../etc/theirs", "/mnt/a.tif", ELOOP);
        row("dangling", "/mnt/a.tif", "../etc/new", "/mnt/a.tif", ELOOP);
        row("to itself", "/mnt/a.tif", "a.tif", "/mnt/a.tif", ELOOP);
        row("absolute", "/mnt/a.tif", "/etc/orla-test-no-such-file", "/mnt/a.tif", ELOOP);
        row("to a file of the disk", "/mnt/a.tif", "folder/b.tif", "/mnt/a.tif", ELOOP);
        row("through the process", "/mnt/a.tif", "/proc/self/cwd/orla-test-file", "/mnt/a.tif", ELOOP);
        row("a folder", "/mnt/log", "../etc", "/mnt/log/theirs", ENOTDIR);
        row("a folder, for a new file", "/mnt/log", "../etc", "/mnt/log/new", ENOTDIR);
        row("a folder on the way", "/mnt/log", "..", "/mnt/log/etc/theirs", ENOTDIR);
        row("a folder further down", "/mnt/folder/log", "../../etc", "/mnt/folder/log/theirs", ENOTDIR);
        row("a folder of the disk", "/mnt/log", "folder", "/mnt/log/new", ENOTDIR);
        row("a folder by a way round", "/mnt/log", "../etc", "/mnt/folder/../log/theirs", ENOTDIR);
    }

    void noLinkLeadsAWriteElsewhere()
    {
        QFETCH(QString, link);
        QFETCH(QString, target);
        QFETCH(QString, written);
        QFETCH(int, error);
        QCOMPARE(::symlink(qPrintable(target), qPrintable(at(link))), 0);
        errno = 0;
        QVERIFY(!writeOurs(written));
        QCOMPARE(errno, error);
        QCOMPARE(namesIn("/etc"), QStringList("theirs"));
        QCOMPARE(bytesOf(at("/etc/theirs")), QByteArray(kTheirs));
        QVERIFY(!QFileInfo::exists("/etc/orla-test-no-such-file"));
        QVERIFY(!QFileInfo::exists("orla-test-file"));
        QVERIFY(!namesIn("/mnt/folder").contains("b.tif") && !namesIn("/mnt/folder").contains("new"));
        QVERIFY(QFileInfo(at(link)).isSymLink());
    }

    void noFolderIsMadeBehindALink()
    {
        QCOMPARE(::symlink("../etc", qPrintable(at("/mnt/ORLA-II"))), 0);
        QVERIFY(!disk_file::makeFolder("/mnt/ORLA-II/Autofocus/Step1"));
        QCOMPARE(::symlink("../../etc", qPrintable(at("/mnt/folder/last"))), 0);
        QVERIFY(!disk_file::makeFolder("/mnt/folder/last"));
        QCOMPARE(namesIn("/etc"), QStringList("theirs"));
        QVERIFY(!writeOurs("/mnt/folder/missing/a.tif"));
        QCOMPARE(errno, ENOENT);
        QCOMPARE(namesIn("/mnt/folder"), QStringList("last"));
        const QString tooLong(300, QLatin1Char('x'));
        QVERIFY(!disk_file::makeFolder("/mnt/folder/" + tooLong));
        QCOMPARE(errno, ENAMETOOLONG);
        for (int round = 0; round < 2; ++round)
            QVERIFY(disk_file::makeFolder("/mnt/folder/one/two"));
        QVERIFY(QFileInfo(at("/mnt/folder/one/two")).isDir());
        QVERIFY(disk_file::makeFolder("/elsewhere/too"));
        QVERIFY(QFileInfo(at("/elsewhere/too")).isDir());
    }

    void onlyAnOrdinaryFileIsWritten_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<int>("error");
        QTest::newRow("pipe") << int(S_IFIFO) << EPERM;
        QTest::newRow("socket") << int(S_IFSOCK) << EPERM;
        QTest::newRow("character device") << int(S_IFCHR) << EPERM;
        QTest::newRow("block device") << int(S_IFBLK) << EPERM;
        QTest::newRow("folder") << int(S_IFDIR) << EISDIR;
    }

    // A pipe would be waited for until somebody reads it.
    void onlyAnOrdinaryFileIsWritten()
    {
        QFETCH(int, type);
        QFETCH(int, error);
        const QByteArray path = QFile::encodeName(at("/mnt/a.tif"));
        const mode_t mode = static_cast<mode_t>(type) | 0600U;
        // The device that takes everything, and no block device at all.
        const dev_t device = type == int(S_IFCHR) ? makedev(1, 3) : makedev(0, 0);
        const int made =
            type == int(S_IFDIR) ? ::mkdir(path.constData(), 0700) : ::mknod(path.constData(), mode, device);
        if (made != 0)
            QSKIP("this process may not make such a file");
        QVERIFY(!writeOurs("/mnt/a.tif"));
        QCOMPARE(errno, error);
    }

    void theMountPointItselfMayBeALink()
    {
        QVERIFY(QDir(at("/mnt")).removeRecursively());
        QVERIFY(QDir().mkpath(at("/usb")));
        QCOMPARE(::symlink("usb", qPrintable(at("/mnt"))), 0);
        QVERIFY(writeOurs("/mnt/a.tif"));
        QCOMPARE(bytesOf(at("/usb/a.tif")), QByteArray(kOurs));
    }

    void withoutTheMountPointNothingIsWritten()
    {
        QVERIFY(QDir(at("/mnt")).removeRecursively());
        QVERIFY(!writeOurs("/mnt/a.tif"));
        QCOMPARE(errno, ENOENT);
        QVERIFY(!writeOurs("/mnt/folder/a.tif"));
        QVERIFY(!writeOurs("/nowhere/a.tif"));
        QCOMPARE(errno, ENOENT);
        QVERIFY(disk_file::makeFolder("/mnt/folder/log"));
        QVERIFY(writeOurs("/mnt/folder/log/a.tif"));
    }

    void aFullDiskIsTold()
    {
        QCOMPARE(::symlink("/dev/full", qPrintable(at("/etc/full"))), 0);
        QVERIFY(!writeOurs("/etc/full"));
        QCOMPARE(errno, ENOSPC);
    }

    void nothingStaysOpen()
    {
        QCOMPARE(::symlink("../etc", qPrintable(at("/mnt/log"))), 0);
        const int before = openDescriptors();
        for (int round = 0; round < 20; ++round) {
            QVERIFY(writeOurs("/mnt/a.tif"));
            QVERIFY(!writeOurs("/mnt/log/a.tif"));
            QVERIFY(!writeOurs("/mnt/folder"));
            QVERIFY(!disk_file::makeFolder("/mnt/log/x"));
        }
        QCOMPARE(openDescriptors(), before);
    }

private:
    static unsigned int modeOf(const QString& path)
    {
        struct stat entry = {};
        return ::stat(qPrintable(at(path)), &entry) == 0 ? entry.st_mode & 07777U : 0U;
    }

    static QString at(const QString& fixedPath) { return instrumentPath(fixedPath); }
    static QStringList namesIn(const QString& fixedPath)
    {
        return QDir(at(fixedPath)).entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot);
    }
    static int openDescriptors()
    {
        return QDir("/proc/self/fd").entryList(QDir::AllEntries | QDir::System | QDir::NoDotAndDotDot).size();
    }

    std::unique_ptr<QTemporaryDir> m_root;
};

QTEST_GUILESS_MAIN(TestDiskFile)
#include "test_disk_file.moc"
