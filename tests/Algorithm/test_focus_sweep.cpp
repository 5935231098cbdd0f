#include "Algorithm/FocusSweep.h"

#include <limits>

#include <QtTest>

using namespace focus_sweep;

Q_DECLARE_METATYPE(focus_sweep::State)
Q_DECLARE_METATYPE(focus_sweep::Action)

using Scores = std::vector<double>;
Q_DECLARE_METATYPE(Scores)

namespace {

/// Samples with these scores at 1000, 1230, 1460, ...
std::vector<AutoFocusingData_s> samplesOf(const Scores& scores)
{
    std::vector<AutoFocusingData_s> samples;
    int z = 1000;
    for (double score : scores) {
        samples.push_back({score, z});
        z += kFineInterval_steps;
    }
    return samples;
}

} // namespace

class TestFocusSweep : public QObject
{
    Q_OBJECT

private slots:
    void everyStateHasItsSuccessorAndAction_data()
    {
        QTest::addColumn<State>("state");
        QTest::addColumn<int>("samples");
        QTest::addColumn<State>("next");
        QTest::addColumn<Action>("action");
        QTest::newRow("0") << State::Start << 0 << State::Coarse << Action::PrepareCoarse;
        QTest::newRow("1") << State::CoarseFirstStep << 0 << State::Coarse << Action::StepCoarse;
        QTest::newRow("2, none") << State::Coarse << 0 << State::Coarse << Action::StepCoarseBlocking;
        QTest::newRow("2, 14") << State::Coarse << 14 << State::Coarse << Action::StepCoarseBlocking;
        QTest::newRow("2, 15") << State::Coarse << 15 << State::Coarse << Action::EvaluateCoarse;
        QTest::newRow("2, 16") << State::Coarse << 16 << State::Coarse << Action::EvaluateCoarse;
        QTest::newRow("3") << State::FineFirstStep << 0 << State::Fine << Action::StepFine;
        QTest::newRow("4, 6") << State::Fine << 6 << State::Fine << Action::StepFine;
        QTest::newRow("4, 7") << State::Fine << 7 << State::Fine << Action::EvaluateFine;
        QTest::newRow("5") << State::ThirdFirstStep << 1 << State::Third << Action::StepFine;
        QTest::newRow("6, 6") << State::Third << 6 << State::Third << Action::StepFine;
        QTest::newRow("6, 7") << State::Third << 7 << State::Third << Action::EvaluateThird;
        QTest::newRow("7") << State::MovingToResult << 15 << State::Done << Action::Finish;
        QTest::newRow("8") << State::Done << 15 << State::Done << Action::None;
    }

    void everyStateHasItsSuccessorAndAction()
    {
        QFETCH(State, state);
        QFETCH(int, samples);
        const Transition transition = transitionOf(state, static_cast<std::size_t>(samples));
        QTEST(transition.next, "next");
        QTEST(transition.action, "action");
    }

    void samplesAreTakenInTheSweepsOnly()
    {
        for (int state = 0; state <= 8; ++state)
            QCOMPARE(takesSamples(static_cast<State>(state)), state >= 1 && state <= 6);
    }

    void stepNumberFollowsTheState()
    {
        const int expected[] = {1, 1, 1, 2, 2, 3, 3, 3, 3};
        for (int state = 0; state <= 8; ++state)
            QCOMPARE(stepNumber(static_cast<State>(state)), expected[state]);
    }

    void sweepStartsHalfItsPositionsBelowTheCentre_data()
    {
        QTest::addColumn<int>("centre");
        QTest::addColumn<int>("interval");
        QTest::addColumn<int>("count");
        QTest::addColumn<int>("start");
        QTest::newRow("coarse") << 10000 << 640 << 15 << 5520;
        QTest::newRow("coarse at 0") << 0 << 640 << 15 << -4480;
        QTest::newRow("fine") << 10000 << 230 << 7 << 9310;
        QTest::newRow("even count") << 100 << 10 << 4 << 80;
        QTest::newRow("downwards") << 100 << -10 << 5 << 120;
        QTest::newRow("one position") << 100 << 10 << 1 << 100;
    }

    void sweepStartsHalfItsPositionsBelowTheCentre()
    {
        QFETCH(int, centre);
        QFETCH(int, interval);
        QFETCH(int, count);
        QTEST(sweepStart(centre, interval, count), "start");
    }

