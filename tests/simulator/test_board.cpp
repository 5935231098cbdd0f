#include <set>

#include <QtTest>

#include "simulator/board/Board.h"

Q_DECLARE_METATYPE(std::string)

namespace {

constexpr InstrumentTime kStart{5'000'000};
constexpr InstrumentTime kForever{3'600'000'000};

InstrumentTime s(double span_s)
{
    return spanOf(span_s);
}

/// Everything that the board says to these bytes, in the end.
std::string answerTo(Board& board, const std::string& bytes, InstrumentTime now = kStart)
{
    board.receive(bytes, now);
    return board.takeOutput(now + kForever);
}

/// When the board's next bytes leave; -1 when it has nothing to say.
double answerAfter_s(Board& board)
{
    for (auto next = board.nextEvent(); next; next = board.nextEvent())
        if (!board.takeOutput(*next).empty())
            return seconds(*next - kStart);
    return -1.0;
}

} // namespace

class TestBoard : public QObject
{
    Q_OBJECT

private slots:
    void everyCommandIsAnsweredInItsForm_data()
    {
        QTest::addColumn<std::string>("line");
        QTest::addColumn<std::string>("reply");
        const auto row = [](const char* line, const char* reply) {
            QTest::newRow(line) << std::string(line) + "\r\n" << std::string(reply) + "\r\n";
        };
        row("$,DEVICE,READY,,", "$OK,DEVICE,READY,,");
        row("$,DEVICE,FW VERSION,,", "$OK,DEVICE,FW VERSION,1.02,");
        row("$,DEVICE,FW BUILD,,", "$OK,DEVICE,FW BUILD,20210415,");
        row("$,LED4,ON,,", "$OK,LED4,ON,,");
        row("$,LED4,OFF,,", "$OK,LED4,OFF,,");
        row("$,LED4,BRT,0,", "$OK,LED4,BRT,0,");
        row("$,LED4,BRT,1000,", "$OK,LED4,BRT,1000,");
        row("$,LED4,BRT,1001,", "$NG,LED4,BRT,1001,");
        row("$,LED4,BRT,-1,", "$NG,LED4,BRT,-1,");
        row("$,STM1,ORIGIN,,", "$OK,STM1,ORIGIN,,");
        row("$,STM1,RON,250,", "$OK,STM1,RON,250,");
        row("$,STM1,ROP,1000,", "$OK,STM1,ROP,1000,");
        row("$,STM1,ROP,0,", "$NG,STM1,ROP,0,");
        row("$,STM1,RON,1001,", "$NG,STM1,RON,1001,");
        row("$,STM1,MVN,640,", "$OK,STM1,MVN,640,");
        row("$,STM1,MVN,13000,", "$OK,STM1,MVN,13000,");
        row("$,STM1,MVN,13001,", "$NG,STM1,MVN,13001,");
        row("$,STM1,MVP,640,", "$OK,STM1,MVP,640,");
        row("$,STM1,MVP,-640,", "$OK,STM1,MVP,-640,");
        row("$,STM1,MVP,52001,", "$NG,STM1,MVP,52001,");
        row("$,STM1,MVP,2147483647,", "$NG,STM1,MVP,2147483647,");
        row("$,STM1,MVN,-2147483648,", "$NG,STM1,MVN,-2147483648,");
        row("$,STM1,ABS,-1000,", "$OK,STM1,ABS,-1000,");
        row("$,STM1,ABS,64001,", "$NG,STM1,ABS,64001,");
        row("$,STM1,SELF_DIAG,,", "$OK,STM1,SELF_DIAG,0,");
        row("$,STM1,STOP,,", "$OK,STM1,STOP,,");
        row("$,STM1,GET_POS,,", "$OK,STM1,GET_POS,12000,");
        row("$,STM1,ACC,255,", "$OK,STM1,ACC,255,");
        row("$,STM1,DEC,0,", "$OK,STM1,DEC,0,");
        row("$,STM1,RUN,256,", "$NG,STM1,RUN,256,");
        row("$,STM1,HOLD,-1,", "$NG,STM1,HOLD,-1,");
        row("$,STM1,JUMP,1,", "$NG,STM1,JUMP,1,");
        row("$,LED5,ON,,", "$NG,LED5,ON,,");
        row("$,STM1,STOP,1,", "$NG,STM1,STOP,1,");
        row("$,STM1,MVP,,", "$NG,STM1,MVP,,");
        row("$,STM1,MVP,6 40,", "$NG,STM1,MVP,6 40,");
        row("$,STM1,ABS,4294967296,", "$NG,STM1,ABS,4294967296,");
        row("$,STM1,STOP,", "$NG,DEVICE,SYNTAX,,");
        row("$,STM1,STOP,,,", "$NG,DEVICE,SYNTAX,,");
        row("$,STM1,STOP,,x", "$NG,DEVICE,SYNTAX,,");
        row("$OK,STM1,STOP,,", "$NG,DEVICE,SYNTAX,,");
        row("noise", "$NG,DEVICE,SYNTAX,,");
        row("", "$NG,DEVICE,SYNTAX,,");
    }

