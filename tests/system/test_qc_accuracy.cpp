// The calibration as the technician does it, against what the simulated slide really holds.

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include <QTemporaryDir>
#include <QtTest>

#include "AccuracySeeds.h"
#include "QC/QC_measure.h"
#include "settings/GlobalIni.h"
#include "support/LogRecorder.h"
#include "support/QcOperator.h"

namespace {

/// One of each mode with each staining.
constexpr int kFewSeeds = 6;
/// In a long run the first cases wait out the sensor's 2.5 s; the others cut them short.
constexpr int kFullDelayCases = 2;
/// How far a technician's press lies beside the dot at most, image pixels.
constexpr int kPressSpread_px = 7;
/// A point is cut off to whole pixels, up to one below the dot's centre on each axis.
constexpr double kPointLimit_px = 1.0;
constexpr const char* kNoCellText = "Cell not detected !";

constexpr const char* kModeNames[] = {"VGA", "1280", "5M"};
constexpr const char* kModeButtons[] = {"BUTTON_RESOLUTION_VGA", "BUTTON_RESOLUTION_1280",
                                        "BUTTON_RESOLUTION_5M"};

/// One way through the tab: seed of slide and optics, mode of the live view, staining.
struct Case
{
    std::uint32_t seed = 1;
    int mode = 2;
    bool stained = false;
    bool waitOutTheDelay = false;
    int pressSpread_px = kPressSpread_px;
    /// Where the stage stands, off the best focus.
    int defocus_steps = 0;
};

/// A target that is not as it should be, and whether its dots are still found.
struct Variant
{
    const char* name;
    double dotRadius_px;
    double tiltAcross_steps;
    double tiltDown_steps;
    int defocus_steps;
    double noise_levels;
    bool found;
};

// Steps from focus 1000 blur the standard dot (radius 9) to a green of 44 in its middle, and
// 1150 to 60: what is brighter than 50 is no cell. A dot must also be wider than the blur at
// best focus, and fit into the 40 x 40 pixels that are searched.
constexpr Variant kVariants[] = {
    {"as it should be", 9, 0, 0, 0, 1, true},     {"no noise", 9, 0, 0, 0, 0, true},
    {"much noise", 9, 0, 0, 0, 4, true},          {"dot radius 3.5", 3.5, 0, 0, 0, 1, true},
    {"dot radius 2", 2, 0, 0, 0, 1, false},       {"dot radius 5", 5, 0, 0, 0, 1, true},
    {"dot radius 14", 14, 0, 0, 0, 1, true},      {"tilt across 1000", 9, 1000, 0, 0, 1, true},
    {"tilt across 3000", 9, 3000, 0, 0, 1, true}, {"tilt down 3000", 9, 0, 3000, 0, 1, true},
    {"Z off by 300", 9, 0, 0, 300, 1, true},      {"Z off by -640", 9, 0, 0, -640, 1, true},
    {"Z off by 900", 9, 0, 0, 900, 1, true},      {"Z off by 1150", 9, 0, 0, 1150, 1, false},
    {"Z off by -3000", 9, 0, 0, -3000, 1, false},
};

struct Finding
{
    SlidePoint truth;
    bool found = false;
    QPoint point;

    double error_x() const { return point.x() - truth.x_px; }
    double error_y() const { return point.y() - truth.y_px; }
    bool isNear() const
    {
        return found && std::fabs(error_x()) <= kPointLimit_px && std::fabs(error_y()) <= kPointLimit_px;
    }
};

/// What the window shows and keeps of a calibration, or should.
struct Calibration
{
    double magnification = 0;
    double volumeFactor = 0;
    QString magnificationText;
    QString volumeFactorText;

