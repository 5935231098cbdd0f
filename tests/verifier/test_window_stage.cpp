#include <QSpinBox>
#include <QtTest>

#include "Controller/Controller.h"
#include "settings/GlobalIni.h"
#include "support/WindowFixture.h"

namespace {

constexpr const char* kHighlight = "background-color: rgb(0, 170, 255);";
constexpr const char* kPlain = "background-color: none;";

} // namespace

class TestWindowStage : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { m_fixture = std::make_unique<WindowFixture>(); }

    void cleanupTestCase() { m_fixture.reset(); }

    void init()
    {
        m_fixture->board().withBoard([](Board& board, InstrumentTime) { board.clearFaults(); });
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, 10000);
        m_fixture->find<QSpinBox>("SPIN_Z_STEP")->setValue(256);
        m_fixture->find<QSpinBox>("SPIN_Z_SPEED")->setValue(250);
        m_fixture->setText("EDIT_Z_POSITION", "");
        m_fixture->setText("EDIT_Z_ABS", "");
        m_fixture->openTab(0);
        m_fixture->clearConsoles();
        m_fixture->takeBoardLines();
    }

    void thePositionIsQueriedAndShown()
    {
        m_fixture->click("BUTTON_Z_POSITION");
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("10000"));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,GET_POS,,"));
    }

    void aPositionQueryThatFailsShowsMinusOne()
    {
        failNext("GET_POS");
        m_fixture->click("BUTTON_Z_POSITION");
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("-1"));
    }

    void oneStepUpShowsTheTrackedPosition()
    {
        m_fixture->click("BUTTON_Z_MOVE_PLUS");
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("10256"));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,MVP,256,"));
        QCOMPARE(stagePosition(), 10256.0);
    }

    void oneStepDownShowsTheTrackedPosition()
    {
        m_fixture->click("BUTTON_Z_MOVE_MINUS");
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("9744"));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,MVN,256,"));
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
        m_fixture->setText("EDIT_Z_POSITION", "before");
        failNext(command.toStdString());
        m_fixture->click(qPrintable(button));
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("before"));
        QVERIFY(m_fixture->boxes().met().isEmpty());
    }

    void theStepSizeTakesEffectAtOnceWithoutSaving()
    {
        m_fixture->find<QSpinBox>("SPIN_Z_STEP")->setValue(640);
        QCOMPARE(global_ini()->Z_step, 640);
        m_fixture->click("BUTTON_Z_MOVE_PLUS");
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,MVP,640,"));
    }

    void theSpeedIsStored()
    {
        m_fixture->find<QSpinBox>("SPIN_Z_SPEED")->setValue(500);
        QCOMPARE(global_ini()->Z_speed, 500);
    }

    void aNegativeTrackedPositionIsQueriedAndThenShownAllTheSame()
    {
        // The tracked position and the true one differ: the display ends on the tracked one.
        Controller::getInstance()->z_stage_abs(SERIAL_BLOCKING, 200);
        Controller::getInstance()->m_zStagePosition = 100;
        m_fixture->takeBoardLines();
        m_fixture->click("BUTTON_Z_MOVE_MINUS");
        QCOMPARE(m_fixture->takeBoardLines(), QStringList({"$,STM1,MVN,256,", "$,STM1,GET_POS,,"}));
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("-156"));
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
        m_fixture->find<QSpinBox>("SPIN_Z_SPEED")->setValue(300);
        m_fixture->press(qPrintable(button));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList(line));
        QTest::qWait(200);
        m_fixture->release(qPrintable(button));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList({"$,STM1,STOP,,", "$,STM1,GET_POS,,"}));
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION").toInt(), qRound(stagePosition()));
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
        m_fixture->press(qPrintable(button));
        m_fixture->takeBoardLines();
        m_fixture->release(qPrintable(button));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList({"$,STM1,STOP,,", "$,STM1,GET_POS,,"}));
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("10000"));
    }

    void stopOnlyStops()
    {
        m_fixture->setText("EDIT_Z_POSITION", "before");
        m_fixture->click("BUTTON_Z_STOP");
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,STOP,,"));
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("before"));
    }

    void anAbsoluteMoveLocksTheWindowUntilItIsReported()
    {
        m_fixture->setText("EDIT_Z_ABS", "20000");
        m_fixture->click("BUTTON_Z_ABS");
        QVERIFY(!m_fixture->window().isEnabled());
        QVERIFY(m_fixture->waitUntil([this] { return m_fixture->window().isEnabled(); }));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList({"$,STM1,ABS,20000,", "$,STM1,GET_POS,,"}));
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("20000"));
        QVERIFY(m_fixture->messages().contains("void ORLA_II_Plus_Verifier::slot_z_stage_abs()"));
        QVERIFY2(m_fixture->traffic().contains("$,STM1,ABS,20000,"), "the command is echoed");
        QVERIFY2(!m_fixture->traffic().contains("$OK,STM1,ABS"), "its late reply is not");
    }

    void anUnansweredAbsoluteMoveLeavesTheWindowLocked()
    {
        m_fixture->board().withBoard([](Board& board, InstrumentTime) {
            board.addFault({LineFault::NoAnswer, "ABS", 1});
        });
        m_fixture->setText("EDIT_Z_ABS", "20000");
        m_fixture->click("BUTTON_Z_ABS");
        QTest::qWait(300);
        QVERIFY(!m_fixture->window().isEnabled());
        m_fixture->window().setEnabled(true);
    }

    void textThatIsNoNumberMovesToZero()
    {
        m_fixture->setText("EDIT_Z_ABS", "abc");
        m_fixture->click("BUTTON_Z_ABS");
        QVERIFY(m_fixture->waitUntil([this] { return m_fixture->window().isEnabled(); }));
        QCOMPARE(m_fixture->takeBoardLines().first(), QString("$,STM1,ABS,0,"));
    }

    void homingIsShownWhileItBlocks()
    {
        const Look look = lookDuring("BUTTON_Z_ORIGIN", "ORIGIN");
        QCOMPARE(look.style, QString(kHighlight));
        QVERIFY(!look.enabled);
        QCOMPARE(m_fixture->style("BUTTON_Z_ORIGIN"), QString(kPlain));
        QVERIFY(m_fixture->isEnabled("BUTTON_Z_ORIGIN"));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,ORIGIN,,"));
        QCOMPARE(stagePosition(), 0.0);
    }

    void theReferenceIsRevisited()
    {
        m_fixture->setText("EDIT_Z_REFERENCE", "31000");
        const Look look = lookDuring("BUTTON_Z_MOVE_REFERENCE", "ABS");
        QCOMPARE(look.style, QString(kHighlight));
        QVERIFY(!look.enabled);
        QCOMPARE(m_fixture->style("BUTTON_Z_MOVE_REFERENCE"), QString(kPlain));
        QVERIFY(m_fixture->isEnabled("BUTTON_Z_MOVE_REFERENCE"));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,ABS,31000,"));
        QCOMPARE(stagePosition(), 31000.0);
    }

    void anEmptyReferenceMovesToZero()
    {
        m_fixture->setText("EDIT_Z_REFERENCE", "");
        m_fixture->click("BUTTON_Z_MOVE_REFERENCE");
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,ABS,0,"));
    }

    void theDiagnosisIsShownBeforeItsButtonComesBack()
    {
        const Look look = lookDuring("BUTTON_Z_DIAGNOSIS", "SELF_DIAG");
        QCOMPARE(look.style, QString(kHighlight));
        QVERIFY(!look.enabled);
        QCOMPARE(m_fixture->text("EDIT_Z_DIAGNOSIS"), QString("0"));
        QCOMPARE(m_fixture->style("BUTTON_Z_DIAGNOSIS"), QString(kPlain));
        QVERIFY(m_fixture->isEnabled("BUTTON_Z_DIAGNOSIS"));
    }

    void aFailedDiagnosisShowsMinusOne()
    {
        failNext("SELF_DIAG");
        m_fixture->click("BUTTON_Z_DIAGNOSIS");
        QCOMPARE(m_fixture->text("EDIT_Z_DIAGNOSIS"), QString("-1"));
    }

    void theReferenceIsTheDisplayedPosition_data()
    {
        QTest::addColumn<QString>("shown");
        QTest::addColumn<int>("stored");
        QTest::newRow("number") << "31234" << 31234;
        QTest::newRow("negative") << "-156" << -156;
        QTest::newRow("no number") << "abc" << 0;
        QTest::newRow("empty") << "" << 0;
    }

    void theReferenceIsTheDisplayedPosition()
    {
        QFETCH(QString, shown);
        QFETCH(int, stored);
        m_fixture->setText("EDIT_Z_POSITION", shown);
        m_fixture->click("BUTTON_Z_SET_REFERENCE");
        QCOMPARE(global_ini()->Z_reference, stored);
        QCOMPARE(m_fixture->text("EDIT_Z_REFERENCE"), shown);
        QVERIFY(m_fixture->takeBoardLines().isEmpty());
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
        m_fixture->window().setEnabled(false);
        QVERIFY(QMetaObject::invokeMethod(Controller::getInstance(), qPrintable(signal)));
        QVERIFY(m_fixture->messages().contains(signature));
        QCOMPARE(m_fixture->takeBoardLines(), QStringList("$,STM1,GET_POS,,"));
        QCOMPARE(m_fixture->text("EDIT_Z_POSITION"), QString("10000"));
        QCOMPARE(m_fixture->window().isEnabled(), enables);
        m_fixture->window().setEnabled(true);
    }

    void holdingAMoveButtonRepeatsTheStep()
    {
        m_fixture->press("BUTTON_Z_MOVE_PLUS");
        QStringList lines;
        QVERIFY(m_fixture->waitUntil([&] {
            lines += m_fixture->takeBoardLines();
            return lines.size() >= 3;
        }));
        m_fixture->release("BUTTON_Z_MOVE_PLUS");
        for (const QString& line : lines)
            QCOMPARE(line, QString("$,STM1,MVP,256,"));
    }

private:
    struct Look
    {
        QString style;
        bool enabled = true;
    };

    /// How a busy button looks at the moment when its command goes out.
    Look lookDuring(const char* button, const QString& command)
    {
        Look look;
        const auto connection = connect(
            Controller::getInstance(), &Controller::sig_debug_Controller, this, [&](const QString& line) {
                if (line.startsWith("$,") && line.contains(command))
                    look = {m_fixture->style(button), m_fixture->isEnabled(button)};
            });
        m_fixture->click(button);
        disconnect(connection);
        return look;
    }

    void failNext(const std::string& command)
    {
        m_fixture->board().withBoard([&](Board& board, InstrumentTime) {
            board.addFault({LineFault::Failure, command, 1});
        });
    }

    double stagePosition() { return m_fixture->board().light().stagePosition_steps; }

    std::unique_ptr<WindowFixture> m_fixture;
};

QTEST_MAIN(TestWindowStage)
#include "test_window_stage.moc"
