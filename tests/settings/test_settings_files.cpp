#include <limits>
#include <memory>

#include <sys/stat.h>

#include <QDir>
#include <QSettings>
#include <QtTest>

#include "platform/InstrumentPath.h"
#include "settings/CalibrationFile.h"
#include "settings/IniFile.h"
#include "settings/MainSettings.h"
#include "settings/SafeSettingsFile.h"
#include "settings/SettingsFiles.h"
#include "settings/StageFile.h"
#include "settings/StoredObjects.h"
#include "settings/UnreadFiles.h"
#include "support/FileBytes.h"
#include "support/LogRecorder.h"
#include "tests/settings/QuickDirectory.h"

namespace {

constexpr RegisterIndex kRegisters = {0x3501, 0x3502, 0x350A, 0x350B, 0x3400,
                                      0x3401, 0x3402, 0x3403, 0x3404, 0x3405};

void put(const QString& fixedPath, const QByteArray& bytes)
{
    putBytes(instrumentPath(fixedPath), bytes);
}

QByteArray content(const char* fixedPath)
{
    return bytesOf(instrumentPath(QString(fixedPath)));
}

global_ini_t loadAll(MainSettingsTexts& texts)
{
    global_ini_t record{};
    for (const CalibrationFile& file : kCalibrationFiles)
        loadCalibration(file, kRegisters, record, [](const QString&) {});
    QSettings settings(instrumentPath(QString(kMainSettingsFile)), QSettings::IniFormat);
    texts = loadMainSettings(settings, record);
    loadStageFile(record);
    return record;
}

// What the Save button leads to, without its window.
void savePart(SettingsPart part, const global_ini_t& record, const MainSettingsTexts& texts)
{
    SafeSettingsFile file(kMainSettingsFile);
    if (part == SettingsPart::Stage)
        QVERIFY(saveStageFile(record));
    for (const CalibrationFile& calibration : kCalibrationFiles)
        if (part == SettingsPart::Camera)
            QVERIFY(saveCalibration(calibration, kRegisters, record));
    saveMainSettings(file.settings(), record, part, texts);
    QVERIFY(file.commit());
}

QString described(const global_ini_t& record, const MainSettingsTexts& texts)
{
    return QStringLiteral("Skip_frame=%1\nLED_brightness=%2\nZ_reference=%3\nmidfix=%4\nsuffix=%5\n"
                          "bZig_mode=%6\nversion=%7\n")
        .arg(record.Skip_frame)
        .arg(record.LED_brightness)
        .arg(record.Z_reference)
        .arg(texts.serial.midfix, texts.serial.suffix, record.bZig_mode ? "true" : "false", texts.version);
}

} // namespace

Q_DECLARE_METATYPE(SettingsPart)

class TestSettingsFiles : public QObject
{
    Q_OBJECT

private slots:
    void init() { m_root = std::make_unique<QuickRoot>(); }
    void cleanup() { m_root.reset(); }

    void anOldMainFileLoads_data() { addFiles("data/main", 18); }

    void anOldMainFileLoads()
    {
        QFETCH(QString, name);
        put(kMainSettingsFile, bytesOf(name));
        global_ini_t record{};
        QSettings settings(instrumentPath(QString(kMainSettingsFile)), QSettings::IniFormat);
        const MainSettingsTexts texts = loadMainSettings(settings, record);
        QCOMPARE(described(record, texts), QString::fromUtf8(bytesOf(name.chopped(4) + ".expected")));
    }

    void aFileThatCouldNotBeReadIsLeftAlone_data()
    {
        QTest::addColumn<QString>("file");
        for (const char* file : {kMainSettingsFile, kCusCalibrationFile, kBfnCalibrationFile, kStageFile})
            QTest::newRow(file) << file;
    }

