#include <cmath>
#include <limits>
#include <random>

#include <QtTest>

#include "PictureMeasures.h"
#include "simulator/optics/Optics.h"
#include "simulator/optics/PictureSource.h"

namespace {

constexpr double kSweepStep_steps = 640.0;
constexpr int kSweepPositions = 15;
constexpr int kStepsBelowCentre = 7;
constexpr int kDotThreshold = 50;

OpticsParameters opticsWith(std::uint32_t seed, double noise_levels)
{
    OpticsParameters parameters;
    parameters.seed = seed;
    parameters.noise_levels = noise_levels;
    return parameters;
}

SlideParameters slideOf(SlideKind kind, std::uint32_t seed = 1)
{
    SlideParameters parameters;
    parameters.kind = kind;
    parameters.seed = seed;
    return parameters;
}

void addModes()
{
    QTest::addColumn<int>("mode");
    QTest::newRow("VGA") << 0;
    QTest::newRow("1280") << 1;
    QTest::newRow("5M") << 2;
}

const PictureMode& modeNumber(int mode)
{
    return kPictureModes[std::size_t(mode)];
}

/// The finaliser of splitmix64, by which a row finds its noise.
std::uint64_t mixed(std::uint64_t counter)
{
    std::uint64_t value = counter * 0x9E3779B97F4A7C15ULL;
    value = (value ^ (value >> 30U)) * 0xBF58476D1CE4E5B9ULL;
    value = (value ^ (value >> 27U)) * 0x94D049BB133111EBULL;
    return value ^ (value >> 31U);
}

/// Middle of the dark pixels around a place, as the extent of those at the threshold or below.
SlidePoint darkMiddle(const MeasuredPicture& picture, const SlidePoint& around)
{
    int left = std::numeric_limits<int>::max();
    int top = left;
    int right = -1;
    int bottom = -1;
    for (int y = int(around.y_px) - 20; y < int(around.y_px) + 20; ++y) {
        for (int x = int(around.x_px) - 20; x < int(around.x_px) + 20; ++x) {
            if (picture.green(x, y) <= kDotThreshold) {
                left = std::min(left, x);
                right = std::max(right, x);
                top = std::min(top, y);
                bottom = std::max(bottom, y);
            }
        }
    }
    return right < 0 ? SlidePoint{-1.0, -1.0} : SlidePoint{(left + right) / 2.0, (top + bottom) / 2.0};
}

int darkPixels(const MeasuredPicture& picture, const PictureMode& mode)
{
    int count = 0;
    for (int y = 0; y < mode.height_px; ++y)
        for (int x = 0; x < mode.width_px; ++x)
            count += picture.green(x, y) <= kDotThreshold ? 1 : 0;
    return count;
}

} // namespace

class TestOptics : public QObject
{
    Q_OBJECT

private slots:
    void aClearFieldIsWellExposedAtNominalLight_data() { addModes(); }

    void aClearFieldIsWellExposedAtNominalLight()
    {
        QFETCH(int, mode);
        Optics optics(opticsWith(1, 1.0), Slide(slideOf(SlideKind::Empty)));
        const std::array<double, 3> mean = drawn(optics, modeNumber(mode), nominalInputs(optics)).mean();
        for (double level : mean)
            QVERIFY2(std::abs(level - 205.0) < 2.0, qPrintable(QString::number(level)));
    }

    void anEmptySlideIsFlatAtAnyPosition()
    {
        Optics optics(opticsWith(1, 0.0), Slide(slideOf(SlideKind::Empty)));
        for (double distance : {-9000.0, 0.0, 500.0, 20000.0}) {
            const PictureInputs inputs = nominalInputs(optics, distance);
            QCOMPARE(drawn(optics, modeNumber(1), inputs).squaredDifferences(), std::uint64_t(0));
        }
    }

    void withoutTheLedThePictureIsNearlyBlack_data()
    {
        QTest::addColumn<bool>("ledOn");
        QTest::addColumn<int>("level");
        QTest::newRow("off") << false << 1000;
        QTest::newRow("level 0") << true << 0;
    }

