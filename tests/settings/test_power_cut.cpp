#include <cerrno>
#include <cstring>
#include <memory>
#include <vector>

#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <QDir>
#include <QtTest>

#include "platform/InstrumentPath.h"
#include "settings/FileReplacement.h"
#include "settings/IniFile.h"
#include "settings/SafeSettingsFile.h"
#include "settings/SettingsFiles.h"
#include "settings/StoredObjects.h"
#include "settings/UnreadFiles.h"
#include "support/FileBytes.h"
#include "support/InChild.h"
#include "support/LogRecorder.h"
#include "tests/settings/FaultyFileCalls.h"
#include "tests/settings/QuickDirectory.h"

using FaultyFileCalls::Fault;

namespace {

const QString kFile = QStringLiteral("/conf/Settings.ini");
/// QFile names the owner's rights twice.
constexpr QFile::Permissions kUnusual =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ReadUser | QFile::WriteUser | QFile::WriteOther;
const char* const kOld = "[Calibration]\nZ reference=30000\n\n[VGA]\n0x3501=0x1E\n";

// The three ways to save. Each returns what the program itself knows about the outcome.
enum Save { OneKey, ManyKeys, MainFile };

bool save(Save way)
{
    if (way == OneKey) {
        ini_write("Calibration", "Z reference", "31000", kFile.toStdString());
        return true;
    }
    if (way == ManyKeys) {
        std::vector<IniEntry> entries(30, {"VGA", "", "0x01"});
        for (size_t i = 0; i < entries.size(); ++i)
            entries[i].key = QString::asprintf("0x%04X", 0x3400 + int(i)).toStdString();
        return writeIniEntries(entries, kFile.toStdString());
    }
    SafeSettingsFile file(kFile);
    file.settings().setValue("Calibration/Z reference", 31000);
    file.settings().setValue("ORLA-III/Serial", "OR3-07-00042");
    return file.commit();
}

// Outcomes of a save on a small file system, as exit statuses.
enum Outcome { NewContent, OldContent, Damaged, NotPermitted };

// In a mount namespace of its own: fills a small memory file system, then saves.
Outcome saveOnSmallDisk(const QString& directory, Save way, const QByteArray& options, bool readOnly,
                        int spare_bytes)
{
    if (::unshare(CLONE_NEWNS) != 0 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("none", qPrintable(directory), "tmpfs", 0, options.constData()) != 0)
        return NotPermitted;
    setInstrumentRoot(directory);
    putBytes(instrumentPath(kFile), kOld);
    // The filler takes all but the spare bytes.
    QFile filler(directory + "/filler");
    if (filler.open(QIODevice::WriteOnly | QIODevice::Unbuffered)) {
        while (filler.write(QByteArray(4096, 'x')) == 4096) {
        }
        filler.resize(qMax<qint64>(0, filler.size() - spare_bytes));
    }
    filler.close();
    if (readOnly &&
        ::mount("none", qPrintable(directory), nullptr, MS_REMOUNT | MS_RDONLY, options.constData()) != 0)
        return NotPermitted;

    const LogRecorder log;
    save(way);
    const bool isOld = bytesOf(instrumentPath(kFile)) == kOld;
    const int lines = log.messages().filter("[Error] not saved: /conf/Settings.ini").size();
    if (isOld)
        return lines == 1 ? OldContent : Damaged;
    return lines == 0 ? NewContent : Damaged;
}

/// A save one of whose calls failed, and what it left.
struct BrokenSave
{
    int calls; ///< of those that could fail
    bool hit;  ///< there was such a call
    bool saved;
    QStringList messages;
    int lines; ///< of them that tell the file was not saved
    QByteArray found;
    QByteArray what; ///< all of it, for a test that fails

