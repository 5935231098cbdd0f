#include <cstring>
#include <limits>

#include <sys/mount.h>

#include <QDir>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QSpinBox>
#include <QTabWidget>
#include <QtTest>

#include "settings/GlobalIni.h"
#include "support/LogRecorder.h"
#include "verifier/SettingsFolder.h"

namespace {

constexpr int kStage = 0;
constexpr int kCamera = 1;
constexpr int kQC = 2;

/// A small memory file system over a directory that exists; gone with the object.
class SmallDisk
{
public:
    explicit SmallDisk(const QString& directory) : m_directory(QFile::encodeName(directory))
    {
        m_mounted = ::mount("none", m_directory, "tmpfs", 0, "size=16k") == 0;
    }
    ~SmallDisk()
    {
        if (m_mounted)
            ::umount2(m_directory, MNT_DETACH);
    }
    SmallDisk(const SmallDisk&) = delete;
    SmallDisk& operator=(const SmallDisk&) = delete;

    bool isMounted() const { return m_mounted; }
    bool makeReadOnly()
    {
        return ::mount("none", m_directory, nullptr, MS_REMOUNT | MS_RDONLY, "size=16k") == 0;
    }

private:
    QByteArray m_directory;
    bool m_mounted;
};

} // namespace

/// The Save button on each tab.
class TestWindowSave : public QObject, protected WindowFixture
{
    Q_OBJECT

private slots:
    void init()
    {
        m_folder.putAll(QFINDTESTDATA("../settings/data/roundtrip/before"));
        m_folder.load();
        global_ini()->System = {};
        clearConsoles();
        boxes().clear();
    }

    void whatWasChangedOnEveryTabIsSavedFromItsOwnTabOnly_data()
    {
        QTest::addColumn<int>("tab");
        QTest::newRow("stage") << kStage;
        QTest::newRow("camera") << kCamera;
        QTest::newRow("qc") << kQC;
    }

    void whatWasChangedOnEveryTabIsSavedFromItsOwnTabOnly()
    {
        QFETCH(int, tab);
        changeEverything();
        save(tab);
        expectSavedPart(QTest::currentDataTag());

        const global_ini_t changed = *global_ini();
        m_folder.load();
        const global_ini_t& again = *global_ini();
        QCOMPARE(again.Z_reference, tab == kStage ? changed.Z_reference : 30000);
        QCOMPARE(again.Z_step, tab == kStage ? changed.Z_step : 128);
        QCOMPARE(again.Z_speed, tab == kStage ? changed.Z_speed : 90);
        QCOMPARE(again.LED_brightness, tab == kCamera ? changed.LED_brightness : 310);
        QCOMPARE(std::memcmp(again.CUS_reg, changed.CUS_reg, sizeof again.CUS_reg) == 0, tab == kCamera);
        QCOMPARE(std::memcmp(again.BFN_reg, changed.BFN_reg, sizeof again.BFN_reg) == 0, tab == kCamera);
        QCOMPARE(again.Skip_frame, tab == kQC ? changed.Skip_frame : 7);
        QCOMPARE(text("EDIT_SERIAL_MIDFIX"), QString(tab == kQC ? "07" : "7"));
        QCOMPARE(find<QLabel>("LABEL_VERSION")->text(), QString("0.0.2"));
    }

    void aFurtherTabSavesTheVersionAlone()
    {
        auto* tabs = find<QTabWidget>("TAB_MENU");
        QWidget page;
        tabs->addTab(&page, "further");
        changeEverything();
        // Its tab has no room on the bar, so nobody could press it.
        tabs->setCurrentWidget(&page);
        click("BUTTON_SAVE_INI");
        QCOMPARE(tabs->currentWidget(), &page);
        expectSavedPart("none");
    }

    void savingTwiceChangesNothingMore_data() { whatWasChangedOnEveryTabIsSavedFromItsOwnTabOnly_data(); }

    void savingTwiceChangesNothingMore()
    {
        QFETCH(int, tab);
        save(tab);
        QByteArrayList once;
        for (const char* file : kSettingsFiles)
            once += m_folder.content(file);
        m_folder.load();
        save(tab);
        for (int i = 0; i < once.size(); ++i)
            QCOMPARE(m_folder.content(kSettingsFiles[i]), once[i]);
    }

    // Who reads "saved" may switch off.
    void nothingOfASaveIsLeftWhenItIsSaidToBeOver()
    {
        QStringList left{"no box"};
        const auto connection = connect(&boxes(), &BoxWatcher::boxShown, [&] {
            left = QDir(QFileInfo(machinePath(kMainSettingsFile)).path())
                       .entryList({"*.saving"}, QDir::Hidden | QDir::Dirs);
        });
        save(kStage);
        disconnect(connection);
        QCOMPARE(left, QStringList());
    }