    void aFileThatCouldNotBeReadIsLeftAlone()
    {
        QFETCH(QString, file);
        const QByteArray valuable = "[VGA]\n0x3501=0x1E\n\n[Z stage]\nStep=512\n";
        // What cannot be read for now: a folder stands in its place.
        QVERIFY(QDir().mkpath(instrumentPath(file)));
        QVERIFY(!noteLoad(file, QSettings(instrumentPath(file), QSettings::IniFormat)));
        QVERIFY(QDir().rmdir(instrumentPath(file)));
        put(file, valuable);
        const auto save = [&file](const global_ini_t& record) {
            if (file == kMainSettingsFile) {
                SafeSettingsFile main(file);
                saveMainSettings(main.settings(), record, SettingsPart::Stage, {{"0", "0"}, "0.0.1"});
                return main.commit();
            }
            if (file == kStageFile)
                return saveStageFile(record);
            return saveCalibration(file == kCusCalibrationFile ? kCalibrationFiles[0] : kCalibrationFiles[1],
                                   kRegisters, record);
        };
        const LogRecorder log;
        QVERIFY(!save({}));
        QCOMPARE(bytesOf(instrumentPath(file)), valuable);
        QCOMPARE(log.messages().filter("[Error] not saved: " + file + " its values could not be read").size(),
                 1);
        QVERIFY(QDir(QFileInfo(instrumentPath(file)).path())
                    .entryList(QDir::Dirs | QDir::Hidden | QDir::NoDotAndDotDot)
                    .isEmpty());
        // A load that gets them makes it a file like any other.
        QVERIFY(noteLoad(file, QSettings(instrumentPath(file), QSettings::IniFormat)));
        QVERIFY(save({}));
        QVERIFY(bytesOf(instrumentPath(file)) != valuable);
    }

