#include <QtTest>

#include "shipped/Expectations.h"

namespace {

struct Example
{
    const char* name;
    const char* place;
};

constexpr Example kExamples[] = {{"ORLA3.ini", "opt/ORLA3/conf/ORLA3.ini"},
                                 {"Calibration_BFN.ini", "opt/ORLA3/conf/Calibration_BFN.ini"},
                                 {"Calibration_CUS.ini", "opt/ORLA3/conf/Calibration_CUS.ini"},
                                 {"Orla2.ini", "root/Orla2/Orla2.ini"}};
constexpr int kTabs = 3;

} // namespace

/// The example settings that come with the package, for a board that has none: the program finds
/// all of its keys in them, and would have written them just so.
class TestExampleSettings : public ShippedProgramTest
{
    Q_OBJECT

private slots:
    void theyAreReadAndSavedAgainByteByByte()
    {
        ShippedProgram program;
        const QDir examples(EXAMPLES);
        for (const Example& file : kExamples) {
            QVERIFY2(QFileInfo(examples.filePath(file.name)).size() > 0, file.name);
            program.write(file.place, bytesOf(examples.filePath(file.name)));
        }
        QVERIFY(program.start());
        QTRY_COMPARE(program.text("EDIT_Z_REFERENCE"), "32000");
        QCOMPARE(program.text("LABEL_VERSION"), ORLA_VERSION);
        QCOMPARE(program.text("EDIT_SERIAL_MIDFIX"), "00");
        QCOMPARE(program.text("EDIT_SERIAL_SUFFIX"), "00000");
        QCOMPARE(program.text("EDIT_LED"), "225");
        QCOMPARE(program.text("EDIT_EXPOSURE"), "0x1800");
        QVERIFY(!program.enabled("BUTTON_CONNECT"));

        for (int tab = 0; tab < kTabs; ++tab) {
            program.chooseTab(tab);
            VERIFY_BOX(program.boxOf("BUTTON_SAVE_INI"), "information: ORLA-III", "INI saved !", "OK");
            program.answer("OK");
        }
        QCOMPARE(program.exit(), 0);
        QVERIFY2(!program.output().contains("[Error]"), program.output());
        for (const Example& file : kExamples)
            QCOMPARE(program.content(file.place), bytesOf(examples.filePath(file.name)));
    }
};

QTEST_GUILESS_MAIN(TestExampleSettings)
#include "test_example_settings.moc"
