// A board that says nothing at all. What the program waits for it is asserted as it stands; the
// tests wait as little as they can, and would notice the wait that is another command's.

#include <functional>

#include <fcntl.h>
#include <termios.h>

#include <QSignalSpy>
#include <QtTest>

#include "ControllerFixture.h"

namespace {

constexpr int kShort_ms = 60;
constexpr int kNotInThisTest_ms = 60000;

/// A fixture whose exchanges wait kShort_ms for a reply, but not the self-diagnosis.
struct SilentFixture : ControllerFixture
{
    SilentFixture() { controller.m_timeouts = {kShort_ms, kShort_ms, kNotInThisTest_ms}; }
};

bool lasted(const QElapsedTimer& timer, qint64 timeout_ms)
{
    return timer.elapsed() >= timeout_ms && timer.elapsed() < kNotInThisTest_ms;
}

using Command = std::function<void(Controller&)>;

} // namespace

Q_DECLARE_METATYPE(Command)

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
        QSignalSpy connected(&fixture.controller, &Controller::sig_connected_controller);
        QElapsedTimer timer;
        timer.start();
        fixture.controller.openSerialPort();
        QVERIFY(lasted(timer, kShort_ms));
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QCOMPARE(connected.count(), 0);
        QTRY_COMPARE(fixture.peer.received(), QList<QByteArray>{"$,DEVICE,READY,,\r\n"});
        QVERIFY(fixture.log.messages().contains("readAvailableData_Blocking errorDataReadingTimeout"));
        QVERIFY(!fixture.log.messages().contains(R"(opened serial port "/dev/ttyS2")"));

        // Powered at last, it answers the next try.
        fixture.controller.m_timeouts = ControllerTimeouts();
        fixture.peer.answer("$OK,DEVICE,READY,,\r\n");
        QVERIFY(fixture.controller.trySerialPort());
        QCOMPARE(connected.count(), 1);
    }

    void everyCommandWaitsForTheReply_data()
    {
        QTest::addColumn<Command>("command");
        const auto row = [](const char* name, const Command& command) { QTest::newRow(name) << command; };
        row(
            "firmware version", [](Controller& board) { board.device_fw_version(); });
        row(
            "firmware build", [](Controller& board) { board.device_fw_build(); });
        row(
            "LED on", [](Controller& board) { board.led_on(); });
        row(
            "LED off", [](Controller& board) { board.led_off(); });
        row(
            "LED level", [](Controller& board) { board.led_brightness(5); });
        row(
            "origin", [](Controller& board) { board.z_stage_origin(SERIAL_BLOCKING); });
        row(
            "run up", [](Controller& board) { board.z_stage_rop(5); });
        row(
            "run down", [](Controller& board) { board.z_stage_ron(5); });
        row(
            "move up", [](Controller& board) { board.z_stage_mvp(SERIAL_BLOCKING, 5); });
        row(
            "move down", [](Controller& board) { board.z_stage_mvn(SERIAL_BLOCKING, 5); });
        row(
            "move to", [](Controller& board) { board.z_stage_abs(SERIAL_BLOCKING, 5); });
        row(
            "stop", [](Controller& board) { board.z_stage_stop(); });
        row(
            "position", [](Controller& board) { board.z_stage_pos(); });
        row(
            "accelerating", [](Controller& board) { board.stage_kval_acc(5); });
        row(
            "decelerating", [](Controller& board) { board.stage_kval_dec(5); });
        row(
            "running", [](Controller& board) { board.stage_kval_run(5); });
        row("holding", [](Controller& board) { board.stage_kval_hold(5); });
    }

    void everyCommandWaitsForTheReply()
    {
        QFETCH(Command, command);
        SilentFixture fixture;
        fixture.open();
        QElapsedTimer timer;
        timer.start();
        command(fixture.controller);
        QVERIFY2(lasted(timer, kShort_ms), qPrintable(QString::number(timer.elapsed())));
        QVERIFY(!fixture.controller.answers());
    }

    void theSelfDiagnosisHasATimeOfItsOwn()
    {
        ControllerFixture fixture;
        fixture.controller.m_timeouts = {kShort_ms, kNotInThisTest_ms, kShort_ms};
        fixture.open();
        QElapsedTimer timer;
        timer.start();
        QCOMPARE(fixture.controller.z_stage_diagnosis(), -1);
        QVERIFY2(lasted(timer, kShort_ms), qPrintable(QString::number(timer.elapsed())));
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
        QSignalSpy connected(&fixture.controller, &Controller::sig_connected_controller);
        fixture.peer.answer("$OK,DEVICE,READY,,\r\n");
        QVERIFY(fixture.controller.trySerialPort());
        QVERIFY(fixture.controller.answers());
        fixture.controller.m_timeouts.read_ms = kShort_ms;
        QVERIFY(!fixture.controller.trySerialPort());
        QCOMPARE(connected.count(), 1);
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QVERIFY(!fixture.controller.answers());
        QCOMPARE(fixture.controller.responseInfo().result, QString("OK"));

        fixture.controller.m_timeouts = ControllerTimeouts();
        fixture.peer.answer("$OK,DEVICE,READY,,\r\n");
        QVERIFY(fixture.controller.trySerialPort());
        QCOMPARE(connected.count(), 2);
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
        ControllerFixture fixture;
        const QByteArray device = QFile::encodeName(fixture.root.path() + "/dev/ttyS2");
        // Before the controller has the line for itself: after that only root may open it.
        const FileDescriptor line(::open(device.constData(), O_RDWR | O_NOCTTY));
        fixture.open();
        QCOMPARE(::tcflow(line.get(), TCOOFF), 0);
        constexpr int kWrite_ms = 300;
        fixture.controller.m_timeouts = {kWrite_ms, diagnosis ? kNotInThisTest_ms : kShort_ms,
                                         diagnosis ? kShort_ms : kNotInThisTest_ms};
        QElapsedTimer timer;
        timer.start();
        if (diagnosis)
            QCOMPARE(fixture.controller.z_stage_diagnosis(), -1);
        else
            QVERIFY(!fixture.controller.trySerialPort());
        QVERIFY2(lasted(timer, kWrite_ms + kShort_ms), qPrintable(QString::number(timer.elapsed())));
        QVERIFY(fixture.log.messages().contains("write_Blocking errorDataWritingTimeout"));
    }
};

QTEST_GUILESS_MAIN(TestControllerSilence)
#include "test_controller_silence.moc"
