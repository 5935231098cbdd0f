#include <QLineEdit>
#include <QSpinBox>
#include <QtTest>

#include "Controller/Controller.h"
#include "settings/GlobalIni.h"
#include "support/EventWatch.h"
#include "support/FileBytes.h"
#include "support/WindowFixture.h"

namespace {

constexpr const char* kHighlight = "background-color: rgb(0, 170, 255);";
constexpr const char* kPlain = "background-color: none;";

} // namespace

class TestWindowStage : public QObject, protected WindowFixture
{
    Q_OBJECT

private slots:
    void init()
    {
        clearFaults();
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, 10000);
        find<QSpinBox>("SPIN_Z_STEP")->setValue(256);
        find<QSpinBox>("SPIN_Z_SPEED")->setValue(250);
        setText("EDIT_Z_POSITION", "");
        setText("EDIT_Z_ABS", "");
        openTab(0);
        clearConsoles();
        takeBoardLines();
    }

    void thePositionIsQueriedAndShown()
    {
        click("BUTTON_Z_POSITION");
        QCOMPARE(text("EDIT_Z_POSITION"), QString("10000"));
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,GET_POS,,"));
    }

    void aPositionQueryThatFailsShowsMinusOne()
    {
        failNext("GET_POS");
        click("BUTTON_Z_POSITION");
        QCOMPARE(text("EDIT_Z_POSITION"), QString("-1"));
    }

    void oneStepUpShowsTheTrackedPosition()
    {
        click("BUTTON_Z_MOVE_PLUS");
        QCOMPARE(text("EDIT_Z_POSITION"), QString("10256"));
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,MVP,256,"));
        QCOMPARE(stagePosition(), 10256.0);
    }

    void oneStepDownShowsTheTrackedPosition()
    {
        click("BUTTON_Z_MOVE_MINUS");
        QCOMPARE(text("EDIT_Z_POSITION"), QString("9744"));
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,MVN,256,"));
    }

    void aFailedStepLeavesTheDisplay_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("command");
        QTest::newRow("plus") << "BUTTON_Z_MOVE_PLUS"
                              << "MVP";
        QTest::newRow("minus") << "BUTTON_Z_MOVE_MINUS"
                               << "MVN";
    }

    void aFailedStepLeavesTheDisplay()
    {
        QFETCH(QString, button);
        QFETCH(QString, command);
        setText("EDIT_Z_POSITION", "before");
        failNext(command.toStdString());
        click(qPrintable(button));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("before"));
        QCOMPARE(takeBoardLines(), QStringList("$,STM1," + command + ",256,"));
        QVERIFY(boxes().seen().isEmpty());
    }

    // The record of the last reply is not cleared before a command goes out.
    void aStepThatIsNotAnsweredEndsAsTheReplyBeforeIt_data()
    {
        QTest::addColumn<bool>("goodBefore");
        QTest::addColumn<QString>("shown");
        QTest::newRow("a good one") << true << "10256";
        QTest::newRow("a failure") << false << "before";
    }

    void aStepThatIsNotAnsweredEndsAsTheReplyBeforeIt()
    {
        QFETCH(bool, goodBefore);
        if (!goodBefore)
            failNext("GET_POS");
        click("BUTTON_Z_POSITION");
        QCOMPARE(text("EDIT_Z_POSITION"), QString(goodBefore ? "10000" : "-1"));
        setText("EDIT_Z_POSITION", "before");
        addFault({LineFault::NoAnswer, "MVP", 1});
        Controller::getInstance()->m_timeouts.read_ms = 100; // until the next test
        click("BUTTON_Z_MOVE_PLUS");
        QTEST(text("EDIT_Z_POSITION"), "shown");
        QCOMPARE(Controller::getInstance()->m_zStagePosition, 10256);
        QVERIFY(isEnabled("BUTTON_Z_MOVE_PLUS"));
        QVERIFY(boxes().seen().isEmpty());
    }

    // The second answer counts as a step of its own until the position is asked for.
    void aStepThatIsAnsweredTwiceEndsOnTheTruePosition()
    {
        click("BUTTON_Z_MOVE_PLUS");
        takeBoardLines();
        sayUnasked("$OK,STM1,MVP,256,\r\n");
        QVERIFY(waitUntil([this] { return takeBoardLines().contains("$,STM1,GET_POS,,"); }));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("10256"));
        QCOMPARE(Controller::getInstance()->m_zStagePosition, 10256);
        QCOMPARE(stagePosition(), 10256.0);
    }

    void theStepSizeTakesEffectAtOnceWithoutSaving()
    {
        find<QSpinBox>("SPIN_Z_STEP")->setValue(640);
        QCOMPARE(global_ini()->Z_step, 640);
        click("BUTTON_Z_MOVE_PLUS");
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,MVP,640,"));
    }

    void aStepIsTheRecordsAndARotationTheBoxes()
    {
        global_ini()->Z_step = 123;
        global_ini()->Z_speed = 77;
        click("BUTTON_Z_MOVE_PLUS");
        click("BUTTON_Z_MOVE_MINUS");
        QCOMPARE(takeBoardLines(), QStringList({"$,STM1,MVP,123,", "$,STM1,MVN,123,"}));
        for (const char* button : {"BUTTON_Z_ROTATE_PLUS", "BUTTON_Z_ROTATE_MINUS"}) {
            press(button);
            release(button);
        }
        QCOMPARE(takeBoardLines().filter("$,STM1,RO"), QStringList({"$,STM1,ROP,250,", "$,STM1,RON,250,"}));
        global_ini()->Z_step = 256;
        global_ini()->Z_speed = 250;
    }

    void whatABoxDoesNotTakeIsNotStored()
    {
        auto* step = find<QSpinBox>("SPIN_Z_STEP");
        step->setValue(2147483647);
        QCOMPARE(global_ini()->Z_step, 100000);
        step->setValue(-1);
        QCOMPARE(global_ini()->Z_step, 10);
        auto* speed = find<QSpinBox>("SPIN_Z_SPEED");
        speed->setValue(2147483647);
        QCOMPARE(global_ini()->Z_speed, 1000);
        speed->setValue(-1);
        QCOMPARE(global_ini()->Z_speed, 10);
    }

    void aTypedNumberBelowTheRangeIsPutRightBeforeItActs_data()
    {
        QTest::addColumn<QString>("box");
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("typed");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("line");
        const auto row = [](const char* box, const char* button, const char* typed, const char* shown,
                            const char* line) {
            QTest::addRow("%s, typed \"%s\"", button, typed)
                << QString(box) << QString(button) << QString(typed) << QString(shown) << QString(line);
        };
        row("SPIN_Z_STEP", "BUTTON_Z_MOVE_PLUS", "5", "10", "$,STM1,MVP,10,");
        row("SPIN_Z_STEP", "BUTTON_Z_MOVE_PLUS", "", "10", "$,STM1,MVP,10,");
        row("SPIN_Z_STEP", "BUTTON_Z_MOVE_PLUS", "0640", "640", "$,STM1,MVP,640,");
        row("SPIN_Z_STEP", "BUTTON_Z_MOVE_MINUS", "9", "10", "$,STM1,MVN,10,");
        row("SPIN_Z_SPEED", "BUTTON_Z_ROTATE_PLUS", "3", "10", "$,STM1,ROP,10,");
        row("SPIN_Z_SPEED", "BUTTON_Z_ROTATE_MINUS", "", "10", "$,STM1,RON,10,");
    }

    void aTypedNumberBelowTheRangeIsPutRightBeforeItActs()
    {
        QFETCH(QString, box);
        QFETCH(QString, button);
        QFETCH(QString, typed);
        QFETCH(QString, shown);
        QFETCH(QString, line);
        type(box, typed);
        press(qPrintable(button));
        release(qPrintable(button));
        QCOMPARE(find<QSpinBox>(qPrintable(box))->text(), shown);
        QCOMPARE(takeBoardLines().first(), line);
        const bool isStep = box == "SPIN_Z_STEP";
        QCOMPARE(isStep ? global_ini()->Z_step : global_ini()->Z_speed, shown.toInt());
    }

    void whatIsSavedIsWhatTheBoxesShow()
    {
        type("SPIN_Z_STEP", "5");
        type("SPIN_Z_SPEED", "4");
        click("BUTTON_SAVE_INI");
        QCOMPARE(find<QSpinBox>("SPIN_Z_STEP")->text(), QString("10"));
        QCOMPARE(find<QSpinBox>("SPIN_Z_SPEED")->text(), QString("10"));
        const QByteArray saved = bytesOf(machinePath("/root/Orla2/Orla2.ini"));
        QVERIFY2(saved.contains("Step=10\n") && saved.contains("Speed=10\n"), saved);
    }

    void theSpeedIsStored()
    {
        find<QSpinBox>("SPIN_Z_SPEED")->setValue(500);
        QCOMPARE(global_ini()->Z_speed, 500);
    }

    void aNegativeTrackedPositionIsQueriedAndThenShownAllTheSame()
    {
        // The tracked position and the true one differ: the display ends on the tracked one.
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, 200);
        Controller::getInstance()->m_zStagePosition = 100;
        takeBoardLines();
        QSignalSpy shown(find<QLineEdit>("EDIT_Z_POSITION"), &QLineEdit::textChanged);
        click("BUTTON_Z_MOVE_MINUS");
        QCOMPARE(takeBoardLines(), QStringList({"$,STM1,MVN,256,", "$,STM1,GET_POS,,"}));
        QCOMPARE(shown.count(), 2);
        QCOMPARE(shown.at(0).first().toString(), QString("-56"));
        QVERIFY(messages().contains("on_BUTTON_Z_POSITION_clicked()"));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("-156"));
        QCOMPARE(Controller::getInstance()->m_zStagePosition, -56);
    }

    void aTrackedPositionOfZeroIsShownWithoutAQuery()
    {
        Controller::getInstance()->m_zStagePosition = 256;
        click("BUTTON_Z_MOVE_MINUS");
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,MVN,256,"));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("0"));
    }

    void rotatingRunsWhileHeldAndStopsOnRelease_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("line");
        QTest::addColumn<int>("direction");
        QTest::newRow("plus") << "BUTTON_Z_ROTATE_PLUS"
                              << "$,STM1,ROP,300," << 1;
        QTest::newRow("minus") << "BUTTON_Z_ROTATE_MINUS"
                               << "$,STM1,RON,300," << -1;
    }

    void rotatingRunsWhileHeldAndStopsOnRelease()
    {
        QFETCH(QString, button);
        QFETCH(QString, line);
        QFETCH(int, direction);
        find<QSpinBox>("SPIN_Z_SPEED")->setValue(300);
        press(qPrintable(button));
        QCOMPARE(takeBoardLines(), QStringList(line));
        QTest::qWait(200);
        release(qPrintable(button));
        QCOMPARE(takeBoardLines(), QStringList({"$,STM1,STOP,,", "$,STM1,GET_POS,,"}));
        QCOMPARE(text("EDIT_Z_POSITION").toInt(), qRound(stagePosition()));
        QVERIFY(direction * (stagePosition() - 10000.0) > 100.0);
    }

    void releasingRotateAlwaysStopsTheStage_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("command");
        QTest::newRow("plus") << "BUTTON_Z_ROTATE_PLUS"
                              << "ROP";
        QTest::newRow("minus") << "BUTTON_Z_ROTATE_MINUS"
                               << "RON";
    }

    void releasingRotateAlwaysStopsTheStage()
    {
        QFETCH(QString, button);
        QFETCH(QString, command);
        failNext(command.toStdString());
        press(qPrintable(button));
        takeBoardLines();
        release(qPrintable(button));
        QCOMPARE(takeBoardLines(), QStringList({"$,STM1,STOP,,", "$,STM1,GET_POS,,"}));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("10000"));
    }

    void stopOnlyStops()
    {
        setText("EDIT_Z_POSITION", "before");
        click("BUTTON_Z_STOP");
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,STOP,,"));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("before"));
    }

    void anAbsoluteMoveLocksTheWindowUntilItIsReported()
    {
        setText("EDIT_Z_ABS", "20000");
        click("BUTTON_Z_ABS");
        QVERIFY(!window().isEnabled());
        QVERIFY(waitUntil([this] { return window().isEnabled(); }));
        QCOMPARE(takeBoardLines(), QStringList({"$,STM1,ABS,20000,", "$,STM1,GET_POS,,"}));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("20000"));
        QVERIFY(messages().contains("void ORLA_II_Plus_Verifier::slot_z_stage_abs()"));
        QVERIFY2(traffic().contains("$,STM1,ABS,20000,"), "the command is echoed");
        QVERIFY2(!traffic().contains("$OK,STM1,ABS"), "its late reply is not");
    }

    void anUnansweredAbsoluteMoveLeavesTheWindowLocked()
    {
        addFault({LineFault::NoAnswer, "ABS", 1});
        setText("EDIT_Z_ABS", "20000");
        click("BUTTON_Z_ABS");
        QTest::qWait(300);
        QVERIFY(!window().isEnabled());
        window().setEnabled(true);
    }

    void theWindowIsLockedAndShownSoBeforeAnAbsoluteMoveGoesOut()
    {
        EventWatch watch;
        watch.watch(&window());
        const auto connection = noteLine(watch, "ABS");
        QVERIFY(QMetaObject::invokeMethod(&window(), "on_BUTTON_Z_ABS_clicked"));
        disconnect(connection);
        const QStringList before = watch.before("ABS");
        QCOMPARE(before.first(), QString("disabled ORLA_II_Plus_Verifier"));
        QCOMPARE(before.count("turn"), 1);
        QVERIFY(before.mid(before.indexOf("turn")).contains("paint ORLA_II_Plus_Verifier"));
        QCOMPARE(watch.happened().last(), QString("ABS"));
        QVERIFY(waitUntil([this] { return window().isEnabled(); }));
    }

    void anAbsoluteMoveTakesItsTextAsANumber_data() { addTextRows(); }

    void anAbsoluteMoveTakesItsTextAsANumber()
    {
        QFETCH(QString, text);
        QFETCH(int, number);
        setText("EDIT_Z_ABS", text);
        click("BUTTON_Z_ABS");
        QVERIFY(waitUntil([this] { return window().isEnabled(); }));
        QCOMPARE(takeBoardLines().first(), QString("$,STM1,ABS,%1,").arg(number));
    }

    void aStepThatIsHeldEndsWhenTheWindowIsLocked()
    {
        press("BUTTON_Z_MOVE_PLUS");
        QStringList lines;
        QVERIFY(waitUntil([&] {
            lines += takeBoardLines();
            return !lines.isEmpty();
        }));
        window().setEnabled(false);
        takeBoardLines();
        QTest::qWait(500);
        QVERIFY(takeBoardLines().isEmpty());
        window().setEnabled(true);
        QTest::qWait(500);
        QVERIFY(takeBoardLines().isEmpty());
        release("BUTTON_Z_MOVE_PLUS");
        QVERIFY(takeBoardLines().isEmpty());
    }

    void aRotationThatIsHeldStopsWhenTheWindowIsLocked()
    {
        press("BUTTON_Z_ROTATE_PLUS");
        takeBoardLines();
        window().setEnabled(false);
        QCOMPARE(takeBoardLines(), QStringList({"$,STM1,STOP,,", "$,STM1,GET_POS,,"}));
        window().setEnabled(true);
        release("BUTTON_Z_ROTATE_PLUS");
    }

    void aBusyButtonIsPaintedSoBeforeItsStepBlocks_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<QString>("command");
        QTest::newRow("origin") << "BUTTON_Z_ORIGIN"
                                << "ORIGIN";
        QTest::newRow("reference") << "BUTTON_Z_MOVE_REFERENCE"
                                   << "ABS";
        QTest::newRow("diagnosis") << "BUTTON_Z_DIAGNOSIS"
                                   << "SELF_DIAG";
    }

    void aBusyButtonIsPaintedSoBeforeItsStepBlocks()
    {
        QFETCH(QString, button);
        QFETCH(QString, command);
        EventWatch watch;
        watch.watch(&window());
        watch.watch(find<QPushButton>(qPrintable(button)));
        QString resultWhenBack;
        QStringList styles;
        watch.atChange([&](const QString& change) {
            if (change == "enabled " + button)
                resultWhenBack = text("EDIT_Z_DIAGNOSIS");
            if (change.endsWith("abled " + button))
                styles += style(qPrintable(button));
        });
        setText("EDIT_Z_DIAGNOSIS", "before");
        const auto connection = noteLine(watch, command);
        const QString slot = "on_" + button + "_clicked";
        QVERIFY(QMetaObject::invokeMethod(&window(), qPrintable(slot)));
        disconnect(connection);

        const QStringList before = watch.before(command);
        QVERIFY(before.indexOf("disabled " + button) < before.indexOf("turn"));
        QCOMPARE(before.count("turn"), 1);
        QVERIFY(before.mid(before.indexOf("turn")).contains("paint " + button));
        const QStringList after = watch.after(command);
        QCOMPARE(after.count("turn"), 0);
        QVERIFY(after.mid(after.indexOf("enabled " + button)).contains("paint ORLA_II_Plus_Verifier"));
        QCOMPARE(styles, QStringList({kHighlight, kPlain}));
        QCOMPARE(resultWhenBack, QString(command == "SELF_DIAG" ? "0" : "before"));
    }

    void homingIsShownWhileItBlocks()
    {
        const Look look = lookDuring("BUTTON_Z_ORIGIN", "ORIGIN");
        QCOMPARE(look.style, QString(kHighlight));
        QVERIFY(!look.enabled);
        QCOMPARE(style("BUTTON_Z_ORIGIN"), QString(kPlain));
        QVERIFY(isEnabled("BUTTON_Z_ORIGIN"));
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,ORIGIN,,"));
        QCOMPARE(stagePosition(), 0.0);
    }

    void theReferenceIsRevisited()
    {
        setText("EDIT_Z_REFERENCE", "31000");
        const Look look = lookDuring("BUTTON_Z_MOVE_REFERENCE", "ABS");
        QCOMPARE(look.style, QString(kHighlight));
        QVERIFY(!look.enabled);
        QCOMPARE(style("BUTTON_Z_MOVE_REFERENCE"), QString(kPlain));
        QVERIFY(isEnabled("BUTTON_Z_MOVE_REFERENCE"));
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,ABS,31000,"));
        QCOMPARE(stagePosition(), 31000.0);
    }

    void aReferenceIsTakenAsANumber_data() { addTextRows(); }

    void aReferenceIsTakenAsANumber()
    {
        QFETCH(QString, text);
        QFETCH(int, number);
        setText("EDIT_Z_REFERENCE", text);
        click("BUTTON_Z_MOVE_REFERENCE");
        QCOMPARE(takeBoardLines(), QStringList(QString("$,STM1,ABS,%1,").arg(number)));
    }

    void theDiagnosisIsShown()
    {
        const Look look = lookDuring("BUTTON_Z_DIAGNOSIS", "SELF_DIAG");
        QCOMPARE(look.style, QString(kHighlight));
        QVERIFY(!look.enabled);
        QCOMPARE(text("EDIT_Z_DIAGNOSIS"), QString("0"));
        QCOMPARE(style("BUTTON_Z_DIAGNOSIS"), QString(kPlain));
        QVERIFY(isEnabled("BUTTON_Z_DIAGNOSIS"));
    }

    void aFailedDiagnosisShowsMinusOne()
    {
        failNext("SELF_DIAG");
        click("BUTTON_Z_DIAGNOSIS");
        QCOMPARE(text("EDIT_Z_DIAGNOSIS"), QString("-1"));
    }

    void theReferenceIsTheDisplayedPosition_data() { addTextRows(); }

    void theReferenceIsTheDisplayedPosition()
    {
        QFETCH(QString, text);
        QFETCH(int, number);
        global_ini()->Z_reference = -1;
        setText("EDIT_Z_POSITION", text);
        click("BUTTON_Z_SET_REFERENCE");
        QCOMPARE(global_ini()->Z_reference, number);
        QCOMPARE(this->text("EDIT_Z_REFERENCE"), text);
        QVERIFY(takeBoardLines().isEmpty());
    }

    void everyPressIsLogged_data()
    {
        QTest::addColumn<QString>("slot");
        for (const char* slot : {"POSITION_clicked", "MOVE_PLUS_clicked", "MOVE_MINUS_clicked",
                                 "ROTATE_PLUS_pressed", "ROTATE_MINUS_pressed", "ROTATE_PLUS_released",
                                 "ROTATE_MINUS_released", "STOP_clicked", "ABS_clicked", "ORIGIN_clicked",
                                 "MOVE_REFERENCE_clicked", "DIAGNOSIS_clicked", "SET_REFERENCE_clicked"})
            QTest::newRow(slot) << QString("on_BUTTON_Z_") + slot;
    }

    void everyPressIsLogged()
    {
        QFETCH(QString, slot);
        QSignalSpy logged(&window(), &ORLA_II_Plus_Verifier::sig_debug_Message);
        QVERIFY(QMetaObject::invokeMethod(&window(), qPrintable(slot)));
        QVERIFY(!logged.isEmpty());
        QCOMPARE(logged.first().first().toStringList(),
                 QStringList("void ORLA_II_Plus_Verifier::" + slot + "()"));
        QVERIFY(waitUntil([this] { return window().isEnabled(); }));
    }

    void aReportedMoveIsLoggedAndItsPositionQueried_data()
    {
        QTest::addColumn<QString>("signal");
        QTest::addColumn<QString>("signature");
        QTest::addColumn<bool>("enables");
        for (const char* move : {"mvn", "mvp", "abs", "origin"}) {
            const QString name = move;
            QTest::newRow(move) << "sig_z_stage_" + name
                                << "void ORLA_II_Plus_Verifier::slot_z_stage_" + name + "()"
                                << (name == "abs" || name == "origin");
        }
    }

    void aReportedMoveIsLoggedAndItsPositionQueried()
    {
        QFETCH(QString, signal);
        QFETCH(QString, signature);
        QFETCH(bool, enables);
        window().setEnabled(false);
        QString shownWhenEnabled;
        EventWatch watch;
        watch.watch(&window());
        watch.atChange([&](const QString& change) {
            if (change.startsWith("enabled"))
                shownWhenEnabled = text("EDIT_Z_POSITION");
        });
        QSignalSpy logged(&window(), &ORLA_II_Plus_Verifier::sig_debug_Message);
        QVERIFY(QMetaObject::invokeMethod(Controller::getInstance(), qPrintable(signal)));
        QCOMPARE(logged.count(), 1);
        QCOMPARE(logged.first().first().toStringList(), QStringList(signature));
        QCOMPARE(shownWhenEnabled, QString(enables ? "10000" : ""));
        QCOMPARE(takeBoardLines(), QStringList("$,STM1,GET_POS,,"));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("10000"));
        QCOMPARE(window().isEnabled(), enables);
        window().setEnabled(true);
    }

    void holdingAMoveButtonRepeatsTheStep()
    {
        press("BUTTON_Z_MOVE_PLUS");
        QStringList lines;
        QVERIFY(waitUntil([&] {
            lines += takeBoardLines();
            return lines.size() >= 3;
        }));
        release("BUTTON_Z_MOVE_PLUS");
        for (const QString& line : lines)
            QCOMPARE(line, QString("$,STM1,MVP,256,"));
    }