    void withoutTheLedThePictureIsNearlyBlack()
    {
        QFETCH(bool, ledOn);
        QFETCH(int, level);
        Optics optics(opticsWith(1, 1.0), Slide(slideOf(SlideKind::Cells)));
        PictureInputs inputs = nominalInputs(optics);
        inputs.light.ledOn = ledOn;
        inputs.light.ledLevel = level;
        for (double mean : drawn(optics, modeNumber(0), inputs).mean())
            QVERIFY2(mean < 5.0, qPrintable(QString::number(mean)));
    }

    void brightnessFollowsLightExposureAndGain_data()
    {
        QTest::addColumn<int>("led");
        QTest::addColumn<double>("exposure_lines");
        QTest::addColumn<double>("gain");
        for (int step = 1; step <= 10; ++step)
            QTest::addRow("LED %d", step * 25) << step * 25 << 768.0 << 1.0;
        for (int step = 1; step <= 10; ++step)
            QTest::addRow("exposure %d", step * 80) << 225 << step * 80.0 << 1.0;
        for (int step = 0; step < 16; ++step)
            QTest::addRow("gain %d/16", 16 + step) << 120 << 768.0 << 1.0 + step / 16.0;
    }

    void brightnessFollowsLightExposureAndGain()
    {
        QFETCH(int, led);
        QFETCH(double, exposure_lines);
        QFETCH(double, gain);
        Optics optics(opticsWith(1, 1.0), Slide(slideOf(SlideKind::Empty)));
        PictureInputs inputs = nominalInputs(optics);
        inputs.light.ledLevel = led;
        inputs.sensor.exposure_lines = exposure_lines;
        inputs.sensor.gain = gain;
        const double expected = std::min(255.0, 2.0 + 203.0 * led / 225.0 * exposure_lines / 768.0 * gain);
        const double green = drawn(optics, modeNumber(0), inputs).mean()[1];
        QVERIFY2(std::abs(green - expected) < 2.0, qPrintable(QString::number(green)));
        QVERIFY(std::abs(optics.colour(inputs, 0.0)[1] - expected) < 1e-6);
    }

    void brightnessNeverFallsAndEndsInWhite()
    {
        Optics optics(opticsWith(1, 0.0), Slide(slideOf(SlideKind::Empty)));
        double before = -1.0;
        for (int led = 0; led <= 1000; led += 20) {
            PictureInputs inputs = nominalInputs(optics);
            inputs.light.ledLevel = led;
            const double green = drawn(optics, modeNumber(0), inputs).mean()[1];
            QVERIFY(green >= before);
            before = green;
        }
        QVERIFY(before > 253.0);
    }

    void aColourGainTintsItsOwnChannel_data()
    {
        QTest::addColumn<int>("channel");
        QTest::newRow("red") << 0;
        QTest::newRow("green") << 1;
        QTest::newRow("blue") << 2;
    }

    void aColourGainTintsItsOwnChannel()
    {
        QFETCH(int, channel);
        Optics optics(opticsWith(1, 1.0), Slide(slideOf(SlideKind::Empty)));
        PictureInputs inputs = nominalInputs(optics);
        inputs.sensor.colourGains[std::size_t(channel)] = 0.5;
        const std::array<double, 3> mean = drawn(optics, modeNumber(0), inputs).mean();
        for (int other = 0; other < 3; ++other) {
            const double expected = other == channel ? 2.0 + 203.0 / 2.0 : 205.0;
            QVERIFY2(std::abs(mean[std::size_t(other)] - expected) < 3.0,
                     qPrintable(QString::number(mean[std::size_t(other)])));
        }
    }

    void theBestFocusIsNearThirtyTwoThousandButNotOnIt()
    {
        int below = 0;
        for (std::uint32_t seed = 1; seed <= 50; ++seed) {
            const Optics optics(opticsWith(seed, 1.0), Slide(slideOf(SlideKind::Empty)));
            const double distance = std::abs(optics.bestFocus_steps() - 32000.0);
            QVERIFY(distance >= 200.0 && distance <= 2000.0);
            below += optics.bestFocus_steps() < 32000.0 ? 1 : 0;
        }
        QVERIFY(below > 5 && below < 45);
        // A seed means the same instrument for ever.
        for (const std::uint32_t seed : {1U, 2U, 3U, 4U, 1234567U}) {
            std::mt19937 engine(seed);
            const double distance = 200.0 + 1800.0 * (engine() / 4294967296.0);
            const double expected = 32000.0 + (engine() % 2 == 1 ? distance : -distance);
            QCOMPARE(Optics(opticsWith(seed, 1.0), Slide()).bestFocus_steps(), expected);
        }
        OpticsParameters given;
        given.bestFocus_steps = 31000.0;
        QCOMPARE(Optics(given, Slide()).bestFocus_steps(), 31000.0);
    }