    void everyCommandIsAnsweredInItsForm()
    {
        QFETCH(std::string, line);
        QFETCH(std::string, reply);
        Board board;
        QCOMPARE(answerTo(board, line), reply);
    }

    void aRefusedCommandChangesNothing_data()
    {
        QTest::addColumn<std::string>("line");
        for (const char* line : {"$,STM1,ABS,64001,", "$,STM1,MVN,13001,", "$,STM1,ROP,0,",
                                 "$,LED4,BRT,1001,", "$,STM1,JUMP,1,", "$,STM1,MVP,,", "noise"})
            QTest::newRow(line) << std::string(line) + "\r\n";
    }

    void aRefusedCommandChangesNothing()
    {
        QFETCH(std::string, line);
        Board board;
        board.receive(line, kStart);
        QVERIFY(!board.stage().isMoving(kStart));
        const BoardLight light = board.light(kStart + kForever);
        QCOMPARE(light.stagePosition_steps, 12000.0);
        QCOMPARE(light.ledLevel, 225);
        QVERIFY(light.ledOn);
    }

    void theAnswerComesWhenTheCommandIsDone_data()
    {
        QTest::addColumn<std::string>("line");
        QTest::addColumn<double>("after_s");
        QTest::newRow("ready") << std::string("$,DEVICE,READY,,\r\n") << 0.0;
        QTest::newRow("position") << std::string("$,STM1,GET_POS,,\r\n") << 0.0;
        QTest::newRow("stop") << std::string("$,STM1,STOP,,\r\n") << 0.0;
        QTest::newRow("continuous") << std::string("$,STM1,ROP,250,\r\n") << 0.0;
        QTest::newRow("refused") << std::string("$,STM1,ABS,99999,\r\n") << 0.0;
        QTest::newRow("up") << std::string("$,STM1,MVP,640,\r\n") << 0.253;
        QTest::newRow("down") << std::string("$,STM1,MVN,640,\r\n") << 0.253;
        QTest::newRow("home") << std::string("$,STM1,ORIGIN,,\r\n") << 1.15;
        QTest::newRow("absolute") << std::string("$,STM1,ABS,18400,\r\n") << 0.8;
        QTest::newRow("diagnosis") << std::string("$,STM1,SELF_DIAG,,\r\n") << 12.0;
    }

    void theAnswerComesWhenTheCommandIsDone()
    {
        QFETCH(std::string, line);
        QFETCH(double, after_s);
        Board board;
        board.receive(line, kStart);
        QVERIFY(qAbs(answerAfter_s(board) - after_s) < 0.001);
        QVERIFY(!board.nextEvent());
        QVERIFY(!board.commandEnd());
    }

    void theLedFollowsItsCommands()
    {
        Board board;
        answerTo(board, "$,LED4,BRT,600,\r\n");
        QCOMPARE(board.light(kStart).ledLevel, 600);
        answerTo(board, "$,LED4,OFF,,\r\n");
        QVERIFY(!board.light(kStart).ledOn);
        QCOMPARE(board.light(kStart).ledLevel, 600);
        answerTo(board, "$,LED4,ON,,\r\n");
        QVERIFY(board.light(kStart).ledOn);
    }

