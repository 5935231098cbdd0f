#include <algorithm>
#include <cctype>
#include <set>
#include <string>

#include <QtTest>

#include "simulator/board/Board.h"

Q_DECLARE_METATYPE(std::string)

namespace {

using namespace std::string_literals;

constexpr InstrumentTime kStart{5'000'000};
constexpr InstrumentTime kForever{3'600'000'000};

InstrumentTime s(double span_s)
{
    return spanOf(span_s);
}

} // namespace

class TestBoard : public QObject
{
    Q_OBJECT

private:
    /// Everything that the board says to these bytes, in the end.
    std::string answerTo(const std::string& bytes, InstrumentTime now = kStart)
    {
        m_board.receive(bytes, now);
        return m_board.takeOutput(now + kForever);
    }

    /// When the board's next bytes leave; -1 when it has nothing to say.
    double answerAfter_s()
    {
        for (auto next = m_board.nextEvent(); next; next = m_board.nextEvent())
            if (!m_board.takeOutput(*next).empty())
                return seconds(*next - kStart);
        return -1.0;
    }

    Board m_board;

private slots:
    void init() { m_board = Board(); }

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
        QCOMPARE(answerTo(line), reply);
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
        m_board.receive(line, kStart);
        QVERIFY(!m_board.stage().isMoving(kStart));
        const BoardLight light = m_board.light(kStart + kForever);
        QCOMPARE(light.stagePosition_steps, 12000.0);
        QCOMPARE(light.ledLevel, 225);
        QVERIFY(light.ledOn);
    }

    void theAnswerComesWhenTheCommandIsDone_data()
    {
        QTest::addColumn<std::string>("line");
        QTest::addColumn<double>("after_s");
        QTest::newRow("ready") << "$,DEVICE,READY,,\r\n"s << 0.0;
        QTest::newRow("position") << "$,STM1,GET_POS,,\r\n"s << 0.0;
        QTest::newRow("stop") << "$,STM1,STOP,,\r\n"s << 0.0;
        QTest::newRow("continuous") << "$,STM1,ROP,250,\r\n"s << 0.0;
        QTest::newRow("refused") << "$,STM1,ABS,99999,\r\n"s << 0.0;
        QTest::newRow("up") << "$,STM1,MVP,640,\r\n"s << 0.253;
        QTest::newRow("down") << "$,STM1,MVN,640,\r\n"s << 0.253;
        QTest::newRow("home") << "$,STM1,ORIGIN,,\r\n"s << 1.15;
        QTest::newRow("absolute") << "$,STM1,ABS,18400,\r\n"s << 0.8;
        QTest::newRow("diagnosis") << "$,STM1,SELF_DIAG,,\r\n"s << 12.0;
    }

    void theAnswerComesWhenTheCommandIsDone()
    {
        QFETCH(std::string, line);
        QFETCH(double, after_s);
        m_board.receive(line, kStart);
        QVERIFY(qAbs(answerAfter_s() - after_s) < 0.001);
        QVERIFY(!m_board.nextEvent());
        QVERIFY(!m_board.commandEnd());
    }

    void theLedFollowsItsCommands()
    {
        answerTo("$,LED4,BRT,600,\r\n");
        QCOMPARE(m_board.light(kStart).ledLevel, 600);
        answerTo("$,LED4,OFF,,\r\n");
        QVERIFY(!m_board.light(kStart).ledOn);
        QCOMPARE(m_board.light(kStart).ledLevel, 600);
        answerTo("$,LED4,ON,,\r\n");
        QVERIFY(m_board.light(kStart).ledOn);
    }

    void theAmplitudesAreKept()
    {
        answerTo("$,STM1,ACC,1,\r\n$,STM1,DEC,2,\r\n$,STM1,RUN,3,\r\n$,STM1,HOLD,4,\r\n");
        QCOMPARE(m_board.amplitudes(), (std::array<int, 4>{1, 2, 3, 4}));
    }

    void bytesMayComeInAnyPieces()
    {
        const std::string lines = "$,LED4,BRT,7,\r\n$,STM1,GET_POS,,\r\n";
        for (std::size_t cut = 0; cut <= lines.size(); ++cut) {
            m_board.receive(lines.substr(0, cut), kStart);
            m_board.receive(lines.substr(cut), kStart);
            QCOMPARE(m_board.takeOutput(kStart), "$OK,LED4,BRT,7,\r\n$OK,STM1,GET_POS,12000,\r\n"s);
        }
    }