    void sharpnessFallsOnEitherSideOfTheFocus_data() { addModes(); }

    void sharpnessFallsOnEitherSideOfTheFocus()
    {
        QFETCH(int, mode);
        Optics optics(opticsWith(3, 0.0), Slide(slideOf(SlideKind::Cells, 3)));
        // The large pictures take their time, above all under a sanitizer.
        const int step_steps = mode == 2 ? 960 : 320;
        for (int side : {-1, 1}) {
            double before = std::numeric_limits<double>::max();
            for (int distance = 0; distance <= 9600; distance += step_steps) {
                const PictureInputs inputs = nominalInputs(optics, side * distance);
                const double value = drawn(optics, modeNumber(mode), inputs).focusValue();
                QVERIFY2(value < before, qPrintable(QString::number(distance)));
                before = value;
            }
        }
    }

    void aNoisySweepHasOneClearPeak_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<int>("seed");
        for (int mode = 0; mode < 3; ++mode)
            for (int seed = 1; seed <= (mode == 2 ? 2 : 4); ++seed)
                QTest::addRow("mode %d, seed %d", mode, seed) << mode << seed;
    }

    void aNoisySweepHasOneClearPeak()
    {
        QFETCH(int, mode);
        QFETCH(int, seed);
        Optics optics(opticsWith(std::uint32_t(seed), 1.0),
                      Slide(slideOf(SlideKind::Cells, std::uint32_t(seed))));
        const double start = 32000.0 - kStepsBelowCentre * kSweepStep_steps - optics.bestFocus_steps();
        const int best = int(std::lround(-start / kSweepStep_steps));
        std::vector<double> values;
        std::uint64_t noiseNumber = 100;
        for (int position = 0; position < kSweepPositions; ++position) {
            const PictureInputs inputs = nominalInputs(optics, start + position * kSweepStep_steps);
            const MeasuredPicture picture = drawn(optics, modeNumber(mode), inputs, noiseNumber++);
            const std::uint64_t sum = picture.squaredDifferences();
            QVERIFY(sum <= std::numeric_limits<std::uint32_t>::max());
            values.push_back(static_cast<double>(sum) / 1e6);
        }
        for (int position = 1; position < kSweepPositions; ++position) {
            const double change = values[std::size_t(position)] - values[std::size_t(position - 1)];
            QVERIFY2(position <= best ? change > 0.0 : change < 0.0, qPrintable(QString::number(position)));
        }
        const double atFocus = drawn(optics, modeNumber(mode), nominalInputs(optics)).focusValue();
        qInfo("seed %d, %d px wide: %.0f at the focus, %.0f to %.0f in the sweep", seed,
              modeNumber(mode).width_px, atFocus, *std::min_element(values.begin(), values.end()),
              *std::max_element(values.begin(), values.end()));
        QVERIFY(atFocus > (mode == 0 ? 100.0 : 200.0));
        QVERIFY(atFocus < 450.0);
    }

    void dustMakesAFalsePeakLowerThanTheTrueOne()
    {
        SlideParameters slide = slideOf(SlideKind::Cells);
        slide.dustOffset_steps = 4 * kSweepStep_steps;
        Optics optics(opticsWith(1, 1.0), Slide(slide));
        const auto valueAt = [&optics](int positions) {
            const PictureInputs inputs = nominalInputs(optics, positions * kSweepStep_steps);
            return drawn(optics, modeNumber(1), inputs).focusValue();
        };
        QVERIFY(valueAt(4) > valueAt(3));
        QVERIFY(valueAt(4) > valueAt(5));
        QVERIFY(valueAt(0) > 2.0 * valueAt(4));
    }

    void aTiltedSlideIsSharpWhereItsFocusLies()
    {
        SlideParameters slide = slideOf(SlideKind::Target);
        slide.targetDots = {SlidePoint{300.0, 972.0}, SlidePoint{2292.0, 972.0}};
        slide.tiltAcross_steps = 1000.0;
        const Optics optics(opticsWith(1, 0.0), Slide(slide));
        const std::vector<SlideDisc>& dots = optics.slide().discs();
        QVERIFY(dots[0].focusOffset_steps < -300.0 && dots[1].focusOffset_steps > 300.0);
        const double rightFocus = optics.bestFocus_steps() + dots[1].focusOffset_steps;
        QCOMPARE(optics.blur_px(rightFocus, dots[1]), OpticsParameters().sharpestBlur_px);
        QVERIFY(optics.blur_px(rightFocus, dots[0]) > 2.0 * optics.blur_px(rightFocus, dots[1]));
    }

    void theTargetsDotsAreFoundWhereTheyAre_data()
    {
        QTest::addColumn<int>("seed");
        QTest::addColumn<double>("tilt_steps");
        for (int seed = 1; seed <= 6; ++seed)
            QTest::addRow("seed %d", seed) << seed << 0.0;
        QTest::newRow("tilted") << 7 << 600.0;
    }

    void theTargetsDotsAreFoundWhereTheyAre()
    {
        QFETCH(int, seed);
        QFETCH(double, tilt_steps);
        SlideParameters slide = slideOf(SlideKind::Target, std::uint32_t(seed));
        slide.tiltAcross_steps = tilt_steps;
        Optics optics(opticsWith(std::uint32_t(seed), 1.0), Slide(slide));
        const MeasuredPicture picture = drawn(optics, modeNumber(2), nominalInputs(optics));
        const std::vector<SlidePoint> dots = optics.slide().targetDots();
        QCOMPARE(dots.size(), std::size_t(2));
        std::vector<SlidePoint> found;
        for (const SlidePoint& dot : dots) {
            found.push_back(darkMiddle(picture, dot));
            QVERIFY(std::abs(found.back().x_px - dot.x_px) < 1.0);
            QVERIFY(std::abs(found.back().y_px - dot.y_px) < 1.0);
            QVERIFY(picture.green(int(dot.x_px), int(dot.y_px)) < 30);
        }
        const double distance = std::hypot(found[1].x_px - found[0].x_px, found[1].y_px - found[0].y_px);
        QVERIFY(std::abs(distance - optics.slide().targetDistance_px()) < 2.0);
        QVERIFY(distance > 930.0 && distance < 1070.0);
        // Nothing but the two dots is dark.
        const double area = 2.0 * 3.1416 * 9.0 * 9.0;
        const int dark = darkPixels(picture, modeNumber(2));
        QVERIFY2(dark > 0.7 * area && dark < 1.2 * area, qPrintable(QString::number(dark)));
    }

    void dotsCanBePlacedExactly()
    {
        SlideParameters slide = slideOf(SlideKind::Target);
        slide.targetDots = {SlidePoint{100.0, 200.0}, SlidePoint{2500.0, 1800.0}};
        slide.targetDotRadius_px = 6.0;
        Optics optics(opticsWith(1, 0.0), Slide(slide));
        const MeasuredPicture picture = drawn(optics, modeNumber(2), nominalInputs(optics));
        for (const SlidePoint& dot : *slide.targetDots) {
            const SlidePoint found = darkMiddle(picture, dot);
            QCOMPARE(found.x_px, dot.x_px);
            QCOMPARE(found.y_px, dot.y_px);
        }
        QCOMPARE(optics.slide().targetDistance_px(), std::hypot(2400.0, 1600.0));
    }

    void aDotLiesWhereEachModeShowsIt_data() { addModes(); }

    void aDotLiesWhereEachModeShowsIt()
    {
        QFETCH(int, mode);
        const PictureMode& picture = modeNumber(mode);
        SlideParameters slide = slideOf(SlideKind::Target);
        slide.targetDots = {SlidePoint{1000.0, 800.0}, SlidePoint{1500.0, 1100.0}};
        slide.targetDotRadius_px = 20.0;
        Optics optics(opticsWith(1, 0.0), Slide(slide));
        const MeasuredPicture measured = drawn(optics, picture, nominalInputs(optics));
        for (const SlidePoint& dot : *slide.targetDots) {
            const SlidePoint expected{(dot.x_px + 0.5 - picture.left_px) / picture.scale - 0.5,
                                      (dot.y_px + 0.5 - picture.top_px) / picture.scale - 0.5};
            const SlidePoint found = darkMiddle(measured, expected);
            QVERIFY(std::abs(found.x_px - expected.x_px) <= 0.5);
            QVERIFY(std::abs(found.y_px - expected.y_px) <= 0.5);
        }
    }

    void theSmallModeShowsTheUnscaledCentreOfTheMiddleOne()
    {
        Optics optics(opticsWith(1, 0.0), Slide(slideOf(SlideKind::Cells)));
        const PictureInputs inputs = nominalInputs(optics);
        const MeasuredPicture small = drawn(optics, modeNumber(0), inputs);
        const MeasuredPicture middle = drawn(optics, modeNumber(1), inputs);
        for (int y = 0; y < 480; ++y)
            for (int x = 0; x < 640; ++x)
                QVERIFY(std::abs(small.green(x, y) - middle.green(x + 320, y + 240)) <= 3);
    }

    void cellsDoNotTouchAndHalfOfThemLieInTheCentralQuarter()
    {
        for (std::uint32_t seed = 1; seed <= 5; ++seed) {
            const Slide slide(slideOf(SlideKind::Cells, seed));
            const std::vector<SlideDisc>& discs = slide.discs();
            QVERIFY(discs.size() > 400);
            int central = 0;
            for (std::size_t i = 0; i < discs.size(); ++i) {
                const SlidePoint& place = discs[i].centre;
                central +=
                    std::abs(place.x_px - 1296.0) < 648.0 && std::abs(place.y_px - 972.0) < 486.0 ? 1 : 0;
                for (std::size_t j = 0; j < i; ++j) {
                    const double distance =
                        std::hypot(place.x_px - discs[j].centre.x_px, place.y_px - discs[j].centre.y_px);
                    QVERIFY(distance > discs[i].radius_px + discs[j].radius_px);
                }
            }
            QVERIFY2(central > int(discs.size()) * 2 / 5, qPrintable(QString::number(central)));
            QVERIFY(slide.targetDots().empty());
            QCOMPARE(slide.targetDistance_px(), 0.0);
        }
    }

    void slidesAreChosenByName_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<int>("kind");
        QTest::newRow("cells") << "cells" << int(SlideKind::Cells);
        QTest::newRow("target") << "target" << int(SlideKind::Target);
        QTest::newRow("empty") << "empty" << int(SlideKind::Empty);
        QTest::newRow("other") << "Cells" << -1;
    }

    void slidesAreChosenByName()
    {
        QFETCH(QString, name);
        QFETCH(int, kind);
        const std::optional<SlideKind> found = slideKindNamed(name.toStdString());
        QCOMPARE(found ? int(*found) : -1, kind);
    }

    void aSeedGivesOnePictureAndANumberOneNoise()
    {
        const PictureMode& mode = modeNumber(0);
        const auto bytes = [&mode](std::uint32_t seed, std::uint64_t noiseNumber) {
            Optics optics(opticsWith(seed, 1.0), Slide(slideOf(SlideKind::Cells, seed)));
            std::vector<std::uint8_t> yuyv(std::size_t(mode.frameBytes()));
            optics.draw(mode, nominalInputs(optics), noiseNumber, yuyv.data());
            return yuyv;
        };
        QVERIFY(bytes(1, 1) == bytes(1, 1));
        QVERIFY(bytes(1, 1) != bytes(1, 2));
        QVERIFY(bytes(1, 1) != bytes(2, 1));
    }

    void noiseHasItsStrengthAndGrowsWithTheGain_data()
    {
        QTest::addColumn<double>("gain");
        QTest::addColumn<double>("sigma");
        QTest::newRow("gain 1") << 1.0 << 1.5;
        QTest::newRow("gain 4") << 4.0 << 3.0;
    }

    void noiseHasItsStrengthAndGrowsWithTheGain()
    {
        QFETCH(double, gain);
        QFETCH(double, sigma);
        Optics optics(opticsWith(1, 1.5), Slide(slideOf(SlideKind::Empty)));
        PictureInputs inputs = nominalInputs(optics);
        inputs.sensor.gain = gain;
        inputs.sensor.exposure_lines /= gain;
        std::vector<std::uint8_t> yuyv(std::size_t(modeNumber(0).frameBytes()));
        optics.draw(modeNumber(0), inputs, 1, yuyv.data());
        double sum = 0.0;
        double squares = 0.0;
        for (std::size_t i = 0; i < yuyv.size(); i += 2) {
            sum += yuyv[i];
            squares += double(yuyv[i]) * yuyv[i];
        }
        const double count = double(yuyv.size()) / 2.0;
        const double measured = std::sqrt(squares / count - sum / count * sum / count);
        // Rounding to whole levels adds a twelfth to the variance.
        QVERIFY2(std::abs(measured - std::hypot(sigma, std::sqrt(1.0 / 12.0))) < 0.05,
                 qPrintable(QString::number(measured)));
    }

    void everyByteOfAnEmptySlideIsAsTheFormulaSays_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<double>("noise_levels");
        QTest::newRow("VGA") << 0 << 1.5;
        QTest::newRow("VGA, noise beyond its limit") << 0 << 9.0;
        QTest::newRow("5M") << 2 << 1.5;
    }

    void everyByteOfAnEmptySlideIsAsTheFormulaSays()
    {
        QFETCH(int, mode);
        QFETCH(double, noise_levels);
        constexpr std::uint32_t kSeed = 5;
        constexpr std::uint64_t kTilePairs = 32768;
        const PictureMode& picture = modeNumber(mode);
        // Where in the tile a row's noise begins; in the picture that is drawn, one begins at 0.
        const auto firstPair = [](std::uint64_t noiseNumber, int y) {
            const std::uint64_t noiseSeed = mixed(noiseNumber + (std::uint64_t(kSeed) << 32U));
            return mixed(noiseSeed + std::uint64_t(y)) % kTilePairs;
        };
        std::uint64_t noiseNumber = 0;
        for (bool found = false; !found;) {
            ++noiseNumber;
            for (int y = 0; y < picture.height_px; ++y)
                found = found || firstPair(noiseNumber, y) == 0;
        }
        Optics optics(opticsWith(kSeed, noise_levels), Slide(slideOf(SlideKind::Empty)));
        PictureInputs inputs = nominalInputs(optics, 0.0, 90);
        inputs.sensor.gain = 2.0;
        inputs.sensor.colourGains = {0.9, 1.0, 0.6};
        std::vector<std::uint8_t> yuyv(std::size_t(picture.frameBytes()));
        optics.draw(picture, inputs, noiseNumber, yuyv.data());

        std::array<double, 3> rgb{};
        for (std::size_t channel = 0; channel < 3; ++channel)
            rgb[channel] = 2.0 + 203.0 * 90.0 / 225.0 * 2.0 * inputs.sensor.colourGains[channel];
        const long luma = std::lround(0.257 * rgb[0] + 0.504 * rgb[1] + 0.098 * rgb[2]);
        const long chromaBlue = std::lround(-0.148 * rgb[0] - 0.291 * rgb[1] + 0.439 * rgb[2]);
        const long chromaRed = std::lround(0.439 * rgb[0] - 0.368 * rgb[1] - 0.071 * rgb[2]);
        // Thousandths of the noise's strength, for the longest row from any pair of the tile.
        std::vector<int> unitNoise(2 * kTilePairs + kFullWidth_px);
        std::mt19937 engine(kSeed);
        std::normal_distribution<double> normal(0.0, 1000.0);
        for (int& value : unitNoise)
            value = int(normal(engine));
        const double levels = noise_levels * std::sqrt(2.0);
        for (int y = 0; y < picture.height_px; ++y) {
            const int* noise = unitNoise.data() + 2 * firstPair(noiseNumber, y);
            const std::uint8_t* row = yuyv.data() + std::size_t(y) * std::size_t(picture.width_px) * 2;
            for (std::size_t x = 0; x < std::size_t(picture.width_px); ++x) {
                const long shift = std::clamp(std::lround(noise[x] / 1000.0 * levels), -16L, 16L);
                const long colour = 128 + (x % 2 == 0 ? chromaBlue : chromaRed);
                if (row[2 * x] != 16 + luma + shift || row[2 * x + 1] != colour)
                    QFAIL(qPrintable(QStringLiteral("pixel %1, %2").arg(x).arg(y)));
            }
        }
    }

    void aSlideHasAsManyCellsAndSpecksAsItIsTo()
    {
        SlideParameters parameters = slideOf(SlideKind::Cells);
        for (const int cells : {0, 1, 10, 40}) {
            parameters.cellCount = cells;
            QCOMPARE(Slide(parameters).discs().size(), std::size_t(cells));
        }
        const std::size_t cells = Slide(parameters).discs().size();
        parameters.dustOffset_steps = 700.0;
        for (const int specks : {0, 1, 130}) {
            parameters.dustCount = specks;
            const Slide slide(parameters);
            QCOMPARE(slide.discs().size(), cells + std::size_t(specks));
            for (std::size_t i = 0; i < slide.discs().size(); ++i) {
                const SlideDisc& disc = slide.discs()[i];
                QCOMPARE(disc.focusOffset_steps, i < cells ? 0.0 : 700.0);
                QVERIFY(i < cells || (disc.radius_px >= 10.0 && disc.radius_px <= 18.0));
                QVERIFY(i < cells || disc.absorption == 0.75);
            }
        }
    }

    void aPictureIsDrawnAnewOnlyWhenSomethingChanges()
    {
        Optics optics(opticsWith(1, 1.0), Slide(slideOf(SlideKind::Cells)));
        LightPath light{30000.0, true, 225};
        SensorSettings sensor;
        PictureSource source(
            {}, optics, [&light](InstrumentTime) { return light; }, [&sensor] { return sensor; });
        const auto look = [&source](int mode = 0) {
            return source.look(InstrumentTime(0), modeNumber(mode));
        };
        std::uint64_t picture = look();
        QVERIFY(picture != 0);
        QCOMPARE(look(), picture);
        const auto changes = [&picture, &look](int mode = 0) {
            const std::uint64_t before = picture;
            picture = look(mode);
            return picture != before && look(mode) == picture;
        };
        light.stagePosition_steps += 1.0;
        QVERIFY(changes());
        light.ledOn = false;
        QVERIFY(changes());
        light.ledLevel = 226;
        QVERIFY(changes());
        sensor.exposure_lines = 1.0;
        QVERIFY(changes());
        sensor.gain = 2.0;
        QVERIFY(changes());
        sensor.colourGains[2] = 0.5;
        QVERIFY(changes());
        QVERIFY(changes(1));
        QVERIFY(!changes(1));
        source.sceneChanged();
        QVERIFY(changes(1));
    }

    void aDelayedPictureShowsWhatWasSeenFramesAgo()
    {
        Optics optics(opticsWith(1, 0.0), Slide(slideOf(SlideKind::Empty)));
        PictureSourceParameters parameters;
        parameters.frameDelay_frames = 2;
        LightPath light{0.0, true, 225};
        SensorSettings sensor;
        sensor.exposure_lines = 768.0;
        PictureSource source(
            parameters, optics, [&light](InstrumentTime) { return light; }, [&sensor] { return sensor; });
        std::vector<std::uint8_t> yuyv(std::size_t(modeNumber(0).frameBytes()));
        const auto luma = [&] {
            source.look(InstrumentTime(0), modeNumber(0));
            source.draw(yuyv.data());
            return int(yuyv[0]);
        };
        const int bright = luma();
        for (int frame = 0; frame < 3; ++frame)
            QCOMPARE(luma(), bright);
        light.ledOn = false;
        QCOMPARE(luma(), bright);
        QCOMPARE(luma(), bright);
        QVERIFY(luma() < 30);
        // Another mode begins with what is seen now.
        light.ledOn = true;
        source.look(InstrumentTime(0), modeNumber(1));
        yuyv.resize(std::size_t(modeNumber(1).frameBytes()));
        source.draw(yuyv.data());
        QCOMPARE(int(yuyv[0]), bright);
    }
};

QTEST_GUILESS_MAIN(TestOptics)
#include "test_optics.moc"