    void theAmplitudesAreKept()
    {
        Board board;
        answerTo(board, "$,STM1,ACC,1,\r\n$,STM1,DEC,2,\r\n$,STM1,RUN,3,\r\n$,STM1,HOLD,4,\r\n");
        QCOMPARE(board.amplitudes(), (std::array<int, 4>{1, 2, 3, 4}));
    }

    void bytesMayComeInAnyPieces()
    {
        const std::string lines = "$,LED4,BRT,7,\r\n$,STM1,GET_POS,,\r\n";
        for (std::size_t cut = 0; cut <= lines.size(); ++cut) {
            Board board;
            board.receive(lines.substr(0, cut), kStart);
            board.receive(lines.substr(cut), kStart);
            QCOMPARE(board.takeOutput(kStart), std::string("$OK,LED4,BRT,7,\r\n$OK,STM1,GET_POS,12000,\r\n"));
        }
    }

    void anEndlessLineIsMalformedAndDoesNotGrow()
    {
        Board board;
        for (int i = 0; i < 1000; ++i)
            board.receive(std::string(100, 'x'), kStart);
        QCOMPARE(answerTo(board, ",\r\n"), std::string("$NG,DEVICE,SYNTAX,,\r\n"));
        QVERIFY(board.receivedLines().back().size() < 1000);
        QCOMPARE(answerTo(board, "$,DEVICE,READY,,\r\n"), std::string("$OK,DEVICE,READY,,\r\n"));
    }

    void commandsAreCarriedOutOneAfterTheOther()
    {
        Board board;
        board.receive("$,STM1,MVP,640,\r\n$,STM1,MVP,640,\r\n$,LED4,OFF,,\r\n", kStart);
        QVERIFY(board.light(kStart).ledOn);
        QCOMPARE(board.takeOutput(kStart + s(0.25)), std::string());
        QCOMPARE(board.takeOutput(kStart + s(0.26)), std::string("$OK,STM1,MVP,640,\r\n"));
        QCOMPARE(board.takeOutput(kStart + s(0.51)), std::string("$OK,STM1,MVP,640,\r\n$OK,LED4,OFF,,\r\n"));
        QCOMPARE(board.light(kStart + s(0.51)).stagePosition_steps, 13280.0);
    }

    void thePositionIsToldInTheMiddleOfAMove()
    {
        Board board;
        board.receive("$,STM1,ABS,28000,\r\n", kStart);
        board.receive("$,STM1,GET_POS,,\r\n",
                      kStart + s(0.7)); // 0.4 s of acceleration and 0.3 s at full speed
        QCOMPARE(board.takeOutput(kStart + s(0.7)), std::string("$OK,STM1,GET_POS,20000,\r\n"));
        QCOMPARE(board.takeOutput(kStart + s(1.5)), std::string("$OK,STM1,ABS,28000,\r\n"));
    }

    void aStopBrakesAndTheMoveThatItCutsShortFails()
    {
        Board board;
        board.receive("$,STM1,ABS,44000,\r\n$,STM1,MVP,1,\r\n$,LED4,OFF,,\r\n", kStart);
        board.receive("$,STM1,STOP,,\r\n", kStart + s(1.0));
        QCOMPARE(board.takeOutput(kStart + s(1.39)), std::string());
        QCOMPARE(
            board.takeOutput(kStart + s(1.41)),
            std::string("$OK,STM1,STOP,,\r\n$NG,STM1,ABS,44000,\r\n$NG,STM1,MVP,1,\r\n$OK,LED4,OFF,,\r\n"));
        // 3200 accelerating, 9600 at full speed, 3200 braking
        QCOMPARE(board.light(kStart + kForever).stagePosition_steps, 28000.0);
    }