    void theLongestLineIsKeptWholeAndAnEndlessOneIsMalformed()
    {
        const std::string longest(256, 'b');
        m_board.receive(longest, kStart);
        QCOMPARE(answerTo("\r\n"), "$NG,DEVICE,SYNTAX,,\r\n"s);
        QCOMPARE(m_board.receivedLines().back(), longest);
        for (int i = 0; i < 100; ++i)
            m_board.receive("a" + longest, kStart);
        QCOMPARE(answerTo("\r\n"), "$NG,DEVICE,SYNTAX,,\r\n"s);
        QCOMPARE(m_board.receivedLines().back(), longest);
        QCOMPARE(answerTo("$,DEVICE,READY,,\r\n"), "$OK,DEVICE,READY,,\r\n"s);
    }

    void commandsAreCarriedOutOneAfterTheOther()
    {
        m_board.receive("$,STM1,MVP,640,\r\n$,STM1,MVP,640,\r\n$,LED4,OFF,,\r\n", kStart);
        QVERIFY(m_board.light(kStart).ledOn);
        QCOMPARE(m_board.takeOutput(kStart + s(0.25)), ""s);
        QCOMPARE(m_board.takeOutput(kStart + s(0.26)), "$OK,STM1,MVP,640,\r\n"s);
        QCOMPARE(m_board.takeOutput(kStart + s(0.51)), "$OK,STM1,MVP,640,\r\n$OK,LED4,OFF,,\r\n"s);
        QCOMPARE(m_board.light(kStart + s(0.51)).stagePosition_steps, 13280.0);
    }

    void everyOtherCommandWaitsForTheMoveBeforeIt_data()
    {
        QTest::addColumn<std::string>("command");
        for (const char* command :
             {"DEVICE,READY,", "DEVICE,FW VERSION,", "DEVICE,FW BUILD,", "LED4,OFF,", "LED4,ON,",
              "LED4,BRT,7", "STM1,ORIGIN,", "STM1,RON,250", "STM1,ROP,250", "STM1,MVN,64", "STM1,MVP,64",
              "STM1,ABS,12000", "STM1,SELF_DIAG,", "STM1,ACC,1", "STM1,DEC,1", "STM1,RUN,1", "STM1,HOLD,1"})
            QTest::newRow(command) << std::string(command);
    }

    void everyOtherCommandWaitsForTheMoveBeforeIt()
    {
        QFETCH(std::string, command);
        m_board.receive("$,STM1,ABS,28000,\r\n$," + command + ",\r\n", kStart);
        QCOMPARE(m_board.takeOutput(kStart + s(0.5)), ""s);
        const std::string answers = m_board.takeOutput(kStart + kForever);
        QCOMPARE(answers.substr(0, 23), "$OK,STM1,ABS,28000,\r\n$O"s);
    }

    void anAnswerLeavesAtTheVeryTimeThatIsToldForIt()
    {
        m_board.receive("$,STM1,ABS,44000,\r\n", kStart);
        QCOMPARE(m_board.takeOutput(*m_board.nextEvent()), "$OK,STM1,ABS,44000,\r\n"s);
        m_board.receive("$,STM1,RON,250,\r\n", kStart + s(10.0));
        m_board.takeOutput(kStart + s(11.0));
        m_board.receive("$,STM1,STOP,,\r\n", kStart + s(11.0));
        QCOMPARE(m_board.takeOutput(*m_board.nextEvent()), "$OK,STM1,STOP,,\r\n"s);
    }

    void thePositionIsToldInTheMiddleOfAMove()
    {
        m_board.receive("$,STM1,ABS,28000,\r\n", kStart);
        m_board.receive("$,STM1,GET_POS,,\r\n",
                        kStart + s(0.7)); // 0.4 s of acceleration and 0.3 s at full speed
        QCOMPARE(m_board.takeOutput(kStart + s(0.7)), "$OK,STM1,GET_POS,20000,\r\n"s);
        QCOMPARE(m_board.takeOutput(kStart + s(1.5)), "$OK,STM1,ABS,28000,\r\n"s);
    }

