#include <QPlainTextEdit>
#include <QScrollBar>
#include <QSpinBox>
#include <QtTest>

#include "Controller/Controller.h"
#include "support/EventWatch.h"
#include "support/WindowFixture.h"

class TestWindowConsoles : public QObject, protected WindowFixture
{
    Q_OBJECT

private slots:
    void init()
    {
        if (find<QPushButton>("BUTTON_DEBUG")->isChecked())
            click("BUTTON_DEBUG");
        find<QSpinBox>("SPIN_DEBUG")->setValue(1);
        clearConsoles();
    }

    void aMessageIsShownAsACall()
    {
        window().slot_debug_Message({"slot_z_stage_mvp", "position:", "230"});
        QCOMPARE(messages(), QString("slot_z_stage_mvp() position: 230 \n"));
    }

    void theWindowsOwnSignalReachesTheConsole()
    {
        emit window().sig_debug_Message({"f", "ab"});
        QCOMPARE(messages(), QString("f() ab \n"));
    }

    void aCommandAndItsReplyStandOnLinesOfTheirOwn()
    {
        Controller::getInstance()->z_stage_pos();
        QCOMPARE(traffic().count('\n'), 2);
        QVERIFY(traffic().startsWith("$,STM1,GET_POS,,\n$OK,STM1,GET_POS,"));
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
        find<QSpinBox>("SPIN_DEBUG")->setValue(selected);
        click("BUTTON_DEBUG");
        QCOMPARE(style("BUTTON_DEBUG"), QString(kHighlight));
        QTEST(console("DebugMessage")->isVisible(), "messages");
        QTEST(console("DebugController")->isVisible(), "traffic");
        click("BUTTON_DEBUG");
        QCOMPARE(style("BUTTON_DEBUG"), QString(kPlain));
        QVERIFY(!console("DebugMessage")->isVisible());
        QVERIFY(!console("DebugController")->isVisible());
    }

    void theShownConsoleLiesOnTop_data()
    {
        QTest::addColumn<int>("selected");
        QTest::newRow("messages") << 1;
        QTest::newRow("controller") << 2;
    }

    void theShownConsoleLiesOnTop()
    {
        QFETCH(int, selected);
        QWidget* shown = console(selected == 1 ? "DebugMessage" : "DebugController");
        QWidget* other = console(selected == 1 ? "DebugController" : "DebugMessage");
        other->show();
        other->raise();
        find<QSpinBox>("SPIN_DEBUG")->setValue(selected);
        click("BUTTON_DEBUG");
        QWidget* top = window().childAt(100, 300);
        QVERIFY(shown->isAncestorOf(top));
        // The end hides whatever is shown.
        click("BUTTON_DEBUG");
        QVERIFY(shown->isHidden() && other->isHidden());
    }

