#include <cstring>

#include <QDir>
#include <QLabel>
#include <QSignalSpy>
#include <QSpinBox>
#include <QtTest>

#include "Controller/Controller.h"
#include "settings/GlobalIni.h"
#include "settings/StoredObjects.h"
#include "support/LogRecorder.h"
#include "verifier/SettingsFolder.h"

namespace {

const QString kNotRead = "void ORLA_II_Plus_Verifier::get_INI_value(QSettings&) [Error] not read: ";

} // namespace

/// What the window makes of the settings files, and how it brings itself and the instrument
/// in line with them.
class TestWindowSettings : public QObject, protected WindowFixture
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        for (int i = 0; i < 4; ++i)
            m_delivered[i] = m_folder.content(kSettingsFiles[i]);
    }

    void init()
    {
        for (int i = 0; i < 4; ++i)
            m_folder.put(kSettingsFiles[i], m_delivered[i]);
        m_folder.load();
        clearFaults();
        clearConsoles();
        takeBoardLines();
        camera().trace().clear();
    }

    // ---- load ----

    void everyKeyIsLoadedIntoItsPlace()
    {
        m_folder.put(kMainSettingsFile, "[Cell%20counting]\nSkip%20frame=17\n"
                                        "[Ch.%20BF]\nLED=640\n"
                                        "[Calibration]\nZ%20reference=28000\n"
                                        "[ORLA-III]\nSerial=OR3-12-00345\nZig%20mode=Off\n"
                                        "[Software]\nVersion%20QC=1.2.3\n");
        m_folder.put(kStageFile, "[Z stage]\nStep=640\nSpeed=120\n");
        m_folder.put(kCusCalibrationFile, "[1280]\n0x3501=0x12\n[5M]\n0x3405=0x34\n");
        m_folder.put(kBfnCalibrationFile, "[VGA]\n0x350B=0x56\n");
        m_folder.load();

        const global_ini_t& record = *global_ini();
        QCOMPARE(record.Skip_frame, 17);
        QCOMPARE(record.LED_brightness, 640);
        QCOMPARE(record.Z_reference, 28000);
        QCOMPARE(record.Z_step, 640);
        QCOMPARE(record.Z_speed, 120);
        QVERIFY(!record.bZig_mode);
        global_ini_t tables{};
        tables.CUS_reg[1][0] = 0x12;
        tables.CUS_reg[2][9] = 0x34;
        tables.BFN_reg[0][3] = 0x56;
        QCOMPARE(std::memcmp(record.CUS_reg, tables.CUS_reg, sizeof tables.CUS_reg), 0);
        QCOMPARE(std::memcmp(record.BFN_reg, tables.BFN_reg, sizeof tables.BFN_reg), 0);
        QCOMPARE(text("EDIT_SKIP_FRAME"), QString("17"));
        QCOMPARE(text("EDIT_SERIAL_MIDFIX"), QString("12"));
        QCOMPARE(text("EDIT_SERIAL_SUFFIX"), QString("00345"));
        QCOMPARE(find<QLabel>("LABEL_VERSION")->text(), QString("1.2.3"));
    }

    void missingFilesGiveTheDefaults()
    {
        for (const char* file : kSettingsFiles)
            m_folder.remove(file);
        m_folder.load();
        QCOMPARE(described(), QString("Skip_frame=5\nLED_brightness=225\nZ_reference=32000\nmidfix=00\n"
                                      "suffix=00000\nbZig_mode=true\nversion=0.0.1\n"));
        QCOMPARE(global_ini()->Z_step, 256);
        QCOMPARE(global_ini()->Z_speed, 250);
        const global_ini_t zero{};
        QCOMPARE(std::memcmp(global_ini()->CUS_reg, zero.CUS_reg, sizeof zero.CUS_reg), 0);
        QCOMPARE(std::memcmp(global_ini()->BFN_reg, zero.BFN_reg, sizeof zero.BFN_reg), 0);
        for (const char* file : kSettingsFiles)
            QVERIFY2(!QFile::exists(machinePath(file)), "loading creates no file");
    }

    void filesOfAnOlderInstrumentLoad_data() { addFiles("../settings/data/main"); }

    void filesOfAnOlderInstrumentLoad()
    {
        QFETCH(QString, name);
        m_folder.put(kMainSettingsFile, bytesOf(name));
        m_folder.load();
        QCOMPARE(described(), QString::fromUtf8(bytesOf(name.chopped(4) + ".expected")));
    }

    void calibrationFilesOfAnOlderInstrumentLoad_data() { addFiles("../settings/data/calibration"); }

    void calibrationFilesOfAnOlderInstrumentLoad()
    {
        QFETCH(QString, name);
        const QStringList expected = QString::fromLatin1(bytesOf(name.chopped(4) + ".expected"))
                                         .simplified()
                                         .split(' ', Qt::SkipEmptyParts);
        QCOMPARE(expected.size(), 30);
        m_folder.put(kCusCalibrationFile, bytesOf(name));
        m_folder.put(kBfnCalibrationFile, bytesOf(name));
        m_folder.load();
        for (int i = 0; i < expected.size(); ++i) {
            const quint16 value = expected[i].toUShort(nullptr, 16);
            QCOMPARE(global_ini()->CUS_reg[i / 10][i % 10], value);
            QCOMPARE(global_ini()->BFN_reg[i / 10][i % 10], value);
        }
    }

    void onlyTheExactTextTurnsZigModeOn_data()
    {
        QTest::addColumn<QByteArray>("line");
        QTest::addColumn<bool>("on");
        QTest::newRow("missing") << QByteArray() << true;
        for (const QByteArray text : {"On", "on", "ON", "Off", "1", "true", ""})
            QTest::addRow("\"%s\"", text.constData()) << "Zig%20mode=" + text + '\n' << (text == "On");
    }

    void onlyTheExactTextTurnsZigModeOn()
    {
        QFETCH(QByteArray, line);
        QFETCH(bool, on);
        m_folder.put(kMainSettingsFile, "[ORLA-III]\nSerial=OR3-01-00002\n" + line);
        const LogRecorder log;
        m_folder.load();
        QCOMPARE(global_ini()->bZig_mode, on);
        QVERIFY(
            log.messages().contains(QString("----> global_ini()->bZig_mode : ") + (on ? "true" : "false")));
    }

    void loadingIsLoggedInTheOrderOfTheFiles()
    {
        m_folder.put(kCusCalibrationFile, "[VGA]\n0x3501=0x1E\n[5M]\n0x3405=0xFF\n");
        m_folder.put(kBfnCalibrationFile, "[1280]\n0x350A=0x01\n");
        const LogRecorder log;
        m_folder.load();
        const QStringList lines = log.messages();
        QCOMPARE(lines.size(), 1 + 30 + 30 + 1);
        QCOMPARE(lines.first(), QString("void ORLA_II_Plus_Verifier::get_INI_value(QSettings&)"));
        const quint16 registers[] = {0x3501, 0x3502, 0x350A, 0x350B, 0x3400,
                                     0x3401, 0x3402, 0x3403, 0x3404, 0x3405};
        for (int i = 0; i < 30; ++i) {
            const unsigned cus = i == 0 ? 0x1E : i == 29 ? 0xFF : 0;
            const unsigned bfn = i == 12 ? 0x01 : 0;
            QCOMPARE(lines[1 + i], QString::asprintf("[CUS_CAL_INI] 0x%04X, 0x%04X", registers[i % 10], cus));
            QCOMPARE(lines[31 + i],
                     QString::asprintf("[BFN_CAL_INI] 0x%04X, 0x%04X", registers[i % 10], bfn));
        }
        QVERIFY(lines.last().startsWith("----> global_ini()->bZig_mode :"));
    }

    void whatCannotBeReadIsToldByItsName_data()
    {
        QTest::addColumn<QString>("file");
        for (const char* file : kSettingsFiles)
            QTest::newRow(file) << file;
    }

    void whatCannotBeReadIsToldByItsName()
    {
        QFETCH(QString, file);
        // Nobody, root included, reads a directory as if it were a file.
        m_folder.remove(qPrintable(file));
        QVERIFY(QDir().mkdir(machinePath(file)));
        const LogRecorder log;
        m_folder.load();
        QVERIFY(QDir().rmdir(machinePath(file)));
        QCOMPARE(log.messages().filter("not read:"), QStringList(kNotRead + file));
    }

    // It is loaded from another place, where there is nothing.
    void aMainFileThatIsNotSafeToReadIsToldByItsOwnName()
    {
        m_folder.put(kMainSettingsFile, "[ORLA-III]\nSerial=@Variant(\\0\\0\\0\\x80)\n");
        const LogRecorder log;
        QSettings settings(readableSettingsPath(kMainSettingsFile), QSettings::IniFormat);
        QCOMPARE(settings.fileName(), QString(kNoSettingsFile));
        window().get_INI_value(settings);
        QCOMPARE(log.messages().filter("not read:"), QStringList(kNotRead + kMainSettingsFile));
    }

    void whatCanBeReadAtLastIsLoaded()
    {
        m_folder.remove(kMainSettingsFile);
        QVERIFY(QDir().mkdir(machinePath(kMainSettingsFile)));
        QSettings settings(machinePath(kMainSettingsFile), QSettings::IniFormat);
        QCOMPARE(settings.status(), QSettings::AccessError);
        QVERIFY(QDir().rmdir(machinePath(kMainSettingsFile)));
        m_folder.put(kMainSettingsFile, "[Cell%20counting]\nSkip%20frame=17\n");
        const LogRecorder log;
        window().get_INI_value(settings);
        QCOMPARE(text("EDIT_SKIP_FRAME"), QString("17"));
        QCOMPARE(log.messages().filter("not read:"), QStringList());
    }

    // ---- apply ----

    void everyAcknowledgementBringsTheInstrumentInLine()
    {
        global_ini()->LED_brightness = 640;
        global_ini()->Z_reference = 28000;
        for (int i = 0; i < 2; ++i) {
            QVERIFY(QMetaObject::invokeMethod(Controller::getInstance(), "sig_connected_controller"));
            QCOMPARE(takeBoardLines(),
                     QStringList({"$,STM1,ORIGIN,,", "$,LED4,BRT,640,", "$,STM1,ABS,28000,"}));
            QCOMPARE(board().light().stagePosition_steps, 28000.0);
            QCOMPARE(board().light().ledLevel, 640);
        }
    }

    void applyingShowsTheRecord()
    {
        *global_ini() = changedRecord();
        for (const char* edit : {"EDIT_LED", "EDIT_Z_REFERENCE", "EDIT_EXPOSURE"})
            setText(edit, "before");
        window().apply_INI_value();
        QCOMPARE(text("EDIT_LED"), QString("640"));
        QCOMPARE(text("EDIT_Z_REFERENCE"), QString("28000"));
        QCOMPARE(find<QSpinBox>("SPIN_Z_STEP")->value(), 512);
        QCOMPARE(find<QSpinBox>("SPIN_Z_SPEED")->value(), 120);
        // What the sensor holds, which is not what the record has come to say.
        const auto& sensor = camera();
        QVERIFY(sensor.sensorRegister(0x3501) != 0x77);
        QCOMPARE(text("EDIT_EXPOSURE"), QString::asprintf("0x%02X%02X", sensor.sensorRegister(0x3501),
                                                          sensor.sensorRegister(0x3502)));
    }

    void applyingGoesInOrder()
    {
        *global_ini() = changedRecord();
        window().apply_INI_value();
        expectInOrder(messages().split('\n'), {"ORLA_II_Plus_Verifier::apply_INI_value()",
                                               "::getCamera_reg()", "on_BUTTON_Z_MOVE_REFERENCE_clicked()"});
        QCOMPARE(takeBoardLines(), QStringList({"$,LED4,BRT,640,", "$,STM1,ABS,28000,"}));
    }

    void theSensorIsReadBeforeTheBoardIsAsked()
    {
        std::size_t readsBefore = 0;
        const auto looking = atBoardLine("$,LED4,BRT", [&](const QString&) {
            readsBefore = camera().trace().calls(CallKind::BusRead).size();
        });
        window().apply_INI_value();
        QCOMPARE(readsBefore, std::size_t(10));
        QCOMPARE(camera().trace().calls(CallKind::BusRead).size(), std::size_t(10));
        QCOMPARE(camera().trace().calls(CallKind::BusWrite).size(), std::size_t(10));
    }

    void whatTheBoardIsToldIsOnTheScreenBefore()
    {
        *global_ini() = changedRecord();
        for (const char* edit : {"EDIT_LED", "EDIT_Z_REFERENCE"})
            setText(edit, "before");
        find<QSpinBox>("SPIN_Z_STEP")->setValue(256);
        find<QSpinBox>("SPIN_Z_SPEED")->setValue(250);
        global_ini()->Z_step = 512;
        global_ini()->Z_speed = 120;
        find<QPushButton>("BUTTON_LED_FINE_UP")->setEnabled(false);
        QStringList shown;
        const auto looking = atBoardLine("$,", [&](const QString& line) {
            shown += QStringList({line.section(',', 2, 2), text("EDIT_LED"),
                                  isEnabled("BUTTON_LED_FINE_UP") ? "up" : "locked",
                                  find<QSpinBox>("SPIN_Z_STEP")->text(),
                                  find<QSpinBox>("SPIN_Z_SPEED")->text(), text("EDIT_Z_REFERENCE")})
                         .join(' ');
        });
        window().apply_INI_value();
        QCOMPARE(shown, QStringList({"BRT 640 locked 256 250 before", "ABS 640 up 512 120 28000"}));
    }

    void theStepIsStoredBackAndTheSpeedIsNot()
    {
        global_ini()->Z_step = 5;
        global_ini()->Z_speed = 5;
        auto* step = find<QSpinBox>("SPIN_Z_STEP");
        auto* speed = find<QSpinBox>("SPIN_Z_SPEED");
        step->setValue(256);
        speed->setValue(250);
        global_ini()->Z_step = 5;
        global_ini()->Z_speed = 5;
        const QSignalSpy steps(step, QOverload<int>::of(&QSpinBox::valueChanged));
        const QSignalSpy speeds(speed, QOverload<int>::of(&QSpinBox::valueChanged));
        window().apply_INI_value();
        // Both fields begin at 10.
        QCOMPARE(step->value(), 10);
        QCOMPARE(speed->value(), 10);
        QCOMPARE(steps.size(), 1);
        QCOMPARE(speeds.size(), 0);
        QCOMPARE(global_ini()->Z_step, 10);
        QCOMPARE(global_ini()->Z_speed, 5);
        QVERIFY2(!speed->signalsBlocked(), "the technician's next change counts again");
    }

    void theLedButtonsFollowTheLevel_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<bool>("down");
        QTest::addColumn<bool>("up");
        QTest::newRow("0") << 0 << false << true;
        QTest::newRow("1") << 1 << true << true;
        QTest::newRow("999") << 999 << true << true;
        QTest::newRow("1000") << 1000 << true << false;
        QTest::newRow("beyond") << 2000 << true << false;
        QTest::newRow("negative") << -5 << false << true;
    }

    void theLedButtonsFollowTheLevel()
    {
        QFETCH(int, level);
        QFETCH(bool, down);
        QFETCH(bool, up);
        global_ini()->LED_brightness = level;
        window().apply_INI_value();
        QCOMPARE(text("EDIT_LED"), QString::number(level));
        QCOMPARE(takeBoardLines().first(), QString("$,LED4,BRT,%1,").arg(level));
        QCOMPARE(isEnabled("BUTTON_LED_FINE_DOWN"), down);
        QCOMPARE(isEnabled("BUTTON_LED_COARSE_DOWN"), down);
        QCOMPARE(isEnabled("BUTTON_LED_FINE_UP"), up);
        QCOMPARE(isEnabled("BUTTON_LED_COARSE_UP"), up);
    }

    void aBoardThatFailsDoesNotStopTheRest()
    {
        *global_ini() = changedRecord();
        addFault({LineFault::Failure, "BRT", 1});
        addFault({LineFault::Failure, "ABS", 1});
        window().apply_INI_value();
        QCOMPARE(takeBoardLines(), QStringList({"$,LED4,BRT,640,", "$,STM1,ABS,28000,"}));
        QCOMPARE(text("EDIT_Z_REFERENCE"), QString("28000"));
        QVERIFY(isEnabled("BUTTON_Z_MOVE_REFERENCE"));
        QVERIFY(boxes().seen().isEmpty());
    }

