#include <csignal>

#include <QDir>
#include <QtTest>

#include "shipped/Expectations.h"
#include "tests/support/Patience.h"

namespace {

using Variables = QMap<QString, QString>;

const QStringList kParking{"LED4,OFF,,", "STM1,ORIGIN,,"};

const QStringList kWithoutStreams{"sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"};
/// As with a remote terminal that is gone.
const QStringList kWithoutReader{"bash", "-c", "exec \"$@\" > >(true) 2>&1", "bash"};
const QStringList kWithBlockedSignals{"env", "--block-signal"};

/// A language with digits of its own, for all that a machine says.
const Variables kPersian{{"LC_ALL", "fa_IR.UTF-8"}, {"LANG", "fa_IR.UTF-8"}};

} // namespace

/// Whatever the process inherits from who starts it: streams, signals, the machine's language.
class TestInheritance : public ShippedProgramTest
{
    Q_OBJECT

private slots:
    void aLogThatNobodyReadsEndsNothing()
    {
        ShippedProgram program;
        program.setStarter(kWithoutReader);
        QVERIFY(program.start());
        const int before = program.boardLines().size();
        QCOMPARE(program.exit(), 0);
        QCOMPARE(program.boardLines(before), kParking);
    }

    // Else a device would have the number of the stream that the log is written to.
    void withoutStreamsTheLogGoesNowhere()
    {
        ShippedProgram program;
        program.setStarter(kWithoutStreams);
        QVERIFY(program.start());
        for (const char* stream : {"0", "1", "2"})
            QCOMPARE(QFile::symLinkTarget(QString("/proc/%1/fd/%2").arg(program.processId()).arg(stream))
                         .section('/', -1),
                     QString("null"));
        QCOMPARE(program.boardLines(),
                 QStringList({"DEVICE,READY,,", "STM1,ORIGIN,,", "LED4,BRT,300,", "STM1,ABS,30000,"}));
        QCOMPARE(program.exit(), 0);
    }

    void aSignalThatWasBlockedParksTheBoard_data()
    {
        QTest::addColumn<int>("number");
        QTest::newRow("SIGTERM") << SIGTERM;
        QTest::newRow("SIGINT") << SIGINT;
        QTest::newRow("SIGHUP") << SIGHUP;
    }

    void aSignalThatWasBlockedParksTheBoard()
    {
        QFETCH(int, number);
        ShippedProgram program;
        program.setStarter(kWithBlockedSignals);
        QVERIFY(program.start());
        const int before = program.boardLines().size();
        QCOMPARE(::kill(static_cast<pid_t>(program.processId()), number), 0);
        QCOMPARE(program.waitForEnd(), 0);
        QCOMPARE(program.boardLines(before), kParking);
    }

    // Where the end of a child cannot be heard of, each is waited for until its time is up.
    void theEndOfACommandIsHeardThoughItWasBlocked()
    {
        ShippedProgram program;
        program.setStarter(kWithBlockedSignals);
        QVERIFY(program.start());
        program.chooseTab(2);
        constexpr int muchLessThanTheTimeout_ms = 20000;
        QElapsedTimer time;
        time.start();
        program.boxOf("BUTTON_PASSWORD");
        QVERIFY(time.elapsed() < muchLessThanTheTimeout_ms);
        QCOMPARE(program.commands(), "password 0\n");
        program.answer("OK");
        QCOMPARE(program.exit(), 0);
    }

    void theMachinesLanguageChangesNoDigit()
    {
        ShippedProgram program;
        program.setVariables(kPersian);
        program.plugDisk();
        QVERIFY(program.start());
        QCOMPARE(program.text("SPIN_Z_STEP"), "512");
        QCOMPARE(program.text("PROGRESS_AUTOFOCUS"), "0%");
        program.click("CHECK_DEBUG_AUTOFOCUS");
        program.ask({{"do", "click"}, {"name", "BUTTON_AUTOFOCUS"}, {"later", true}});
        const auto hasFolder = [&program] {
            return !QDir(program.file("mnt/ORLA-II/Autofocus")).isEmpty(QDir::Dirs | QDir::NoDotAndDotDot);
        };
        QTRY_VERIFY_WITH_TIMEOUT(hasFolder(), patient_ms(30000));
        const QStringList runs =
            QDir(program.file("mnt/ORLA-II/Autofocus")).entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        QVERIFY2(QRegularExpression("^[0-9]{8}_[0-9]{6}$").match(runs.value(0)).hasMatch(),
                 qPrintable(runs.join(' ')));
        VERIFY_BOX(program.waitForBox(30000), "information: ORLA-III", "Finish AutoFocus !", "OK");
        program.answer("OK");
        QCOMPARE(program.exit(), 0);
        const QRegularExpression taken(
            "slot_z_stage_moved\\(\\) [0-9]{4}/[0-9]{2}/[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2},[0-9]{3}\n");
        QVERIFY(taken.match(QString::fromUtf8(program.output())).hasMatch());
    }

    // A machine without a language has no letters but the English ones; a disk has.
    void aNameMayHaveAnyLetters()
    {
        ShippedProgram program;
        program.setVariables({{"LC_ALL", "C"}, {"LANG", "C"}});
        program.plugDisk();
        QVERIFY(program.start());
        program.chooseTab(1);
        program.boxOf("BUTTON_CAPTURE");
        program.ask({{"do", "file"}, {"path", QString::fromUtf8("/mnt/Prüfling 세포")}, {"later", true}});
        QTRY_VERIFY_WITH_TIMEOUT(!program.isBoxOpen(), patient_ms(30000));
        QVERIFY(program.waitEnabled(5000));
        QCOMPARE(QDir(program.file("mnt")).entryList(QDir::Files),
                 QStringList(QString::fromUtf8("Prüfling 세포.tif")));
        QCOMPARE(program.exit(), 0);
    }
};

QTEST_GUILESS_MAIN(TestInheritance)
#include "test_inheritance.moc"
