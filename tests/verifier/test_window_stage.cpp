#include <QLineEdit>
#include <QSpinBox>
#include <QtTest>

#include "Controller/Controller.h"
#include "settings/GlobalIni.h"
#include "support/EventWatch.h"
#include "support/FileBytes.h"
#include "support/WindowFixture.h"

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

    void aPressSendsItsLineAndShowsThePosition_data()
    {
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("tracked");
        QTest::addColumn<QString>("failing");
        QTest::addColumn<QString>("line");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<double>("stage");
        const auto row = [](const char* name, const char* button, int tracked, const char* failing,
                            const char* line, const char* shown, double stage) {
            QTest::newRow(name) << QString("BUTTON_Z_") + button << tracked << failing << line << shown
                                << stage;
        };
        row("position", "POSITION", 10000, "", "$,STM1,GET_POS,,", "10000", 10000);
        row("position, failed", "POSITION", 10000, "GET_POS", "$,STM1,GET_POS,,", "-1", 10000);
        row("up", "MOVE_PLUS", 10000, "", "$,STM1,MVP,256,", "10256", 10256);
        row("up, failed", "MOVE_PLUS", 10000, "MVP", "$,STM1,MVP,256,", "before", 10000);
        row("down", "MOVE_MINUS", 10000, "", "$,STM1,MVN,256,", "9744", 9744);
        row("down, failed", "MOVE_MINUS", 10000, "MVN", "$,STM1,MVN,256,", "before", 10000);
        row("down to a tracked zero", "MOVE_MINUS", 256, "", "$,STM1,MVN,256,", "0", 9744);
        row("stop", "STOP", 10000, "", "$,STM1,STOP,,", "before", 10000);
    }

    void aPressSendsItsLineAndShowsThePosition()
    {
        QFETCH(QString, button);
        QFETCH(int, tracked);
        QFETCH(QString, failing);
        QFETCH(QString, line);
        QFETCH(QString, shown);
        QFETCH(double, stage);
        Controller::getInstance()->m_zStagePosition = tracked;
        setText("EDIT_Z_POSITION", "before");
        if (!failing.isEmpty())
            failNext(failing.toStdString());
        click(qPrintable(button));
        QCOMPARE(takeBoardLines(), QStringList(line));
        QCOMPARE(text("EDIT_Z_POSITION"), shown);
        QCOMPARE(stagePosition(), stage);
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
        Controller::getInstance()->m_timeouts.read_ms = 400; // until the next test
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

    void whatABoxTakesIsStoredAtOnce_data()
    {
        QTest::addColumn<QString>("box");
        QTest::addColumn<int>("set");
        QTest::addColumn<int>("stored");
        QTest::newRow("step") << "SPIN_Z_STEP" << 640 << 640;
        QTest::newRow("step beyond the greatest") << "SPIN_Z_STEP" << 2147483647 << 100000;
        QTest::newRow("step below the least") << "SPIN_Z_STEP" << -1 << 10;
        QTest::newRow("speed") << "SPIN_Z_SPEED" << 500 << 500;
        QTest::newRow("speed beyond the greatest") << "SPIN_Z_SPEED" << 2147483647 << 1000;
        QTest::newRow("speed below the least") << "SPIN_Z_SPEED" << -1 << 10;
    }

    void whatABoxTakesIsStoredAtOnce()
    {
        QFETCH(QString, box);
        QFETCH(int, set);
        QFETCH(int, stored);
        find<QSpinBox>(qPrintable(box))->setValue(set);
        QCOMPARE(box == "SPIN_Z_STEP" ? global_ini()->Z_step : global_ini()->Z_speed, stored);
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

    void releasingRotateAlwaysStopsTheStage_data() { rotatingRunsWhileHeldAndStopsOnRelease_data(); }

    void releasingRotateAlwaysStopsTheStage()
    {
        QFETCH(QString, button);
        QFETCH(QString, line);
        find<QSpinBox>("SPIN_Z_SPEED")->setValue(300);
        failNext(line.section(',', 2, 2).toStdString());
        press(qPrintable(button));
        QCOMPARE(takeBoardLines(), QStringList(line));
        release(qPrintable(button));
        QCOMPARE(takeBoardLines(), QStringList({"$,STM1,STOP,,", "$,STM1,GET_POS,,"}));
        QCOMPARE(text("EDIT_Z_POSITION"), QString("10000"));
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
        EventWatch watch({&window()});
        const auto noting = atBoardLine("$,STM1,ABS", [&](const QString&) { watch.note("ABS"); });
        QVERIFY(QMetaObject::invokeMethod(&window(), "on_BUTTON_Z_ABS_clicked"));
        const QStringList before = watch.before("ABS");
        QCOMPARE(before.first(), QString("disabled ORLA_II_Plus_Verifier"));
        QCOMPARE(before.count("turn"), 1);
        QVERIFY(before.mid(before.indexOf("turn")).contains("paint ORLA_II_Plus_Verifier"));
        QCOMPARE(watch.happened().last(), QString("ABS"));
        QVERIFY(waitUntil([this] { return window().isEnabled(); }));
    }

    void theTextOfAFieldIsTakenAsANumber_data()
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

    void theTextOfAFieldIsTakenAsANumber()
    {
        QFETCH(QString, text);
        QFETCH(int, number);
        const QString line = QString("$,STM1,ABS,%1,").arg(number);
        setText("EDIT_Z_ABS", text);
        click("BUTTON_Z_ABS");
        QVERIFY(waitUntil([this] { return window().isEnabled(); }));
        QCOMPARE(takeBoardLines().first(), line);

        setText("EDIT_Z_REFERENCE", text);
        click("BUTTON_Z_MOVE_REFERENCE");
        QCOMPARE(takeBoardLines(), QStringList(line));

        global_ini()->Z_reference = -1;
        setText("EDIT_Z_POSITION", text);
        setText("EDIT_Z_REFERENCE", "");
        click("BUTTON_Z_SET_REFERENCE");
        QCOMPARE(global_ini()->Z_reference, number);
        QCOMPARE(this->text("EDIT_Z_REFERENCE"), text);
        QVERIFY(takeBoardLines().isEmpty());
    }

    void aStepThatIsHeldEndsWhenTheWindowIsLocked()
    {
        press("BUTTON_Z_MOVE_PLUS");
        QVERIFY(!waitForBoardLines(1).isEmpty());
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
        QTest::addColumn<QString>("line");
        QTest::addColumn<double>("stage");
        QTest::addColumn<QString>("diagnosis");
        const auto row = [](const char* name, const char* button, const char* line, double stage,
                            const char* diagnosis) {
            QTest::newRow(name) << button << line << stage << diagnosis;
        };
        row("origin", "BUTTON_Z_ORIGIN", "$,STM1,ORIGIN,,", 0, "before");
        row("reference", "BUTTON_Z_MOVE_REFERENCE", "$,STM1,ABS,31000,", 31000, "before");
        row("diagnosis", "BUTTON_Z_DIAGNOSIS", "$,STM1,SELF_DIAG,,", 10000, "0");
        row("diagnosis, failed", "BUTTON_Z_DIAGNOSIS", "$,STM1,SELF_DIAG,,", 10000, "-1");
    }

    void aBusyButtonIsPaintedSoBeforeItsStepBlocks()
    {
        QFETCH(QString, button);
        QFETCH(QString, line);
        QFETCH(double, stage);
        QFETCH(QString, diagnosis);
        EventWatch watch({&window(), find<QPushButton>(qPrintable(button))});
        QString resultWhenBack;
        QStringList styles;
        watch.atChange([&](const QString& change) {
            if (change == "enabled " + button)
                resultWhenBack = text("EDIT_Z_DIAGNOSIS");
            if (change == line || change.endsWith("abled " + button))
                styles += style(qPrintable(button));
        });
        if (diagnosis == "-1")
            failNext("SELF_DIAG");
        setText("EDIT_Z_DIAGNOSIS", "before");
        setText("EDIT_Z_REFERENCE", "31000");
        const auto noting = atBoardLine(line, [&](const QString&) { watch.note(line); });
        const QString slot = "on_" + button + "_clicked";
        QVERIFY(QMetaObject::invokeMethod(&window(), qPrintable(slot)));

        const QStringList before = watch.before(line);
        QVERIFY(before.indexOf("disabled " + button) < before.indexOf("turn"));
        QCOMPARE(before.count("turn"), 1);
        QVERIFY(before.mid(before.indexOf("turn")).contains("paint " + button));
        const QStringList after = watch.after(line);
        QCOMPARE(after.count("turn"), 0);
        QVERIFY(after.mid(after.indexOf("enabled " + button)).contains("paint ORLA_II_Plus_Verifier"));
        QCOMPARE(watch.enabledChanges(), QStringList({"disabled " + button, "enabled " + button}));
        QCOMPARE(styles, QStringList({kHighlight, kHighlight, kPlain}));
        QCOMPARE(resultWhenBack, diagnosis);
        QCOMPARE(takeBoardLines(), QStringList(line));
        QCOMPARE(stagePosition(), stage);
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
        EventWatch watch({&window()});
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
        const QStringList lines = waitForBoardLines(3);
        release("BUTTON_Z_MOVE_PLUS");
        QVERIFY(lines.size() >= 3);
        for (const QString& line : lines)
            QCOMPARE(line, QString("$,STM1,MVP,256,"));
    }

private:
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

    void failNext(const std::string& command) { addFault({LineFault::Failure, command, 1}); }

    double stagePosition() { return board().light().stagePosition_steps; }
};

QTEST_MAIN(TestWindowStage)
#include "test_window_stage.moc"