    void aStopBrakesAndTheMoveThatItCutsShortFails()
    {
        m_board.receive("$,STM1,ABS,44000,\r\n$,STM1,MVP,1,\r\n$,LED4,OFF,,\r\n", kStart);
        m_board.receive("$,STM1,STOP,,\r\n", kStart + s(1.0));
        QCOMPARE(m_board.takeOutput(kStart + s(1.39)), ""s);
        QCOMPARE(m_board.takeOutput(kStart + s(1.41)),
                 "$OK,STM1,STOP,,\r\n$NG,STM1,ABS,44000,\r\n$NG,STM1,MVP,1,\r\n$OK,LED4,OFF,,\r\n"s);
        // 3200 accelerating, 9600 at full speed, 3200 braking
        QCOMPARE(m_board.light(kStart + kForever).stagePosition_steps, 28000.0);
    }

    void aStopEndsContinuousMotion()
    {
        QCOMPARE(answerTo("$,STM1,RON,250,\r\n", kStart - s(1.0)), "$OK,STM1,RON,250,\r\n"s);
        m_board.receive("$,STM1,STOP,,\r\n", kStart);
        QCOMPARE(m_board.takeOutput(kStart + s(0.09)), ""s); // 4000 steps/s at 40000 steps/s2
        QCOMPARE(m_board.takeOutput(kStart + s(0.11)), "$OK,STM1,STOP,,\r\n"s);
        const double rest = m_board.light(kStart + s(0.2)).stagePosition_steps;
        QCOMPARE(m_board.light(kStart + kForever).stagePosition_steps, rest);
        QVERIFY(qAbs(rest - 8000.0) <= 1.0); // 1 s at 4000 steps/s; the ramps make up for one another
    }

    void aStopEndsTheDiagnosis()
    {
        m_board.receive("$,STM1,SELF_DIAG,,\r\n", kStart);
        QCOMPARE(answerTo("$,STM1,STOP,,\r\n", kStart + s(2.0)),
                 "$OK,STM1,STOP,,\r\n$NG,STM1,SELF_DIAG,,\r\n"s);
    }

    void aCommandWaitsUntilTheStageHasBraked()
    {
        answerTo("$,STM1,RON,250,\r\n", kStart - s(1.0));
        m_board.receive("$,STM1,STOP,,\r\n$,DEVICE,READY,,\r\n", kStart);
        QCOMPARE(m_board.takeOutput(kStart + s(0.09)), ""s);
        QCOMPARE(m_board.takeOutput(kStart + s(0.11)), "$OK,STM1,STOP,,\r\n$OK,DEVICE,READY,,\r\n"s);
    }

    void aSecondStopAnswersTheFirst()
    {
        answerTo("$,STM1,RON,250,\r\n", kStart - s(1.0));
        m_board.receive("$,STM1,STOP,,\r\n$,STM1,STOP,,\r\n", kStart);
        QCOMPARE(m_board.takeOutput(kStart), "$OK,STM1,STOP,,\r\n"s);
        QCOMPARE(m_board.takeOutput(kStart + s(0.11)), "$OK,STM1,STOP,,\r\n"s);
        QVERIFY(!m_board.commandEnd());
    }

    void aRelativeMoveDuringContinuousMotionCountsFromItsRest()
    {
        m_board.receive("$,STM1,ROP,250,\r\n", kStart);
        m_board.receive("$,STM1,MVP,100,\r\n", kStart + s(1.0));
        m_board.takeOutput(kStart + kForever);
        QVERIFY(qAbs(m_board.light(kStart + kForever).stagePosition_steps - 16100.0) <= 1.0);
    }

    void withoutPowerItIsSilentAndDark()
    {
        m_board.receive("$,LED4,BRT,600,\r\n$,STM1,ABS,44000,\r\n", kStart);
        m_board.setPowered(false, kStart + s(1.0));
        QVERIFY(!m_board.light(kStart + s(1.0)).ledOn);
        QCOMPARE(answerTo("$,DEVICE,READY,,\r\n", kStart + s(2.0)), ""s);
        QVERIFY(!m_board.nextEvent());
        m_board.setPowered(true, kStart + s(3.0));
        const BoardLight light = m_board.light(kStart + s(3.0));
        QVERIFY(light.ledOn);
        QCOMPARE(light.ledLevel, 225);
        QCOMPARE(light.stagePosition_steps, 24800.0); // where it was when the power went
        QCOMPARE(answerTo("$,DEVICE,READY,,\r\n", kStart + s(4.0)), "$OK,DEVICE,READY,,\r\n"s);
    }