    bool operator==(const Calibration& other) const
    {
        return magnification == other.magnification && volumeFactor == other.volumeFactor &&
               magnificationText == other.magnificationText && volumeFactorText == other.volumeFactorText;
    }
};

struct Outcome
{
    bool frozen = false;
    Finding points[2];
    Calibration calibration;
    QStringList boxes;
    bool enabledAfterwards = false;
};

/// A double holds the exact result of one operation on floats closely enough that rounding
/// it to a float is what the float operation gives.
double asFloat(double value)
{
    return static_cast<double>(static_cast<float>(value));
}

double throughText(int decimals, double value, QString& text)
{
    char digits[64];
    std::snprintf(digits, sizeof digits, "%.*f", decimals, value);
    text = QString::fromLatin1(digits);
    return static_cast<double>(std::strtof(digits, nullptr));
}

/// The calibration that two points of a 2592 x 1944 frame stand for.
Calibration calibrationOf(QPoint one, QPoint other)
{
    const double pitch_um = asFloat(1.4);
    const double tenth = asFloat(0.1);
    const QPoint way = other - one;
    const double length_px = asFloat(std::hypot(way.x(), way.y()));
    double length_mm = asFloat(asFloat(length_px * tenth) / 100.0);
    length_mm = asFloat(asFloat(length_mm * pitch_um) / pitch_um);
    length_mm = asFloat(std::floor(asFloat(length_mm * 10.0) + 0.5) / 10.0);
    const double length_um = asFloat(length_mm * 1000.0);
    const double pixel_um = asFloat(length_um / length_px);
    const double width_um = asFloat(2592.0 * pixel_um);
    const double height_um = asFloat(pixel_um * 1944.0);
    const double area_mm2 = asFloat(asFloat(width_um * height_um) / 1e6);

    Calibration expected;
    expected.magnification =
        throughText(3, asFloat(asFloat(length_px * pitch_um) / length_um), expected.magnificationText);
    expected.volumeFactor = throughText(5, asFloat(area_mm2 * tenth), expected.volumeFactorText);
    return expected;
}

} // namespace

class TestQcAccuracy : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY(m_boardRoot.isValid());
        m_board = std::make_unique<BoardPort>(m_boardRoot.path().toStdString(), BoardParameters(),
                                              BoardPace::Instant);
        QVERIFY(m_board->isServing());
    }

    void everySeedGivesThePointsAndTheirCalibration()
    {
        std::printf("seed mode stain  truth 1            found 1     error         "
                    "truth 2            found 2     error         magn.  volume\n");
        const int seeds = accuracySeeds(kFewSeeds);
        int good = 0;
        double largest = 0;
        double farthest = 0;
        for (int i = 0; i < seeds; ++i) {
            // Six neighbouring seeds go through every mode with both stainings.
            const int mode = i % 3;
            Case how;
            how.seed = static_cast<std::uint32_t>(i + 1);
            how.mode = mode;
            how.stained = i / 3 % 2 == 1;
            how.waitOutTheDelay = seeds > kFewSeeds && i < kFullDelayCases;
            const Outcome outcome = measure(how, WindowFixture::Options());
            print(how, outcome);
            good += judge(how, outcome) ? 1 : 0;
            for (const Finding& finding : outcome.points) {
                largest = std::max({largest, std::fabs(finding.error_x()), std::fabs(finding.error_y())});
                farthest = std::max(farthest, std::hypot(finding.error_x(), finding.error_y()));
            }
        }
        std::printf("%d of %d good, largest error on an axis %.2f pixels, largest distance %.2f\n", good,
                    seeds, largest, farthest);
        QCOMPARE(good, seeds);
    }

    void aBadTargetIsMeasuredRightlyOrNotAtAll_data()
    {
        QTest::addColumn<int>("number");
        for (std::size_t i = 0; i < std::size(kVariants); ++i)
            QTest::newRow(kVariants[i].name) << static_cast<int>(i);
    }

    void aBadTargetIsMeasuredRightlyOrNotAtAll()
    {
        QFETCH(int, number);
        const Variant& variant = kVariants[number];
        WindowFixture::Options options;
        options.camera.slide.targetDotRadius_px = variant.dotRadius_px;
        options.camera.slide.tiltAcross_steps = variant.tiltAcross_steps;
        options.camera.slide.tiltDown_steps = variant.tiltDown_steps;
        options.camera.optics.noise_levels = variant.noise_levels;
        Case how;
        how.seed = static_cast<std::uint32_t>(100 + number);
        how.defocus_steps = variant.defocus_steps;
        how.pressSpread_px = std::min(kPressSpread_px, static_cast<int>(17 - variant.dotRadius_px));
        const Outcome outcome = measure(how, options);
        std::printf("%-17s", variant.name);
        print(how, outcome);
        QVERIFY(outcome.frozen);
        QVERIFY(outcome.enabledAfterwards);
        if (variant.found) {
            QVERIFY(judge(how, outcome));
            QCOMPARE(outcome.boxes, QStringList());
        } else {
            QVERIFY(!outcome.points[0].found && !outcome.points[1].found);
            QCOMPARE(outcome.boxes, QStringList({kNoCellText, kNoCellText}));
        }
    }

