#include <cmath>

#include <QtTest>

#include "simulator/board/Stage.h"

namespace {

constexpr InstrumentTime kStart{1'000'000};
constexpr InstrumentTime kTick{1'000};

double lasts_s(InstrumentTime end, InstrumentTime start = kStart)
{
    return seconds(end - start);
}

bool speedIsSlope(const Stage& stage, InstrumentTime time)
{
    const double slope =
        (stage.position_steps(time + kTick) - stage.position_steps(time - kTick)) / (2.0 * seconds(kTick));
    return std::abs(slope - stage.speed_stepsPerS(time)) < 0.5 * 40000.0 * seconds(kTick) + 1e-3;
}

StageParameters withBacklash(double backlash_steps)
{
    StageParameters parameters;
    parameters.backlash_steps = backlash_steps;
    return parameters;
}

} // namespace

class TestStage : public QObject
{
    Q_OBJECT

private slots:
    void atPowerOnItStandsSomewhereElseThanAtHome()
    {
        const Stage stage;
        QCOMPARE(stage.position_steps(InstrumentTime{0}), 12000.0);
        QCOMPARE(stage.carriagePosition_steps(InstrumentTime{0}), 12000.0);
        QVERIFY(!stage.isMoving(InstrumentTime{0}));
    }

    void aMoveLastsAsLongAsTheMotorNeeds_data()
    {
        QTest::addColumn<int>("from");
        QTest::addColumn<int>("to");
        QTest::addColumn<double>("duration_s");
        QTest::newRow("no way") << 12000 << 12000 << 0.0;
        QTest::newRow("one step") << 12000 << 12001 << 2.0 * std::sqrt(1.0 / 40000.0);
        QTest::newRow("one sweep step") << 12000 << 12640 << 2.0 * std::sqrt(640.0 / 40000.0);
        QTest::newRow("down as fast as up") << 12640 << 12000 << 2.0 * std::sqrt(640.0 / 40000.0);
        QTest::newRow("just at full speed") << 12000 << 18400 << 0.8;
        QTest::newRow("homing from the middle") << 32000 << 0 << 2.4;
        QTest::newRow("the whole travel") << -1000 << 64000 << 65000.0 / 16000.0 + 0.4;
    }

    void aMoveLastsAsLongAsTheMotorNeeds()
    {
        QFETCH(int, from);
        QFETCH(int, to);
        QFETCH(double, duration_s);
        StageParameters parameters;
        parameters.start_steps = from;
        Stage stage(parameters);
        const InstrumentTime end = stage.moveTo(to, kStart);
        QVERIFY(std::abs(lasts_s(end) - duration_s) < 1e-5);
        QCOMPARE(stage.position_steps(end), double(to));
        QVERIFY(!stage.isMoving(end));
        QCOMPARE(stage.isMoving(kStart), from != to);
    }

    void aMoveIsMonotoneAndNeverFasterThanTheMotor_data()
    {
        QTest::addColumn<int>("to");
        for (const int to : {-1000, 0, 11999, 12001, 12640, 18400, 64000})
            QTest::addRow("%d", to) << to;
    }

    void aMoveIsMonotoneAndNeverFasterThanTheMotor()
    {
        QFETCH(int, to);
        Stage stage;
        const InstrumentTime end = stage.moveTo(to, kStart);
        const double direction = to > 12000 ? 1.0 : -1.0;
        double previous = stage.position_steps(kStart);
        for (InstrumentTime time = kStart; time <= end + kTick; time += kTick) {
            const double position = stage.position_steps(time);
            const double advance = direction * (position - previous);
            const double speed = stage.speed_stepsPerS(time);
            QVERIFY(advance >= 0.0);
            QVERIFY(advance <= 16000.0 * seconds(kTick) + 1e-6);
            QVERIFY(std::abs(speed) <= 16000.0 + 1e-6);
            QVERIFY(speedIsSlope(stage, time));
            // Without play.
            QCOMPARE(stage.carriagePosition_steps(time), position);
            previous = position;
        }
        QCOMPARE(previous, double(to));
        QCOMPARE(stage.speed_stepsPerS(end), 0.0);
    }

    void homingEndsAtZero()
    {
        Stage stage;
        const InstrumentTime end = stage.home(kStart);
        QCOMPARE(stage.position_steps(end), 0.0);
        stage.moveTo(-700, end);
        QCOMPARE(stage.position_steps(stage.home(end)), 0.0);
    }

