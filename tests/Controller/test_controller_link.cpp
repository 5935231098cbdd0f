#include <fcntl.h>
#include <termios.h>

#include <QDir>
#include <QSignalSpy>
#include <QtTest>

#include "ControllerBench.h"
#include "support/PortLocks.h"

namespace {

const QByteArray kProbe = "$,DEVICE,READY,,\r\n";
const QByteArray kReady = "$OK,DEVICE,READY,,\r\n";

termios settingsOf(const QByteArray& device)
{
    termios settings = {};
    const FileDescriptor line(::open(device.constData(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (::tcgetattr(line.get(), &settings) != 0)
        qFatal("the line cannot be asked");
    return settings;
}

/// Sets a line as a login would leave it, and returns that.
termios setUpForATerminal(const QByteArray& device)
{
    termios settings = settingsOf(device);
    settings.c_iflag |= ICRNL | IXON;
    settings.c_oflag |= OPOST | ONLCR;
    settings.c_lflag |= ISIG | ECHOE;
    ::cfsetspeed(&settings, B9600);
    const FileDescriptor line(::open(device.constData(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    if (::tcsetattr(line.get(), TCSANOW, &settings) != 0)
        qFatal("the line cannot be set");
    return settingsOf(device);
}

} // namespace

class TestControllerLink : public QObject
{
    Q_OBJECT

private slots:
    void thereIsOneControllerWithoutAParent()
    {
        LogRecorder log;
        Controller* controller = Controller::getInstance();
        QCOMPARE(controller, Controller::getInstance());
        QCOMPARE(controller->parent(), nullptr);
        QCOMPARE(log.messages(), QStringList{"Controller"});
    }

    void aNewControllerKnowsNothing()
    {
        ControllerBench bench;
        QCOMPARE(bench.fields(), QStringList({"", "", "", ""}));
        QCOMPARE(bench.controller.commandResponse(), QString());
        QCOMPARE(bench.controller.m_zStagePosition, 0);
        QVERIFY(!bench.controller.m_skipProbe);
        QVERIFY(!bench.controller.m_bZigMode);
        QVERIFY(!bench.controller.isSerialPortOpen());
        QVERIFY(!bench.controller.answers());
    }

    void openingProbesTheBoard()
    {
        ControllerBench bench;
        QSignalSpy connected(&bench.controller, &Controller::sig_connected_controller);
        bench.log.clear();
        bench.peer.answer(kReady);
        bench.controller.openSerialPort();
        QCOMPARE(connected.count(), 1);
        QVERIFY(bench.controller.isSerialPortOpen());
        QCOMPARE(bench.peer.received(), QList<QByteArray>{kProbe});
        QCOMPARE(bench.log.messages(),
                 QStringList({
                     "openSerialPort",
                     "\"/dev/ttyS2\"",
                     "trySerialPort",
                     "write_Blocking command: \"$,DEVICE,READY,,\\r\\n\"",
                     "readAvailableData_Blocking m_commandResponse: \"$OK,DEVICE,READY,,\\r\\n\"",
                     "parsing_responseReceived response: \"$OK,DEVICE,READY,,\"",
                     "opened serial port \"/dev/ttyS2\"",
                 }));
    }

    // By the port's own word: a pseudo-terminal does not take every setting.
    void theLineIsSetUpForTheBoard()
    {
        OpenBench bench;
        const QObjectList children = bench.controller.children();
        QCOMPARE(children.size(), 1);
        const QObject* port = children.first();
        QCOMPARE(port->metaObject()->className(), "QSerialPort");
        const auto valueOf = [port](const char* setting) { return port->property(setting).toInt(); };
        QCOMPARE(valueOf("baudRate"), 115200);
        QCOMPARE(valueOf("dataBits"), 8);
        QCOMPARE(valueOf("parity"), 0);
        QCOMPARE(valueOf("stopBits"), 1);
        QCOMPARE(valueOf("flowControl"), 0);
    }

    void theListenerIsOnAfterTheProbe()
    {
        ControllerBench bench;
        QSignalSpy moved(&bench.controller, &Controller::sig_z_stage_mvp);
        bench.peer.answer(kReady);
        bench.controller.openSerialPort();
        bench.peer.send("$OK,STM1,MVP,5,\r\n");
        QTRY_COMPARE(moved.count(), 1);
        QCOMPARE(bench.controller.m_zStagePosition, 5);

        // Whatever the acknowledgement made of it.
        connect(&bench.controller, &Controller::sig_connected_controller, this,
                [&] { bench.controller.setPortListener(false); });
        bench.peer.answer(kReady);
        QVERIFY(bench.controller.trySerialPort());
        bench.peer.send("$OK,STM1,MVP,5,\r\n");
        QTRY_COMPARE(moved.count(), 2);
    }

    void anOpenPortIsNotProbedAgain()
    {
        ControllerBench bench;
        QSignalSpy connected(&bench.controller, &Controller::sig_connected_controller);
        bench.peer.answer(kReady);
        bench.controller.openSerialPort();
        bench.log.clear();
        bench.controller.openSerialPort();
        QCOMPARE(bench.log.messages(),
                 QStringList({"openSerialPort", "the serial port \"/dev/ttyS2\" is already open"}));
        QCOMPARE(connected.count(), 1);
        QCOMPARE(bench.peer.received().size(), 1);
    }

    void skippingTheProbeOnlyOpensThePort()
    {
        ControllerBench bench;
        QSignalSpy connected(&bench.controller, &Controller::sig_connected_controller);
        bench.log.clear();
        bench.controller.m_skipProbe = true;
        bench.controller.openSerialPort();
        QVERIFY(bench.controller.isSerialPortOpen());
        QCOMPARE(bench.log.messages(), QStringList({"openSerialPort", "\"/dev/ttyS2\""}));
        QCOMPARE(connected.count(), 0);
        QVERIFY(bench.peer.received().isEmpty());
    }

    void zigModeDoesNotChangeTheProbe()
    {
        ControllerBench bench;
        bench.controller.m_bZigMode = true;
        bench.peer.answer(kReady);
        bench.controller.openSerialPort();
        QCOMPARE(bench.peer.received(), QList<QByteArray>{kProbe});
    }

    void aMissingDeviceIsSilent()
    {
        BenchRoot root;
        LogRecorder log;
        BenchController controller;
        QSignalSpy connected(&controller, &Controller::sig_connected_controller);
        log.clear();
        controller.openSerialPort();
        QVERIFY(!controller.isSerialPortOpen());
        QCOMPARE(connected.count(), 0);
        QCOMPARE(log.messages(), QStringList({"openSerialPort", "\"/dev/ttyS2\""}));
    }

    void aRefusedProbeClosesThePort_data()
    {
        QTest::addColumn<QByteArray>("reply");
        QTest::newRow("failure") << QByteArray("$NG,DEVICE,READY,,\r\n");
        QTest::newRow("lower case") << QByteArray("$ok,DEVICE,READY,,\r\n");
        QTest::newRow("four fields") << QByteArray("$OK,DEVICE,READY,\r\n");
        QTest::newRow("six fields") << QByteArray("$OK,DEVICE,READY,,,\r\n");
        QTest::newRow("garbage") << QByteArray("\x81\xfe,;$$\r\n");
        QTest::newRow("empty line") << QByteArray("\r\n");
        QTest::newRow("cut by a NUL") << QByteArray("$OK,DEVICE\0,READY,,\r\n", 21);
    }

    void aRefusedProbeClosesThePort()
    {
        QFETCH(QByteArray, reply);
        ControllerBench bench;
        QSignalSpy connected(&bench.controller, &Controller::sig_connected_controller);
        bench.peer.answer(reply);
        bench.controller.openSerialPort();
        QVERIFY(!bench.controller.isSerialPortOpen());
        QVERIFY2(!bench.controller.answers(), "a closed port brings no answers");
        QCOMPARE(connected.count(), 0);
    }

    // For whoever uses the line next, on the instrument or beside it.
    void aClosedPortLeavesTheLineAsItWasFound()
    {
        ControllerBench bench;
        const QByteArray device = QFile::encodeName(bench.root.path() + "/dev/ttyS2");
        const termios found = setUpForATerminal(device);
        bench.peer.answer(kReady);
        QVERIFY(bench.controller.trySerialPort());
        bench.controller.closeSerialPort();
        QVERIFY(!bench.controller.isSerialPortOpen());
        QVERIFY(!bench.controller.answers());
        QCOMPARE(portLocks(device), QStringList());
        const termios left = settingsOf(device);
        QCOMPARE(left.c_iflag, found.c_iflag);
        QCOMPARE(left.c_oflag, found.c_oflag);
        QCOMPARE(left.c_lflag, found.c_lflag);
        QCOMPARE(left.c_cflag, found.c_cflag);
        QCOMPARE(::cfgetospeed(&left), ::cfgetospeed(&found));

        bench.controller.closeSerialPort();
        bench.peer.answer(kReady);
        QVERIFY(bench.controller.trySerialPort());
        QCOMPARE(portLocks(device).size(), 1);
        bench.controller.closeSerialPort();
    }

    // Neither the answer to a command that nobody waits for, nor a port opened without a probe.
    void onlyAnExchangeThatWasWaitedForShowsThatTheBoardAnswers()
    {
        ControllerBench bench;
        QSignalSpy moved(&bench.controller, &Controller::sig_z_stage_mvp);
        bench.open();
        bench.controller.setPortListener(true);
        bench.peer.answer("$OK,STM1,MVP,5,\r\n");
        bench.controller.z_stage_mvp(SERIAL_NON_BLOCKING, 5);
        QTRY_COMPARE(moved.count(), 1);
        QVERIFY(!bench.controller.answers());
        bench.peer.answer("not a reply at all\r\n");
        bench.controller.z_stage_pos();
        QVERIFY2(bench.controller.answers(), "any line is an answer");
    }

    void anUnparsableReplyLetsTheProbePassOnThePreviousOk()
    {
        OpenBench bench;
        bench.exchange("$,STM1,STOP,,\r\n", "$OK,STM1,STOP,,\r\n");
        bench.peer.answer("$OK,DEVICE,READY,\r\n");
        QVERIFY(bench.controller.trySerialPort());
        QCOMPARE(bench.fields(), QStringList({"OK", "STM1", "STOP", ""}));
    }

    void aSecondTryOpensThePortAgain()
    {
        ControllerBench bench;
        QSignalSpy connected(&bench.controller, &Controller::sig_connected_controller);
        bench.peer.answer("$NG,DEVICE,READY,,\r\n");
        bench.controller.openSerialPort();
        QVERIFY(!bench.controller.isSerialPortOpen());
        bench.peer.answer(kReady);
        QVERIFY(bench.controller.trySerialPort());
        QVERIFY(bench.controller.isSerialPortOpen());
        QCOMPARE(connected.count(), 1);
    }

    void aTryConfiguresAPortThatNeverWas()
    {
        ControllerBench bench;
        bench.peer.answer(kReady);
        QVERIFY(bench.controller.trySerialPort());
        QVERIFY(bench.controller.isSerialPortOpen());
        QCOMPARE(bench.log.messages().mid(1, 2), QStringList({"trySerialPort", "\"/dev/ttyS2\""}));
    }

    void aTryWithoutADeviceFailsAtOnce()
    {
        BenchRoot root;
        LogRecorder log;
        BenchController controller;
        controller.openSerialPort();
        log.clear();
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!controller.trySerialPort());
        QVERIFY(timer.elapsed() < kLong_ms);
        QCOMPARE(
            log.messages(),
            QStringList({"trySerialPort", "trySerialPort the serial port \"/dev/ttyS2\" cannot be opened"}));
    }

    void aDeviceThatAppearsLaterIsFoundByATry()
    {
        BenchRoot root;
        LogRecorder log;
        BenchController controller;
        controller.openSerialPort();
        ScriptedPeer peer(root.path());
        peer.answer(kReady);
        QVERIFY(controller.trySerialPort());
    }

    // The port was configured by the attempt that failed: it opens at the first try, unprobed.
    void reopeningAConfiguredPortDoesNotProbe()
    {
        ControllerBench bench;
        bench.peer.answer("$NG,DEVICE,READY,,\r\n");
        bench.controller.openSerialPort();
        bench.log.clear();
        bench.controller.openSerialPort();
        QVERIFY(bench.controller.isSerialPortOpen());
        QCOMPARE(bench.log.messages(), QStringList({"openSerialPort", "opened serial port \"/dev/ttyS2\""}));
        QCOMPARE(bench.peer.received().size(), 1);
    }

    void repeatedProbesAnnounceTheConnectionEachTime()
    {
        ControllerBench bench;
        QSignalSpy connected(&bench.controller, &Controller::sig_connected_controller);
        for (int i = 0; i < 3; ++i) {
            bench.peer.answer(kReady);
            QVERIFY(bench.controller.trySerialPort());
        }
        QCOMPARE(connected.count(), 3);
        QSignalSpy moved(&bench.controller, &Controller::sig_z_stage_abs);
        bench.peer.send("$OK,STM1,ABS,-40,\r\n");
        QTRY_COMPARE(moved.count(), 1);
    }

    void aClosedPortCountsAsATimeoutWithoutTheWait()
    {
        BenchRoot root;
        LogRecorder log;
        BenchController controller;
        log.clear();
        QElapsedTimer timer;
        timer.start();
        controller.writeAndRead_Blocking("$,LED4,ON,,\r\n", kLong_ms, kLong_ms);
        QVERIFY(timer.elapsed() < kLong_ms);
        QVERIFY(log.messages().contains("write_Blocking errorDataWritingTimeout"));
        QVERIFY(log.messages().contains("readAvailableData_Blocking errorDataReadingTimeout"));
        controller.write_nonBlocking("$,LED4,ON,,\r\n");
        QCOMPARE(controller.commandResponse(), QString());
    }
};

QTEST_GUILESS_MAIN(TestControllerLink)
#include "test_controller_link.moc"
