// The simulated board on its serial line, driven by the program's own controller.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <memory>

#include <fcntl.h>

#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSerialPort>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QtTest>

#include "Controller/Controller.h"
#include "platform/InstrumentPath.h"
#include "simulator/board/BoardPort.h"

namespace {

class OwnController : public Controller
{
public:
    OwnController() = default;
};

/// Whether the controller looks for the board when its port opens.
enum class Start { WithHandshake, Silent, Closed };

/// A board on a line of its own, and a controller at the other end.
struct BoardRig
{
    explicit BoardRig(Start start = Start::WithHandshake, BoardPace pace = BoardPace::Instant,
                      const BoardParameters& parameters = {})
        : port(directory.path().toStdString(), parameters, pace)
    {
        setInstrumentRoot(directory.path());
        controller.m_skipProbe = start == Start::Silent;
        if (start != Start::Closed)
            controller.openSerialPort();
    }
    ~BoardRig() { setInstrumentRoot("/"); }
    BoardRig(const BoardRig&) = delete;
    BoardRig& operator=(const BoardRig&) = delete;

    void addFault(const LineFaultRule& rule)
    {
        port.withBoard([&rule](Board& board, InstrumentTime) { board.addFault(rule); });
    }
    void setPowered(bool on)
    {
        port.withBoard([on](Board& board, InstrumentTime now) { board.setPowered(on, now); });
    }

    std::size_t receivedLines()
    {
        std::size_t count = 0;
        port.withBoard([&count](Board& board, InstrumentTime) { count = board.receivedLines().size(); });
        return count;
    }

    QTemporaryDir directory;
    BoardPort port;
    OwnController controller;
};

constexpr int kWait_ms = 5000;

} // namespace

class TestBoardPort : public QObject
{
    Q_OBJECT

private slots:
    void theDeviceStandsBelowTheRootAndGoesWithThePort()
    {
        QTemporaryDir directory;
        const QString device = directory.path() + "/dev/ttyS2";
        {
            const BoardPort port(directory.path().toStdString());
            QVERIFY(port.isServing());
            QCOMPARE(QString::fromStdString(port.devicePath()), device);
            QVERIFY(QFileInfo::exists(device));
        }
        QVERIFY(!QFileInfo(device).isSymLink());
    }