    void bestSample_data()
    {
        QTest::addColumn<Scores>("scores");
        QTest::addColumn<bool>("check");
        QTest::addColumn<int>("result");
        QTest::addColumn<int>("index");
        const Scores peak{1, 2, 9, 3, 1};
        const Scores rising{1, 2, 3, 4, 5, 6, 7};
        const Scores falling{7, 6, 5, 4, 3, 2, 1};
        QTest::newRow("none") << Scores{} << false << 0 << 0;
        QTest::newRow("none, checked") << Scores{} << true << 0 << 0;
        QTest::newRow("peak") << peak << false << 1 << 2;
        QTest::newRow("peak, checked: one earlier") << peak << true << 1 << 1;
        QTest::newRow("peak at index 1, checked") << Scores{2, 9, 3, 1} << true << 1 << 0;
        QTest::newRow("peak first, minimum inside, checked") << Scores{9, 1, 3} << true << 1 << 0;
        QTest::newRow("peak last, minimum inside, checked") << Scores{3, 1, 9} << true << 1 << 1;
        QTest::newRow("equal maxima") << Scores{1, 5, 5, 2} << false << 1 << 1;
        QTest::newRow("equal maxima, checked") << Scores{1, 5, 5, 2} << true << 1 << 0;
        QTest::newRow("all equal, checked") << Scores{4, 4, 4} << true << 1 << 0;
        QTest::newRow("all 0.0") << Scores{0, 0, 0} << false << 1 << 0;
        QTest::newRow("all 0.0, checked") << Scores{0, 0, 0} << true << 1 << 0;
        QTest::newRow("nothing above 0.0") << Scores{-5, -1, -3} << false << 1 << 0;
        QTest::newRow("rising") << rising << false << 1 << 6;
        QTest::newRow("rising, checked") << rising << true << 2 << 6;
        QTest::newRow("falling") << falling << false << 1 << 0;
        QTest::newRow("falling, checked") << falling << true << 2 << 0;
        QTest::newRow("equal minima: the first counts") << Scores{1, 1, 9} << true << 2 << 2;
        QTest::newRow("minimum twice, not last") << Scores{9, 1, 1} << true << 1 << 0;
        const double infinite = std::numeric_limits<double>::infinity();
        QTest::newRow("infinite peak, checked: no score is halfway to it")
            << Scores{1, infinite, 1} << true << 1 << 1;
        QTest::newRow("infinite throughout, checked: no minimum")
            << Scores{infinite, infinite} << true << 1 << 0;
        QTest::newRow("one sample") << Scores{3} << false << 1 << 0;
        QTest::newRow("one sample, checked: both ends at once") << Scores{3} << true << 2 << 0;
    }

    void bestSample()
    {
        QFETCH(Scores, scores);
        QFETCH(bool, check);
        const BestSample best = focus_sweep::bestSample(samplesOf(scores), check);
        QTEST(int(best.result), "result");
        QTEST(int(best.index), "index");
    }

    void bestIsTheFirstMaximumOfAnyScores()
    {
        std::uint32_t random = 12345;
        for (int run = 0; run < 500; ++run) {
            Scores scores;
            for (int i = 0; i < 15; ++i) {
                random = random * 1664525U + 1013904223U;
                scores.push_back((random >> 24) % 20 + 1);
            }
            const auto first = std::size_t(std::max_element(scores.begin(), scores.end()) - scores.begin());
            QCOMPARE(focus_sweep::bestSample(samplesOf(scores), false).index, first);
            const BestSample checked = focus_sweep::bestSample(samplesOf(scores), true);
            const bool shifted = checked.result == AutoFocusingResult_BestPositionFound && first != 0;
            QCOMPARE(checked.index, shifted ? first - 1 : first);
        }
    }

    void resultPositionOfEachVerdict()
    {
        const auto samples = samplesOf({7, 6, 5, 4, 3, 2, 1});
        const int last = samples.back().zPosition;
        QCOMPARE(resultPosition(samples, {AutoFocusingResult_BestPositionFound, 2}, -1), 1460);
        QCOMPARE(resultPosition(samples, {AutoFocusingResult_ThirdStepNecessary, 0}, -1), 1000 - 690);
        QCOMPARE(resultPosition(samples, {AutoFocusingResult_ThirdStepNecessary, 6}, -1), last + 690);
        QCOMPARE(resultPosition({}, {AutoFocusingResult_NoSample, 0}, 4711), 4711);
        QCOMPARE(resultPosition(samples, {AutoFocusingResult_BestPositionFound, 7}, 4711), 4711);
    }

    void absurdPositionsStayInRange()
    {
        using Limits = std::numeric_limits<int>;
        QCOMPARE(sweepStart(Limits::min(), 640, 15), Limits::min());
        QCOMPARE(sweepStart(Limits::max(), -640, 15), Limits::max());
        const std::vector<AutoFocusingData_s> samples{{1.0, Limits::max()}, {2.0, Limits::max()}};
        QCOMPARE(resultPosition(samples, {AutoFocusingResult_ThirdStepNecessary, 1}, 0), Limits::max());
        QCOMPARE(boundedSteps(-2147483649LL), Limits::min());
        QCOMPARE(boundedSteps(-12), -12);
    }
};

QTEST_GUILESS_MAIN(TestFocusSweep)
#include "test_focus_sweep.moc"