    bool isOldOrNew(const QByteArray& fresh) const
    {
        return found == (lines == 0 ? fresh : QByteArray(kOld));
    }
};

BrokenSave saveWithFailure(Save way, int number, int errorNumber, bool lasting, const QByteArray& kind = {})
{
    BrokenSave broken{};
    const LogRecorder log;
    FaultyFileCalls::arm(Fault::Error, number, errorNumber, lasting, kind);
    broken.saved = save(way);
    broken.calls = FaultyFileCalls::disarm();
    broken.hit = broken.calls >= number;
    broken.messages = log.messages();
    broken.lines = broken.messages.filter("[Error] not saved: /conf/Settings.ini").size();
    broken.found = bytesOf(instrumentPath(kFile));
    broken.what = "failure " + QByteArray::number(number) + ": " + broken.messages.join('\n').toUtf8() +
                  "\n" + broken.found + "\n" + FaultyFileCalls::calls().join('\n');
    return broken;
}

// What a save calls that nothing goes wrong with.
QByteArrayList callsOf(Save way)
{
    FaultyFileCalls::arm(Fault::None, 0);
    save(way);
    FaultyFileCalls::disarm();
    return FaultyFileCalls::calls();
}

} // namespace

class TestPowerCut : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_root = std::make_unique<QuickRoot>(); }
    void cleanup() { m_root.reset(); }

    void aPowerCutAtAnyCallLeavesTheOldOrTheNewContent_data()
    {
        QTest::addColumn<int>("way");
        QTest::addColumn<int>("fault");
        QTest::addColumn<bool>("exists");
        for (bool exists : {true, false})
            for (Fault fault : {Fault::Cut, Fault::CutHalf})
                for (Save way : {OneKey, ManyKeys, MainFile})
                    QTest::addRow("save %d, fault %d, %s", way, int(fault), exists ? "old file" : "no file")
                        << int(way) << int(fault) << exists;
    }

    void aPowerCutAtAnyCallLeavesTheOldOrTheNewContent()
    {
        QFETCH(int, way);
        QFETCH(int, fault);
        QFETCH(bool, exists);
        const QByteArray fresh = contentAfterSave(Save(way), exists);
        int cuts = 0;
        int olds = 0;
        int status = FaultyFileCalls::kCutStatus;
        while (status == FaultyFileCalls::kCutStatus) {
            putOld(exists);
            ++cuts;
            status = inChild([=] {
                FaultyFileCalls::arm(Fault(fault), cuts);
                save(Save(way));
                FaultyFileCalls::disarm();
                return 0;
            });
            const bool there = QFile::exists(path());
            const QByteArray found = there ? bytesOf(path()) : QByteArray();
            const bool isOld = there == exists && found == (exists ? QByteArray(kOld) : QByteArray());
            olds += isOld ? 1 : 0;
            QVERIFY2(isOld || found == fresh, "cut " + QByteArray::number(cuts) + " left: " + found);
            if (status != 0)
                verifyTheNextSaveWorks(Save(way), exists, fresh);
        }
        QCOMPARE(status, 0);
        // The save took place somewhere among the cuts, not before the first or after the last.
        QVERIFY2(cuts > 15, "the calls are not seen");
        QVERIFY(olds > 10 && olds < cuts - 1);
    }

    void aCallThatFailsLeavesTheOldOrTheNewContent_data()
    {
        QTest::addColumn<int>("way");
        QTest::addColumn<int>("errorNumber");
        QTest::addColumn<bool>("lasting");
        QTest::addColumn<QByteArray>("kind");
        for (Save way : {OneKey, ManyKeys, MainFile}) {
            for (bool lasting : {false, true})
                for (int errorNumber : {ENOSPC, EROFS, EIO, EDQUOT, EACCES})
                    QTest::addRow("save %d, %s%s", way, std::strerror(errorNumber),
                                  lasting ? ", for good" : "")
                        << int(way) << errorNumber << lasting << QByteArray();
            // Of the old file, of the copy that is worked on and of the new content.
            for (const char* kind : {"read", "take"})
                QTest::addRow("save %d, %s", way, kind) << int(way) << EIO << false << QByteArray(kind);
        }
    }

    void aCallThatFailsLeavesTheOldOrTheNewContent()
    {
        QFETCH(int, way);
        QFETCH(int, errorNumber);
        QFETCH(bool, lasting);
        QFETCH(QByteArray, kind);
        const QByteArray fresh = contentAfterSave(Save(way), true);
        int failures = 0;
        bool hit = true;
        for (int number = 1; hit; ++number) {
            putOld(true);
            // As no new file has it by itself.
            QVERIFY(QFile::setPermissions(path(), kUnusual));
            const BrokenSave broken = saveWithFailure(Save(way), number, errorNumber, lasting, kind);
            hit = broken.hit;
            QVERIFY2(broken.isOldOrNew(fresh), broken.what);
            QVERIFY2(QFile::permissions(path()) == kUnusual, broken.what);
            QVERIFY2(broken.lines <= 1, broken.what);
            QVERIFY2(way == OneKey || broken.saved == (broken.lines == 0), broken.what);
            if (!kind.isEmpty())
                QCOMPARE(broken.messages.filter("Input/output error").size(), broken.lines);
            failures += broken.lines;
            verifyTheNextSaveWorks(Save(way), true, fresh);
        }
        // At least scratch directory, copy, new file, its write, flush and renaming can fail; of what
        // is read, the old file and the new content.
        QVERIFY(failures > (kind.isEmpty() ? 5 : 1));
    }

    // Owner, mode and age of the new file are told from it: without them it does not take the place.
    void aLookAtTheNewFileThatFailsEndsTheSave()
    {
        int looks = 0;
        for (bool hit = true; hit; ++looks) {
            putOld(true);
            const BrokenSave broken = saveWithFailure(MainFile, looks + 1, EIO, false, "fstat");
            hit = broken.hit;
            QCOMPARE(broken.saved, !hit);
            QVERIFY((broken.found == kOld) == hit);
        }
        QVERIFY(looks > 2);
    }

    // What has been looked at is remembered, what could not be is not.
    void aFileThatCouldNotBeLookedAtIsLookedAtTheNextTime_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::newRow("not opened") << QByteArray("read");
        QTest::newRow("not read") << QByteArray("take");
    }

    void aFileThatCouldNotBeLookedAtIsLookedAtTheNextTime()
    {
        QFETCH(QByteArray, kind);
        // A list of four thousand millions.
        putBytes(path(), "[a]\nv=@Variant(\\0\\0\\0\\t\\xff\\xff\\xff\\xff)\n");
        FaultyFileCalls::arm(Fault::Error, 1, EMFILE, false, kind);
        readableSettingsPath(kFile);
        QCOMPARE(FaultyFileCalls::disarm(), 1);
        QVERIFY(readableSettingsPath(kFile) != path());
    }

    void aStepThatFailsIsNamed_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::addColumn<QString>("step");
        QTest::newRow("new file") << QByteArray("open") << "create";
        QTest::newRow("its content") << QByteArray("write") << "write";
        QTest::newRow("a look at it") << QByteArray("fstat") << "keep owner and mode";
        QTest::newRow("its mode") << QByteArray("fchmod") << "keep owner and mode";
        QTest::newRow("its way to the disk") << QByteArray("fsync") << "flush";
        QTest::newRow("its end") << QByteArray("close") << "flush";
        QTest::newRow("its name") << QByteArray("rename") << "replace";
    }

    void aStepThatFailsIsNamed()
    {
        QFETCH(QByteArray, kind);
        QFETCH(QString, step);
        putOld(true);
        FileReplacement file(path());
        QVERIFY(file.begin());
        FaultyFileCalls::arm(Fault::Error, 1, EIO, false, kind);
        const bool saved = file.commit("new");
        QCOMPARE(FaultyFileCalls::disarm(), 1);
        QVERIFY(!saved);
        QCOMPARE(file.reason(), step + ": Input/output error");
        QCOMPARE(bytesOf(path()), QByteArray(kOld));
    }

    // What the load did not get may be keys, and a save would put defaults in their place.
    void whatCannotBeLookedIntoWasNotRead_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::addColumn<QByteArray>("comment");
        QTest::newRow("no copy to look into") << QByteArray("open") << QByteArray();
        QTest::newRow("no room in it") << QByteArray("write") << QByteArray();
        QTest::newRow("no room in it for what is not kept back")
            << QByteArray("write") << QByteArray("; nothing\n").repeated(10000);
    }

    void whatCannotBeLookedIntoWasNotRead()
    {
        QFETCH(QByteArray, kind);
        QFETCH(QByteArray, comment);
        putBytes(path(), comment + kOld);
        const QSettings nothing(QString(kNoSettingsFile), QSettings::IniFormat);
        FaultyFileCalls::arm(Fault::Error, 1, ENOSPC, true, kind);
        const bool whole = noteLoad(kFile, nothing);
        FaultyFileCalls::disarm();
        QVERIFY(!whole);
        QVERIFY(!save(MainFile));
        QCOMPARE(bytesOf(path()), comment + kOld);
        QVERIFY(noteLoad(kFile, QSettings(path(), QSettings::IniFormat)));
        QVERIFY(save(MainFile));
    }

    void aCopyThatCannotBeWrittenIsTheReason_data()
    {
        QTest::addColumn<QByteArray>("kind");
        QTest::addColumn<int>("number");
        QTest::addColumn<QString>("reason");
        // Neither the copy in memory nor, where that is refused, the one beside the file.
        QTest::newRow("with the old content") << QByteArray("write") << 1 << "No space left on device";
        QTest::newRow("with the new content") << QByteArray("open") << 2 << "scratch file cannot be written";
    }

    void aCopyThatCannotBeWrittenIsTheReason()
    {
        QFETCH(QByteArray, kind);
        QFETCH(int, number);
        QFETCH(QString, reason);
        putOld(true);
        const BrokenSave broken = saveWithFailure(MainFile, number, ENOSPC, true, kind);
        QVERIFY(!broken.saved);
        QCOMPARE(broken.found, QByteArray(kOld));
        QCOMPARE(broken.messages.size(), 1);
        QVERIFY2(broken.messages.first().endsWith(" /conf/Settings.ini " + reason), broken.what);
    }

    void aCopyThatMemoryRefusesIsWorkedOnBesideTheFile_data() { addWays(); }

    void aCopyThatMemoryRefusesIsWorkedOnBesideTheFile()
    {
        QFETCH(int, way);
        if (!QFileInfo("/dev/shm").isWritable())
            QSKIP("no folder in memory here");
        const QByteArray fresh = contentAfterSave(Save(way), true);
        putOld(true);
        // The file's own folder comes first, then the one beside it.
        constexpr int kInMemory = 3;
        const BrokenSave broken = saveWithFailure(Save(way), kInMemory, ENOSPC, false, "mkdir");
        QVERIFY(broken.hit && broken.saved);
        QCOMPARE(broken.found, fresh);
        QByteArrayList folders;
        for (const QByteArray& call : FaultyFileCalls::calls())
            if (call.startsWith("mkdir "))
                folders.append(call);
        QVERIFY2(folders[kInMemory - 1].startsWith("mkdir /dev/shm/orla-scratch-"), folders.join('\n'));
    }

    // Each is a folder, a file and a reading of it.
    void noMoreCopiesAreWorkedOnThanNeeded_data()
    {
        QTest::addColumn<int>("way");
        QTest::addColumn<int>("copies");
        QTest::newRow("one key, and a second reading") << int(OneKey) << 2;
        QTest::newRow("many keys at once, and a second reading") << int(ManyKeys) << 2;
        QTest::newRow("main file") << int(MainFile) << 1;
    }

    void noMoreCopiesAreWorkedOnThanNeeded()
    {
        QFETCH(int, way);
        if (!QFileInfo("/dev/shm").isWritable())
            QSKIP("no folder in memory here");
        putOld(true);
        int folders = 0;
        for (const QByteArray& call : callsOf(Save(way))) {
            folders += call.startsWith("mkdir /dev/shm/orla-scratch-") ? 1 : 0;
            QVERIFY2(!call.contains("-again"), "a copy with keys is looked at once");
        }
        QTEST(folders, "copies");
    }

    void aFileThatCannotBeOpenedOnceIsAskedAgain()
    {
        // The first look is for objects that are not in order, and only what looks different since is
        // opened again.
        constexpr int kFirstOfTheSettings = 2;
        for (const int failures : {0, 1, 2}) {
            putBytes(path(), kOld + QByteArray(failures, '\n'));
            std::string value;
            FaultyFileCalls::arm(failures == 0 ? Fault::None : Fault::Error, kFirstOfTheSettings, EMFILE,
                                 failures == 2, "read");
            const bool found = ini_read("Calibration", "Z reference", "none", value, kFile.toStdString());
            const int opened = FaultyFileCalls::disarm();
            QVERIFY(opened >= kFirstOfTheSettings);
            QVERIFY2(failures < 2 || opened == kFirstOfTheSettings + 1, "twice is often enough");
            QCOMPARE(found, failures < 2);
            QCOMPARE(QString::fromStdString(value), QString(failures < 2 ? "30000" : "none"));
        }
    }

    void aWriteThatTakesHalfOfTheBytesIsContinued_data() { addWays(); }

    void aWriteThatTakesHalfOfTheBytesIsContinued()
    {
        QFETCH(int, way);
        const QByteArray fresh = contentAfterSave(Save(way), true);
        putOld(true);
        FaultyFileCalls::arm(Fault::Half, 1, 0, true);
        const bool saved = save(Save(way));
        FaultyFileCalls::disarm();
        QVERIFY(saved);
        QCOMPARE(bytesOf(path()), fresh);
    }

    // A slow card takes its time for each; what is only worked on need not be there.
    void onlyTheNewContentAndItsNameAreForcedToTheDisk_data() { addWays(); }

    void onlyTheNewContentAndItsNameAreForcedToTheDisk()
    {
        QFETCH(int, way);
        putOld(true);
        QByteArrayList forced;
        for (const QByteArray& call : callsOf(Save(way)))
            if ((call.startsWith("fsync ") || call.startsWith("fdatasync ")) &&
                call.contains(QFile::encodeName(instrumentPath(QStringLiteral("/")))))
                forced.append(call);
        QVERIFY2(forced.size() == 2, forced.join('\n'));
        QCOMPARE(forced.last(), "fsync " + QFile::encodeName(QFileInfo(path()).path()));
    }

    void theNewContentIsOnTheDiskBeforeItTakesTheOldOnesPlace_data() { addWays(); }

    void theNewContentIsOnTheDiskBeforeItTakesTheOldOnesPlace()
    {
        QFETCH(int, way);
        putOld(true);
        const QByteArrayList calls = callsOf(Save(way));
        const QByteArray target = QFile::encodeName(path());
        QByteArrayList touching;
        int replaced = -1;
        for (int i = 0; i < calls.size(); ++i) {
            const QByteArrayList words = calls[i].split(' ');
            if (words.contains(target) && words.first() != "close" && words.first() != "fstat")
                touching.append(calls[i]);
            if (words.first() == "rename" && words.last() == target)
                replaced = i;
        }
        // One call alone changes the file itself; looking at it and closing it belong to reading it.
        QCOMPARE(touching.size(), 1);
        QVERIFY(replaced > 0);
        const QByteArray fresh = calls[replaced].split(' ')[1];
        const int flushed = calls.indexOf("fsync " + fresh);
        QVERIFY(flushed > 0 && flushed < replaced);
        QVERIFY(calls.lastIndexOf("write " + fresh) < flushed);
        QVERIFY(calls.indexOf("fsync " + QFile::encodeName(QFileInfo(path()).path())) > replaced);
    }

    void whatASignalBreaksOffIsDoneAgain_data()
    {
        QTest::addColumn<int>("way");
        QTest::addColumn<QByteArray>("kind");
        for (Save way : {OneKey, ManyKeys, MainFile})
            for (const char* kind : {"take", "fsync"})
                QTest::addRow("save %d, %s", way, kind) << int(way) << QByteArray(kind);
    }

    void whatASignalBreaksOffIsDoneAgain()
    {
        QFETCH(int, way);
        QFETCH(QByteArray, kind);
        putOld(true);
        FaultyFileCalls::arm(Fault::None, 0, 0, false, kind);
        QVERIFY(save(Save(way)));
        const int calls = FaultyFileCalls::disarm();
        QVERIFY(calls > 0);
        const QByteArray fresh = bytesOf(path());
        for (int number = 1; number <= calls; ++number) {
            putOld(true);
            const BrokenSave broken = saveWithFailure(Save(way), number, EINTR, false, kind);
            QCOMPARE(broken.calls, calls + 1);
            QVERIFY(broken.saved);
            QCOMPARE(broken.found, fresh);
        }
    }

    void aDiskThatIsFullKeepsTheOldContent_data()
    {
        QTest::addColumn<int>("way");
        QTest::addColumn<QByteArray>("resource");
        for (Save way : {OneKey, ManyKeys, MainFile})
            for (const char* resource : {"pages", "inodes"})
                QTest::addRow("save %d, %s", way, resource) << int(way) << QByteArray(resource);
    }

    void aDiskThatIsFullKeepsTheOldContent()
    {
        QFETCH(int, way);
        QFETCH(QByteArray, resource);
        const bool pages = resource == "pages";
        int olds = 0;
        int news = 0;
        // From no room at all to more than a save needs.
        for (int room = 0; room < 12; ++room) {
            // Inodes in use: the root, conf, the file, the filler; and one that is never given out.
            const QByteArray options =
                pages ? QByteArray("size=64k") : "size=1m,nr_inodes=" + QByteArray::number(5 + room);
            const int spare_bytes = pages ? room * 4096 : 512 * 1024;
            const int outcome = smallDisk(Save(way), options, false, spare_bytes);
            if (outcome == NotPermitted)
                QSKIP("mounting a memory file system in a private mount namespace is not permitted here");
            QVERIFY2(outcome == OldContent || outcome == NewContent, "room for " + QByteArray::number(room));
            QVERIFY2(outcome == NewContent || news == 0, "a larger disk must not be worse");
            (outcome == OldContent ? olds : news) += 1;
        }
        QVERIFY(olds > 0);
        QVERIFY(news > 0);
    }

    void aReadOnlyDiskKeepsTheOldContent_data() { addWays(); }

    void aReadOnlyDiskKeepsTheOldContent()
    {
        QFETCH(int, way);
        const int outcome = smallDisk(Save(way), "size=1m", true, 512 * 1024);
        if (outcome == NotPermitted)
            QSKIP("mounting a memory file system in a private mount namespace is not permitted here");
        QCOMPARE(outcome, int(OldContent));
    }

