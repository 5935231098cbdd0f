#include <QPlainTextEdit>
#include <QScrollBar>
#include <QSpinBox>
#include <QtTest>

#include "Controller/Controller.h"
#include "support/EventWatch.h"
#include "support/WindowFixture.h"

class TestWindowConsoles : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_fixture = std::make_unique<WindowFixture>(); }

    void cleanupTestCase() { m_fixture.reset(); }

    void init()
    {
        if (m_fixture->find<QPushButton>("BUTTON_DEBUG")->isChecked())
            m_fixture->click("BUTTON_DEBUG");
        m_fixture->find<QSpinBox>("SPIN_DEBUG")->setValue(1);
        m_fixture->clearConsoles();
    }

    void theHandshakeCanBeReadInTheControllerConsole()
    {
        // A second window of the process connects by the button.
        QVERIFY(Controller::getInstance()->trySerialPort());
        QVERIFY(m_fixture->traffic().startsWith("$,DEVICE,READY,,\n$OK,DEVICE,READY"));
    }

    void aMessageIsShownAsACall()
    {
        m_fixture->window().slot_debug_Message({"slot_z_stage_mvp", "position:", "230"});
        QCOMPARE(m_fixture->messages(), QString("slot_z_stage_mvp() position: 230 \n"));
    }

    void theWindowsOwnSignalReachesTheConsole()
    {
        emit m_fixture->window().sig_debug_Message({"f", "ab"});
        QCOMPARE(m_fixture->messages(), QString("f() ab \n"));
    }

    void aCommandAndItsReplyStandOnLinesOfTheirOwn()
    {
        Controller::getInstance()->z_stage_pos();
        QCOMPARE(m_fixture->traffic().count('\n'), 2);
        QVERIFY(m_fixture->traffic().startsWith("$,STM1,GET_POS,,\n$OK,STM1,GET_POS,"));
    }

    void theSelectorChoosesWhatTheButtonShows_data()
    {
        QTest::addColumn<int>("selected");
        QTest::addColumn<bool>("messages");
        QTest::addColumn<bool>("traffic");
        QTest::newRow("1 messages") << 1 << true << false;
        QTest::newRow("2 controller") << 2 << false << true;
        QTest::newRow("3 focus graph") << 3 << false << false;
    }

    void theSelectorChoosesWhatTheButtonShows()
    {
        QFETCH(int, selected);
        m_fixture->find<QSpinBox>("SPIN_DEBUG")->setValue(selected);
        m_fixture->click("BUTTON_DEBUG");
        QCOMPARE(m_fixture->style("BUTTON_DEBUG"), QString("background-color: rgb(0, 170, 255);"));
        QTEST(console("DebugMessage")->isVisible(), "messages");
        QTEST(console("DebugController")->isVisible(), "traffic");
        m_fixture->click("BUTTON_DEBUG");
        QCOMPARE(m_fixture->style("BUTTON_DEBUG"), QString("background-color: none;"));
        QVERIFY(!console("DebugMessage")->isVisible());
        QVERIFY(!console("DebugController")->isVisible());
    }

    void aConsoleCoversTheLiveViewAndNothingElse()
    {
        for (const char* name : {"DebugMessage", "DebugController"}) {
            QCOMPARE(console(name)->geometry(), QRect(0, 0, 640, 480));
            QCOMPARE(console(name)->parentWidget(), static_cast<QWidget*>(&m_fixture->window()));
        }
    }

    void theShownConsoleLiesOnTop_data()
    {
        QTest::addColumn<int>("selected");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("other");
        QTest::newRow("messages") << 1 << "DebugMessage"
                                  << "DebugController";
        QTest::newRow("controller") << 2 << "DebugController"
                                    << "DebugMessage";
    }

    void theShownConsoleLiesOnTop()
    {
        QFETCH(int, selected);
        QFETCH(QString, shown);
        QFETCH(QString, other);
        console(qPrintable(other))->show();
        console(qPrintable(other))->raise();
        m_fixture->find<QSpinBox>("SPIN_DEBUG")->setValue(selected);
        m_fixture->click("BUTTON_DEBUG");
        QWidget* top = m_fixture->window().childAt(100, 300);
        QVERIFY(console(qPrintable(shown))->isAncestorOf(top));
        // The end hides whatever is shown.
        m_fixture->click("BUTTON_DEBUG");
        QVERIFY(console("DebugMessage")->isHidden());
        QVERIFY(console("DebugController")->isHidden());
    }

    void theButtonRepaintsTheWindowAtOnce()
    {
        for (const bool checked : {true, false}) {
            EventWatch watch;
            watch.watch(&m_fixture->window());
            QVERIFY(QMetaObject::invokeMethod(&m_fixture->window(), "on_BUTTON_DEBUG_clicked",
                                              Q_ARG(bool, checked)));
            QVERIFY(watch.happened().contains("paint ORLA_II_Plus_Verifier"));
            QVERIFY(!watch.happened().contains("turn"));
        }
    }

    void theLastLineOfEitherConsoleIsInView_data()
    {
        QTest::addColumn<int>("selected");
        QTest::addColumn<QString>("name");
        QTest::newRow("messages") << 1 << "PLAIN_DEBUG_MESSAGE";
        QTest::newRow("controller") << 2 << "PLAIN_DEBUG_CONTROLLER";
    }

    void theLastLineOfEitherConsoleIsInView()
    {
        QFETCH(int, selected);
        QFETCH(QString, name);
        m_fixture->find<QSpinBox>("SPIN_DEBUG")->setValue(selected);
        m_fixture->click("BUTTON_DEBUG");
        auto* area = m_fixture->find<QPlainTextEdit>(qPrintable(name));
        area->setPlainText(QString("line\n").repeated(200));
        area->moveCursor(QTextCursor::End);
        area->verticalScrollBar()->setValue(0);
        const auto cursorIsSeen = [area] { return area->viewport()->rect().contains(area->cursorRect()); };
        QVERIFY(!cursorIsSeen());
        if (selected == 1)
            m_fixture->window().slot_debug_Message({"f"});
        else
            m_fixture->window().slot_debug_Controller("line\r\n");
        QVERIFY(cursorIsSeen());
    }

    void whatComesWhileHiddenIsSeenWhenShown()
    {
        for (int i = 0; i < 200; ++i)
            m_fixture->window().slot_debug_Message({"f"});
        m_fixture->click("BUTTON_DEBUG");
        QTest::qWait(50);
        const auto* area = m_fixture->find<QPlainTextEdit>("PLAIN_DEBUG_MESSAGE");
        QVERIFY(area->viewport()->rect().contains(area->cursorRect()));
    }

    void aTapOnAConsoleLeavesEveryNewLineAtItsEnd()
    {
        for (int i = 0; i < 5; ++i)
            m_fixture->window().slot_debug_Message({"before"});
        m_fixture->click("BUTTON_DEBUG");
        QTest::mouseClick(m_fixture->window().windowHandle(), Qt::LeftButton, {}, QPoint(30, 20));
        QTest::mouseDClick(m_fixture->window().windowHandle(), Qt::LeftButton, {}, QPoint(30, 20));
        m_fixture->window().slot_debug_Message({"after"});
        QVERIFY2(m_fixture->messages().endsWith("before() \nafter() \n"), qPrintable(m_fixture->messages()));
    }

    void changingTheSelectorWhileShownHasNoEffect()
    {
        m_fixture->click("BUTTON_DEBUG");
        m_fixture->find<QSpinBox>("SPIN_DEBUG")->setValue(2);
        QVERIFY(console("DebugMessage")->isVisible());
        QVERIFY(!console("DebugController")->isVisible());
        m_fixture->click("BUTTON_DEBUG");
        m_fixture->click("BUTTON_DEBUG");
        QVERIFY(console("DebugController")->isVisible());
    }

    void theGraphStopsTheHandShakeAndItsEndResumesIt()
    {
        m_fixture->find<QSpinBox>("SPIN_DEBUG")->setValue(3);
        m_fixture->click("BUTTON_DEBUG");
        QTest::qWait(100);
        QSignalSpy painted(&m_fixture->window(), &ORLA_II_Plus_Verifier::updateFrameDone);
        QTest::qWait(300);
        QCOMPARE(painted.count(), 0);
        m_fixture->click("BUTTON_DEBUG");
        QVERIFY(m_fixture->waitForFrames(3));
    }

    void clearEmptiesOnlyItsConsole()
    {
        m_fixture->window().slot_debug_Message({"f"});
        m_fixture->window().slot_debug_Controller("line\r\n");
        m_fixture->click("BUTTON_DEBUG");
        auto* clear = console("DebugMessage")->findChild<QPushButton*>("BUTTON_CLEAR");
        QTest::mouseClick(clear, Qt::LeftButton);
        QCOMPARE(m_fixture->messages(), QString());
        QVERIFY(m_fixture->traffic().endsWith("line\n"));
    }

    void messagesAreKeptWhileHidden()
    {
        m_fixture->window().slot_debug_Message({"hidden"});
        m_fixture->click("BUTTON_DEBUG");
        QVERIFY(m_fixture->messages().contains("hidden() "));
    }

    void theCamerasAndTheGrabbersMessagesAreShown()
    {
        m_fixture->click("BUTTON_RESOLUTION_VGA");
        QVERIFY(m_fixture->waitUntil(
            [this] { return m_fixture->messages().contains("virtual void GrabThread::run()"); }));
        const QString text = m_fixture->messages();
        QVERIFY(text.contains("void ORLA_II_Plus_Verifier::on_BUTTON_RESOLUTION_VGA_clicked()() \n"));
        QVERIFY(text.contains("void ORLA_II_Plus_Verifier::stopCamera()() \n"));
        QVERIFY(text.contains("bool OV5642Camera::open(int, std::string, bool)() camera_mode: 0 , ini_file "
                              "/opt/ORLA3/conf/Calibration_BFN.ini \n"));
        QVERIFY(text.contains("void ORLA_II_Plus_Verifier::startCamera(int)() 0 \n"));
        QVERIFY(text.contains("void GrabThread::registerCamera(OV5642Camera*, uchar*)() \n"));
        m_fixture->click("BUTTON_RESOLUTION_1280");
    }

private:
    QWidget* console(const char* name) { return m_fixture->find<QWidget>(name); }

    std::unique_ptr<WindowFixture> m_fixture;
};

QTEST_MAIN(TestWindowConsoles)
#include "test_window_consoles.moc"
