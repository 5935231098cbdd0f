// A board that says nothing at all, with the time-outs that the program really uses.

#include <fcntl.h>
#include <termios.h>

#include <QSignalSpy>
#include <QtTest>

#include "ControllerBench.h"

namespace {

// A loaded machine may add to a wait, but not as much as a time-out of another command would.
bool lastedAbout(qint64 elapsed_ms, qint64 timeout_ms)
{
    return elapsed_ms >= timeout_ms - 100 && elapsed_ms < timeout_ms + 3000;
}

} // namespace

class TestControllerSilence : public QObject
{
    Q_OBJECT

private slots:
    void aSilentBoardFailsTheProbeAfterFiveSeconds()
    {
        ControllerBench bench;
        QSignalSpy connected(&bench.controller, &Controller::sig_connected_controller);
        QElapsedTimer timer;
        timer.start();
        bench.controller.openSerialPort();
        QVERIFY2(lastedAbout(timer.elapsed(), 5000), qPrintable(QString::number(timer.elapsed())));
        QVERIFY(!bench.controller.isSerialPortOpen());
        QCOMPARE(connected.count(), 0);
        QCOMPARE(bench.peer.received(), QList<QByteArray>{"$,DEVICE,READY,,\r\n"});
        QVERIFY(bench.log.messages().contains("readAvailableData_Blocking errorDataReadingTimeout"));
        QVERIFY(!bench.log.messages().contains(R"(opened serial port "/dev/ttyS2")"));

        // Powered at last, it answers the next try.
        bench.peer.answer("$OK,DEVICE,READY,,\r\n");
        QVERIFY(bench.controller.trySerialPort());
        QCOMPARE(connected.count(), 1);
    }

    // The record of the last reply stands, so silence is taken for its repetition.
    void aSilentBoardRepeatsThePreviousOutcome()
    {
        ControllerBench bench;
        bench.open();
        bench.controller.parsing_responseReceived("$OK,STM1,GET_POS,77,");
        QElapsedTimer timer;
        timer.start();
        QVERIFY(bench.controller.z_stage_mvp(SERIAL_BLOCKING, 640));
        QVERIFY2(lastedAbout(timer.elapsed(), 5000), qPrintable(QString::number(timer.elapsed())));
        QCOMPARE(bench.controller.m_zStagePosition, 640);
    }

    // ...but not by the probe: a board that has died since is not connected.
    void aSilentBoardFailsTheProbeWhateverItSaidBefore()
    {
        ControllerBench bench;
        QSignalSpy connected(&bench.controller, &Controller::sig_connected_controller);
        bench.peer.answer("$OK,DEVICE,READY,,\r\n");
        QVERIFY(bench.controller.trySerialPort());
        QVERIFY(bench.controller.answers());
        QVERIFY(!bench.controller.trySerialPort());
        QCOMPARE(connected.count(), 1);
        QVERIFY(!bench.controller.isSerialPortOpen());
        QVERIFY(!bench.controller.answers());
        QCOMPARE(bench.controller.responseInfo().result, QString("OK"));

        bench.peer.answer("$OK,DEVICE,READY,,\r\n");
        QVERIFY(bench.controller.trySerialPort());
        QCOMPARE(connected.count(), 2);
        QVERIFY(bench.controller.answers());
    }

    void aBoardThatFallsSilentAnswersNoMore()
    {
        ControllerBench bench;
        bench.open();
        QVERIFY(!bench.controller.answers());
        bench.peer.answer("$OK,LED4,ON,,\r\n");
        QVERIFY(bench.controller.led_on());
        QVERIFY(bench.controller.answers());
        QVERIFY2(bench.controller.led_off(), "the previous outcome");
        QVERIFY(!bench.controller.answers());
        QVERIFY(bench.controller.isSerialPortOpen());
        bench.peer.answer("$NG,LED4,OFF,,\r\n");
        QVERIFY(!bench.controller.led_off());
        QVERIFY2(bench.controller.answers(), "a refusal is an answer");
    }

    // A line that takes nothing, too: the time-out of writing comes first.
    void aLineThatIsStuckCostsBothTimeouts_data()
    {
        QTest::addColumn<bool>("diagnosis");
        QTest::addColumn<int>("timeouts_ms");
        QTest::newRow("probe") << false << 6000;
        QTest::newRow("self-diagnosis") << true << 26000;
    }

    void aLineThatIsStuckCostsBothTimeouts()
    {
        QFETCH(bool, diagnosis);
        QFETCH(int, timeouts_ms);
        ControllerBench bench;
        bench.open();
        const QByteArray device = QFile::encodeName(bench.root.path() + "/dev/ttyS2");
        const FileDescriptor line(::open(device.constData(), O_RDWR | O_NOCTTY));
        QCOMPARE(::tcflow(line.get(), TCOOFF), 0);
        QElapsedTimer timer;
        timer.start();
        if (diagnosis)
            QCOMPARE(bench.controller.z_stage_diagnosis(), -1);
        else
            QVERIFY(!bench.controller.trySerialPort());
        QVERIFY2(lastedAbout(timer.elapsed(), timeouts_ms), qPrintable(QString::number(timer.elapsed())));
        QVERIFY(bench.log.messages().contains("write_Blocking errorDataWritingTimeout"));
    }
};

QTEST_GUILESS_MAIN(TestControllerSilence)
#include "test_controller_silence.moc"