    void aHostThatNeverClosesThePortLeavesNoLockBehind()
    {
        const QTemporaryDir root;
        const QString lock = "LCK.." + QString(root.path() + "/dev/ttyS2").replace('/', '_');
        const QStringList places{"/var/lock/" + lock, "/tmp/" + lock};
        const auto isLocked = [&places] {
            return std::any_of(places.begin(), places.end(),
                               [](const QString& file) { return QFile::exists(file); });
        };
        auto port =
            std::make_unique<BoardPort>(root.path().toStdString(), BoardParameters(), BoardPace::Instant);
        QSerialPort host;
        host.setPortName(root.path() + "/dev/ttyS2");
        QVERIFY(host.open(QIODevice::ReadWrite));
        QVERIFY(isLocked());
        port.reset();
        QVERIFY(!isLocked());
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("Could not remove our own lock file"));
        host.close();
    }

    void aDeviceThatCannotBeMadeIsReported()
    {
        const BoardPort port("/proc/nowhere");
        QVERIFY(!port.isServing());
    }

    void aLinkLeftBehindIsReplaced()
    {
        QTemporaryDir directory;
        QVERIFY(QDir(directory.path()).mkpath("dev"));
        QVERIFY(QFile::link("/nowhere", directory.path() + "/dev/ttyS2"));
        const BoardPort port(directory.path().toStdString());
        QVERIFY(port.isServing());
        QVERIFY(QFileInfo::exists(directory.path() + "/dev/ttyS2"));
    }

    void theControllerDrivesTheWholeBoard()
    {
        BoardRig rig(Start::Closed);
        QSignalSpy connected(&rig.controller, &Controller::sig_connected_controller);
        rig.controller.openSerialPort();
        QCOMPARE(connected.count(), 1);
        QCOMPARE(rig.controller.device_fw_version(), QStringLiteral("1.02"));
        QCOMPARE(rig.controller.device_fw_build(), QStringLiteral("20210415"));
        QCOMPARE(rig.controller.z_stage_pos(), 12000);
        QVERIFY(rig.controller.z_stage_origin(SERIAL_BLOCKING));
        QCOMPARE(rig.controller.z_stage_pos(), 0);
        QVERIFY(rig.controller.z_stage_mvp(SERIAL_BLOCKING, 640));
        QVERIFY(rig.controller.z_stage_mvn(SERIAL_BLOCKING, 100));
        QCOMPARE(rig.controller.m_zStagePosition, 540);
        QCOMPARE(rig.controller.z_stage_pos(), 540);
        QVERIFY(rig.controller.z_stage_abs(SERIAL_BLOCKING, 32000));
        QCOMPARE(rig.port.light().stagePosition_steps, 32000.0);
        QCOMPARE(rig.controller.z_stage_diagnosis(), 0);
        QVERIFY(rig.controller.led_brightness(600));
        QVERIFY(rig.controller.led_off());
        QVERIFY(!rig.port.light().ledOn);
        QCOMPARE(rig.port.light().ledLevel, 600);
        QVERIFY(rig.controller.led_on());
        QVERIFY(rig.port.light().ledOn);
        QVERIFY(rig.controller.stage_kval_acc(1) && rig.controller.stage_kval_dec(2));
        QVERIFY(rig.controller.stage_kval_run(3) && rig.controller.stage_kval_hold(4));
        rig.port.withBoard([](Board& board, InstrumentTime) {
            QCOMPARE(board.amplitudes(), (std::array<int, 4>{1, 2, 3, 4}));
            QCOMPARE(board.receivedLines().front(), std::string("$,DEVICE,READY,,"));
        });
    }

    void aMoveOutsideTheTravelFailsAndMovesOnlyTheTrackedPosition()
    {
        BoardRig rig;
        QCOMPARE(rig.controller.z_stage_pos(), 12000);
        QVERIFY(!rig.controller.z_stage_mvp(SERIAL_BLOCKING, 60000));
        QCOMPARE(rig.controller.m_zStagePosition, 72000);
        QCOMPARE(rig.controller.z_stage_pos(), 12000);
    }

    void nonBlockingMovesEndWithTheirSignals()
    {
        BoardRig rig;
        QSignalSpy absolute(&rig.controller, &Controller::sig_z_stage_abs);
        rig.controller.z_stage_abs(SERIAL_NON_BLOCKING, 20000);
        QTRY_COMPARE(absolute.count(), 1);
        QSignalSpy up(&rig.controller, &Controller::sig_z_stage_mvp);
        rig.controller.z_stage_mvp(SERIAL_NON_BLOCKING, 640);
        QTRY_COMPARE(up.count(), 1);
        QCOMPARE(rig.controller.m_zStagePosition, 20640);
        QCOMPARE(rig.controller.z_stage_pos(), 20640);
    }

    void inRealTimeTheStageIsSeenOnItsWay()
    {
        BoardRig rig(Start::WithHandshake, BoardPace::RealTime);
        QVERIFY(rig.controller.z_stage_rop(250));
        double previous = 12000.0;
        for (int i = 0; i < 3; ++i) {
            QTRY_VERIFY(rig.port.light().stagePosition_steps > previous + 100.0);
            previous = rig.port.light().stagePosition_steps;
        }
        QVERIFY(rig.controller.z_stage_stop());
        QTRY_VERIFY(double(rig.controller.z_stage_pos()) == rig.port.light().stagePosition_steps);
        QVERIFY(rig.controller.m_zStagePosition > previous);
    }

    void theHostMayCloseAndReopenThePort()
    {
        BoardRig rig(Start::Closed);
        for (int i = 0; i < 20; ++i) {
            QSerialPort host;
            host.setPortName(QString::fromStdString(rig.port.devicePath()));
            QVERIFY(host.open(QIODevice::ReadWrite));
            host.write("$,DEVICE,READY,,\r\n");
            while (!host.canReadLine())
                QVERIFY(host.waitForReadyRead(kWait_ms));
            QCOMPARE(host.readLine(), QByteArray("$OK,DEVICE,READY,,\r\n"));
        }
    }

    void aBoardThatIsSwitchedOnLaterAnswersTheNextTry()
    {
        BoardRig rig(Start::Silent);
        rig.setPowered(false);
        rig.controller.writeAndRead_Blocking("$,DEVICE,READY,,\r\n", kWait_ms, 50);
        QCOMPARE(rig.controller.commandResponse(), QString());
        rig.setPowered(true);
        QVERIFY(rig.controller.trySerialPort());
    }

    void theControllerMeetsEveryFault_data()
    {
        QTest::addColumn<bool>("answered");
        QTest::addColumn<QString>("result");
        QTest::newRow("no-answer") << false << "";
        QTest::newRow("ignored") << false << "";
        QTest::newRow("held") << false << "";
        QTest::newRow("late") << false << "";
        QTest::newRow("garbled") << true << "";
        QTest::newRow("trickled") << true << "OK";
        QTest::newRow("doubled") << true << "OK";
        QTest::newRow("unsolicited") << true << "OK";
        QTest::newRow("failure") << true << "NG";
    }

    void theControllerMeetsEveryFault()
    {
        QFETCH(bool, answered);
        QFETCH(QString, result);
        BoardRig rig(Start::Silent);
        rig.addFault({lineFaultNamed(QTest::currentDataTag()).value(), {}, 0});
        const int readTimeout_ms = answered ? kWait_ms : 100;
        rig.controller.writeAndRead_Blocking("$,LED4,ON,,\r\n", kWait_ms, readTimeout_ms);
        QCOMPARE(!rig.controller.commandResponse().isEmpty(), answered);
        QCOMPARE(rig.controller.responseInfo().result, result);
    }

    void aLateAnswerMovesTheTrackedPositionAfterAll()
    {
        BoardParameters parameters;
        parameters.lateAnswer_s = 0.2;
        BoardRig rig(Start::Silent, BoardPace::Instant, parameters);
        rig.addFault({LineFault::Late, "MVP", 0});
        QSignalSpy moved(&rig.controller, &Controller::sig_z_stage_mvp);
        rig.controller.writeAndRead_Blocking("$,STM1,MVP,640,\r\n", kWait_ms, 20);
        QTRY_COMPARE(moved.count(), 1);
        QCOMPARE(rig.controller.m_zStagePosition, 640);
    }

    void aMotionIsAnnouncedWhereItEndsBeforeItsAnswer_data()
    {
        QTest::addColumn<int>("pace");
        QTest::newRow("skipped") << int(BoardPace::Instant);
        QTest::newRow("in real time") << int(BoardPace::RealTime);
    }

    void aMotionIsAnnouncedWhereItEndsBeforeItsAnswer()
    {
        QFETCH(int, pace);
        BoardParameters parameters;
        parameters.stage.start_steps = 1000;
        BoardRig rig(Start::WithHandshake, BoardPace(pace), parameters);
        std::atomic<int> arrivals{0};
        std::atomic<double> before{0.0};
        std::atomic<double> after{0.0};
        std::atomic<bool> held{false};
        rig.port.setArrivalWatcher([&](InstrumentTime arrival) {
            ++arrivals;
            before = rig.port.light(arrival - std::chrono::milliseconds(50)).stagePosition_steps;
            after = rig.port.light(arrival).stagePosition_steps;
            QTest::qSleep(100);
            held = true;
        });
        rig.controller.z_stage_mvp(SERIAL_BLOCKING, 640);
        QVERIFY(held);
        QCOMPARE(arrivals.load(), 1);
        QCOMPARE(after.load(), 1640.0);
        // Braking at 40000 steps per second squared: 50 steps in the last 50 ms. In real time
        // the arrival is noticed a moment later.
        if (pace == int(BoardPace::Instant))
            QVERIFY2(std::abs(before - 1590.0) < 1.0, qPrintable(QString::number(before)));

        // What takes no time arrives nowhere.
        rig.controller.z_stage_pos();
        QCOMPARE(arrivals.load(), 1);
        rig.port.setArrivalWatcher({});
        rig.controller.z_stage_mvp(SERIAL_BLOCKING, 640);
        QCOMPARE(arrivals.load(), 1);
    }

    void aStopOnTheWayIsAnnouncedOnlyAtRest()
    {
        BoardRig rig(Start::WithHandshake, BoardPace::RealTime);
        std::atomic<int> arrivals{0};
        std::atomic<bool> moving{false};
        rig.port.setArrivalWatcher([&](InstrumentTime) {
            ++arrivals;
            rig.port.withBoard(
                [&](Board& board, InstrumentTime now) { moving = moving || board.stage().isMoving(now); });
        });
        rig.controller.z_stage_mvp(SERIAL_NON_BLOCKING, 20000);
        QTest::qWait(300);
        QCOMPARE(arrivals.load(), 0);
        rig.controller.z_stage_stop();
        QTRY_VERIFY(arrivals > 0);
        QVERIFY(!moving);
        rig.port.setArrivalWatcher({});
    }

    void anUnaskedLineReachesTheListener()
    {
        BoardRig rig;
        QSignalSpy moved(&rig.controller, &Controller::sig_z_stage_origin);
        rig.port.withBoard(
            [](Board& board, InstrumentTime now) { board.sendUnasked("$OK,STM1,ORIGIN,,\r\n", now); });
        QTRY_COMPARE(moved.count(), 1);
    }

    // A host that never reads fills the line; the board must neither block nor fail for it.
    void aHostThatDoesNotReadDoesNotStopTheBoard()
    {
        BoardRig rig(Start::Closed);
        const FileDescriptor host(::open(rig.port.devicePath().c_str(), O_RDWR | O_NOCTTY));
        const std::string line = "$,DEVICE,READY,,\r\n";
        constexpr std::size_t kLines = 2000; // ten times what the line holds
        for (std::size_t sent = 1; sent <= kLines; ++sent)
            QCOMPARE(::write(host.get(), line.data(), line.size()), ssize_t(line.size()));
        QTRY_COMPARE(rig.receivedLines(), kLines);
    }

    void theOpticsMayLookFromAnotherThread()
    {
        BoardRig rig(Start::WithHandshake, BoardPace::RealTime);
        std::atomic<bool> ending{false};
        std::atomic<bool> plausible{true};
        std::thread optics([&] {
            while (!ending) {
                const BoardLight light = rig.port.light();
                if (light.stagePosition_steps < 12000.0 || light.stagePosition_steps > 12640.0 ||
                    !light.ledOn)
                    plausible = false;
            }
        });
        QVERIFY(rig.controller.z_stage_mvp(SERIAL_BLOCKING, 640));
        ending = true;
        optics.join();
        QVERIFY(plausible);
    }

    void thePaceCanBeChangedBetweenMoves()
    {
        BoardRig rig;
        QVERIFY(rig.controller.z_stage_mvp(SERIAL_BLOCKING, 640));
        rig.port.setPace(BoardPace::RealTime);
        QElapsedTimer clock;
        clock.start();
        QVERIFY(rig.controller.z_stage_mvp(SERIAL_BLOCKING, 640));
        // Half the way at 40000 steps/s^2 takes 0.126 s, and so does the other half.
        QVERIFY(clock.elapsed() >= 250);
        QCOMPARE(rig.controller.z_stage_pos(), 13280);
        rig.port.setPace(BoardPace::Instant);
        QVERIFY(rig.controller.z_stage_mvn(SERIAL_BLOCKING, 1280));
        QCOMPARE(rig.controller.z_stage_pos(), 12000);
    }
};

QTEST_GUILESS_MAIN(TestBoardPort)
#include "test_board_port.moc"