    void nothingThatWasUnderWaySurvivesThePower_data()
    {
        QTest::addColumn<std::string>("before");
        QTest::newRow("a move") << "$,STM1,ABS,44000,\r\n"s;
        QTest::newRow("a command behind it") << "$,STM1,ABS,44000,\r\n$,LED4,OFF,,\r\n"s;
        QTest::newRow("a stage that brakes") << "$,STM1,ABS,44000,\r\n$,STM1,STOP,,\r\n"s;
        QTest::newRow("an answer held back") << "$,LED4,BRT,600,\r\n"s;
        QTest::newRow("half a line") << "$,DEVICE,RE"s;
        QTest::newRow("a lamp that is off") << "$,LED4,OFF,,\r\n"s;
    }

    void nothingThatWasUnderWaySurvivesThePower()
    {
        QFETCH(std::string, before);
        m_board.addFault({LineFault::Held, "BRT", 0});
        m_board.receive(before.substr(0, before.find('\n') + 1), kStart);
        m_board.receive(before.substr(before.find('\n') + 1), kStart + s(0.9));
        m_board.setPowered(false, kStart + s(1.0));
        m_board.setPowered(true, kStart + s(1.0));
        m_board.releaseAnswers(kStart + s(1.0));
        QVERIFY(!m_board.nextEvent());
        QCOMPARE(answerTo("$,DEVICE,READY,,\r\n", kStart + s(2.0)), "$OK,DEVICE,READY,,\r\n"s);
        QVERIFY(m_board.light(kStart + s(3.0)).ledOn);
    }

    // Nobody looked at the board in between.
    void whatWasDoneBeforeThePowerWentIsDone()
    {
        m_board.receive("$,STM1,MVP,640,\r\n$,STM1,MVP,640,\r\n", kStart);
        m_board.setPowered(false, kStart + s(1.0));
        QCOMPARE(m_board.light(kStart + s(1.0)).stagePosition_steps, 13280.0);
    }

    void theReceivedLinesAreKept()
    {
        m_board.receive("$,LED4,ON,,\r\nnoise\r\n$,STM1", kStart);
        QCOMPARE(m_board.receivedLines(), (std::deque<std::string>{"$,LED4,ON,,", "noise"}));
        for (int i = 0; i < 10100; ++i)
            m_board.receive("$,LED4,OFF,,\r\n", kStart);
        QCOMPARE(m_board.receivedLines().size(), std::size_t(10000));
    }

    void newLinesAreThoseSinceTheLastLook()
    {
        using Lines = std::vector<std::string>;
        std::size_t seen = 0;
        QCOMPARE(m_board.newLines(seen), Lines{});
        m_board.receive("a\r\nb\r\n", kStart);
        QCOMPARE(m_board.newLines(seen), (Lines{"a", "b"}));
        QCOMPARE(m_board.newLines(seen), Lines{});
        std::size_t fewer = 1;
        QCOMPARE(m_board.newLines(fewer), Lines{"b"});
        // Also when lines have been forgotten meanwhile.
        for (int i = 0; i < 10000; ++i)
            m_board.receive("c\r\n", kStart);
        QCOMPARE(m_board.newLines(seen), Lines(10000, "c"));
        m_board.receive("d\r\n", kStart);
        QCOMPARE(m_board.newLines(seen), Lines{"d"});
        QCOMPARE(seen, std::size_t(10003));
        fewer = 1;
        QCOMPARE(m_board.newLines(fewer).size(), std::size_t(10000));
        std::size_t beyond = seen + 1;
        QCOMPARE(m_board.newLines(beyond), Lines{});
        QCOMPARE(beyond, seen);
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
        QTest::addColumn<std::string>("reply");
        QTest::newRow("no-answer") << ""s;
        QTest::newRow("ignored") << ""s;
        QTest::newRow("held") << ""s;
        QTest::newRow("late") << "$OK,LED4,OFF,,\r\n"s;
        QTest::newRow("garbled") << "\xa4\xcf\xcb\xac\xcc\xc5\xc4\xb4\xac\xcf\xc6\xc6\xac\xac\r\n"s;
        QTest::newRow("trickled") << "$OK,LED4,OFF,,\r\n"s;
        QTest::newRow("doubled") << "$OK,LED4,OFF,,\r\n$OK,LED4,OFF,,\r\n"s;
        QTest::newRow("unsolicited") << "$OK,DEVICE,EVENT,1,\r\n$OK,LED4,OFF,,\r\n"s;
        QTest::newRow("failure") << "$NG,LED4,OFF,,\r\n"s;
    }