    void theButtonRepaintsTheWindowAtOnce()
    {
        for (const bool checked : {true, false}) {
            EventWatch watch({&window()});
            QVERIFY(QMetaObject::invokeMethod(&window(), "on_BUTTON_DEBUG_clicked", Q_ARG(bool, checked)));
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
        find<QSpinBox>("SPIN_DEBUG")->setValue(selected);
        click("BUTTON_DEBUG");
        auto* area = find<QPlainTextEdit>(qPrintable(name));
        area->setPlainText(QString("line\n").repeated(200));
        area->moveCursor(QTextCursor::End);
        area->verticalScrollBar()->setValue(0);
        const auto cursorIsSeen = [area] { return area->viewport()->rect().contains(area->cursorRect()); };
        QVERIFY(!cursorIsSeen());
        if (selected == 1)
            window().slot_debug_Message({"f"});
        else
            window().slot_debug_Controller("line\r\n");
        QVERIFY(cursorIsSeen());
    }

    void whatComesWhileHiddenIsSeenWhenShown()
    {
        for (int i = 0; i < 200; ++i)
            window().slot_debug_Message({"f"});
        click("BUTTON_DEBUG");
        QTest::qWait(50);
        const auto* area = find<QPlainTextEdit>("PLAIN_DEBUG_MESSAGE");
        QVERIFY(area->viewport()->rect().contains(area->cursorRect()));
    }

    void aTapOnAConsoleLeavesEveryNewLineAtItsEnd()
    {
        for (int i = 0; i < 5; ++i)
            window().slot_debug_Message({"before"});
        click("BUTTON_DEBUG");
        QTest::mouseClick(window().windowHandle(), Qt::LeftButton, {}, QPoint(30, 20));
        QTest::mouseDClick(window().windowHandle(), Qt::LeftButton, {}, QPoint(30, 20));
        window().slot_debug_Message({"after"});
        QVERIFY2(messages().endsWith("before() \nafter() \n"), qPrintable(messages()));
    }

    void aStrokeOverAConsoleDoesNotPanThePictureBelow_data()
    {
        QTest::addColumn<int>("selected");
        QTest::newRow("messages") << 1;
        QTest::newRow("controller") << 2;
    }

    void aStrokeOverAConsoleDoesNotPanThePictureBelow()
    {
        QFETCH(int, selected);
        QRect before;
        window().SetNavigatorRect(before);
        find<QSpinBox>("SPIN_DEBUG")->setValue(selected);
        click("BUTTON_DEBUG");
        QWindow* screen = window().windowHandle();
        QTest::mousePress(screen, Qt::LeftButton, {}, QPoint(400, 300));
        for (int i = 1; i <= 8; ++i)
            QTest::mouseMove(screen, QPoint(400 - 20 * i, 300 - 20 * i));
        QTest::mouseRelease(screen, Qt::LeftButton, {}, QPoint(240, 140));
        QRect after;
        window().SetNavigatorRect(after);
        QCOMPARE(after, before);
    }

    void changingTheSelectorWhileShownHasNoEffect()
    {
        click("BUTTON_DEBUG");
        find<QSpinBox>("SPIN_DEBUG")->setValue(2);
        QVERIFY(console("DebugMessage")->isVisible());
        QVERIFY(!console("DebugController")->isVisible());
        click("BUTTON_DEBUG");
        click("BUTTON_DEBUG");
        QVERIFY(console("DebugController")->isVisible());
    }

    void theGraphStopsTheHandShakeAndItsEndResumesIt()
    {
        find<QSpinBox>("SPIN_DEBUG")->setValue(3);
        click("BUTTON_DEBUG");
        QTest::qWait(100);
        QSignalSpy painted(&window(), &ORLA_II_Plus_Verifier::updateFrameDone);
        QTest::qWait(300);
        QCOMPARE(painted.count(), 0);
        click("BUTTON_DEBUG");
        QVERIFY(waitForFrames(3));
    }

    void theGraphEndsAndNoConsoleComesThoughTheSelectorWasChanged()
    {
        for (const int selected : {1, 2}) {
            find<QSpinBox>("SPIN_DEBUG")->setValue(3);
            click("BUTTON_DEBUG");
            find<QSpinBox>("SPIN_DEBUG")->setValue(selected);
            click("BUTTON_DEBUG");
            QVERIFY(console("DebugMessage")->isHidden());
            QVERIFY(console("DebugController")->isHidden());
            QVERIFY2(waitForFrames(3), "the live view is back");
        }
    }

    void clearEmptiesOnlyItsConsole()
    {
        window().slot_debug_Message({"f"});
        window().slot_debug_Controller("line\r\n");
        click("BUTTON_DEBUG");
        auto* clear = console("DebugMessage")->findChild<QPushButton*>("BUTTON_CLEAR");
        QTest::mouseClick(clear, Qt::LeftButton);
        QCOMPARE(messages(), QString());
        QVERIFY(traffic().endsWith("line\n"));
    }

    void messagesAreKeptWhileHidden()
    {
        window().slot_debug_Message({"hidden"});
        click("BUTTON_DEBUG");
        QVERIFY(messages().contains("hidden() "));
    }

    void theCamerasAndTheGrabbersMessagesAreShown()
    {
        click("BUTTON_RESOLUTION_VGA");
        QVERIFY(waitUntil([this] { return messages().contains("virtual void GrabThread::run()"); }));
        const QString text = messages();
        QVERIFY(text.contains("void ORLA_II_Plus_Verifier::on_BUTTON_RESOLUTION_VGA_clicked()() \n"));
        QVERIFY(text.contains("void ORLA_II_Plus_Verifier::stopCamera()() \n"));
        QVERIFY(text.contains("bool OV5642Camera::open(int, std::string, bool)() camera_mode: 0 , ini_file "
                              "/opt/ORLA3/conf/Calibration_BFN.ini \n"));
        QVERIFY(text.contains("void ORLA_II_Plus_Verifier::startCamera(int)() 0 \n"));
        QVERIFY(text.contains("void GrabThread::registerCamera(OV5642Camera*, uchar*)() \n"));
        click("BUTTON_RESOLUTION_1280");
    }

private:
    QWidget* console(const char* name) { return find<QWidget>(name); }
};

QTEST_MAIN(TestWindowConsoles)
#include "test_window_consoles.moc"
