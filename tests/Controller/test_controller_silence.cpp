// A board that says nothing at all, with the time-outs that the program really uses.

#include <QSignalSpy>
#include <QtTest>

#include "ControllerBench.h"

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
        QVERIFY(timer.elapsed() >= 4900);
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
        QVERIFY(timer.elapsed() >= 4900);
        QCOMPARE(bench.controller.m_zStagePosition, 640);
    }

    // Longer than any other command is waited for.
    void theDiagnosisIsWaitedForLongerThanFiveSeconds()
    {
        ControllerBench bench;
        bench.open();
        bench.peer.answer({{"$OK,STM1,SELF_DIAG,3,\r\n", 6000}});
        QCOMPARE(bench.controller.z_stage_diagnosis(), 3);
    }
};

QTEST_GUILESS_MAIN(TestControllerSilence)
#include "test_controller_silence.moc"
