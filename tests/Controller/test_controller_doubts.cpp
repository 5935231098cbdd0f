// What the board has not confirmed stays in doubt until the board's own word replaces it.

#include <QtTest>

#include "ControllerFixture.h"

namespace {

/// What is in doubt, in words.
QStringList doubtsOf(const Controller& controller)
{
    const BoardDoubts& doubts = controller.doubts();
    QStringList words;
    if (doubts.position)
        words << "position";
    if (doubts.ledLevel)
        words << "level";
    if (doubts.ledSwitch)
        words << "switch";
    if (doubts.diagnosis)
        words << "diagnosis";
    return words;
}

const Command kStep = [](Controller& board) { board.z_stage_mvp(SERIAL_BLOCKING, 640); };
const Command kPlace = [](Controller& board) { board.z_stage_abs(SERIAL_BLOCKING, 640); };
const Command kQuery = [](Controller& board) { board.z_stage_pos(); };
const Command kStop = [](Controller& board) { board.z_stage_stop(); };
const Command kLevel = [](Controller& board) { board.led_brightness(5); };
const Command kSwitch = [](Controller& board) { board.led_on(); };
const Command kDiagnosis = [](Controller& board) { board.z_stage_diagnosis(); };
const Command kVersion = [](Controller& board) { board.device_fw_version(); };

} // namespace

class TestControllerDoubts : public QObject
{
    Q_OBJECT

private slots:
    void onlyAConfirmationLeavesNoDoubt_data()
    {
        QTest::addColumn<Command>("command");
        QTest::addColumn<QByteArray>("reply");
        QTest::addColumn<QStringList>("doubts");
        const auto row = [](const char* reply, const Command& command, const QStringList& doubts) {
            QTest::newRow(reply) << command << QByteArray(reply) + "\r\n" << doubts;
        };
        row("$OK,STM1,MVP,640,", kStep, {});
        row("$NG,STM1,MVP,640,", kStep, {"position"});
        row("$OK,STM1,MVN,640,", kStep, {"position"});
        row("$OK,STM1,MVP;640,", kStep, {"position"});
        row("$OK,STM1,ABS,640,", kPlace, {});
        row("$KK,STM1,ABS,640,", kPlace, {"position"});
        row("$OK,STM1,STOP,,", kStop, {});
        row("$OK,STM1,ST0P,,", kStop, {"position"});
        row("$OK,STM1,GET_POS,1280,", kQuery, {});
        row("$OK,STM1,GET_POS,-40,", kQuery, {});
        row("$OK,STM1,MVP,1280,", kQuery, {"position"});
        row("$OK,STM1,GET_POS,q280,", kQuery, {"position"});
        row("$OK,STM1,GET_POS,128 ,", kQuery, {"position"});
        row("$OK,LED4,BRT,5,", kLevel, {});
        row("$NG,LED4,BRT,5,", kLevel, {"level"});
        row("$OK,LED4,ON,,", kSwitch, {});
        row("$OK,LED4,OFF,,", kSwitch, {"switch"});
        row("$OK,STM1,SELF_DIAG,0,", kDiagnosis, {});
        row("$OK,STM1,GET_POS,0,", kDiagnosis, {"diagnosis"});
        row("$NG,DEVICE,FW VERSION,,", kVersion, {});
    }

    void onlyAConfirmationLeavesNoDoubt()
    {
        QFETCH(Command, command);
        QFETCH(QByteArray, reply);
        QFETCH(QStringList, doubts);
        OpenFixture fixture;
        QCOMPARE(doubtsOf(fixture.controller), QStringList());
        fixture.exchange(command, reply);
        QCOMPARE(doubtsOf(fixture.controller), doubts);
        QCOMPARE(fixture.controller.unconfirmedStageCommands(), doubts.contains("position") ? 1 : 0);
    }

    void aMissingAnswerIsNoConfirmationThoughTheRecordSaysOk()
    {
        OpenFixture fixture;
        fixture.peer.answer("$OK,STM1,GET_POS,640,\r\n");
        QCOMPARE(fixture.controller.z_stage_pos(), 640);
        fixture.controller.m_timeouts.read_ms = kShort_ms;
        QCOMPARE(fixture.controller.z_stage_pos(), 640);
        QCOMPARE(doubtsOf(fixture.controller), QStringList("position"));
    }

    // The late answer to a step stands in the place of the answer to the query after it.
    void aLateAnswerIsNotTakenForTheNextOne()
    {
        OpenFixture fixture;
        fixture.controller.m_timeouts.read_ms = kShort_ms;
        fixture.controller.z_stage_mvp(SERIAL_BLOCKING, 640);
        // An answer that is queued before the line has come would be this line's.
        QTRY_COMPARE(fixture.peer.received().size(), 1);
        fixture.controller.m_timeouts = ControllerTimeouts();
        fixture.peer.answer("$OK,STM1,MVP,640,\r\n");
        QCOMPARE(fixture.controller.z_stage_pos(), 640);
        QVERIFY(fixture.controller.answers());
        QCOMPARE(doubtsOf(fixture.controller), QStringList("position"));
    }