    void savingAnswersWithItsBoxAndItsLog_data() { whatWasChangedOnEveryTabIsSavedFromItsOwnTabOnly_data(); }

    void savingAnswersWithItsBoxAndItsLog()
    {
        QFETCH(int, tab);
        global_ini()->System = {3.70004, 0.912346};
        const LogRecorder log;
        save(tab);
        expectSavedBox();
        const QString function = "void ORLA_II_Plus_Verifier::set_INI_value(QSettings&) ";
        QStringList expected{"void ORLA_II_Plus_Verifier::on_BUTTON_SAVE_INI_clicked()",
                             function + "----> current tab : " + QString::number(tab)};
        if (tab == kQC)
            expected += {function + "------> Serial number : OR3-07-00042",
                         function + "------> global_ini()->System.Magnification : 3.7",
                         function + "------> global_ini()->System.Volume_factor : 0.91235"};
        QCOMPARE(log.messages().filter("ORLA_II_Plus_Verifier"), expected);
        QVERIFY(messages().contains(
            "void ORLA_II_Plus_Verifier::set_INI_value(QSettings&)() ----> current tab : " +
            QString::number(tab) + " \n"));
    }

    void whoReadsTheBoxHasTheFilesSaved()
    {
        global_ini()->Z_reference = 31000;
        global_ini()->Z_step = 100;
        QByteArray mainFile;
        QByteArray stageFile;
        const QObject look;
        connect(&boxes(), &BoxWatcher::boxShown, &look, [&] {
            mainFile = m_folder.content(kMainSettingsFile);
            stageFile = m_folder.content(kStageFile);
        });
        save(kStage);
        QVERIFY2(mainFile.contains("\nZ%20reference=31000\n"), mainFile);
        QVERIFY2(stageFile.contains("\nStep=100"), stageFile);
    }

    void fiveKeysFollowTheZReference_data()
    {
        QTest::addColumn<int>("reference");
        for (const int reference : {30000, 0, -100, 32000})
            QTest::addRow("%d", reference) << reference;
    }

    void fiveKeysFollowTheZReference()
    {
        QFETCH(int, reference);
        global_ini()->Z_reference = reference;
        save(kStage);
        const QMap<QString, int> offsets{{"Z reference", 0},
                                         {"Z reset pos", 0},
                                         {"Z ref 2ch", 2560},
                                         {"Z ref Reusable", 5120},
                                         {"Z ref Validation", 0}};
        const QSettings saved(machinePath(kMainSettingsFile), QSettings::IniFormat);
        for (auto it = offsets.cbegin(); it != offsets.cend(); ++it)
            QCOMPARE(saved.value("Calibration/" + it.key()).toString(),
                     QString::number(reference + it.value()));
    }

    void theSerialNumberIsComposed_data()
    {
        QTest::addColumn<QString>("midfix");
        QTest::addColumn<QString>("suffix");
        QTest::addColumn<QString>("serial");
        const auto row = [](const char* midfix, const char* suffix, const char* serial) {
            QTest::addRow("%s-%s", midfix, suffix) << midfix << suffix << serial;
        };
        row("7", "42", "OR3-07-00042");
        row("00", "00000", "OR3-00-00000");
        row("12", "34567", "OR3-12-34567");
        row("123", "1234567", "OR3-123-1234567");
        row("ab", "12x", "OR3-00-00000");
        row("", "", "OR3-00-00000");
        row("-1", "5", "OR3--1-00005");
        row("+5", "-42", "OR3-05--0042");
        row("2147483648", "2147483647", "OR3-00-2147483647");
        row("0x10", "1.5", "OR3-00-00000");
    }

    void theSerialNumberIsComposed()
    {
        QFETCH(QString, midfix);
        QFETCH(QString, suffix);
        QFETCH(QString, serial);
        setText("EDIT_SERIAL_MIDFIX", midfix);
        setText("EDIT_SERIAL_SUFFIX", suffix);
        save(kQC);
        QVERIFY(m_folder.content(kMainSettingsFile).contains("\nSerial=" + serial.toLatin1() + '\n'));
        QVERIFY(messages().contains("------> Serial number : " + serial + " \n"));
    }

