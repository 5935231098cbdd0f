// How the program ends: by Exit, and by a signal from outside. Each case has a window and an
// event loop of its own.

#include <csignal>
#include <functional>
#include <memory>

#include <QApplication>
#include <QProgressBar>
#include <QRegularExpression>
#include <QThread>
#include <QTimer>
#include <QtTest>

#include "Algorithm/alg_Autofocus.h"
#include "Controller/Controller.h"
#include "camera/OV5642Camera.h"
#include "platform/TerminationSignal.h"
#include "support/EventWatch.h"
#include "support/PortLocks.h"
#include "support/WindowFixture.h"

namespace {

const QString kExitStyle = "background-color: rgb(255, 85, 0);";
const QString kSlots = "void ORLA_II_Plus_Verifier::";
const QString kQuit = "Are you sure quit ?";
const QStringList kParking{"$,LED4,OFF,,", "$,STM1,ORIGIN,,"};
constexpr int kEndless_ms = 60000;
constexpr int kNeverEnded = 77;

} // namespace

class TestWindowExit : public QObject
{
    Q_OBJECT

private slots:
    void cleanup()
    {
        m_fixture.reset();
        m_termination.reset();
        // Where a case did not get that far.
        Controller::getInstance()->closeSerialPort();
    }

    void thePortIsGivenBack_data() { zigRows(); }

    void thePortIsGivenBack()
    {
        QFETCH(bool, zigMode);
        makeWindow(zigMode);
        const QString port = m_fixture->machinePath("/dev/ttyS2");
        QCOMPARE(portLocks(port).size(), 1);
        pressExit();
        expectEnd(parkingOf(zigMode));
        QVERIFY(!Controller::getInstance()->answers());
        QCOMPARE(portLocks(port), QStringList());
    }

    // The board takes its time, and so do the camera's pauses; all of it is seen.
    void exitShowsThatItIsAtWork_data() { zigRows(); }

    void exitShowsThatItIsAtWork()
    {
        QFETCH(bool, zigMode);
        makeWindow(zigMode);
        QCOMPARE(m_fixture->style("BUTTON_EXIT"), kExitStyle);
        EventWatch watch({m_fixture->find<QWidget>("BUTTON_EXIT")});
        const auto connection = connect(
            &m_fixture->window(), &ORLA_II_Plus_Verifier::sig_debug_Message,
            [&](const QStringList& parts) { watch.note(parts.mid(0, 2).join(' ')); });
        const auto traffic =
            m_fixture->atBoardLine("$", [&](const QString& line) { watch.note(line.trimmed()); });
        QStringList looks;
        watch.atChange([&](const QString& change) {
            if (change.startsWith("paint") || change.startsWith("$"))
                looks << m_fixture->style("BUTTON_EXIT") +
                             (m_fixture->isEnabled("BUTTON_EXIT") ? " free" : "");
        });
        m_fixture->boxes().answerNextWith("Yes");
        QTimer::singleShot(
            0, this, [&] { QMetaObject::invokeMethod(&m_fixture->window(), "on_BUTTON_EXIT_clicked"); });
        QCOMPARE(loop(), 0);
        disconnect(connection);

        const QString asked = kSlots + "on_BUTTON_EXIT_clicked() shutdown hardware";
        const QString stop = kSlots + "stopCamera()";
        const QStringList after = watch.after(asked);
        const QStringList until = after.mid(0, after.indexOf(zigMode ? stop : kParking.first()));
        QCOMPARE(until.count("turn"), 1);
        QCOMPARE(until.first(), QString("disabled BUTTON_EXIT"));
        QVERIFY2(until.mid(until.indexOf("turn")).contains("paint BUTTON_EXIT"), "it is seen to be at work");
        QVERIFY(after.contains(stop));
        QVERIFY2(looks.contains(WindowFixture::kHighlight), qPrintable(looks.join('\n')));
        if (!zigMode) {
            const QStringList lines = after.filter("$,");
            QCOMPARE(lines.filter(QRegularExpression("^\\$,")), kParking);
            QVERIFY(after.indexOf(kParking.last()) < after.indexOf(stop));
        }
        QCOMPARE(m_fixture->style("BUTTON_EXIT"), kExitStyle);
        QVERIFY(m_fixture->find<QWidget>("BUTTON_EXIT")->isEnabledTo(&m_fixture->window()));
    }

    void onlyYesEndsTheProgram_data()
    {
        QTest::addColumn<bool>("byKey");
        QTest::newRow("Escape") << true;
        QTest::newRow("the box is closed") << false;
    }

