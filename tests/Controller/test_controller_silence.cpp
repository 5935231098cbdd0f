// A board that says nothing at all. What the program waits for it is asserted as it stands; the
// tests wait as little as they can, and would notice the wait that is another command's.

#include <fcntl.h>
#include <termios.h>

#include <QtTest>

#include "ControllerFixture.h"

namespace {

constexpr int kNotInThisTest_ms = 60000;

/// A fixture whose exchanges wait kShort_ms for a reply, but not the self-diagnosis.
struct SilentFixture : ControllerFixture
{
    SilentFixture() { controller.m_timeouts = {kShort_ms, kShort_ms, kNotInThisTest_ms}; }
};

/// A controller whose line takes nothing.
struct StuckFixture : ControllerFixture
{
    StuckFixture()
    {
        // Before the controller has the line for itself: after that only root may open it.
        line.reset(::open(qPrintable(root.path() + "/dev/ttyS2"), O_RDWR | O_NOCTTY));
        open();
        if (::tcflow(line.get(), TCOOFF) != 0)
            qFatal("the line cannot be stopped");
    }

    FileDescriptor line;
};

/// Work takes that long, and not a time that belongs to another command.
void verifyLasts(qint64 timeout_ms, const std::function<void()>& work)
{
    QElapsedTimer timer;
    timer.start();
    work();
    const qint64 elapsed_ms = timer.elapsed();
    QVERIFY2(elapsed_ms >= timeout_ms && elapsed_ms < kNotInThisTest_ms,
             qPrintable(QString::number(elapsed_ms)));
}

} // namespace

class TestControllerSilence : public QObject
{
    Q_OBJECT

private slots:
    void theProgramWaitsAsLongAsTheBoardMayTake()
    {
        const FreshController controller;
        QCOMPARE(controller.m_timeouts.write_ms, 1000);
        QCOMPARE(controller.m_timeouts.read_ms, 5000);
        QCOMPARE(controller.m_timeouts.diagnosisRead_ms, 25000);
    }

    void aSilentBoardFailsTheProbe()
    {
        SilentFixture fixture;
        verifyLasts(kShort_ms, [&] { fixture.controller.openSerialPort(); });
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QCOMPARE(fixture.connected.count(), 0);
        QTRY_COMPARE(fixture.peer.received(), QList<QByteArray>{kProbe});
        QVERIFY(fixture.log.messages().contains("readAvailableData_Blocking errorDataReadingTimeout"));
        QVERIFY(!fixture.log.messages().contains(R"(opened serial port "/dev/ttyS2")"));

        // Powered at last, it answers the next try.
        fixture.controller.m_timeouts = ControllerTimeouts();
        QVERIFY(fixture.tryAnswered());
        QCOMPARE(fixture.connected.count(), 1);
    }

    void everyCommandWaitsForTheReply_data()
    {
        QTest::addColumn<Command>("command");
        const std::pair<const char*, Command> rows[] = {
            {"firmware version", [](Controller& board) { board.device_fw_version(); }},
            {"firmware build", [](Controller& board) { board.device_fw_build(); }},
            {"LED on", [](Controller& board) { board.led_on(); }},
            {"LED off", [](Controller& board) { board.led_off(); }},
            {"LED level", [](Controller& board) { board.led_brightness(5); }},
            {"origin", [](Controller& board) { board.z_stage_origin(SERIAL_BLOCKING); }},
            {"run up", [](Controller& board) { board.z_stage_rop(5); }},
            {"run down", [](Controller& board) { board.z_stage_ron(5); }},
            {"move up", [](Controller& board) { board.z_stage_mvp(SERIAL_BLOCKING, 5); }},
            {"move down", [](Controller& board) { board.z_stage_mvn(SERIAL_BLOCKING, 5); }},
            {"move to", [](Controller& board) { board.z_stage_abs(SERIAL_BLOCKING, 5); }},
            {"stop", [](Controller& board) { board.z_stage_stop(); }},
            {"position", [](Controller& board) { board.z_stage_pos(); }},
            {"accelerating", [](Controller& board) { board.stage_kval_acc(5); }},
            {"decelerating", [](Controller& board) { board.stage_kval_dec(5); }},
            {"running", [](Controller& board) { board.stage_kval_run(5); }},
            {"holding", [](Controller& board) { board.stage_kval_hold(5); }},
        };
        for (const auto& [name, command] : rows)
            QTest::newRow(name) << command;
    }