private:
    Outcome measure(const Case& how, WindowFixture::Options options)
    {
        const LogRecorder silence;
        options.sharedBoard = m_board.get();
        options.camera.slide.kind = SlideKind::Target;
        options.camera.slide.seed = how.seed;
        options.camera.optics.seed = how.seed;
        WindowFixture fixture(options);
        moveStage(fixture, qRound(fixture.camera().bestFocus_steps()) + how.defocus_steps);
        fixture.click(how.stained ? "BUTTON_STAINING_TB" : "BUTTON_STAINING_NTB");
        fixture.click(kModeButtons[how.mode]);
        Outcome outcome;
        if (!fixture.waitForFrames(3))
            return outcome;

        QcOperator qc(fixture);
        outcome.frozen = qc.freeze(how.waitOutTheDelay);
        if (!outcome.frozen)
            return outcome;
        const std::vector<SlidePoint> dots = fixture.camera().slide().targetDots();
        for (int index = 0; index < 2; ++index)
            outcome.points[index] = find(qc, index, dots.at(static_cast<std::size_t>(index)), how);
        fixture.click("BUTTON_QC_MEASURE");
        outcome.calibration = {global_ini()->System.Magnification, global_ini()->System.Volume_factor,
                               fixture.text("EDIT_MAGNIFICATION"), fixture.text("EDIT_VOLUME_FACTOR")};
        outcome.boxes = fixture.boxes().texts();
        outcome.enabledAfterwards = fixture.window().isEnabled();
        return outcome;
    }

    static void moveStage(WindowFixture& fixture, int position_steps)
    {
        fixture.setText("EDIT_Z_ABS", QString::number(position_steps));
        fixture.click("BUTTON_Z_ABS");
        if (!fixture.waitUntil([&] {
                return fixture.board().light().stagePosition_steps == position_steps &&
                       fixture.window().isEnabled();
            }))
            qFatal("the stage does not reach the focus");
    }

    static Finding find(QcOperator& qc, int index, const SlidePoint& truth, const Case& how)
    {
        Finding finding{truth, false, QPoint()};
        QSignalSpy points(&qc.widget(), &QC_measure::sig_measure_point);
        qc.aimAt(QPoint(qRound(truth.x_px), qRound(truth.y_px)) + besideTheDot(how, index));
        qc.findPoint(index);
        finding.found = points.count() == 1;
        if (finding.found)
            finding.point = QPoint(points.at(0).at(1).toInt(), points.at(0).at(2).toInt());
        return finding;
    }

    /// Somewhere in the square of the case's spread, another place for every point.
    static QPoint besideTheDot(const Case& how, int index)
    {
        const int side = 2 * how.pressSpread_px + 1;
        const int number = static_cast<int>(how.seed);
        return {(number * 7 + index * 3) % side - how.pressSpread_px,
                (number * 5 + index * 11) % side - how.pressSpread_px};
    }

    static bool judge(const Case& how, const Outcome& outcome)
    {
        if (!outcome.frozen || !outcome.points[0].isNear() || !outcome.points[1].isNear()) {
            qWarning("seed %u: a point is missed", how.seed);
            return false;
        }
        const Calibration expected = calibrationOf(outcome.points[0].point, outcome.points[1].point);
        if (outcome.calibration == expected)
            return true;
        qWarning("seed %u: %s, %s expected", how.seed, qPrintable(expected.magnificationText),
                 qPrintable(expected.volumeFactorText));
        return false;
    }

    static void print(const Case& how, const Outcome& outcome)
    {
        std::printf("%4u %-4s %-5s", how.seed, kModeNames[how.mode], how.stained ? "TB" : "NTB");
        for (const Finding& finding : outcome.points) {
            std::printf("  %7.2f %7.2f", finding.truth.x_px, finding.truth.y_px);
            if (finding.found)
                std::printf("  %5d %5d  %+5.2f %+5.2f", finding.point.x(), finding.point.y(),
                            finding.error_x(), finding.error_y());
            else
                std::printf("  %-11s  %-11s", "none", "");
        }
        std::printf("  %s  %s\n", qPrintable(outcome.calibration.magnificationText),
                    qPrintable(outcome.calibration.volumeFactorText));
        std::fflush(stdout);
    }

    QTemporaryDir m_boardRoot;
    std::unique_ptr<BoardPort> m_board;
};

QTEST_MAIN(TestQcAccuracy)
#include "test_qc_accuracy.moc"