    void aStopEndsContinuousMotion()
    {
        Board board;
        QCOMPARE(answerTo(board, "$,STM1,RON,250,\r\n", kStart - s(1.0)),
                 std::string("$OK,STM1,RON,250,\r\n"));
        board.receive("$,STM1,STOP,,\r\n", kStart);
        QCOMPARE(board.takeOutput(kStart + s(0.09)), std::string()); // 4000 steps/s at 40000 steps/s2
        QCOMPARE(board.takeOutput(kStart + s(0.11)), std::string("$OK,STM1,STOP,,\r\n"));
        const double rest = board.light(kStart + s(0.2)).stagePosition_steps;
        QCOMPARE(board.light(kStart + kForever).stagePosition_steps, rest);
        QVERIFY(qAbs(rest - 8000.0) <= 1.0); // 1 s at 4000 steps/s; the ramps make up for one another
    }

    void aStopEndsTheDiagnosis()
    {
        Board board;
        board.receive("$,STM1,SELF_DIAG,,\r\n", kStart);
        QCOMPARE(answerTo(board, "$,STM1,STOP,,\r\n", kStart + s(2.0)),
                 std::string("$OK,STM1,STOP,,\r\n$NG,STM1,SELF_DIAG,,\r\n"));
    }

    void aCommandWaitsUntilTheStageHasBraked()
    {
        Board board;
        answerTo(board, "$,STM1,RON,250,\r\n", kStart - s(1.0));
        board.receive("$,STM1,STOP,,\r\n$,DEVICE,READY,,\r\n", kStart);
        QCOMPARE(board.takeOutput(kStart + s(0.09)), std::string());
        QCOMPARE(board.takeOutput(kStart + s(0.11)),
                 std::string("$OK,STM1,STOP,,\r\n$OK,DEVICE,READY,,\r\n"));
    }

    void aSecondStopAnswersTheFirst()
    {
        Board board;
        answerTo(board, "$,STM1,RON,250,\r\n", kStart - s(1.0));
        board.receive("$,STM1,STOP,,\r\n$,STM1,STOP,,\r\n", kStart);
        QCOMPARE(board.takeOutput(kStart), std::string("$OK,STM1,STOP,,\r\n"));
        QCOMPARE(board.takeOutput(kStart + s(0.11)), std::string("$OK,STM1,STOP,,\r\n"));
        QVERIFY(!board.commandEnd());
    }

    void aRelativeMoveDuringContinuousMotionCountsFromItsRest()
    {
        Board board;
        board.receive("$,STM1,ROP,250,\r\n", kStart);
        board.receive("$,STM1,MVP,100,\r\n", kStart + s(1.0));
        board.takeOutput(kStart + kForever);
        QVERIFY(qAbs(board.light(kStart + kForever).stagePosition_steps - 16100.0) <= 1.0);
    }

    void withoutPowerItIsSilentAndDark()
    {
        Board board;
        board.receive("$,LED4,BRT,600,\r\n$,STM1,ABS,44000,\r\n", kStart);
        board.setPowered(false, kStart + s(1.0));
        QVERIFY(!board.light(kStart + s(1.0)).ledOn);
        QCOMPARE(answerTo(board, "$,DEVICE,READY,,\r\n", kStart + s(2.0)), std::string());
        QVERIFY(!board.nextEvent());
        board.setPowered(true, kStart + s(3.0));
        const BoardLight light = board.light(kStart + s(3.0));
        QVERIFY(light.ledOn);
        QCOMPARE(light.ledLevel, 225);
        QCOMPARE(light.stagePosition_steps, 24800.0); // where it was when the power went
        QCOMPARE(answerTo(board, "$,DEVICE,READY,,\r\n", kStart + s(4.0)),
                 std::string("$OK,DEVICE,READY,,\r\n"));
    }

    void halfALineDoesNotSurviveThePower()
    {
        Board board;
        board.receive("$,DEVICE,RE", kStart);
        board.setPowered(false, kStart);
        board.setPowered(true, kStart);
        QCOMPARE(answerTo(board, "$,DEVICE,READY,,\r\n"), std::string("$OK,DEVICE,READY,,\r\n"));
    }

    void theReceivedLinesAreKept()
    {
        Board board;
        board.receive("$,LED4,ON,,\r\nnoise\r\n$,STM1", kStart);
        QCOMPARE(board.receivedLines(), (std::deque<std::string>{"$,LED4,ON,,", "noise"}));
        for (int i = 0; i < 10100; ++i)
            board.receive("$,LED4,OFF,,\r\n", kStart);
        QCOMPARE(board.receivedLines().size(), std::size_t(10000));
    }