    void onlyYesEndsTheProgram()
    {
        QFETCH(bool, byKey);
        makeWindow(false);
        const auto looking = whenABoxIsOpen([byKey](QWidget* box) {
            if (byKey)
                QTest::keyClick(box, Qt::Key_Escape);
            else
                box->close();
        });
        m_fixture->click("BUTTON_EXIT");
        QVERIFY2(!looking->isActive(), "no box has opened");
        QVERIFY(QApplication::activeModalWidget() == nullptr);
        QCOMPARE(m_fixture->messages(), kSlots + "on_BUTTON_EXIT_clicked()() \n");
        QCOMPARE(m_fixture->takeBoardLines(), QStringList());
        QVERIFY(isStreaming());
        QVERIFY(m_fixture->window().isEnabled());
        QVERIFY(m_fixture->waitForFrames(2));
    }

    // Presses that wait while the program shuts down are not carried out any more.
    void noPressGetsInBetweenTheAnswerAndTheEnd_data() { zigRows(); }

    void noPressGetsInBetweenTheAnswerAndTheEnd()
    {
        QFETCH(bool, zigMode);
        makeWindow(zigMode);
        QStringList log;
        connect(&m_fixture->window(), &ORLA_II_Plus_Verifier::sig_debug_Message, this,
                [&](const QStringList& parts) {
                    log << parts;
                    if (!parts.contains("shutdown hardware"))
                        return;
                    for (const char* name : {"BUTTON_AUTOFOCUS", "BUTTON_Z_MOVE_PLUS", "BUTTON_CONNECT",
                                             "BUTTON_RESOLUTION_VGA", "BUTTON_EXIT", "BUTTON_PASSWORD"})
                        QMetaObject::invokeMethod(m_fixture->find<QPushButton>(name), "click",
                                                  Qt::QueuedConnection);
                });
        pressExit();
        QCOMPARE(loop(), 0);
        QCoreApplication::processEvents();
        disconnect(&m_fixture->window(), nullptr, this, nullptr);
        expectEnded(parkingOf(zigMode));
        QCOMPARE(m_fixture->boxes().texts(), QStringList(kQuit));
        QCOMPARE(log.filter("_clicked()").size(), 2);
    }

    // The stage is parked and stays there; the run's own turn of the event loop let Exit in.
    void aRunDoesNotStartOnceExitWasAnswered()
    {
        makeWindow(false);
        m_fixture->setText("EDIT_Z_POSITION", "31500");
        auto* bar = m_fixture->find<QProgressBar>("PROGRESS_AUTOFOCUS");
        bar->setValue(50);
        m_fixture->boxes().answerNextWith("Yes");
        connect(
            bar, &QProgressBar::valueChanged, &m_fixture->window(),
            [this](int value) {
                if (value == 0)
                    QMetaObject::invokeMethod(&m_fixture->window(), "on_BUTTON_EXIT_clicked",
                                              Qt::QueuedConnection);
            });
        QTimer::singleShot(0, this, [this] { m_fixture->click("BUTTON_AUTOFOCUS"); });
        QCOMPARE(loop(), 0);
        QCOMPARE(m_fixture->boxes().texts(), QStringList(kQuit));
        QCOMPARE(m_fixture->takeBoardLines(), kParking);
        QVERIFY(!m_fixture->messages().contains("alg_Autofocus::process"));
        QCOMPARE(m_fixture->board().light().stagePosition_steps, 0.0);
    }

    // The answer that a run waits for may lie ready when Exit is answered.
    void aRunThatWaitsIsNotCarriedOnByExit()
    {
        makeWindow(false);
        m_fixture->setText("EDIT_Z_POSITION", "31500");
        m_fixture->addFault({LineFault::NoAnswer, "MVP", 1});
        QTimer::singleShot(0, this, [this] {
            m_fixture->click("BUTTON_AUTOFOCUS");
            m_fixture->waitUntil([this] { return m_fixture->takeBoardLines().contains("$,STM1,MVP,640,"); });
            connect(&m_fixture->window(), &ORLA_II_Plus_Verifier::sig_debug_Message, this,
                    [this](const QStringList& parts) {
                        if (parts.contains("shutdown hardware"))
                            answerAtLast();
                    });
            m_fixture->boxes().answerNextWith("Yes");
            m_fixture->click("BUTTON_EXIT");
        });
        QCOMPARE(loop(), 0);
        disconnect(&m_fixture->window(), nullptr, this, nullptr);
        QCOMPARE(m_fixture->takeBoardLines(), kParking);
    }

