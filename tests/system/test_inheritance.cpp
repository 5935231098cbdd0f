#include <csignal>

#include <QtTest>

#include "shipped/Expectations.h"

namespace {

const QStringList kParking{"LED4,OFF,,", "STM1,ORIGIN,,"};

const QStringList kWithoutStreams{"sh", "-c", "exec \"$@\" <&- >&- 2>&-", "sh"};
/// As with a remote terminal that is gone.
const QStringList kWithoutReader{"bash", "-c", "exec \"$@\" > >(true) 2>&1", "bash"};
const QStringList kWithBlockedSignals{"env", "--block-signal"};

} // namespace

/// Whatever the process inherits from who starts it: streams and signals.
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
};

QTEST_GUILESS_MAIN(TestInheritance)
#include "test_inheritance.moc"