    void everyCommandWaitsForTheReply()
    {
        QFETCH(Command, command);
        SilentFixture fixture;
        fixture.open();
        verifyLasts(kShort_ms, [&] { command(fixture.controller); });
        QVERIFY(!fixture.controller.answers());
    }

    void theSelfDiagnosisHasATimeOfItsOwn()
    {
        ControllerFixture fixture;
        fixture.controller.m_timeouts = {kShort_ms, kNotInThisTest_ms, kShort_ms};
        fixture.open();
        verifyLasts(kShort_ms, [&] { QCOMPARE(fixture.controller.z_stage_diagnosis(), -1); });
    }

    // The record of the last reply stands, so silence is taken for its repetition.
    void aSilentBoardRepeatsThePreviousOutcome()
    {
        SilentFixture fixture;
        fixture.open();
        fixture.controller.parsing_responseReceived("$OK,STM1,GET_POS,77,");
        QVERIFY(fixture.controller.z_stage_mvp(SERIAL_BLOCKING, 640));
        QCOMPARE(fixture.controller.m_zStagePosition, 640);
    }

    // ...but not by the probe: a board that has died since is not connected.
    void aSilentBoardFailsTheProbeWhateverItSaidBefore()
    {
        ControllerFixture fixture;
        QVERIFY(fixture.tryAnswered());
        QVERIFY(fixture.controller.answers());
        fixture.controller.m_timeouts.read_ms = kShort_ms;
        QVERIFY(!fixture.controller.trySerialPort());
        QCOMPARE(fixture.connected.count(), 1);
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QVERIFY(!fixture.controller.answers());
        QCOMPARE(fixture.controller.responseInfo().result, QString("OK"));

        fixture.controller.m_timeouts = ControllerTimeouts();
        QVERIFY(fixture.tryAnswered());
        QCOMPARE(fixture.connected.count(), 2);
        QVERIFY(fixture.controller.answers());
    }

    void aBoardThatFallsSilentAnswersNoMore()
    {
        OpenFixture fixture;
        QVERIFY(!fixture.controller.answers());
        fixture.peer.answer("$OK,LED4,ON,,\r\n");
        QVERIFY(fixture.controller.led_on());
        QVERIFY(fixture.controller.answers());
        fixture.controller.m_timeouts.read_ms = kShort_ms;
        QVERIFY2(fixture.controller.led_off(), "the previous outcome");
        QVERIFY(!fixture.controller.answers());
        QVERIFY(fixture.controller.isSerialPortOpen());
        fixture.controller.m_timeouts = ControllerTimeouts();
        fixture.peer.answer("$NG,LED4,OFF,,\r\n");
        QVERIFY(!fixture.controller.led_off());
        QVERIFY2(fixture.controller.answers(), "a refusal is an answer");
    }

    // A line that takes nothing, too: the time-out of writing comes first.
    void aLineThatIsStuckCostsBothTimeouts_data()
    {
        QTest::addColumn<bool>("diagnosis");
        QTest::newRow("probe") << false;
        QTest::newRow("self-diagnosis") << true;
    }

    void aLineThatIsStuckCostsBothTimeouts()
    {
        QFETCH(bool, diagnosis);
        StuckFixture fixture;
        constexpr int kWrite_ms = 300;
        fixture.controller.m_timeouts = {kWrite_ms, diagnosis ? kNotInThisTest_ms : kShort_ms,
                                         diagnosis ? kShort_ms : kNotInThisTest_ms};
        verifyLasts(kWrite_ms + kShort_ms, [&] {
            if (diagnosis)
                QCOMPARE(fixture.controller.z_stage_diagnosis(), -1);
            else
                QVERIFY(!fixture.controller.trySerialPort());
        });
        QVERIFY(fixture.log.messages().contains("write_Blocking errorDataWritingTimeout"));
    }

    void aLineThatCannotBeWrittenIsLoggedAndTheReadFollows()
    {
        StuckFixture fixture;
        fixture.logEchoes();
        fixture.controller.writeAndRead_Blocking("$,LED4,ON,,\r\n", kShort_ms, kShort_ms);
        // The line is echoed when it is given to the port, not when it has left.
        QCOMPARE(fixture.log.messages().mid(1),
                 QStringList({R"(echo "$,LED4,ON,,\r\n")", "write_Blocking errorDataWritingTimeout",
                              "readAvailableData_Blocking errorDataReadingTimeout"}));
    }
};

QTEST_GUILESS_MAIN(TestControllerSilence)
#include "test_controller_silence.moc"