    void magnificationAndVolumeFactorGoTogetherOrNotAtAll_data()
    {
        QTest::addColumn<double>("magnification");
        QTest::addColumn<double>("factor");
        QTest::addColumn<QByteArray>("savedMagnification");
        QTest::addColumn<QByteArray>("savedFactor");
        QTest::addColumn<bool>("told");
        const auto row = [](const char* name, double magnification, double factor,
                            const char* savedMagnification, const char* savedFactor, bool told) {
            QTest::newRow(name) << magnification << factor << QByteArray(savedMagnification)
                                << QByteArray(savedFactor) << told;
        };
        const char* const old = "Magnification=3.5\n";
        const double infinite = std::numeric_limits<double>::infinity();
        const double none = std::numeric_limits<double>::quiet_NaN();
        row("both", 4.0, 2.0, "Magnification=4\n", "Volume%20factor=2\n", false);
        row("rounded down", 3.70004, 0.912344, "Magnification=3.7\n", "Volume%20factor=0.91234\n", false);
        row("rounded up", 3.70005001, 0.9123451, "Magnification=3.7001\n", "Volume%20factor=0.91235\n",
            false);
        row("none", 0.0, 0.0, old, "", false);
        row("no magnification", 0.0, 1.5, old, "", false);
        row("no factor", 4.0, 0.0, old, "", false);
        // A measurement that is no number is told as well.
        row("equal points", none, none, old, "", true);
        row("points too close", infinite, 0.0, old, "", true);
        row("infinite factor", 3.5, infinite, old, "", true);
        row("minus infinite", -infinite, -infinite, old, "", true);
        row("factor no number", 3.5, none, old, "", true);
        row("magnification no number", none, 0.5, old, "", true);
    }

    void magnificationAndVolumeFactorGoTogetherOrNotAtAll()
    {
        QFETCH(double, magnification);
        QFETCH(double, factor);
        QFETCH(QByteArray, savedMagnification);
        QFETCH(QByteArray, savedFactor);
        QFETCH(bool, told);
        global_ini()->System = {magnification, factor};
        global_ini()->Skip_frame = 12;
        save(kQC);
        expectSavedBox();
        const QByteArray saved = m_folder.content(kMainSettingsFile);
        QVERIFY2(saved.contains('\n' + savedMagnification), saved);
        QVERIFY2(savedFactor.isEmpty() ? !saved.contains("Volume") : saved.contains('\n' + savedFactor),
                 saved);
        QVERIFY2(saved.contains("\nSkip%20frame=12\n"), saved);
        QVERIFY2(saved.contains("\nSerial=OR3-07-00042\n"), saved);
        QCOMPARE(messages().contains("global_ini()->System."), !savedFactor.isEmpty());
        QVERIFY2(messages().contains("void ORLA_II_Plus_Verifier::set_INI_value(QSettings&)() [Error] "
                                     "magnification and volume factor not saved: not measured \n") == told,
                 qPrintable(messages()));
    }

    void missingFilesAreCreated()
    {
        for (const int tab : {kStage, kCamera, kQC}) {
            for (const char* file : kSettingsFiles)
                m_folder.remove(file);
            save(tab);
            QCOMPARE(QFile::exists(machinePath(kStageFile)), tab == kStage);
            QCOMPARE(QFile::exists(machinePath(kCusCalibrationFile)), tab == kCamera);
            QCOMPARE(QFile::exists(machinePath(kBfnCalibrationFile)), tab == kCamera);
            QVERIFY(m_folder.content(kMainSettingsFile).contains("[Software]\nVersion%20QC="));
        }
    }

    void nothingIsWrittenWithoutSave()
    {
        changeEverything();
        openTab(kStage);
        openTab(kQC);
        for (const char* file : kSettingsFiles)
            QCOMPARE(m_folder.content(file), bytesOf(dataFile("before", file)));
        m_folder.load();
        QCOMPARE(global_ini()->Z_reference, 30000);
        QCOMPARE(global_ini()->LED_brightness, 310);
        QCOMPARE(global_ini()->Skip_frame, 7);
        QCOMPARE(int(global_ini()->CUS_reg[1][0]), 0x11);
    }

    void aFileThatCannotBeWrittenIsNamedInTheLogOnly_data()
    {
        QTest::addColumn<int>("tab");
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("function");
        const QString save = "on_BUTTON_SAVE_INI_clicked()";
        const QString set = "set_INI_value(QSettings&)";
        QTest::newRow("main, stage tab") << kStage << kMainSettingsFile << save;
        QTest::newRow("main, camera tab") << kCamera << kMainSettingsFile << save;
        QTest::newRow("main, QC tab") << kQC << kMainSettingsFile << save;
        QTest::newRow("stage") << kStage << kStageFile << set;
        QTest::newRow("CUS") << kCamera << kCusCalibrationFile << set;
        QTest::newRow("BFN") << kCamera << kBfnCalibrationFile << set;
    }

