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

/// Numbers between two others, in the order in which a slide of this seed draws them.
auto drawsOf(std::uint32_t seed)
{
    return [engine = std::mt19937(seed)](double low, double high) mutable {
        return low + (high - low) * (engine() / 4294967296.0);
    };
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
    void anEmptySlideIsFlatAtAnyPosition()
    {
        Optics optics(opticsWith(1, 0.0), Slide(slideOf(SlideKind::Empty)));
        for (double distance : {-9000.0, 0.0, 500.0, 20000.0}) {
            const PictureInputs inputs = nominalInputs(optics, distance);
            QCOMPARE(drawn(optics, modeNumber(1), inputs).squaredDifferences(), std::uint64_t(0));
        }
    }

    void brightnessFollowsLightExposureAndGain_data()
    {
        QTest::addColumn<bool>("on");
        QTest::addColumn<int>("led");
        QTest::addColumn<double>("exposure_lines");
        QTest::addColumn<double>("gain");
        QTest::newRow("off") << false << 1000 << 768.0 << 1.0;
        for (const int led : {0, 25, 50, 75, 100, 125, 150, 175, 200, 225, 250, 500, 1000})
            QTest::addRow("LED %d", led) << true << led << 768.0 << 1.0;
        for (int step = 1; step <= 10; ++step)
            QTest::addRow("exposure %d", step * 80) << true << 225 << step * 80.0 << 1.0;
        for (int step = 0; step < 16; ++step)
            QTest::addRow("gain %d/16", 16 + step) << true << 120 << 768.0 << 1.0 + step / 16.0;
    }

    // From nearly black to white.
    void brightnessFollowsLightExposureAndGain()
    {
        QFETCH(bool, on);
        QFETCH(int, led);
        QFETCH(double, exposure_lines);
        QFETCH(double, gain);
        Optics optics(opticsWith(1, 1.0), Slide(slideOf(SlideKind::Empty)));
        PictureInputs inputs = nominalInputs(optics, 0.0, led);
        inputs.light.ledOn = on;
        inputs.sensor.exposure_lines = exposure_lines;
        inputs.sensor.gain = gain;
        const double light = on ? led / 225.0 * exposure_lines / 768.0 * gain : 0.0;
        const double expected = std::min(255.0, 2.0 + 203.0 * light);
        const std::array<double, 3> mean = drawn(optics, modeNumber(0), inputs).mean();
        for (std::size_t channel = 0; channel < 3; ++channel) {
            QVERIFY2(std::abs(mean[channel] - expected) < 2.0, qPrintable(QString::number(mean[channel])));
            QVERIFY(std::abs(optics.colour(inputs, 0.0)[channel] - expected) < 1e-6);
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

    void aDotLiesWhereEachModeShowsIt_data() { addModes(); }

    void aDotLiesWhereEachModeShowsIt()
    {
        QFETCH(int, mode);
        const PictureMode& picture = modeNumber(mode);
        SlideParameters slide = slideOf(SlideKind::Target);
        slide.targetDots = {SlidePoint{1000.0, 800.0}, SlidePoint{1500.0, 1100.0}};
        slide.targetDotRadius_px = 12.0;
        Optics optics(opticsWith(1, 0.0), Slide(slide));
        QCOMPARE(optics.slide().targetDistance_px(), std::hypot(500.0, 300.0));
        const MeasuredPicture measured = drawn(optics, picture, nominalInputs(optics));
        // A dot on a whole pixel is seen exactly there.
        const double tolerance_px = picture.scale == 1.0 ? 0.0 : 0.5;
        for (const SlidePoint& dot : *slide.targetDots) {
            const SlidePoint expected{(dot.x_px + 0.5 - picture.left_px) / picture.scale - 0.5,
                                      (dot.y_px + 0.5 - picture.top_px) / picture.scale - 0.5};
            const SlidePoint found = darkMiddle(measured, expected);
            QVERIFY(std::abs(found.x_px - expected.x_px) <= tolerance_px);
            QVERIFY(std::abs(found.y_px - expected.y_px) <= tolerance_px);
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

    void slidesAreChosenByName()
    {
        QCOMPARE(slideKindNamed("cells"), std::make_optional(SlideKind::Cells));
        QCOMPARE(slideKindNamed("target"), std::make_optional(SlideKind::Target));
        QCOMPARE(slideKindNamed("empty"), std::make_optional(SlideKind::Empty));
        QCOMPARE(slideKindNamed("Cells"), std::nullopt);
    }

    void aSeedGivesOnePictureAndANumberOneNoise()
    {
        const PictureMode& mode = modeNumber(0);
        const auto bytes = [&mode](std::uint32_t seed, std::uint64_t noiseNumber) {
            Optics optics(opticsWith(seed, 1.0), Slide(slideOf(SlideKind::Cells, seed)));
            return drawnBytes(optics, mode, nominalInputs(optics), noiseNumber);
        };
        QVERIFY(bytes(1, 1) == bytes(1, 1));
        QVERIFY(bytes(1, 1) != bytes(1, 2));
        QVERIFY(bytes(1, 1) != bytes(2, 1));
    }

    void everyByteOfAnEmptySlideIsAsTheFormulaSays_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<double>("noise_levels");
        QTest::addColumn<double>("gain");
        QTest::newRow("VGA") << 0 << 1.5 << 2.0;
        QTest::newRow("VGA, noise beyond its limit") << 0 << 9.0 << 2.0;
        QTest::newRow("1280, gain 1") << 1 << 1.5 << 1.0;
        QTest::newRow("5M, gain 4") << 2 << 1.5 << 4.0;
    }

    void everyByteOfAnEmptySlideIsAsTheFormulaSays()
    {
        QFETCH(int, mode);
        QFETCH(double, noise_levels);
        QFETCH(double, gain);
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
        PictureInputs inputs = nominalInputs(optics, 0.0, 65);
        inputs.sensor.gain = gain;
        inputs.sensor.colourGains = {0.9, 0.8, 0.6};
        const std::vector<std::uint8_t> yuyv = drawnBytes(optics, picture, inputs, noiseNumber);

        std::array<double, 3> rgb{};
        for (std::size_t channel = 0; channel < 3; ++channel)
            rgb[channel] = 2.0 + 203.0 * 65.0 / 225.0 * gain * inputs.sensor.colourGains[channel];
        const long luma = std::lround(0.257 * rgb[0] + 0.504 * rgb[1] + 0.098 * rgb[2]);
        const long chromaBlue = std::lround(-0.148 * rgb[0] - 0.291 * rgb[1] + 0.439 * rgb[2]);
        const long chromaRed = std::lround(0.439 * rgb[0] - 0.368 * rgb[1] - 0.071 * rgb[2]);
        // Thousandths of the noise's strength, for the longest row from any pair of the tile.
        std::vector<int> unitNoise(2 * kTilePairs + kFullWidth_px);
        std::mt19937 engine(kSeed);
        std::normal_distribution<double> normal(0.0, 1000.0);
        for (int& value : unitNoise)
            value = int(normal(engine));
        const double levels = noise_levels * std::sqrt(gain);
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

    // In a crowded field, where 400 draws do not find a place for every cell.
    void aSeedMeansTheSameCellsForEver()
    {
        SlideParameters parameters = slideOf(SlideKind::Cells, 3);
        parameters.cellCount = 60;
        parameters.smallestCellRadius_px = 100.0;
        parameters.largestCellRadius_px = 200.0;
        auto between = drawsOf(parameters.seed);
        std::vector<SlideDisc> expected;
        for (int cell = 0; cell < parameters.cellCount; ++cell) {
            const double radius = between(100.0, 200.0);
            const double absorption = between(0.5, 0.9);
            for (int draw = 0, found = 0; draw < 400 && found == 0; ++draw) {
                const SlidePoint one{between(0.0, 2591.0), between(0.0, 1943.0)};
                const SlidePoint other{between(0.0, 2591.0), between(0.0, 1943.0)};
                const SlidePoint place{(one.x_px + other.x_px) / 2.0, (one.y_px + other.y_px) / 2.0};
                found = std::all_of(expected.begin(), expected.end(), [&](const SlideDisc& disc) {
                    return std::hypot(disc.centre.x_px - place.x_px, disc.centre.y_px - place.y_px) >=
                           disc.radius_px + radius + 5.0;
                });
                if (found != 0)
                    expected.push_back({place, radius, absorption, 0.0});
            }
        }
        const Slide slide(parameters);
        QCOMPARE(slide.discs().size(), expected.size());
        QVERIFY(expected.size() < 50);
        for (std::size_t i = 0; i < expected.size(); ++i) {
            QCOMPARE(slide.discs()[i].centre.x_px, expected[i].centre.x_px);
            QCOMPARE(slide.discs()[i].centre.y_px, expected[i].centre.y_px);
            QCOMPARE(slide.discs()[i].radius_px, expected[i].radius_px);
            QCOMPARE(slide.discs()[i].absorption, expected[i].absorption);
        }
    }

    void aSeedMeansTheSameDotsForEver()
    {
        const SlideParameters parameters = slideOf(SlideKind::Target, 3);
        auto between = drawsOf(parameters.seed);
        const double middleX = between(1046.0, 1546.0);
        const double middleY = between(472.0, 1472.0);
        const double half = between(940.0, 1060.0) / 2.0;
        const double tilt = 5.0 * std::acos(-1.0) / 180.0;
        const double angle = between(-tilt, tilt);
        const Slide slide(parameters);
        QCOMPARE(slide.discs()[0].centre.x_px, middleX - half * std::cos(angle));
        QCOMPARE(slide.discs()[0].centre.y_px, middleY - half * std::sin(angle));
        QCOMPARE(slide.discs()[1].centre.x_px, middleX + half * std::cos(angle));
        QCOMPARE(slide.discs()[1].centre.y_px, middleY + half * std::sin(angle));
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