    void aFaultSpoilsTheAnswer()
    {
        QFETCH(std::string, reply);
        const LineFault fault = lineFaultNamed(QTest::currentDataTag()).value();
        m_board.addFault({fault, {}, 0});
        QCOMPARE(answerTo("$,LED4,OFF,,\r\n"), reply);
        const bool undone = fault == LineFault::Failure || fault == LineFault::Ignored;
        QCOMPARE(m_board.light(kStart).ledOn, undone);
        m_board.clearFaults();
        QCOMPARE(answerTo("$,LED4,OFF,,\r\n", kStart + kForever), "$OK,LED4,OFF,,\r\n"s);
    }

    void noiseIsOneBitAndNeverMakesAnotherNumber()
    {
        const std::string plain = "$OK,STM1,GET_POS,12000,\r\n";
        m_board.addFault({LineFault::Noisy, {}, 0});
        std::set<std::size_t> places;
        for (int i = 0; i < 1000; ++i) {
            const std::string noisy = answerTo("$,STM1,GET_POS,,\r\n");
            QCOMPARE(noisy.size(), plain.size());
            int bits = 0;
            for (std::size_t place = 0; place < plain.size(); ++place) {
                const auto difference = static_cast<unsigned char>(noisy[place] ^ plain[place]);
                bits += qPopulationCount(difference);
                if (difference != 0)
                    places.insert(place);
                if (difference != 0 && std::isdigit(static_cast<unsigned char>(plain[place])) != 0)
                    QVERIFY(std::isdigit(static_cast<unsigned char>(noisy[place])) == 0);
            }
            QCOMPARE(bits, 1);
        }
        QCOMPARE(places.size(), plain.size());
    }

    void aFaultAtRandomStrikesItsShareAndAlikeForASeed()
    {
        const auto answers = [this](std::uint32_t seed) {
            BoardParameters parameters;
            parameters.faultSeed = seed;
            m_board = Board(parameters);
            m_board.addFault({LineFault::Failure, "ON", 0, 10});
            std::string results;
            for (int i = 0; i < 1000; ++i)
                results += answerTo("$,LED4,ON,,\r\n").substr(1, 1);
            return results;
        };
        const std::string one = answers(1);
        const auto struck = std::count(one.begin(), one.end(), 'N');
        QVERIFY2(struck > 60 && struck < 140, qPrintable(QString::number(struck)));
        QCOMPARE(answers(1), one);
        QVERIFY(answers(2) != one);
    }

    void aFaultInOneOfOneStrikesEachTime()
    {
        m_board.addFault({LineFault::Failure, "ON", 2, 1});
        QCOMPARE(answerTo("$,LED4,ON,,\r\n$,LED4,ON,,\r\n$,LED4,ON,,\r\n"),
                 "$NG,LED4,ON,,\r\n$NG,LED4,ON,,\r\n$NG,LED4,ON,,\r\n"s);
    }

    void answersHeldBackComeInTheirOrderWhenTheyAreReleased()
    {
        m_board.addFault({LineFault::Held, "ON", 0});
        m_board.addFault({LineFault::Held, "OFF", 0});
        QCOMPARE(answerTo("$,LED4,OFF,,\r\n"), ""s);
        QCOMPARE(answerTo("$,LED4,ON,,\r\n"), ""s);
        QCOMPARE(answerTo("$,DEVICE,READY,,\r\n"), "$OK,DEVICE,READY,,\r\n"s);
        m_board.releaseAnswers(kStart);
        QCOMPARE(m_board.takeOutput(kStart), "$OK,LED4,OFF,,\r\n$OK,LED4,ON,,\r\n"s);
        m_board.releaseAnswers(kStart);
        QCOMPARE(m_board.takeOutput(kStart), ""s);
    }