    // It can be read by now, and holds what the load did not get.
    void aFileThatTheLoadGotNothingOfWasNotRead_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::newRow("keys") << QByteArray("[Z stage]\nStep=512\n");
        QTest::newRow("an object that is not in order")
            << QByteArray("@Variant(\\0\\0\\0\\t\\xff\\xff\\xff\\xff)\n");
    }

    void aFileThatTheLoadGotNothingOfWasNotRead()
    {
        QFETCH(QByteArray, content);
        put(kStageFile, content);
        QVERIFY(!noteLoad(kStageFile, QSettings(QString(kNoSettingsFile), QSettings::IniFormat)));
        QVERIFY(isUnread(kStageFile));
        QVERIFY(QFile::remove(instrumentPath(QString(kStageFile))));
        QVERIFY(noteLoad(kStageFile, QSettings(QString(kNoSettingsFile), QSettings::IniFormat)));
        QVERIFY(!isUnread(kStageFile));
    }

    void whatIsNoOrdinaryFileIsLeftAlone_data()
    {
        QTest::addColumn<bool>("isPipe");
        QTest::newRow("a pipe keeps its reader waiting") << true;
        QTest::newRow("a device never comes to an end") << false;
    }

    void whatIsNoOrdinaryFileIsLeftAlone()
    {
        QFETCH(bool, isPipe);
        const QString path = instrumentPath(QString(kStageFile));
        QVERIFY(QDir().mkpath(QFileInfo(path).path()));
        if (isPipe)
            QCOMPARE(::mkfifo(qPrintable(path), 0600), 0);
        else
            QVERIFY(QFile::link("/dev/zero", path));
        const LogRecorder log;
        global_ini_t record{};
        loadStageFile(record);
        QCOMPARE(record.Z_step, 256);
        const QString said = QString("[Error] \"%1\" is no ordinary file").arg(kStageFile);
        QCOMPARE(log.messages().filter(said).size(), 1);

        const auto saveMain = [] { return SafeSettingsFile(kStageFile).commit(); };
        const QString refused = QString("[Error] not saved: %1 is no ordinary file").arg(kStageFile);
        QVERIFY(!saveStageFile(record) && !saveMain());
        QCOMPARE(log.messages().filter(refused).size(), 2);
        QVERIFY(isSpecialFile(path));
        QVERIFY(!noteLoad(kStageFile, QSettings(readableSettingsPath(kStageFile), QSettings::IniFormat)));
        QVERIFY(QFile::remove(path));
        QVERIFY(noteLoad(kStageFile, QSettings(readableSettingsPath(kStageFile), QSettings::IniFormat)));
    }

    void aFileWithoutAKeyWasRead_data()
    {
        QTest::addColumn<QByteArray>("content");
        QTest::addColumn<bool>("exists");
        QTest::newRow("no file") << QByteArray() << false;
        QTest::newRow("empty") << QByteArray() << true;
        QTest::newRow("a section") << QByteArray("[VGA]\n") << true;
        QTest::newRow("no settings at all") << QByteArray("\177ELF\n\n\n") << true;
        QTest::newRow("comments") << QByteArray("; nothing\n# here\n") << true;
    }

    void aFileWithoutAKeyWasRead()
    {
        QFETCH(QByteArray, content);
        QFETCH(bool, exists);
        if (exists)
            put(kStageFile, content);
        QVERIFY(noteLoad(kStageFile, QSettings(instrumentPath(QString(kStageFile)), QSettings::IniFormat)));
        QVERIFY(!isUnread(kStageFile));
        QVERIFY(saveStageFile({}));
    }

    void missingFilesGiveTheDefaults()
    {
        MainSettingsTexts texts;
        const global_ini_t record = loadAll(texts);
        QCOMPARE(record.Skip_frame, 5);
        QCOMPARE(record.LED_brightness, 225);
        QCOMPARE(record.Z_reference, 32000);
        QCOMPARE(record.Z_step, 256);
        QCOMPARE(record.Z_speed, 250);
        QVERIFY(record.bZig_mode);
        QCOMPARE(record.System.Magnification, 0.0);
        QCOMPARE(record.System.Volume_factor, 0.0);
        QCOMPARE(texts.serial.midfix, QString("00"));
        QCOMPARE(texts.serial.suffix, QString("00000"));
        QCOMPARE(texts.version, QString("0.0.1"));
        for (const auto& table : {record.CUS_reg, record.BFN_reg, record.AE_reg})
            for (int i = 0; i < kCameraModeCount * kCalibrationRegisterCount; ++i)
                QCOMPARE(table[i / kCalibrationRegisterCount][i % kCalibrationRegisterCount], quint16(0));
        QVERIFY(QDir(m_root->path()).isEmpty());
    }

    void anOldCalibrationFileLoads_data() { addFiles("data/calibration", 7); }

    void anOldCalibrationFileLoads()
    {
        QFETCH(QString, name);
        const QStringList rows =
            QString::fromLatin1(bytesOf(name.chopped(4) + ".expected")).split('\n', Qt::SkipEmptyParts);
        QCOMPARE(rows.size(), kCameraModeCount);
        for (const CalibrationFile& file : kCalibrationFiles) {
            put(file.fileName, bytesOf(name));
            global_ini_t record{};
            QStringList lines;
            loadCalibration(file, kRegisters, record, [&lines](const QString& line) { lines.append(line); });
            QCOMPARE(lines.size(), kCameraModeCount * kCalibrationRegisterCount);
            for (int i = 0; i < lines.size(); ++i) {
                const int row = i / kCalibrationRegisterCount;
                const int column = i % kCalibrationRegisterCount;
                const QString value = rows[row].split(' ')[column];
                QCOMPARE((record.*file.table)[row][column], value.toUShort(nullptr, 16));
                QCOMPARE(lines[i],
                         QString(file.logTag) + QString::asprintf(" 0x%04X, 0x", kRegisters[column]) + value);
            }
        }
    }

    void eachCalibrationFileFillsItsOwnTable()
    {
        put(kCusCalibrationFile, "[VGA]\n0x3501=0x11\n");
        put(kBfnCalibrationFile, "[5M]\n0x3405=0x22\n");
        MainSettingsTexts texts;
        const global_ini_t record = loadAll(texts);
        QCOMPARE(record.CUS_reg[0][0], quint16(0x11));
        QCOMPARE(record.CUS_reg[2][9], quint16(0));
        QCOMPARE(record.BFN_reg[0][0], quint16(0));
        QCOMPARE(record.BFN_reg[2][9], quint16(0x22));
        QCOMPARE(QString(kCalibrationFiles[0].logTag), QString("[CUS_CAL_INI]"));
        QCOMPARE(QString(kCalibrationFiles[1].logTag), QString("[BFN_CAL_INI]"));
    }

    void registersAreSavedWithTwoDigits()
    {
        global_ini_t record{};
        record.CUS_reg[0][0] = 0x0A;
        record.CUS_reg[1][1] = 0xFF;
        record.CUS_reg[2][9] = 0x1AB;
        QVERIFY(saveCalibration(kCalibrationFiles[0], kRegisters, record));
        const QStringList lines = QString::fromLatin1(content(kCusCalibrationFile)).split('\n');
        QCOMPARE(lines.filter(QRegularExpression("^0x[0-9A-F]{4}=0x[0-9A-F]{2,}$")).size(), 30);
        QCOMPARE(lines.filter("=0x00").size(), 27);
        const char* const expected[][3] = {
            {"VGA", "0x3501", "0x0A"}, {"1280", "0x3502", "0xFF"}, {"5M", "0x3405", "0x1AB"}};
        for (const auto& [section, key, text] : expected) {
            std::string value;
            QVERIFY(ini_read(section, key, "", value, kCusCalibrationFile));
            QCOMPARE(value, std::string(text));
        }
        QVERIFY(!QFile::exists(instrumentPath(QString(kBfnCalibrationFile))));
    }

    void aStageFileLoads_data()
    {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("step");
        QTest::addColumn<int>("speed");
        QTest::newRow("both") << QByteArray("[Z stage]\nStep=128\nSpeed=90\n") << 128 << 90;
        QTest::newRow("escaped blank") << QByteArray("[Z%20stage]\nStep=128\nSpeed=90\n") << 128 << 90;
        QTest::newRow("line ends") << QByteArray("[Z stage]\r\nStep=128\r\nSpeed=90\r\n") << 128 << 90;
        QTest::newRow("one") << QByteArray("[Z stage]\nSpeed=90\n") << 256 << 90;
        QTest::newRow("empty values") << QByteArray("[Z stage]\nStep=\nSpeed=\n") << 256 << 250;
        QTest::newRow("other group") << QByteArray("[Stage]\nStep=1\nSpeed=2\n") << 256 << 250;
        QTest::newRow("no numbers") << QByteArray("[Z stage]\nStep=far\nSpeed=0x10\n") << 0 << 0;
        QTest::newRow("comma") << QByteArray("[Z stage]\nStep=1,2\nSpeed=-3\n") << 0 << -3;
        QTest::newRow("leading zeros") << QByteArray("[Z stage]\nStep=010\nSpeed=+08\n") << 10 << 8;
        QTest::newRow("odd numbers") << QByteArray("[Z stage]\nStep=\" 12 \"\nSpeed=1e3\n") << 12 << 0;
        QTest::newRow("no values") << QByteArray("[Z stage]\nStep=@Invalid()\nSpeed=\"\"\n") << 256 << 250;
        QTest::newRow("empty") << QByteArray() << 256 << 250;
    }

    void aStageFileLoads()
    {
        QFETCH(QByteArray, bytes);
        put(kStageFile, bytes);
        global_ini_t record{};
        loadStageFile(record);
        QTEST(record.Z_step, "step");
        QTEST(record.Z_speed, "speed");
    }

    void aSerialNumberIsSplitAndComposed_data()
    {
        QTest::addColumn<QString>("stored");
        QTest::addColumn<QString>("midfix");
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<QString>("saved");
        const auto row = [](const char* name, const char* stored, const char* midfix, const char* suffix,
                            const char* saved) {
            QTest::newRow(name) << stored << midfix << suffix << saved;
        };
        row("short", "OR3-7-42", "7", "42", "OR3-07-00042");
        row("default", "OR3-00-00000", "00", "00000", "OR3-00-00000");
        row("wide", "OR3-123-1234567", "123", "1234567", "OR3-123-1234567");
        row("other prefix", "X-1-2", "1", "2", "OR3-01-00002");
        row("letters", "OR3-A-1b", "A", "1b", "OR3-00-00000");
        row("one part", "OR3", "", "", "OR3-00-00000");
        row("two parts", "OR3-5", "5", "", "OR3-05-00000");
        row("four parts", "OR3-1-2-3", "1", "2", "OR3-01-00002");
        row("empty", "", "", "", "OR3-00-00000");
        row("no octal", "OR3-010-00010", "010", "00010", "OR3-10-00010");
        row("no hexadecimal", "OR3-0x1-0x2", "0x1", "0x2", "OR3-00-00000");
        row("blanks around", "OR3- 7 - 42", " 7 ", " 42", "OR3-07-00042");
        row("blank inside", "OR3-1 2-4 2", "1 2", "4 2", "OR3-00-00000");
        row("fraction", "OR3-1.5-2", "1.5", "2", "OR3-00-00002");
        row("beyond an integer", "OR3-1-99999999999", "1", "99999999999", "OR3-01-00000");
    }

    void aSerialNumberIsSplitAndComposed()
    {
        QFETCH(QString, stored);
        const SerialParts parts = splitSerialNumber(stored);
        QTEST(parts.midfix, "midfix");
        QTEST(parts.suffix, "suffix");
        QTEST(composeSerialNumber(parts), "saved");
    }

    void zReferencesAreSavedAsASetOfFive()
    {
        global_ini_t record{};
        record.Z_reference = 30000;
        savePart(SettingsPart::Stage, record, {});
        QCOMPARE(content(kMainSettingsFile), QByteArray("[Calibration]\n"
                                                        "Z%20ref%202ch=32560\n"
                                                        "Z%20ref%20Reusable=35120\n"
                                                        "Z%20ref%20Validation=30000\n"
                                                        "Z%20reference=30000\n"
                                                        "Z%20reset%20pos=30000\n"
                                                        "\n[Software]\nVersion%20QC=\n"));
    }

    void theHighestZReferenceDoesNotWrapAround()
    {
        global_ini_t record{};
        record.Z_reference = std::numeric_limits<int>::max();
        savePart(SettingsPart::Stage, record, {});
        QVERIFY(content(kMainSettingsFile).contains("Z%20ref%20Reusable=2147488767\n"));
    }

    void magnificationAndVolumeFactorAreRounded_data()
    {
        QTest::addColumn<double>("magnification");
        QTest::addColumn<double>("factor");
        QTest::addColumn<QByteArray>("savedMagnificationText");
        QTest::addColumn<QByteArray>("savedFactorText");
        QTest::newRow("down") << 3.12344 << 1.234564 << QByteArray("3.1234") << QByteArray("1.23456");
        QTest::newRow("up") << 3.12345001 << 1.2345651 << QByteArray("3.1235") << QByteArray("1.23457");
        QTest::newRow("half away from zero")
            << 0.03125 << 0.015625 << QByteArray("0.0313") << QByteArray("0.01563");
        QTest::newRow("negative") << -0.03125 << -1.0 << QByteArray("-0.0313") << QByteArray("-1");
        QTest::newRow("whole") << 4.0 << 2.0 << QByteArray("4") << QByteArray("2");
        QTest::newRow("widened float")
            << double(3.7f) << double(0.9f) << QByteArray("3.7") << QByteArray("0.9");
        QTest::newRow("rounds to nothing") << 1e-5 << 1e-6 << QByteArray("0") << QByteArray("0");
    }

    void magnificationAndVolumeFactorAreRounded()
    {
        QFETCH(double, magnification);
        QFETCH(double, factor);
        QFETCH(QByteArray, savedMagnificationText);
        QFETCH(QByteArray, savedFactorText);
        global_ini_t record{};
        record.System = {magnification, factor};
        savePart(SettingsPart::Qc, record, {});
        const QByteArray saved = content(kMainSettingsFile);
        QVERIFY2(saved.contains("\nMagnification=" + savedMagnificationText + "\n"), saved);
        QVERIFY2(saved.contains("\nVolume%20factor=" + savedFactorText + "\n"), saved);
    }

    void anUnmeasuredPairStaysUntouched_data()
    {
        QTest::addColumn<double>("magnification");
        QTest::addColumn<double>("factor");
        QTest::newRow("none") << 0.0 << 0.0;
        QTest::newRow("no magnification") << 0.0 << 1.5;
        QTest::newRow("no factor") << 3.5 << 0.0;
        const double none = std::numeric_limits<double>::quiet_NaN();
        const double infinite = std::numeric_limits<double>::infinity();
        QTest::newRow("no number") << none << none;
        QTest::newRow("infinite") << infinite << -infinite;
        QTest::newRow("only the factor a number") << infinite << 1.5;
        QTest::newRow("only the magnification a number") << 3.5 << none;
    }

    void anUnmeasuredPairStaysUntouched()
    {
        QFETCH(double, magnification);
        QFETCH(double, factor);
        put(kMainSettingsFile, "[ORLA-III]\nMagnification=9.9\nVolume%20factor=8.8\n");
        global_ini_t record{};
        record.System = {magnification, factor};
        record.Skip_frame = 12;
        QVERIFY(!hasOpticalCalibration(record));
        savePart(SettingsPart::Qc, record, {{"3", "4"}, "0.0.2"});
        QCOMPARE(content(kMainSettingsFile), QByteArray("[Cell%20counting]\nSkip%20frame=12\n"
                                                        "\n[ORLA-III]\nMagnification=9.9\n"
                                                        "Serial=OR3-03-00004\nVolume%20factor=8.8\n"
                                                        "\n[Software]\nVersion%20QC=0.0.2\n"));
    }

    void loadingAndSavingAPartChangesOnlyWhatBelongsToIt_data()
    {
        QTest::addColumn<SettingsPart>("part");
        QTest::newRow("stage") << SettingsPart::Stage;
        QTest::newRow("camera") << SettingsPart::Camera;
        QTest::newRow("qc") << SettingsPart::Qc;
        QTest::newRow("none") << SettingsPart::None;
    }

    void loadingAndSavingAPartChangesOnlyWhatBelongsToIt()
    {
        QFETCH(SettingsPart, part);
        const QString before = QFINDTESTDATA("data/roundtrip/before");
        const QString after = QFINDTESTDATA("data/roundtrip/") + QTest::currentDataTag();
        const char* const files[] = {kMainSettingsFile, kCusCalibrationFile, kBfnCalibrationFile, kStageFile};
        for (const char* file : files)
            put(file, bytesOf(before + '/' + QFileInfo(file).fileName()));
        MainSettingsTexts texts;
        global_ini_t record = loadAll(texts);
        record.Skip_frame = 30;
        record.LED_brightness = 1000;
        record.Z_step = 640;
        record.Z_speed = 1000;
        record.Z_reference = 31999;
        record.CUS_reg[1][0] = 0x0F;
        record.BFN_reg[2][9] = 0xF0;
        record.System = {3.70004, 0.912346};
        texts.version = "0.0.2";
        savePart(part, record, texts);

        // A file without an expected one of its own stays as it was.
        for (const char* file : files) {
            const QString own = after + '/' + QFileInfo(file).fileName();
            const QString expected = QFile::exists(own) ? own : before + '/' + QFileInfo(file).fileName();
            QCOMPARE(content(file), bytesOf(expected));
        }
        MainSettingsTexts textsAgain;
        const global_ini_t again = loadAll(textsAgain);
        QCOMPARE(again.Z_reference, part == SettingsPart::Stage ? 31999 : 30000);
        QCOMPARE(again.Z_step, part == SettingsPart::Stage ? 640 : 128);
        QCOMPARE(again.Z_speed, part == SettingsPart::Stage ? 1000 : 90);
        QCOMPARE(again.LED_brightness, part == SettingsPart::Camera ? 1000 : 310);
        QCOMPARE(again.CUS_reg[1][0], quint16(part == SettingsPart::Camera ? 0x0F : 0x11));
        QCOMPARE(again.BFN_reg[2][9], quint16(part == SettingsPart::Camera ? 0xF0 : 0x22));
        QCOMPARE(again.Skip_frame, part == SettingsPart::Qc ? 30 : 7);
        QCOMPARE(textsAgain.serial.midfix, QString(part == SettingsPart::Qc ? "07" : "7"));
        QCOMPARE(textsAgain.version, QString("0.0.2"));
    }

private:
    static void addFiles(const char* folder, int least)
    {
        QTest::addColumn<QString>("name");
        const QDir data(QFINDTESTDATA(folder));
        const QStringList names = data.entryList({"*.ini"});
        QVERIFY(names.size() >= least);
        for (const QString& name : names)
            QTest::newRow(qPrintable(name)) << data.filePath(name);
    }

    std::unique_ptr<QuickRoot> m_root;
};

QTEST_GUILESS_MAIN(TestSettingsFiles)
#include "test_settings_files.moc"