private:
    struct Look
    {
        QString style;
        bool enabled = true;
    };

    /// Puts a text in the place of a spin box's number, key by key, and leaves it there.
    void type(const QString& box, const QString& text)
    {
        auto* spin = find<QSpinBox>(qPrintable(box));
        spin->setFocus();
        spin->selectAll();
        QTest::keyClick(spin, Qt::Key_Delete);
        QTest::keyClicks(spin, text);
        QCOMPARE(spin->text(), text);
    }

    /// How a busy button looks at the moment when its command goes out.
    Look lookDuring(const char* button, const QString& command)
    {
        Look look;
        const auto connection = connect(Controller::getInstance(), &Controller::sig_debug_Controller, this,
                                        [&](const QString& line) {
                                            if (line.startsWith("$,") && line.contains(command))
                                                look = {style(button), isEnabled(button)};
                                        });
        click(button);
        disconnect(connection);
        return look;
    }

    /// Texts of a field and the number that they stand for.
    static void addTextRows()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("number");
        QTest::newRow("number") << "31234" << 31234;
        QTest::newRow("negative") << "-156" << -156;
        QTest::newRow("signed") << "+5" << 5;
        QTest::newRow("blanks around it") << " 7 " << 7;
        QTest::newRow("leading zeros") << "010" << 10;
        QTest::newRow("greatest") << "2147483647" << 2147483647;
        QTest::newRow("too great") << "2147483648" << 0;
        QTest::newRow("number and letters") << "12abc" << 0;
        QTest::newRow("hexadecimal") << "0x10" << 0;
        QTest::newRow("fraction") << "1.5" << 0;
        QTest::newRow("letters") << "abc" << 0;
        QTest::newRow("foreign letters") << "Ž三" << 0;
        QTest::newRow("empty") << "" << 0;
    }

    /// Notes a command in the list at the moment when its line goes out.
    QMetaObject::Connection noteLine(EventWatch& watch, const QString& command)
    {
        return connect(
            Controller::getInstance(), &Controller::sig_debug_Controller, this,
            [&watch, command](const QString& line) {
                if (line.startsWith("$,") && line.contains(command))
                    watch.note(command);
            });
    }

    void failNext(const std::string& command) { addFault({LineFault::Failure, command, 1}); }

    double stagePosition() { return board().light().stagePosition_steps; }
};

QTEST_MAIN(TestWindowStage)
#include "test_window_stage.moc"
