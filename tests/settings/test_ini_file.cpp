#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <QDir>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QSettings>
#include <QtTest>

#include "platform/InstrumentPath.h"
#include "settings/FileReplacement.h"
#include "settings/GlobalIni.h"
#include "settings/IniFile.h"
#include "settings/SafeSettingsFile.h"
#include "settings/ScratchSettings.h"
#include "settings/SettingsFiles.h"
#include "support/FileBytes.h"
#include "support/FileTime.h"
#include "support/LogRecorder.h"
#include "support/WithoutStandardInput.h"
#include "tests/settings/QuickDirectory.h"

namespace {

const QString kFile = QStringLiteral("/conf/Settings.ini");

// The write of one key as it is defined: QSettings on the file itself, then the blanks.
void writeInPlace(const IniEntry& entry, const QString& path)
{
    {
        QSettings settings(path, QSettings::NativeFormat);
        settings.beginGroup(QString::fromStdString(entry.section));
        settings.setValue(QString::fromStdString(entry.key), QString::fromStdString(entry.value));
        settings.endGroup();
        settings.sync();
    }
    const QByteArray latin1 = QString::fromLatin1(bytesOf(path)).replace("%20", " ").toLatin1();
    putBytes(path, latin1);
}

void write(const std::string& section, const std::string& key, const std::string& value)
{
    ini_write(section, key, value, kFile.toStdString());
}

// What is read under a key, or that there is none.
QString valueOf(const char* section, const char* key)
{
    std::string value;
    const bool found = ini_read(section, key, "", value, kFile.toStdString());
    return found ? QString::fromStdString(value) : QString("(not found)");
}

// The other way to save: a change of some keys at once.
bool saveAsAWhole(const char* path, int value)
{
    SafeSettingsFile file(kFile);
    file.settings().setValue(path, value);
    return file.commit();
}

void expectNotSaved(const char* reason)
{
    QTest::ignoreMessage(
        QtDebugMsg, QRegularExpression(R"(\[Error\] not saved: /conf/Settings\.ini )" + QString(reason)));
}

// A few pieces, each of which means something in such a file.
std::string oddText(QRandomGenerator& random)
{
    static const char* const kPieces[] = {"a",       "%20",      " ",        "@", "@@",    ",", ";",
                                          "\\",      "\"",       "/",        "é", "%2520", "=", "[",
                                          "General", "%General", "@String(", ")", "]"};
    std::string text;
    for (int i = random.bounded(4); i >= 0; --i)
        text += kPieces[random.bounded(int(std::size(kPieces)))];
    return text;
}

QByteArray oddContent(QRandomGenerator& random)
{
    static const char* const kPieces[] = {
        "\n",          "\r\n",       "[",     "]",     "=",         ",",        ";",        "#", "\"",
        "\\",          "\\x",        "\\x0",  "%",     "%20",       "%zz",      "%U0416",   "@", "@Variant(",
        "@ByteArray(", "@Invalid()", ")",     " ",     "\t",        "\xe9",     "\xc3\xa9", "a", "General",
        "%General",    "/",          "A=1\n", "[a]\n", "[b%20c]\n", "v=x, y\n", "\\\n"};
    QByteArray content = random.bounded(8) == 0 ? "\xef\xbb\xbf" : "";
    for (int i = random.bounded(40); i >= 0; --i)
        content += kPieces[random.bounded(int(std::size(kPieces)))];
    return content;
}

constexpr uid_t kOtherUser = 1234;

/// Acts as a user without root's rights while it lives.
class OtherUser
{
public:
    OtherUser() : m_acts(::geteuid() == 0 && ::setresuid(kOtherUser, kOtherUser, 0) == 0) {}
    ~OtherUser()
    {
        if (m_acts && ::setresuid(0, 0, 0) != 0)
            qFatal("root's rights are lost");
    }
    OtherUser(const OtherUser&) = delete;
    OtherUser& operator=(const OtherUser&) = delete;