    void continuousMotionRunsAtItsSpeed()
    {
        Stage stage;
        stage.run(1, 250, kStart);
        const InstrumentTime soon = kStart + InstrumentTime{1'000'000};
        QCOMPARE(stage.speed_stepsPerS(soon), 4000.0);
        stage.run(-1, 100, kStart + InstrumentTime{2'000'000});
        QCOMPARE(stage.speed_stepsPerS(kStart + InstrumentTime{4'000'000}), -1600.0);
    }

    void continuousMotionStopsAtTheEndsOfTheTravel_data()
    {
        QTest::addColumn<int>("direction");
        QTest::addColumn<double>("end_steps");
        QTest::newRow("down") << -1 << -1000.0;
        QTest::newRow("up") << 1 << 64000.0;
    }

    void continuousMotionStopsAtTheEndsOfTheTravel()
    {
        QFETCH(int, direction);
        QFETCH(double, end_steps);
        for (const int run : {1, 10, 250, 1000}) {
            Stage stage;
            const InstrumentTime end = stage.run(direction, run, kStart);
            QCOMPARE(stage.position_steps(end), end_steps);
            QVERIFY(!stage.isMoving(end));
            QCOMPARE(stage.run(direction, run, end), end);
        }
    }

    // Whenever it is told to stop, in whatever motion: rest at a whole step inside the travel.
    void brakingEndsAtAWholeStepInsideTheTravel()
    {
        for (const int run : {-1000, -250, -1, 1, 250, 1000}) {
            for (InstrumentTime after{0}; after < InstrumentTime{5'000'000};
                 after += InstrumentTime{37'123}) {
                Stage stage;
                stage.run(run < 0 ? -1 : 1, std::abs(run), kStart);
                const InstrumentTime now = kStart + after;
                const double before = stage.position_steps(now);
                const int rest = stage.restPosition_steps(now);
                const InstrumentTime end = stage.stop(now);
                QCOMPARE(stage.position_steps(now), before);
                QVERIFY(lasts_s(end, now) <= 0.4 + 1e-5);
                QVERIFY(stage.reaches(rest));
                QCOMPARE(stage.position_steps(end), double(rest));
                QCOMPARE(stage.position_steps(end + kTick), double(rest));
                QVERIFY(run < 0 ? rest <= before : rest >= before);
            }
        }
    }

    void aMoveOutOfContinuousMotionBrakesFirst()
    {
        Stage stage;
        stage.run(1, 250, kStart);
        const InstrumentTime now = kStart + InstrumentTime{1'000'000};
        const double before = stage.position_steps(now);
        const InstrumentTime end = stage.moveTo(12000, now);
        double highest = before;
        for (InstrumentTime time = now + kTick; time < end; time += kTick) {
            highest = std::max(highest, stage.position_steps(time));
            QVERIFY(speedIsSlope(stage, time));
        }
        QVERIFY(highest >= before + 4000.0 * 0.1 / 2.0 - 1.0); // 0.1 s of braking from 4000 steps/s
        QVERIFY(highest < before + 4000.0 * 0.1 / 2.0 + 2.0);
        QCOMPARE(stage.position_steps(end), 12000.0);
    }

    void withoutCurrentItStandsStillAtOnce()
    {
        Stage stage;
        stage.moveTo(32000, kStart);
        const InstrumentTime now = kStart + InstrumentTime{500'123};
        const double moving = stage.position_steps(now);
        stage.halt(now);
        QVERIFY(std::abs(stage.position_steps(now) - moving) <= 0.5);
        QCOMPARE(stage.position_steps(now + InstrumentTime{9'000'000}), std::round(moving));
        QVERIFY(!stage.isMoving(now));
    }

    void theTravelHasEnds()
    {
        const Stage stage;
        QVERIFY(stage.reaches(-1000));
        QVERIFY(!stage.reaches(-1001));
        QVERIFY(stage.reaches(64000));
        QVERIFY(!stage.reaches(64001));
        QVERIFY(!stage.reaches(4294967296)); // which no integer of the motor's holds
    }

    void theCarriageLagsTheMotorByThePlayAfterAChangeOfDirection()
    {
        Stage stage(withBacklash(64.0));
        InstrumentTime time = stage.home(kStart);
        QCOMPARE(stage.carriagePosition_steps(time), 0.0);
        time = stage.moveTo(40, time); // inside the play
        QCOMPARE(stage.carriagePosition_steps(time), 0.0);
        time = stage.moveTo(640, time);
        QCOMPARE(stage.carriagePosition_steps(time), 640.0 - 64.0);
        time = stage.moveTo(1280, time);
        QCOMPARE(stage.carriagePosition_steps(time), 1280.0 - 64.0);
        time = stage.moveTo(1250, time); // inside the play, downwards
        QCOMPARE(stage.carriagePosition_steps(time), 1280.0 - 64.0);
        time = stage.moveTo(640, time);
        QCOMPARE(stage.carriagePosition_steps(time), 640.0);
    }

    void withoutCurrentTheCarriageStaysInThePlayWhereItIs()
    {
        Stage stage(withBacklash(3000.0));
        stage.moveTo(40000, kStart);
        // Up until it has braked, then down again inside the play.
        const InstrumentTime turned = kStart + InstrumentTime{500'000};
        const InstrumentTime end = stage.moveTo(15000, turned);
        const double carriage = stage.carriagePosition_steps(end);
        QVERIFY(carriage > 12500.0);
        stage.halt(end);
        QCOMPARE(stage.carriagePosition_steps(end), carriage);
        QCOMPARE(stage.carriagePosition_steps(end + InstrumentTime{9'000'000}), carriage);
    }

    void theCarriageNeverLeavesThePlayNorJumps()
    {
        Stage stage(withBacklash(64.0));
        InstrumentTime time = kStart;
        double previous = stage.carriagePosition_steps(time);
        for (const int target : {12500, 12000, 12030, 9000, 15000}) {
            const InstrumentTime end = stage.moveTo(target, time);
            for (; time < end; time += kTick) {
                const double motor = stage.position_steps(time);
                const double carriage = stage.carriagePosition_steps(time);
                QVERIFY(carriage <= motor + 1e-9 && carriage >= motor - 64.0 - 1e-9);
                QVERIFY(std::abs(carriage - previous) <= 16000.0 * seconds(kTick) + 1e-6);
                previous = carriage;
            }
            time = end;
        }
    }

    void aMotionBeginsFromTheCarriageAndNotFromItsRinging()
    {
        StageParameters parameters = withBacklash(64.0);
        parameters.vibrationAmplitude_steps = 20.0;
        Stage stage(parameters);
        const InstrumentTime ringing = stage.moveTo(12640, kStart) + InstrumentTime{6'000};
        QVERIFY(stage.carriagePosition_steps(ringing) > 12640.0 - 64.0 + 10.0);
        Stage withoutCurrent = stage;
        withoutCurrent.halt(ringing);
        QVERIFY(std::abs(withoutCurrent.carriagePosition_steps(ringing + InstrumentTime{1'000'000}) -
                         (12640.0 - 64.0)) < 0.01);
        const InstrumentTime quiet = stage.moveTo(12641, ringing) + InstrumentTime{1'000'000};
        QVERIFY(std::abs(stage.carriagePosition_steps(quiet) - (12641.0 - 64.0)) < 0.01);
    }

    void theCarriageRingsWhenAMotionIsOverAndComesToRest()
    {
        StageParameters parameters;
        parameters.vibrationAmplitude_steps = 20.0;
        Stage stage(parameters);
        QCOMPARE(stage.carriagePosition_steps(kStart), 12000.0);
        const InstrumentTime end = stage.moveTo(12640, kStart);
        QVERIFY(std::abs(stage.carriagePosition_steps(end) - 12640.0) < 1e-9);
        double early = 0.0;
        double late = 0.0;
        for (InstrumentTime after{0}; after < InstrumentTime{100'000}; after += kTick) {
            early = std::max(early, std::abs(stage.carriagePosition_steps(end + after) - 12640.0));
            late =
                std::max(late, std::abs(stage.carriagePosition_steps(end + InstrumentTime{500'000} + after) -
                                        12640.0));
        }
        QVERIFY(early > 10.0 && early <= 20.0);
        QVERIFY(late < 0.01);
        QCOMPARE(stage.position_steps(end + kTick), 12640.0);
        // A stop at rest changes nothing.
        const InstrumentTime later = end + InstrumentTime{1'000'000};
        const double before = stage.carriagePosition_steps(later + InstrumentTime{6'000});
        QCOMPARE(stage.stop(later), later);
        QCOMPARE(stage.carriagePosition_steps(later + InstrumentTime{6'000}), before);
        QCOMPARE(stage.position_steps(later), 12640.0);
    }
};

QTEST_GUILESS_MAIN(TestStage)
#include "test_stage.moc"