    void faultsHaveNames()
    {
        std::set<std::string> names;
        for (const LineFaultText& row : kLineFaults) {
            QCOMPARE(lineFaultNamed(row.name), std::make_optional(row.fault));
            QVERIFY(qstrlen(row.text) > 0);
            names.insert(row.name);
        }
        QCOMPARE(names.size(), std::size(kLineFaults));
        QCOMPARE(lineFaultNamed("meteorite"), std::nullopt);
    }

    void aFaultSpoilsTheAnswer_data()
    {
        QTest::addColumn<int>("fault");
        QTest::addColumn<std::string>("reply");
        QTest::newRow("no answer") << int(LineFault::NoAnswer) << std::string();
        QTest::newRow("ignored") << int(LineFault::Ignored) << std::string();
        QTest::newRow("held") << int(LineFault::Held) << std::string();
        QTest::newRow("late") << int(LineFault::Late) << std::string("$OK,LED4,OFF,,\r\n");
        QTest::newRow("garbled") << int(LineFault::Garbled)
                                 << std::string(
                                        "\xa4\xcf\xcb\xac\xcc\xc5\xc4\xb4\xac\xcf\xc6\xc6\xac\xac\r\n");
        QTest::newRow("trickled") << int(LineFault::Trickled) << std::string("$OK,LED4,OFF,,\r\n");
        QTest::newRow("doubled") << int(LineFault::Doubled)
                                 << std::string("$OK,LED4,OFF,,\r\n$OK,LED4,OFF,,\r\n");
        QTest::newRow("unsolicited") << int(LineFault::Unsolicited)
                                     << std::string("$OK,DEVICE,EVENT,1,\r\n$OK,LED4,OFF,,\r\n");
        QTest::newRow("failure") << int(LineFault::Failure) << std::string("$NG,LED4,OFF,,\r\n");
    }

    void aFaultSpoilsTheAnswer()
    {
        QFETCH(int, fault);
        QFETCH(std::string, reply);
        Board board;
        board.addFault({static_cast<LineFault>(fault), {}, 0});
        QCOMPARE(answerTo(board, "$,LED4,OFF,,\r\n"), reply);
        const bool undone = fault == int(LineFault::Failure) || fault == int(LineFault::Ignored);
        QCOMPARE(board.light(kStart).ledOn, undone);
        board.clearFaults();
        QCOMPARE(answerTo(board, "$,LED4,OFF,,\r\n", kStart + kForever), std::string("$OK,LED4,OFF,,\r\n"));
    }

    void answersHeldBackComeInTheirOrderWhenTheyAreReleased()
    {
        Board board;
        board.addFault({LineFault::Held, "ON", 0});
        board.addFault({LineFault::Held, "OFF", 0});
        QCOMPARE(answerTo(board, "$,LED4,OFF,,\r\n"), std::string());
        QCOMPARE(answerTo(board, "$,LED4,ON,,\r\n"), std::string());
        QCOMPARE(answerTo(board, "$,DEVICE,READY,,\r\n"), std::string("$OK,DEVICE,READY,,\r\n"));
        board.releaseAnswers(kStart);
        QCOMPARE(board.takeOutput(kStart), std::string("$OK,LED4,OFF,,\r\n$OK,LED4,ON,,\r\n"));
        board.releaseAnswers(kStart);
        QCOMPARE(board.takeOutput(kStart), std::string());
    }

    void aBoardThatFollowsAScriptSaysWhatItIsToldAndDoesNothing()
    {
        Board board;
        board.followScript();
        board.queueAnswer({{"$OK,"}, {"LED4,OFF,,\r\n", InstrumentTime{300}}});
        board.receive("$,LED4,OFF,,\r\n", kStart);
        QCOMPARE(board.takeOutput(kStart), std::string("$OK,"));
        QCOMPARE(board.takeOutput(kStart + InstrumentTime{299}), std::string());
        QCOMPARE(board.takeOutput(kStart + InstrumentTime{300}), std::string("LED4,OFF,,\r\n"));
        QCOMPARE(answerTo(board, "$,LED4,OFF,,\n", kStart + InstrumentTime{300}), std::string());
        QVERIFY(board.light(kStart).ledOn);
        QCOMPARE(board.receivedLines(), (std::deque<std::string>{"$,LED4,OFF,,", "$,LED4,OFF,,\n"}));
    }

