// How near an autofocus run comes to the truth, over many instruments: prints a table.

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <random>

#include <QElapsedTimer>
#include <QLoggingCategory>
#include <QtTest>

#include "AccuracySeeds.h"
#include "support/SweepInstrument.h"

namespace {

constexpr int kFewSeeds = 2;
constexpr int kInterval_steps = 640;
constexpr int kSamples = 15;
constexpr int kCentre_steps = 32000;
constexpr int kCentreSpread_steps = 1500;
constexpr double kBacklash_steps = 64.0;
// Twice the simulated sensor's usual noise.
constexpr double kNoise_levels = 2.0;
constexpr std::array<const char*, 3> kModeNames{"640 x 480", "1280 x 960", "2592 x 1944"};

/// The distances of one mode's runs.
struct Tally
{
    int runs = 0;
    int withinInterval = 0;
    double sum_steps = 0.0;
    double worst_steps = 0.0;

    void add(double distance_steps)
    {
        ++runs;
        withinInterval += distance_steps <= kInterval_steps ? 1 : 0;
        sum_steps += distance_steps;
        worst_steps = std::max(worst_steps, distance_steps);
    }
};

int centreOf(int seed)
{
    std::mt19937 chance(static_cast<std::uint32_t>(seed));
    return kCentre_steps +
           std::uniform_int_distribution<int>(-kCentreSpread_steps, kCentreSpread_steps)(chance);
}

SweepScene sceneOf(int mode, int seed)
{
    SweepScene scene;
    scene.mode = mode;
    scene.slide.seed = static_cast<std::uint32_t>(seed);
    scene.optics.seed = static_cast<std::uint32_t>(seed);
    scene.optics.noise_levels = kNoise_levels;
    scene.backlash_steps = kBacklash_steps;
    return scene;
}

} // namespace

class TestFocusAccuracy : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules("default.debug=false");
        QVERIFY(m_instrument.isUp());
    }

    void everyRunEndsWithinOneIntervalOfTheFocus_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<bool>("oldestFrames");
        QTest::addColumn<int>("frameDelay_frames");
        for (int mode = 0; mode < 3; ++mode)
            QTest::newRow(kModeNames[static_cast<std::size_t>(mode)]) << mode << false << 0;
        QTest::newRow("1280 x 960, every frame as old as can be") << 1 << true << 0;
        QTest::newRow("2592 x 1944, every frame as old as can be") << 2 << true << 0;
        QTest::newRow("1280 x 960, one frame of delay") << 1 << false << 1;
    }

    void everyRunEndsWithinOneIntervalOfTheFocus()
    {
        QFETCH(int, mode);
        QFETCH(bool, oldestFrames);
        QFETCH(int, frameDelay_frames);
        QElapsedTimer time;
        time.start();
        Tally tally;
        const int seeds = accuracySeeds(kFewSeeds);
        std::printf("\n%s\nseed  centre   true Z  chosen Z  distance\n", QTest::currentDataTag());
        for (int seed = 1; seed <= seeds; ++seed) {
            SweepScene scene = sceneOf(mode, seed);
            scene.oldestFrames = oldestFrames;
            scene.frameDelay_frames = frameDelay_frames;
            const SweepResult result = m_instrument.run(scene, centreOf(seed));
            QVERIFY(result.finished);
            QCOMPARE(int(result.samples.size()), kSamples);
            QCOMPARE(result.carriage_steps, double(result.chosen_steps));
            const double distance = result.chosen_steps - result.trueFocus_steps;
            std::printf("%4d  %6d  %7.0f  %8d  %+8.0f\n", seed, centreOf(seed), result.trueFocus_steps,
                        result.chosen_steps, distance);
            tally.add(std::abs(distance));
        }
        std::printf("%d runs: %.1f %% within %d steps, mean %.0f, worst %.0f steps; %.1f s\n", tally.runs,
                    100.0 * tally.withinInterval / tally.runs, kInterval_steps, tally.sum_steps / tally.runs,
                    tally.worst_steps, double(time.elapsed()) / 1000.0);
        std::fflush(stdout);
        QCOMPARE(tally.runs, seeds);
        QCOMPARE(tally.withinInterval, tally.runs);
    }

private:
    SweepInstrument m_instrument;
};

QTEST_GUILESS_MAIN(TestFocusAccuracy)
#include "test_focus_accuracy.moc"