    bool acts() const { return m_acts; }

private:
    bool m_acts;
};

} // namespace

class TestIniFile : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_root = std::make_unique<QuickRoot>(); }
    void cleanup() { m_root.reset(); }

    void theRecordIsZeroAtTheStartAndOneForAll()
    {
        const auto* bytes = reinterpret_cast<const unsigned char*>(&g_global_ini);
        QVERIFY(
            std::all_of(bytes, bytes + sizeof g_global_ini, [](unsigned char byte) { return byte == 0; }));
        QCOMPARE(global_ini(), &g_global_ini);
    }

    void theRecordHoldsItsFieldsInOrder()
    {
        const std::vector<std::size_t> offsets{offsetof(global_ini_t, CUS_reg),
                                               offsetof(global_ini_t, BFN_reg),
                                               offsetof(global_ini_t, AE_reg),
                                               offsetof(global_ini_t, LED_brightness),
                                               offsetof(global_ini_t, Z_step),
                                               offsetof(global_ini_t, Z_speed),
                                               offsetof(global_ini_t, Z_reference),
                                               offsetof(global_ini_t, System.Magnification),
                                               offsetof(global_ini_t, System.Volume_factor),
                                               offsetof(global_ini_t, bZig_mode),
                                               offsetof(global_ini_t, Skip_frame)};
        QVERIFY(std::is_sorted(offsets.begin(), offsets.end()));
        QCOMPARE(offsets[1] - offsets[0], std::size_t(60));
    }

    void anOldFileIsRead_data()
    {
        QTest::addColumn<QString>("name");
        const QDir data(QFINDTESTDATA("data/ini"));
        for (const QString& name : data.entryList({"*.ini"}))
            QTest::newRow(qPrintable(name)) << data.filePath(name);
        QVERIFY(data.entryList({"*.ini"}).size() >= 16);
    }

    void anOldFileIsRead()
    {
        QFETCH(QString, name);
        putBytes(machinePath(), bytesOf(name));
        const QString expected = QString::fromUtf8(bytesOf(name.chopped(4) + ".expected"));
        const QStringList rows = expected.split('\n', Qt::SkipEmptyParts);
        QVERIFY(!rows.isEmpty());
        for (const QString& row : rows) {
            const QStringList fields = row.split('\t');
            QCOMPARE(fields.size(), 4);
            const bool found = fields[2] == "found";
            std::string value = "untouched";
            QCOMPARE(ini_read(fields[0].toStdString(), fields[1].toStdString(), "the default", value,
                              kFile.toStdString()),
                     found);
            QCOMPARE(QString::fromStdString(value), found ? fields[3] : QString("the default"));
        }
        QCOMPARE(bytesOf(machinePath()), bytesOf(name));
    }

    void aMissingKeyGivesTheDefaultUnchanged()
    {
        std::string value;
        QVERIFY(!ini_read("Z stage", "Step", "256", value, kFile.toStdString()));
        QCOMPARE(value, std::string("256"));
        QVERIFY(!ini_read("Z stage", "Step", "1, 2 ,%20", value, kFile.toStdString()));
        QCOMPARE(value, std::string("1, 2 ,%20"));
        QVERIFY2(!QFile::exists(machinePath()), "reading must not create the file");
    }

    void textsOfAnyLanguageComeBackAsTheyWereWritten()
    {
        const std::string text = QStringLiteral("Größe %1 µm 测试").toStdString();
        write("Prüfung %1", "Schlüssel", text);
        QCOMPARE(valueOf("Prüfung %1", "Schlüssel"), QString::fromStdString(text));
    }

    void aKeyWithABlankStandsInTheFileWithAPlainOne()
    {
        write("Cell counting", "Skip frame", "7");
        write("Calibration", "Z reference", "30000");
        QCOMPARE(bytesOf(machinePath()),
                 QByteArray("[Calibration]\nZ reference=30000\n\n[Cell counting]\nSkip frame=7\n"));
        QCOMPARE(valueOf("Calibration", "Z reference"), QString("30000"));
    }

    void aValueLosesItsEscapedBlankToTheNextWriteOfAnyKey()
    {
        putBytes(machinePath(), "[a]\nv=x%20y\n");
        write("b", "w", "1");
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=x y\n\n[b]\nw=1\n"));
    }

    void aValueWithACommaIsWrittenAsOneText()
    {
        write("a", "v", "1,2");
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=\"1,2\"\n"));
        QCOMPARE(valueOf("a", "v"), QString("1,2"));
    }

    void anEmptyValueIsWrittenAndReadsAsMissing()
    {
        write("a", "v", "");
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=\n"));
        std::string value;
        QVERIFY(!ini_read("a", "v", "d", value, kFile.toStdString()));
        QCOMPARE(value, std::string("d"));
    }

    void theFirstWriteCreatesFileAndDirectory()
    {
        QVERIFY(!QFile::exists(QFileInfo(machinePath()).path()));
        const mode_t mask = ::umask(0002);
        write("a", "v", "1");
        ::umask(mask);
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=1\n"));
        struct stat file = {};
        QCOMPARE(::stat(qPrintable(machinePath()), &file), 0);
        QCOMPARE(int(file.st_mode & 07777), 0664);
        QCOMPARE(entriesBesideTheFile(), QStringList({"Settings.ini"}));
    }

    void quickWritesAreReadBackWithoutDelay()
    {
        // Same size, same tick of the file clock: only the time of change can tell them apart.
        for (int i = 100; i < 300; ++i) {
            write("a", "v", std::to_string(i));
            QCOMPARE(valueOf("a", "v"), QString::number(i));
        }
    }

    void everyWriteLeavesTheBytesOfAWriteInPlace_data() { addOldFiles(); }

    void everyWriteLeavesTheBytesOfAWriteInPlace()
    {
        QFETCH(QString, name);
        const QString reference = m_root->filePath("reference.ini");
        putBytes(machinePath(), bytesOf(name));
        putBytes(reference, bytesOf(name));
        for (const IniEntry& entry : awkwardEntries()) {
            writeInPlace(entry, reference);
            write(entry.section, entry.key, entry.value);
            QCOMPARE(bytesOf(machinePath()), bytesOf(reference));
        }
    }

    void manyKeysAtOnceLeaveTheBytesOfManyWrites_data() { addOldFiles(); }

    void manyKeysAtOnceLeaveTheBytesOfManyWrites()
    {
        QFETCH(QString, name);
        const std::vector<IniEntry> all = awkwardEntries();
        for (size_t count = 0; count <= all.size(); ++count) {
            const std::vector<IniEntry> entries(all.begin(), all.begin() + static_cast<long>(count));
            verifyManyKeysLeaveTheBytesOfManyWrites(entries, bytesOf(name));
        }
    }

    void whatComesToRestLateLeavesTheBytesOfManyWrites_data()
    {
        QTest::addColumn<QByteArray>("old");
        QTest::addColumn<int>("place");
        // The blank goes with the second reading, and with the third the rest is a section.
        for (int place = 0; place < 5; ++place)
            QTest::addRow("a section that is a blank, entry %d", place) << QByteArray("[c]\nd=1\n") << place;
        QTest::addRow("in the old file") << QByteArray("[%20]\nk\\x=1\n") << 5;
        QTest::addRow("in both") << QByteArray("[%20]\nk\\x=1\n") << 1;
    }

    void whatComesToRestLateLeavesTheBytesOfManyWrites()
    {
        QFETCH(QByteArray, old);
        QFETCH(int, place);
        std::vector<IniEntry> entries(5, {"VGA", "0x3501", "0x1E"});
        if (place < 5)
            entries[static_cast<size_t>(place)] = {" ", "k/y", "2"};
        verifyManyKeysLeaveTheBytesOfManyWrites(entries, old);
        // Two writes later each text stands where it belongs.
        QCOMPARE(bytesOf(machinePath()).contains("[k]\n"), place != 3 && place != 4);
    }

    void oddContentTakesManyKeysAtOnceAsOneByOne()
    {
        QRandomGenerator random(23);
        for (int round = 0; round < 400; ++round) {
            std::vector<IniEntry> entries(4, {"VGA", "0x3501", "0x1E"});
            const int odd = random.bounded(8);
            if (odd < 4)
                entries[static_cast<size_t>(odd)] = {oddText(random), "k" + oddText(random), oddText(random)};
            verifyManyKeysLeaveTheBytesOfManyWrites(entries, oddContent(random));
        }
    }

    void noContentHoweverOddKeepsAFileFromBeingSaved()
    {
        QRandomGenerator random(20);
        for (int round = 0; round < 400; ++round) {
            // QSettings may take a quick rewrite of a file that it knows for unchanged.
            const QString reference = m_root->filePath(QString::number(round));
            const QByteArray odd = oddContent(random);
            putBytes(machinePath(), odd);
            putBytes(reference, odd);
            const IniEntry entry{"Z stage", "Step", std::to_string(round)};
            writeInPlace(entry, reference);
            QVERIFY2(writeIniEntries({entry}, kFile.toStdString()), odd.toPercentEncoding());
            QCOMPARE(bytesOf(machinePath()), bytesOf(reference));
        }
    }

    void aReplacedFileIsYoungerThanTheOldOneUnlessTheClockWasSetBack_data()
    {
        QTest::addColumn<qint64>("ahead_s");
        QTest::addColumn<bool>("followsTheOldOne");
        QTest::newRow("an hour old") << qint64(-3600) << false;
        QTest::newRow("a tick ahead of the clock") << qint64(8) << true;
        QTest::newRow("an hour ahead of the clock") << qint64(3600) << false;
        // A clock that was set wrong once leaves such files behind.
        QTest::newRow("beyond 32 bits of seconds") << qint64(100LL * 365 * 24 * 3600) << false;
    }

    void aReplacedFileIsYoungerThanTheOldOneUnlessTheClockWasSetBack()
    {
        QFETCH(qint64, ahead_s);
        QFETCH(bool, followsTheOldOne);
        putBytes(machinePath(), "[a]\nv=1\n");
        const QDateTime start = QDateTime::currentDateTime();
        const QDateTime old = start.addSecs(ahead_s);
        setTimeOfChange(old);
        // Remembers the file by its size and time of change.
        std::string value;
        QVERIFY(ini_read("a", "v", "", value, kFile.toStdString()));

        write("a", "v", "2");
        const QDateTime changed = QFileInfo(machinePath()).lastModified();
        if (followsTheOldOne) {
            QCOMPARE(changed.toMSecsSinceEpoch(), old.toMSecsSinceEpoch() + 1);
        } else {
            // The clock for files may lag behind the other one by a few milliseconds.
            QVERIFY(changed >= start.addSecs(-1));
            QVERIFY(changed <= QDateTime::currentDateTime());
        }
        QVERIFY(ini_read("a", "v", "", value, kFile.toStdString()));
        QCOMPARE(value, std::string("2"));
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=2\n"));
    }

    void ownerAndModeSurvive_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<uid_t>("owner");
        QTest::addColumn<gid_t>("group");
        const bool isRoot = ::geteuid() == 0;
        const uid_t owner = isRoot ? 1234 : ::geteuid();
        const gid_t group = isRoot ? 4321 : ::getegid();
        for (int mode : {0600, 0640, 0644, 0664, 0666, 0755, 0444})
            QTest::newRow(qPrintable(QString::number(mode, 8))) << mode << owner << group;
        QTest::newRow("only the owner is another") << 0640 << uid_t(1234) << ::getegid();
        QTest::newRow("only the group is another") << 0640 << ::geteuid() << gid_t(4321);
    }

    void ownerAndModeSurvive()
    {
        QFETCH(int, mode);
        QFETCH(uid_t, owner);
        QFETCH(gid_t, group);
        putBytes(machinePath(), "[a]\nv=1\n");
        if (::geteuid() != 0 && (mode & S_IWUSR) == 0)
            QSKIP("only root writes a write-protected file");
        if (::chown(qPrintable(machinePath()), owner, group) != 0)
            QSKIP("only root gives files away");
        QCOMPARE(::chmod(qPrintable(machinePath()), static_cast<mode_t>(mode)), 0);

        write("a", "v", "2");
        verifyOwnerAndMode(owner, group, mode, "[a]\nv=2\n");
        QVERIFY(saveAsAWhole("a/v", 3));
        verifyOwnerAndMode(owner, group, mode, "[a]\nv=3\n");
    }

    void aFileInTheScratchFoldersPlaceIsTold()
    {
        putBytes(machinePath(), "[a]\nv=1\n");
        const QString inTheWay = QFileInfo(machinePath()).path() + "/.Settings.ini.saving";
        putBytes(inTheWay, "theirs");
        expectNotSaved("create scratch directory: File exists$");
        QVERIFY(!saveAsAWhole("a/v", 2));
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=1\n"));
        QCOMPARE(bytesOf(inTheWay), QByteArray("theirs"));
        QVERIFY(QFile::remove(inTheWay));
    }

    void aLinkInTheScratchFoldersPlaceLeadsNoRemovalElsewhere()
    {
        putBytes(machinePath(), "[a]\nv=1\n");
        const QString theirs = instrumentPath(QStringLiteral("/elsewhere/theirs"));
        putBytes(theirs, "theirs");
        const QString inTheWay = QFileInfo(machinePath()).path() + "/.Settings.ini.saving";
        QVERIFY(QFile::link("../elsewhere", inTheWay));
        expectNotSaved("create scratch directory: File exists$");
        QVERIFY(!writeIniEntries({{"a", "v", "2"}}, kFile.toStdString()));
        QCOMPARE(bytesOf(theirs), QByteArray("theirs"));
        QCOMPARE(linkTextOf(inTheWay), QString("../elsewhere"));
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=1\n"));
    }

    void whatIsReadTakesThePlaceOfWhatWasThere()
    {
        putBytes(machinePath(), "[a]\nv=1\n");
        QByteArray content("before");
        QVERIFY(FileReplacement(machinePath()).read(content));
        QCOMPARE(content, QByteArray("[a]\nv=1\n"));
    }

    void aCopyWithoutAPlaceLeavesNothingToSave()
    {
        const LogRecorder log;
        ScratchSettings nowhere(QString(), "[a]\nv=1\n", QSettings::IniFormat);
        nowhere.settings().setValue("a/v", 2);
        QByteArray content("before");
        QString reason;
        QVERIFY(!nowhere.finish(content, reason));
        QVERIFY(!reason.isEmpty());
        QCOMPARE(content, QByteArray("before"));
        QCOMPARE(log.messages(), QStringList());
    }

    void aSaveNeedsNoStandardInput()
    {
        putBytes(machinePath(), "[a]\nother=1\nv=1\n");
        const WithoutStandardInput without;
        QVERIFY(saveAsAWhole("a/v", 2));
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nother=1\nv=2\n"));
        write("a", "v", "3");
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nother=1\nv=3\n"));
    }

    void aWriteProtectedFileIsLeftAlone()
    {
        putBytes(machinePath(), "[a]\nv=1\n");
        letOthersIn();
        const bool isRoot = ::geteuid() == 0;
        const uid_t owner = isRoot ? kOtherUser : ::geteuid();
        const gid_t group = ::getegid();
        QCOMPARE(::chown(qPrintable(machinePath()), owner, group), 0);
        QCOMPARE(::chmod(qPrintable(machinePath()), 0444), 0);
        {
            // Nothing is protected from root.
            const OtherUser user;
            QVERIFY(user.acts() || !isRoot);
            expectNotSaved("write: ");
            write("a", "v", "2");
            expectNotSaved("write: ");
            QVERIFY(!saveAsAWhole("a/v", 3));
        }
        verifyOwnerAndMode(owner, group, 0444, "[a]\nv=1\n");
        QCOMPARE(entriesBesideTheFile(), QStringList({"Settings.ini"}));
    }

    void aFileOfSomebodyElseThatCanBeWrittenIsSaved()
    {
        putBytes(machinePath(), "[a]\nv=1\n");
        letOthersIn();
        QCOMPARE(::chmod(qPrintable(machinePath()), 0666), 0);
        {
            const OtherUser user;
            if (!user.acts())
                QSKIP("only root can act as another user");
            write("a", "v", "2");
        }
        verifyOwnerAndMode(kOtherUser, ::getegid(), 0666, "[a]\nv=2\n");
    }

    void aSymbolicLinkStaysAndItsTargetIsReplaced_data()
    {
        QTest::addColumn<QString>("target");
        QTest::addColumn<bool>("exists");
        QTest::newRow("relative") << "../data/Real.ini" << true;
        QTest::newRow("absolute") << "%1/data/Real.ini" << true;
        QTest::newRow("link to a link") << "../data/Link.ini" << true;
        QTest::newRow("target missing") << "../data/New.ini" << false;
    }

    void aSymbolicLinkStaysAndItsTargetIsReplaced()
    {
        QFETCH(QString, target);
        QFETCH(bool, exists);
        const QString root = instrumentPath(QStringLiteral("/")).chopped(1);
        putBytes(root + "/data/Real.ini", "[a]\nv=1\n");
        QVERIFY(QFile::link("Real.ini", root + "/data/Link.ini"));
        QVERIFY(QDir().mkpath(root + "/conf"));
        const QString linkText = target.contains("%1") ? target.arg(root) : target;
        QVERIFY(QFile::link(linkText, machinePath()));

        write("a", "w", "2");
        QCOMPARE(linkTextOf(machinePath()), linkText);
        QCOMPARE(linkTextOf(root + "/data/Link.ini"), QString("Real.ini"));
        const QByteArray expected = exists ? "[a]\nv=1\nw=2\n" : "[a]\nw=2\n";
        QCOMPARE(bytesOf(root + (exists ? "/data/Real.ini" : "/data/New.ini")), expected);
        QCOMPARE(entriesBesideTheFile(), QStringList({"Settings.ini"}));

        QVERIFY(saveAsAWhole("a/w", 3));
        QCOMPARE(linkTextOf(machinePath()), linkText);
        QVERIFY(bytesOf(machinePath()).endsWith("w=3\n"));
    }

    void aLinkThatLeadsNowhereIsAFailure()
    {
        QVERIFY(QDir().mkpath(QFileInfo(machinePath()).path()));
        QVERIFY(QFile::link("Settings.ini", machinePath()));
        expectNotSaved("open: ");
        QVERIFY(!writeIniEntries({{"a", "v", "1"}}, kFile.toStdString()));
        FileReplacement file(machinePath());
        QVERIFY(file.begin());
        QVERIFY(!file.commit("new"));
        QCOMPARE(file.reason(), QString("look up: Too many levels of symbolic links"));
        QCOMPARE(linkTextOf(machinePath()), QString("Settings.ini"));
    }

    void asManyLinksAreFollowedAsTheSystemFollows_data()
    {
        QTest::addColumn<int>("links");
        QTest::addColumn<bool>("saved");
        QTest::newRow("as many as it follows") << 40 << true;
        QTest::newRow("one more") << 41 << false;
        QTest::newRow("so many that the last ones lead to the file") << 60 << false;
    }

    void asManyLinksAreFollowedAsTheSystemFollows()
    {
        QFETCH(int, links);
        QFETCH(bool, saved);
        // A link in the way to the folder would be one of them.
        setInstrumentRoot(QFileInfo(m_root->path()).canonicalFilePath());
        const QString folder = QFileInfo(machinePath()).path();
        putBytes(folder + "/0", "[a]\nv=1\n");
        for (int i = 1; i <= links; ++i)
            QVERIFY(QFile::link(QString::number(i - 1),
                                i < links ? folder + '/' + QString::number(i) : machinePath()));
        QCOMPARE(QFile::exists(machinePath()), saved);
        const LogRecorder log;
        QCOMPARE(writeIniEntries({{"a", "v", "2"}}, kFile.toStdString()), saved);
        if (!saved) {
            QCOMPARE(log.messages().size(), 1);
            QVERIFY2(log.messages().first().endsWith("[Error] not saved: /conf/Settings.ini "
                                                     "open: Too many levels of symbolic links"),
                     qPrintable(log.messages().first()));
        }
        QCOMPARE(bytesOf(folder + "/0"), QByteArray(saved ? "[a]\nv=2\n" : "[a]\nv=1\n"));
        for (int i = 1; i < links; ++i)
            QCOMPARE(linkTextOf(folder + '/' + QString::number(i)), QString::number(i - 1));
        QCOMPARE(linkTextOf(machinePath()), QString::number(links - 1));
    }

    void aFileThatCannotBeReplacedIsAFailureWithItsReason()
    {
        QVERIFY(QDir().mkpath(machinePath() + "/in the way"));
        expectNotSaved("read: Is a directory$");
        write("a", "v", "1");
        QVERIFY(QFileInfo(machinePath()).isDir());
        QCOMPARE(entriesBesideTheFile(), QStringList({"Settings.ini"}));
    }

    void aDirectoryThatCannotBeCreatedIsAFailureWithItsReason()
    {
        putBytes(instrumentPath(QStringLiteral("/conf")), "a file where the directory should be");
        expectNotSaved("create directory: .+");
        write("a", "v", "1");

        SafeSettingsFile file(kFile);
        QCOMPARE(file.settings().fileName(), QString(kNoSettingsFile));
        file.settings().setValue("a/v", 3);
        QCOMPARE(file.settings().value("a/v").toInt(), 3);
        expectNotSaved("create directory: .+");
        QVERIFY(!file.commit());
        QCOMPARE(bytesOf(instrumentPath(QStringLiteral("/conf"))),
                 QByteArray("a file where the directory should be"));
    }

    void whatAPowerCutLeftBehindGoesWithTheNextSave()
    {
        putBytes(machinePath(), "[a]\nv=1\n");
        putBytes(instrumentPath(QStringLiteral("/conf/.Settings.ini.saving/7")), "half");
        write("a", "v", "2");
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=2\n"));
        QCOMPARE(entriesBesideTheFile(), QStringList({"Settings.ini"}));
    }

    void aSafeFileHoldsWhatQSettingsWrites_data() { addOldFiles(); }

    void aSafeFileHoldsWhatQSettingsWrites()
    {
        QFETCH(QString, name);
        const QString reference = m_root->filePath("reference.ini");
        putBytes(machinePath(), bytesOf(name));
        putBytes(reference, bytesOf(name));
        SafeSettingsFile file(kFile);
        QSettings plain(reference, QSettings::IniFormat);
        for (QSettings* settings : {&file.settings(), &plain}) {
            settings->setValue("Cell counting/Skip frame", 7);
            settings->setValue("ORLA-III/Magnification", 3.1235);
            settings->setValue("ORLA-III/Serial", "OR3-07-00042");
        }
        plain.sync();
        QCOMPARE(bytesOf(machinePath()), bytesOf(name));
        QVERIFY(file.commit());
        QCOMPARE(bytesOf(machinePath()), bytesOf(reference));
        QVERIFY(bytesOf(machinePath()).contains("Skip%20frame=7\n"));
    }

    void aSafeFileThatIsNotCommittedChangesNothing()
    {
        putBytes(machinePath(), "[a]\nv=1\n");
        {
            SafeSettingsFile file(kFile);
            file.settings().setValue("a/v", 3);
        }
        QCOMPARE(bytesOf(machinePath()), QByteArray("[a]\nv=1\n"));
        QCOMPARE(entriesBesideTheFile(), QStringList({"Settings.ini"}));
    }