    void aSignalIsTakenAsExitAnsweredWithYes_data()
    {
        QTest::addColumn<int>("number");
        QTest::addColumn<bool>("zigMode");
        QTest::newRow("SIGTERM") << SIGTERM << false;
        QTest::newRow("SIGTERM in Zig mode") << SIGTERM << true;
        QTest::newRow("SIGINT") << SIGINT << false;
        QTest::newRow("SIGHUP") << SIGHUP << false;
    }

    void aSignalIsTakenAsExitAnsweredWithYes()
    {
        QFETCH(int, number);
        QFETCH(bool, zigMode);
        makeWindow(zigMode);
        QTimer::singleShot(0, this, [number] { ::raise(number); });
        expectEnd(parkingOf(zigMode));
        QVERIFY(m_fixture->boxes().seen().isEmpty());
        const QString log = m_fixture->messages();
        const QString head = kSlots + "slot_terminate()() ";
        QVERIFY2(log.startsWith(head + '\n' + head + "shutdown hardware"), qPrintable(log));
        QCOMPARE(m_fixture->style("BUTTON_EXIT"), kExitStyle);
    }

    void aSignalEndsTheProgramBeneathABox_data()
    {
        QTest::addColumn<QString>("button");
        QTest::newRow("question of Exit") << "BUTTON_EXIT";
        QTest::newRow("critical") << "BUTTON_SKIP_FRAME";
        QTest::newRow("information") << "BUTTON_PASSWORD";
    }

    void aSignalEndsTheProgramBeneathABox()
    {
        QFETCH(QString, button);
        makeWindow(false);
        m_fixture->setText("EDIT_SKIP_FRAME", "0");
        const auto looking = whenABoxIsOpen([](QWidget*) { ::raise(SIGTERM); });
        QTimer::singleShot(0, this, [&] { m_fixture->click(qPrintable(button)); });
        expectEnd(kParking);
        QVERIFY2(!looking->isActive(), "no box has opened");
        QVERIFY(QApplication::activeModalWidget() == nullptr);
    }

    void aSecondDemandToEndChangesNothing()
    {
        makeWindow(false);
        QTimer::singleShot(0, this, [this] {
            m_fixture->window().slot_terminate();
            m_fixture->window().slot_terminate();
        });
        expectEnd(kParking);
        QCOMPARE(m_fixture->messages().count("shutdown hardware"), 1);
    }

    void aSignalDuringABlockingExchangeWaitsForItsEnd()
    {
        makeWindow(false);
        m_fixture->setText("EDIT_Z_DIAGNOSIS", "");
        const auto raising = m_fixture->atBoardLine(
            "$,STM1,SELF_DIAG", [](const QString&) { ::raise(SIGTERM); });
        QTimer::singleShot(0, this, [this] { m_fixture->click("BUTTON_Z_DIAGNOSIS"); });
        expectEnd(QStringList("$,STM1,SELF_DIAG,,") + kParking);
        QCOMPARE(m_fixture->text("EDIT_Z_DIAGNOSIS"), QString("0"));
    }

    void moreSignalsChangeNothing()
    {
        makeWindow(false);
        const auto raising = m_fixture->atBoardLine(
            "$",
            [](const QString&) {
                ::raise(SIGTERM);
                ::raise(SIGINT);
            });
        QTimer::singleShot(0, this, [] {
            for (int i = 0; i < 3; ++i)
                ::raise(SIGTERM);
        });
        expectEnd(kParking);
        QCOMPARE(m_fixture->messages().count("shutdown hardware"), 1);
    }

    void aSignalBeforeTheEventLoopEndsTheProgramAsSoonAsItRuns()
    {
        makeWindow(false);
        ::raise(SIGTERM);
        expectEnd(kParking);
    }

    // A handler processes events before it begins, and then finds that the end has been asked for.
    void nothingIsOpenedOnceASignalHasCome_data()
    {
        QTest::addColumn<QString>("handler");
        QTest::addColumn<bool>("frozen");
        QTest::newRow("connect") << "on_BUTTON_CONNECT_clicked" << false;
        QTest::newRow("live view again") << "on_BUTTON_QC_CAPTURE_clicked" << true;
        QTest::newRow("password") << "on_BUTTON_PASSWORD_clicked" << false;
        QTest::newRow("autofocus") << "on_BUTTON_AUTOFOCUS_clicked" << false;
        QTest::newRow("origin") << "on_BUTTON_Z_ORIGIN_clicked" << false;
    }

