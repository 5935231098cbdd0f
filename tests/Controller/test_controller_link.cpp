#include <memory>

#include <fcntl.h>
#include <termios.h>

#include <QAbstractEventDispatcher>
#include <QElapsedTimer>
#include <QSerialPort>
#include <QtTest>

#include "ControllerFixture.h"
#include "support/PortLocks.h"

namespace {

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
        ControllerFixture fixture;
        QCOMPARE(fixture.fields(), QStringList({"", "", "", ""}));
        QCOMPARE(fixture.controller.commandResponse(), QString());
        QCOMPARE(fixture.controller.m_zStagePosition, 0);
        QVERIFY(!fixture.controller.m_skipProbe);
        QVERIFY(!fixture.controller.m_bZigMode);
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QVERIFY(!fixture.controller.answers());
    }

    void openingProbesTheBoard()
    {
        ControllerFixture fixture;
        connect(&fixture.controller, &Controller::sig_connected_controller, this,
                [] { qDebug() << "connected"; });
        fixture.log.clear();
        fixture.openAnswered();
        QCOMPARE(fixture.connected.count(), 1);
        QVERIFY(fixture.controller.isSerialPortOpen());
        QCOMPARE(fixture.peer.received(), QList<QByteArray>{kProbe});
        QCOMPARE(fixture.log.messages(),
                 QStringList({
                     "openSerialPort",
                     "\"/dev/ttyS2\"",
                     "trySerialPort",
                     "write_Blocking command: \"$,DEVICE,READY,,\\r\\n\"",
                     "readAvailableData_Blocking m_commandResponse: \"$OK,DEVICE,READY,,\\r\\n\"",
                     "parsing_responseReceived response: \"$OK,DEVICE,READY,,\"",
                     "opened serial port \"/dev/ttyS2\"",
                     "connected",
                 }));
    }

    // A lock file of no device's, and a wait for the disk, would be all that comes of it.
    void aPortWithoutANameIsNotTried()
    {
        ControllerFixture fixture;
        auto* port = fixture.controller.findChild<QSerialPort*>();
        QVERIFY(port != nullptr);
        QStringList tried;
        connect(port, &QSerialPort::errorOccurred, this, [&] { tried.append(port->portName()); });
        fixture.openAnswered();
        QVERIFY(fixture.controller.isSerialPortOpen());
        QVERIFY(!tried.isEmpty());
        QVERIFY2(!tried.contains(""), "a port without a name was tried");
    }

    // By the port's own word: a pseudo-terminal does not take every setting.
    void theLineIsSetUpForTheBoard()
    {
        OpenFixture fixture;
        const QObjectList children = fixture.controller.children();
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
        ControllerFixture fixture;
        fixture.openAnswered();
        fixture.peer.send("$OK,STM1,MVP,5,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
        QCOMPARE(fixture.controller.m_zStagePosition, 5);

        // Whatever the acknowledgement made of it.
        connect(&fixture.controller, &Controller::sig_connected_controller, this,
                [&] { fixture.controller.setPortListener(false); });
        QVERIFY(fixture.tryAnswered());
        fixture.peer.send("$OK,STM1,MVP,5,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 2);
    }

    void anOpenPortIsNotProbedAgain()
    {
        ControllerFixture fixture;
        fixture.openAnswered();
        fixture.log.clear();
        fixture.controller.openSerialPort();
        QCOMPARE(fixture.log.messages(),
                 QStringList({"openSerialPort", "the serial port \"/dev/ttyS2\" is already open"}));
        QCOMPARE(fixture.connected.count(), 1);
        QCOMPARE(fixture.peer.received().size(), 1);
    }

    void skippingTheProbeOnlyOpensThePort()
    {
        ControllerFixture fixture;
        fixture.log.clear();
        fixture.controller.m_skipProbe = true;
        fixture.controller.openSerialPort();
        QVERIFY(fixture.controller.isSerialPortOpen());
        QCOMPARE(fixture.log.messages(), QStringList({"openSerialPort", "\"/dev/ttyS2\""}));
        QCOMPARE(fixture.connected.count(), 0);
        QVERIFY(fixture.peer.received().isEmpty());
    }

    void zigModeDoesNotChangeTheProbe()
    {
        ControllerFixture fixture;
        fixture.controller.m_bZigMode = true;
        fixture.openAnswered();
        QCOMPARE(fixture.peer.received(), QList<QByteArray>{kProbe});
    }

    void aMissingDeviceIsSilent()
    {
        LonelyFixture fixture;
        fixture.log.clear();
        fixture.controller.openSerialPort();
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QCOMPARE(fixture.connected.count(), 0);
        QCOMPARE(fixture.log.messages(), QStringList({"openSerialPort", "\"/dev/ttyS2\""}));
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
        ControllerFixture fixture;
        fixture.openAnswered(reply);
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QVERIFY2(!fixture.controller.answers(), "a closed port brings no answers");
        QCOMPARE(fixture.connected.count(), 0);
    }

    // For whoever uses the line next, on the instrument or beside it.
    void aClosedPortLeavesTheLineAsItWasFound()
    {
        ControllerFixture fixture;
        const QByteArray device = QFile::encodeName(fixture.root.path() + "/dev/ttyS2");
        const termios found = setUpForATerminal(device);
        QVERIFY(fixture.tryAnswered());
        fixture.controller.closeSerialPort();
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QVERIFY(!fixture.controller.answers());
        QCOMPARE(portLocks(device), QStringList());
        const termios left = settingsOf(device);
        QCOMPARE(left.c_iflag, found.c_iflag);
        QCOMPARE(left.c_oflag, found.c_oflag);
        QCOMPARE(left.c_lflag, found.c_lflag);
        QCOMPARE(left.c_cflag, found.c_cflag);
        QCOMPARE(::cfgetospeed(&left), ::cfgetospeed(&found));

        fixture.controller.closeSerialPort();
        QVERIFY(fixture.tryAnswered());
        QCOMPARE(portLocks(device).size(), 1);
        fixture.controller.closeSerialPort();
    }

    // Neither the answer to a command that nobody waits for, nor a port opened without a probe.
    void onlyAnExchangeThatWasWaitedForShowsThatTheBoardAnswers()
    {
        ControllerFixture fixture;
        fixture.open();
        fixture.controller.setPortListener(true);
        fixture.peer.answer("$OK,STM1,MVP,5,\r\n");
        fixture.controller.z_stage_mvp(SERIAL_NON_BLOCKING, 5);
        QTRY_COMPARE(fixture.moves.size(), 1);
        QVERIFY(!fixture.controller.answers());
        fixture.peer.answer("not a reply at all\r\n");
        fixture.controller.z_stage_pos();
        QVERIFY2(fixture.controller.answers(), "any line is an answer");
    }

    void anUnparsableReplyLetsTheProbePassOnThePreviousOk()
    {
        OpenFixture fixture;
        fixture.exchange("$,STM1,STOP,,\r\n", "$OK,STM1,STOP,,\r\n");
        QVERIFY(fixture.tryAnswered("$OK,DEVICE,READY,\r\n"));
        QCOMPARE(fixture.fields(), QStringList({"OK", "STM1", "STOP", ""}));
    }

    void aSecondTryOpensThePortAgain()
    {
        ControllerFixture fixture;
        fixture.openAnswered("$NG,DEVICE,READY,,\r\n");
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QVERIFY(fixture.tryAnswered());
        QVERIFY(fixture.controller.isSerialPortOpen());
        QCOMPARE(fixture.connected.count(), 1);
    }

    void aTryConfiguresAPortThatNeverWas()
    {
        ControllerFixture fixture;
        QVERIFY(fixture.tryAnswered());
        QVERIFY(fixture.controller.isSerialPortOpen());
        QCOMPARE(fixture.log.messages().mid(1, 2), QStringList({"trySerialPort", "\"/dev/ttyS2\""}));
    }

    void aTryWithoutADeviceFailsAtOnce()
    {
        LonelyFixture fixture;
        fixture.controller.openSerialPort();
        fixture.log.clear();
        QElapsedTimer timer;
        timer.start();
        QVERIFY(!fixture.controller.trySerialPort());
        QVERIFY(timer.elapsed() < kLong_ms);
        QCOMPARE(
            fixture.log.messages(),
            QStringList({"trySerialPort", "trySerialPort the serial port \"/dev/ttyS2\" cannot be opened"}));
    }

    void aDeviceThatAppearsLaterIsFoundByATry()
    {
        LonelyFixture fixture;
        fixture.controller.openSerialPort();
        ScriptedPeer peer(fixture.root.path());
        peer.answer(kReady);
        QVERIFY(fixture.controller.trySerialPort());
    }

    // The port was configured by the attempt that failed: it opens at the first try, unprobed.
    void reopeningAConfiguredPortDoesNotProbe()
    {
        ControllerFixture fixture;
        fixture.openAnswered("$NG,DEVICE,READY,,\r\n");
        fixture.log.clear();
        fixture.controller.openSerialPort();
        QVERIFY(fixture.controller.isSerialPortOpen());
        QCOMPARE(fixture.log.messages(),
                 QStringList({"openSerialPort", "opened serial port \"/dev/ttyS2\""}));
        QCOMPARE(fixture.peer.received().size(), 1);

        // The exchange that failed has left the listener on.
        fixture.peer.send("$OK,STM1,MVP,5,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
    }

    void repeatedProbesAnnounceTheConnectionEachTime()
    {
        ControllerFixture fixture;
        for (int i = 0; i < 3; ++i)
            QVERIFY(fixture.tryAnswered());
        QCOMPARE(fixture.connected.count(), 3);
        fixture.peer.send("$OK,STM1,ABS,-40,\r\n");
        QTRY_COMPARE(fixture.moves.size(), 1);
    }

    void aClosedPortCountsAsATimeoutWithoutTheWait()
    {
        LonelyFixture fixture;
        fixture.log.clear();
        QElapsedTimer timer;
        timer.start();
        fixture.controller.writeAndRead_Blocking("$,LED4,ON,,\r\n", kLong_ms, kLong_ms);
        QVERIFY(timer.elapsed() < kLong_ms);
        QVERIFY(fixture.log.messages().contains("write_Blocking errorDataWritingTimeout"));
        QVERIFY(fixture.log.messages().contains("readAvailableData_Blocking errorDataReadingTimeout"));
        fixture.controller.write_nonBlocking("$,LED4,ON,,\r\n");
        QCOMPARE(fixture.controller.commandResponse(), QString());
    }

    void aLineThatIsGoneKeepsNobodyBusy_data()
    {
        QTest::addColumn<bool>("isWaitedFor");
        QTest::newRow("an exchange") << true;
        QTest::newRow("a move that is not waited for") << false;
    }

    // An adapter that is pulled out of its socket. What cannot be sent must not be tried for ever.
    void aLineThatIsGoneKeepsNobodyBusy()
    {
        QFETCH(bool, isWaitedFor);
        LonelyFixture fixture;
        auto peer = std::make_unique<ScriptedPeer>(fixture.root.path());
        fixture.open();
        fixture.controller.setPortListener(true);
        peer.reset();
        QElapsedTimer time;
        time.start();
        fixture.controller.z_stage_abs(isWaitedFor ? SERIAL_BLOCKING : SERIAL_NON_BLOCKING, 5);
        QVERIFY(time.elapsed() < kLong_ms);
        int rounds = 0;
        const auto counting = connect(QAbstractEventDispatcher::instance(), &QAbstractEventDispatcher::awake,
                                      [&rounds] { ++rounds; });
        QTest::qWait(300);
        disconnect(counting);
        constexpr int waitsOwn = 60; // it looks every 10 ms
        QVERIFY2(rounds < waitsOwn, qPrintable(QString::number(rounds)));
    }

    // An adapter that is pulled out of its socket and plugged in again, while nothing is asked.
    void aLineThatIsBackIsFoundByTheFirstTry()
    {
        LonelyFixture fixture;
        auto peer = std::make_unique<ScriptedPeer>(fixture.root.path());
        peer->answer(kReady);
        fixture.controller.openSerialPort();
        QVERIFY(fixture.controller.answers());

        peer.reset();
        QVERIFY2(!fixture.controller.answers(), "nothing can come from a line that is gone");
        peer = std::make_unique<ScriptedPeer>(fixture.root.path());
        QVERIFY2(!fixture.controller.answers(), "the line that is back has not been opened");
        peer->answer(kReady);
        QVERIFY2(fixture.controller.trySerialPort(), "the try went to the line that is gone");
        QCOMPARE(fixture.connected.count(), 2);
        QVERIFY(fixture.controller.answers());
        QCOMPARE(peer->received(), QList<QByteArray>{kProbe});
    }

    void aTryWithoutTheLineClosesIt()
    {
        LonelyFixture fixture;
        auto peer = std::make_unique<ScriptedPeer>(fixture.root.path());
        fixture.open();
        peer.reset();
        QVERIFY(!fixture.controller.trySerialPort());
        QVERIFY(!fixture.controller.isSerialPortOpen());
        QCOMPARE(fixture.log.messages().last(),
                 QString("trySerialPort the serial port \"/dev/ttyS2\" cannot be opened"));
        QCOMPARE(fixture.echoed.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestControllerLink)
#include "test_controller_link.moc"