    void aStageThatIsPutSomewhereIsThereAndGoesOnFromThere()
    {
        Board board;
        board.placeStage(4321);
        QCOMPARE(board.light(kStart).stagePosition_steps, 4321.0);
        QCOMPARE(answerTo(board, "$,STM1,GET_POS,,\r\n"), std::string("$OK,STM1,GET_POS,4321,\r\n"));
    }

    void aLateAnswerComesAfterItsDelay()
    {
        Board board;
        board.addFault({LineFault::Late, {}, 0});
        board.receive("$,STM1,MVP,6400,\r\n", kStart);
        QVERIFY(qAbs(answerAfter_s(board) - 3.8) < 0.001);
    }

    void aTrickledAnswerComesByteByByte()
    {
        Board board;
        board.addFault({LineFault::Trickled, {}, 0});
        board.receive("$,LED4,ON,,\r\n$,STM1,STOP,,\r\n", kStart);
        const std::string whole = "$OK,LED4,ON,,\r\n$OK,STM1,STOP,,\r\n";
        std::string seen;
        for (std::size_t i = 0; i < whole.size(); ++i) {
            seen += board.takeOutput(kStart + InstrumentTime{20'000} * static_cast<int>(i));
            QCOMPARE(seen, whole.substr(0, i + 1));
        }
        QVERIFY(!board.nextEvent());
    }

    void anAnswerDoesNotBreakIntoATrickledOne()
    {
        Board board;
        board.addFault({LineFault::Trickled, "ON", 0});
        board.receive("$,LED4,ON,,\r\n", kStart);
        board.takeOutput(kStart);
        board.receive("$,LED4,OFF,,\r\n", kStart + s(0.01));
        QCOMPARE(board.takeOutput(kStart + s(1.0)), std::string("OK,LED4,ON,,\r\n$OK,LED4,OFF,,\r\n"));
    }

    void aFaultMayStrikeOneCommandOnly()
    {
        Board board;
        board.addFault({LineFault::Failure, "OFF", 0});
        QCOMPARE(answerTo(board, "$,LED4,ON,,\r\n"), std::string("$OK,LED4,ON,,\r\n"));
        QCOMPARE(answerTo(board, "$,LED4,OFF,,\r\n"), std::string("$NG,LED4,OFF,,\r\n"));
    }

    void aFaultMayStrikeTheNthTimeOnly()
    {
        Board board;
        board.addFault({LineFault::NoAnswer, "ON", 2});
        QCOMPARE(answerTo(board, "$,LED4,ON,,\r\n$,LED4,OFF,,\r\n$,LED4,ON,,\r\n$,LED4,ON,,\r\n"),
                 std::string("$OK,LED4,ON,,\r\n$OK,LED4,OFF,,\r\n$OK,LED4,ON,,\r\n"));
    }

    void faultsAddUp()
    {
        Board board;
        board.addFault({LineFault::Failure, {}, 0});
        board.addFault({LineFault::Doubled, {}, 0});
        QCOMPARE(answerTo(board, "$,LED4,ON,,\r\n"), std::string("$NG,LED4,ON,,\r\n$NG,LED4,ON,,\r\n"));
    }

    void aLineThatNobodyAskedForIsSentAtOnce()
    {
        Board board;
        board.sendUnasked("$OK,STM1,MVP,640,\r\n", kStart);
        QCOMPARE(board.takeOutput(kStart), std::string("$OK,STM1,MVP,640,\r\n"));
        board.setPowered(false, kStart);
        board.sendUnasked("$OK,STM1,MVP,640,\r\n", kStart);
        QCOMPARE(board.takeOutput(kStart), std::string());
    }
};

QTEST_GUILESS_MAIN(TestBoard)
#include "test_board.moc"