private:
    static QString path() { return instrumentPath(kFile); }

    static void addWays()
    {
        QTest::addColumn<int>("way");
        QTest::newRow("one key") << int(OneKey);
        QTest::newRow("many keys") << int(ManyKeys);
        QTest::newRow("main file") << int(MainFile);
    }

    static void putOld(bool exists)
    {
        QVERIFY(QDir().mkpath(QFileInfo(path()).path()));
        QFile::remove(path());
        if (exists)
            putBytes(path(), kOld);
    }

    static QByteArray contentAfterSave(Save way, bool exists)
    {
        putOld(exists);
        save(way);
        return bytesOf(path());
    }

    static void verifyTheNextSaveWorks(Save way, bool exists, const QByteArray& fresh)
    {
        putOld(exists);
        QVERIFY(save(way));
        QCOMPARE(bytesOf(path()), fresh);
        QCOMPARE(
            QDir(QFileInfo(path()).path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
            QStringList({"Settings.ini"}));
    }

    int smallDisk(Save way, const QByteArray& options, bool readOnly, int spare_bytes)
    {
        const QString directory = m_root->path();
        return inChild([=] { return int(saveOnSmallDisk(directory, way, options, readOnly, spare_bytes)); });
    }

    std::unique_ptr<QuickRoot> m_root;
};

QTEST_GUILESS_MAIN(TestPowerCut)
#include "test_power_cut.moc"