private:
    static void addFiles(const char* folder)
    {
        QTest::addColumn<QString>("name");
        const QDir data(QFINDTESTDATA(folder));
        const QStringList names = data.entryList({"*.ini"});
        QVERIFY(names.size() >= 7);
        for (const QString& name : names)
            QTest::newRow(qPrintable(name)) << data.filePath(name);
    }

    static global_ini_t changedRecord()
    {
        global_ini_t record = *global_ini();
        record.LED_brightness = 640;
        record.Z_step = 512;
        record.Z_speed = 120;
        record.Z_reference = 28000;
        record.BFN_reg[1][0] = 0x77;
        return record;
    }

    /// What the main file led to, as the .expected files put it.
    QString described() const
    {
        const global_ini_t& record = *global_ini();
        return QString("Skip_frame=%1\nLED_brightness=%2\nZ_reference=%3\nmidfix=%4\nsuffix=%5\n"
                       "bZig_mode=%6\nversion=%7\n")
            .arg(text("EDIT_SKIP_FRAME"))
            .arg(record.LED_brightness)
            .arg(record.Z_reference)
            .arg(text("EDIT_SERIAL_MIDFIX"), text("EDIT_SERIAL_SUFFIX"), record.bZig_mode ? "true" : "false",
                 find<QLabel>("LABEL_VERSION")->text());
    }
    SettingsFolder m_folder{*this};
    QByteArray m_delivered[4];
};

QTEST_MAIN(TestWindowSettings)
#include "test_window_settings.moc"