    void onlyTheBoardsOwnWordEndsTheDoubtOfAPosition()
    {
        OpenFixture fixture;
        fixture.exchange(kStep, "$NG,STM1,MVP,640,\r\n");
        fixture.exchange(kStep, "$OK,STM1,MVP,640,\r\n");
        fixture.exchange(kPlace, "$OK,STM1,ABS,640,\r\n");
        fixture.exchange(kSwitch, "$OK,LED4,ON,,\r\n");
        QCOMPARE(doubtsOf(fixture.controller), QStringList("position"));
        fixture.exchange(kQuery, "$OK,STM1,GET_POS,640,\r\n");
        QCOMPARE(doubtsOf(fixture.controller), QStringList());
        QCOMPARE(fixture.controller.unconfirmedStageCommands(), 1);
    }

    void theReplyThatIsNotWaitedForIsLookedAtToo()
    {
        ListeningFixture fixture;
        fixture.controller.z_stage_abs(SERIAL_NON_BLOCKING, 640);
        QTRY_COMPARE(fixture.peer.received().size(), 1);
        QCOMPARE(doubtsOf(fixture.controller), QStringList());
        fixture.peer.send("$OK,STM1,ABS640,\r\n");
        QTRY_COMPARE(doubtsOf(fixture.controller), QStringList("position"));
        // A line that nobody asked for is none.
        fixture.exchange(kQuery, "$OK,STM1,GET_POS,640,\r\n");
        fixture.peer.send("$OK,DEVICE,EVENT,1,\r\n");
        QTRY_COMPARE(fixture.controller.responseInfo().command, QString("EVENT"));
        QCOMPARE(doubtsOf(fixture.controller), QStringList());
    }

    void behindItsReplyACommandIsOver()
    {
        ListeningFixture fixture;
        fixture.controller.m_timeouts.diagnosisRead_ms = kShort_ms;
        fixture.exchange(kQuery, "$OK,STM1,GET_POS,640,\r\n");
        fixture.controller.z_stage_abs(SERIAL_NON_BLOCKING, 640);
        QTRY_COMPARE(fixture.peer.received().size(), 2);
        fixture.peer.send("$OK,STM1,ABS,640,\r\n");
        QTRY_COMPARE(fixture.controller.responseInfo().command, QString("ABS"));
        // No later line is taken for its reply, and none is missed.
        fixture.peer.send("$NG,DEVICE,EVENT,1,\r\n");
        QTRY_COMPARE(fixture.controller.responseInfo().command, QString("EVENT"));
        QCOMPARE(doubtsOf(fixture.controller), QStringList());
        QTest::qWait(2 * kShort_ms);
        QVERIFY(fixture.controller.answers());
    }

    void aReplyThatNeverComesIsMissedInTheEnd()
    {
        OpenFixture fixture;
        fixture.exchange(kQuery, "$OK,STM1,GET_POS,640,\r\n");
        fixture.controller.z_stage_abs(SERIAL_NON_BLOCKING, 640);
        QTRY_COMPARE(fixture.peer.received().size(), 2);
        QVERIFY2(fixture.controller.answers(), "it may still come");
        fixture.controller.m_timeouts.read_ms = 2 * kLong_ms; // another command's time
        fixture.controller.m_timeouts.diagnosisRead_ms = kShort_ms;
        QTRY_VERIFY(!fixture.controller.answers());
        fixture.exchange(kQuery, "$OK,STM1,GET_POS,640,\r\n");
        QVERIFY(fixture.controller.answers());
    }

    void aLineThatIsOpenedAnewHasNoAnswerYet()
    {
        OpenFixture fixture;
        fixture.exchange(kQuery, "$OK,STM1,GET_POS,640,\r\n");
        QVERIFY(fixture.controller.answers());
        fixture.controller.closeSerialPort();
        fixture.controller.openSerialPort();
        QVERIFY(fixture.controller.isSerialPortOpen());
        QVERIFY(!fixture.controller.answers());
    }

    void aLineThatIsOpenedAnewMissesNoReply()
    {
        OpenFixture fixture;
        fixture.controller.m_timeouts.diagnosisRead_ms = kShort_ms;
        fixture.controller.z_stage_abs(SERIAL_NON_BLOCKING, 640);
        QTRY_COMPARE(fixture.peer.received().size(), 1);
        QTest::qWait(2 * kShort_ms);
        fixture.controller.closeSerialPort();
        QVERIFY(fixture.tryAnswered());
        QVERIFY(fixture.controller.answers());
    }
};

QTEST_GUILESS_MAIN(TestControllerDoubts)
#include "test_controller_doubts.moc"