private:
    static QString machinePath() { return instrumentPath(kFile); }

    static QStringList entriesBesideTheFile()
    {
        return QDir(QFileInfo(machinePath()).path())
            .entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
    }

    static void verifyManyKeysLeaveTheBytesOfManyWrites(const std::vector<IniEntry>& entries,
                                                        const QByteArray& old)
    {
        putBytes(machinePath(), old);
        for (const IniEntry& entry : entries)
            write(entry.section, entry.key, entry.value);
        const QString other = QStringLiteral("/conf/Other.ini");
        putBytes(instrumentPath(other), old);
        QVERIFY(writeIniEntries(entries, other.toStdString()));
        QCOMPARE(bytesOf(instrumentPath(other)), bytesOf(machinePath()));
    }

    static void setTimeOfChange(const QDateTime& time)
    {
        QVERIFY(FileTime::setChanged(machinePath(), time.toMSecsSinceEpoch()));
        QCOMPARE(QFileInfo(machinePath()).lastModified(), time);
    }

    static QString linkTextOf(const QString& path)
    {
        std::error_code notALink;
        return QString::fromStdString(std::filesystem::read_symlink(path.toStdString(), notALink).string());
    }

    void letOthersIn() const
    {
        QCOMPARE(::chmod(qPrintable(m_root->path()), 0755), 0);
        QCOMPARE(::chmod(qPrintable(QFileInfo(machinePath()).path()), 0777), 0);
    }

    static void verifyOwnerAndMode(uid_t owner, gid_t group, int mode, const QByteArray& content)
    {
        struct stat file = {};
        QCOMPARE(::stat(qPrintable(machinePath()), &file), 0);
        QCOMPARE(file.st_uid, owner);
        QCOMPARE(file.st_gid, group);
        QCOMPARE(static_cast<int>(file.st_mode & 07777), mode);
        QCOMPARE(::chmod(qPrintable(machinePath()), 0644), 0);
        QCOMPARE(bytesOf(machinePath()), content);
        QCOMPARE(::chmod(qPrintable(machinePath()), static_cast<mode_t>(mode)), 0);
    }

    static void addOldFiles()
    {
        QTest::addColumn<QString>("name");
        for (const char* folder : {"data/ini", "data/main", "data/calibration"}) {
            const QDir data(QFINDTESTDATA(folder));
            for (const QString& name : data.entryList({"*.ini"}))
                QTest::newRow(qPrintable(data.dirName() + '/' + name)) << data.filePath(name);
        }
    }

    // Values whose blanks, commas and escapes change once more when the file is read again.
    static std::vector<IniEntry> awkwardEntries()
    {
        return {{"a", "v", "%20x"},        {"a", "w", "x%20"},    {"Z stage", "Z reference", "a,%20b"},
                {"a", "%20key", "1"},      {"a", "v2", "%%2020"}, {"a", "semi", "%20;%20"},
                {"VGA", "0x3501", "0x1E"}, {"a", "v", "%20%20y"}};
    }

    std::unique_ptr<QuickRoot> m_root;
};

QTEST_GUILESS_MAIN(TestIniFile)
#include "test_ini_file.moc"