    void nothingIsOpenedOnceASignalHasCome()
    {
        QFETCH(QString, handler);
        QFETCH(bool, frozen);
        makeWindow(true);
        if (frozen) {
            m_fixture->click("BUTTON_RESOLUTION_5M");
            m_fixture->click("BUTTON_QC_CAPTURE");
            QTRY_VERIFY(m_fixture->window().isEnabled());
            QVERIFY(!isStreaming());
        }
        QTimer::singleShot(0, this, [&] {
            ::raise(SIGTERM);
            QMetaObject::invokeMethod(&m_fixture->window(), qPrintable(handler));
        });
        expectEnd({});
        QCOMPARE(m_fixture->tree().passwordRuns().size(), 0);
    }

    // As a screen that is gone has Qt do: no event loop runs, and nobody can be shown anything.
    void anEndWithoutEventLoopParksUnseen_data() { zigRows(); }

    void anEndWithoutEventLoopParksUnseen()
    {
        QFETCH(bool, zigMode);
        makeWindow(zigMode);
        QVERIFY(m_fixture->camera().faults().enable("ioctl:VIDIOC_STREAMOFF"));
        for (int times = 0; times < 2; ++times) {
            m_fixture->window().parkUnseen();
            expectEnded(times == 0 ? parkingOf(zigMode) : QStringList());
        }
        Controller::getInstance()->blockSignals(false);
        QCOMPARE(portLocks(m_fixture->machinePath("/dev/ttyS2")), QStringList());
        QCOMPARE(m_fixture->messages(), QString());
        QCOMPARE(m_fixture->traffic(), QString());
    }

    void afterExitNothingIsParkedAgain()
    {
        makeWindow(false);
        pressExit();
        expectEnd(kParking);
        m_fixture->window().parkUnseen();
        Controller::getInstance()->blockSignals(false);
        expectEnded({});
    }

private:
    static void zigRows()
    {
        QTest::addColumn<bool>("zigMode");
        QTest::newRow("parks") << false;
        QTest::newRow("Zig mode") << true;
    }

    static QStringList parkingOf(bool zigMode) { return zigMode ? QStringList() : kParking; }

    /// A window that has started, with all that was said on the way forgotten.
    void makeWindow(bool zigMode)
    {
        WindowFixture::Options options;
        options.zigMode = zigMode;
        // Whoever started the tests may have had them ignored, as nohup does; then they would be.
        for (const int number : {SIGINT, SIGTERM, SIGHUP})
            std::signal(number, SIG_DFL);
        m_termination = std::make_unique<TerminationSignal>(TerminationSignal::Second::IsAbsorbed);
        m_fixture = std::make_unique<WindowFixture>(options);
        connect(m_termination.get(), &TerminationSignal::received, &m_fixture->window(),
                &ORLA_II_Plus_Verifier::slot_terminate);
        m_fixture->takeBoardLines();
        m_fixture->clearConsoles();
    }

    /// The board sends the answer that it owes, and the line is given the time to bring it.
    void answerAtLast()
    {
        m_fixture->sayUnasked("$OK,STM1,MVP,640,\r\n");
        QThread::msleep(200);
    }

    bool isStreaming() const { return m_fixture->programCamera()->isStreaming(); }

    void pressExit()
    {
        m_fixture->boxes().answerNextWith("Yes");
        QTimer::singleShot(0, this, [this] { m_fixture->click("BUTTON_EXIT"); });
    }

    /// The program's event loop up to its end.
    static int loop()
    {
        QTimer limit;
        limit.callOnTimeout([] { QCoreApplication::exit(kNeverEnded); });
        limit.start(kEndless_ms);
        return QApplication::exec();
    }

    /// Has the next box answered by nobody but this function, and once; until then, what is
    /// returned is active.
    std::unique_ptr<QTimer> whenABoxIsOpen(const std::function<void(QWidget* box)>& function)
    {
        m_fixture->boxes().stop();
        auto looking = std::make_unique<QTimer>();
        looking->callOnTimeout([timer = looking.get(), function] {
            QWidget* box = QApplication::activeModalWidget();
            if (box == nullptr)
                return;
            timer->stop();
            function(box);
        });
        looking->start(20);
        return looking;
    }

    void expectEnd(const QStringList& lines)
    {
        QCOMPARE(loop(), 0);
        expectEnded(lines);
    }

    void expectEnded(const QStringList& lines)
    {
        QCOMPARE(m_fixture->takeBoardLines(), lines);
        QVERIFY(!isStreaming());
        QVERIFY(!Controller::getInstance()->isSerialPortOpen());
    }

    std::unique_ptr<TerminationSignal> m_termination;
    std::unique_ptr<WindowFixture> m_fixture;
};

QTEST_MAIN(TestWindowExit)
#include "test_window_exit.moc"