    void aFileThatCannotBeWrittenIsNamedInTheLogOnly()
    {
        QFETCH(int, tab);
        QFETCH(QString, file);
        QFETCH(QString, function);
        // Nobody, root included, writes to a directory as if it were a file.
        const QString path = machinePath(file);
        QVERIFY(QFile::remove(path));
        QVERIFY(QDir().mkdir(path));
        save(tab);
        QVERIFY(QDir().rmdir(path));
        expectSavedBox();
        const QString line =
            "void ORLA_II_Plus_Verifier::" + function + "() [Error] not saved: " + file + " \n";
        QVERIFY2(messages().contains(line), qPrintable(messages()));
        QCOMPARE(messages().count("[Error]"), 1);
        if (file != kMainSettingsFile)
            QVERIFY(m_folder.content(kMainSettingsFile).contains("Version%20QC"));
    }

    void aDiskThatTakesNothingLeavesTheFilesAsTheyWere_data()
    {
        QTest::addColumn<bool>("full");
        QTest::newRow("read-only") << false;
        QTest::newRow("full") << true;
    }

    void aDiskThatTakesNothingLeavesTheFilesAsTheyWere()
    {
        QFETCH(bool, full);
        SmallDisk disk(machinePath("/opt/ORLA3/conf"));
        if (!disk.isMounted())
            QSKIP("this process may not mount a file system");
        m_folder.putAll(QFINDTESTDATA("../settings/data/roundtrip/before"));
        if (full)
            fill(machinePath("/opt/ORLA3/conf/log"));
        else
            QVERIFY(disk.makeReadOnly());
        changeEverything();
        save(kCamera);
        expectSavedBox();
        QCOMPARE(messages().count("[Error] not saved:"), 3);
        for (const char* file : {kMainSettingsFile, kCusCalibrationFile, kBfnCalibrationFile})
            QCOMPARE(m_folder.content(file), bytesOf(dataFile("before", file)));
    }

private:
    void save(int tab)
    {
        openTab(tab);
        click("BUTTON_SAVE_INI");
    }

    static QString dataFile(const QString& folder, const char* file)
    {
        return QFINDTESTDATA("../settings/data/roundtrip/") + folder + '/' + QFileInfo(file).fileName();
    }

    void expectSavedPart(const QString& part)
    {
        for (const char* file : kSettingsFiles) {
            // A file without an expected one of its own stays as it was.
            const QString after = dataFile(part, file);
            QCOMPARE(m_folder.content(file),
                     bytesOf(QFile::exists(after) ? after : dataFile("before", file)));
        }
    }

    void expectSavedBox() { expectBox("ORLA-III", "INI saved !", QMessageBox::Information); }

    /// One change of everything that is saved, by the widgets that a technician uses.
    void changeEverything()
    {
        find<QSpinBox>("SPIN_Z_STEP")->setValue(640);
        find<QSpinBox>("SPIN_Z_SPEED")->setValue(1000);
        setText("EDIT_Z_POSITION", "31999");
        click("BUTTON_Z_SET_REFERENCE");

        setText("EDIT_LED", "999");
        QTest::keyClick(find<QLineEdit>("EDIT_LED"), Qt::Key_Return);
        click("BUTTON_LED_FINE_UP");
        click("BUTTON_STAINING_TB");
        click("BUTTON_RESOLUTION_1280");
        setText("EDIT_EXPOSURE", "0x0F56");
        click("BUTTON_EXPOSURE_FINE_UP");
        click("BUTTON_STAINING_NTB");
        click("BUTTON_RESOLUTION_5M");
        setText("EDIT_COLOR_BLUE", "0x04EF");
        find<QPushButton>("BUTTON_COLOR_BLUE_FINE_UP")->setEnabled(true);
        click("BUTTON_COLOR_BLUE_FINE_UP");

        setText("EDIT_SKIP_FRAME", "30");
        click("BUTTON_SKIP_FRAME");
        global_ini()->System = {3.70004, 0.912346};
        find<QLabel>("LABEL_VERSION")->setText("0.0.2");
        boxes().clear();
    }

    static void fill(const QString& path)
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Unbuffered));
        while (file.write(QByteArray(1024, 'x')) == 1024) {
        }
    }
    SettingsFolder m_folder{*this};
};

QTEST_MAIN(TestWindowSave)
#include "test_window_save.moc"