    void aBoardThatFollowsAScriptSaysWhatItIsToldAndDoesNothing()
    {
        m_board.followScript();
        m_board.queueAnswer({{"$OK,"}, {"LED4,OFF,,\r\n", InstrumentTime{300}}});
        m_board.receive("$,LED4,OFF,,\r\n", kStart);
        QCOMPARE(m_board.takeOutput(kStart), "$OK,"s);
        QCOMPARE(m_board.takeOutput(kStart + InstrumentTime{299}), ""s);
        QCOMPARE(m_board.takeOutput(kStart + InstrumentTime{300}), "LED4,OFF,,\r\n"s);
        m_board.queueAnswer({{"second\r\n"}});
        QCOMPARE(answerTo("$,LED4,OFF,,\n", kStart + InstrumentTime{300}), "second\r\n"s);
        QCOMPARE(answerTo("$,LED4,OFF,,\n", kStart + InstrumentTime{300}), ""s);
        QVERIFY(m_board.light(kStart).ledOn);
        QCOMPARE(m_board.receivedLines(),
                 (std::deque<std::string>{"$,LED4,OFF,,", "$,LED4,OFF,,\n", "$,LED4,OFF,,\n"}));
    }

    void aStageThatIsPutSomewhereIsThereAndGoesOnFromThere()
    {
        m_board.placeStage(4321);
        QCOMPARE(m_board.light(kStart).stagePosition_steps, 4321.0);
        QCOMPARE(answerTo("$,STM1,GET_POS,,\r\n"), "$OK,STM1,GET_POS,4321,\r\n"s);
    }

    void aLateAnswerComesAfterItsDelay()
    {
        m_board.addFault({LineFault::Late, {}, 0});
        m_board.receive("$,STM1,MVP,6400,\r\n", kStart);
        QVERIFY(qAbs(answerAfter_s() - 3.8) < 0.001);
    }

    void aTrickledAnswerComesByteByByte()
    {
        m_board.addFault({LineFault::Trickled, {}, 0});
        m_board.receive("$,LED4,ON,,\r\n$,STM1,STOP,,\r\n", kStart);
        const std::string whole = "$OK,LED4,ON,,\r\n$OK,STM1,STOP,,\r\n";
        std::string seen;
        for (std::size_t i = 0; i < whole.size(); ++i) {
            seen += m_board.takeOutput(kStart + InstrumentTime{20'000} * static_cast<int>(i));
            QCOMPARE(seen, whole.substr(0, i + 1));
        }
        QVERIFY(!m_board.nextEvent());
    }

    void anAnswerDoesNotBreakIntoATrickledOne()
    {
        m_board.addFault({LineFault::Trickled, "ON", 0});
        m_board.receive("$,LED4,ON,,\r\n", kStart);
        m_board.takeOutput(kStart);
        m_board.receive("$,LED4,OFF,,\r\n", kStart + s(0.01));
        QCOMPARE(m_board.takeOutput(kStart + s(1.0)), "OK,LED4,ON,,\r\n$OK,LED4,OFF,,\r\n"s);
    }

    void aFaultMayStrikeOneCommandForTheNthTimeOnly()
    {
        m_board.addFault({LineFault::NoAnswer, "ON", 2});
        QCOMPARE(answerTo("$,LED4,ON,,\r\n$,LED4,OFF,,\r\n$,LED4,ON,,\r\n$,LED4,ON,,\r\n"),
                 "$OK,LED4,ON,,\r\n$OK,LED4,OFF,,\r\n$OK,LED4,ON,,\r\n"s);
    }

    void faultsAddUp()
    {
        m_board.addFault({LineFault::Failure, {}, 0});
        m_board.addFault({LineFault::Doubled, {}, 0});
        QCOMPARE(answerTo("$,LED4,ON,,\r\n"), "$NG,LED4,ON,,\r\n$NG,LED4,ON,,\r\n"s);
    }

    void aLineThatNobodyAskedForIsSentAtOnce()
    {
        m_board.sendUnasked("$OK,STM1,MVP,640,\r\n", kStart);
        QCOMPARE(m_board.takeOutput(kStart), "$OK,STM1,MVP,640,\r\n"s);
        m_board.setPowered(false, kStart);
        m_board.sendUnasked("$OK,STM1,MVP,640,\r\n", kStart);
        QCOMPARE(m_board.takeOutput(kStart), ""s);
    }
};

QTEST_GUILESS_MAIN(TestBoard)
#include "test_board.moc"
