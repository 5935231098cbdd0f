// What the simulated instrument's switches do to the scores of a whole sweep, and what a
// saved sweep leaves on the disk.

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <numeric>

#include <QDir>
#include <QFile>
#include <QLoggingCategory>
#include <QRegularExpression>
#include <QtTest>

#include <opencv2/imgcodecs.hpp>

#include "support/SweepInstrument.h"

namespace {

constexpr int kInterval_steps = 640;
constexpr int kSamples = 15;
// Of the calibration files.
constexpr double kSensorGain = 2.0;
// Position of the sample that is taken at the focus.
constexpr int kMiddle = 7;
constexpr int kFocus_steps = 32000;
// The first sample is taken at the sweep's start plus one interval.
constexpr int kCentre_steps = kFocus_steps - kInterval_steps;

SweepScene focusedScene()
{
    SweepScene scene;
    scene.mode = 0;
    scene.optics.bestFocus_steps = kFocus_steps;
    return scene;
}

int peakOf(const std::vector<double>& values)
{
    return int(std::max_element(values.begin(), values.end()) - values.begin());
}

/// Positions higher than both of their neighbours.
std::vector<int> peaksOf(const std::vector<double>& values)
{
    std::vector<int> peaks;
    for (std::size_t i = 1; i + 1 < values.size(); ++i)
        if (values[i] > values[i - 1] && values[i] > values[i + 1])
            peaks.push_back(int(i));
    return peaks;
}

/// Where the scores balance, in positions.
double balanceOf(const std::vector<double>& values)
{
    double moment = 0.0;
    for (std::size_t i = 0; i < values.size(); ++i)
        moment += double(i) * values[i];
    return moment / std::accumulate(values.begin(), values.end(), 0.0);
}

/// The green plane's score of a picture file, pixel by pixel.
double scoreOfFile(const QString& path)
{
    const cv::Mat picture = cv::imread(QFile::encodeName(path).toStdString(), cv::IMREAD_COLOR);
    std::uint32_t sum = 0;
    for (int y = 0; y < picture.rows; ++y) {
        for (int x = 0; x + 2 < picture.cols; ++x) {
            const int difference = int(picture.at<cv::Vec3b>(y, x + 2)[1]) - picture.at<cv::Vec3b>(y, x)[1];
            sum += std::uint32_t(difference * difference);
        }
    }
    return double(float(sum) / 1000000.0F);
}

} // namespace

class TestFocusScenes : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules("default.debug=false");
        QVERIFY(m_instrument.isUp());
    }

    void aSweepHasOneClearPeak()
    {
        const std::vector<double> values = sweep(focusedScene());
        QCOMPARE(peaksOf(values), std::vector<int>{kMiddle});
        QVERIFY(std::is_sorted(values.begin(), values.begin() + kMiddle + 1));
        QVERIFY(std::is_sorted(values.rbegin(), values.rend() - kMiddle));
        QVERIFY(values[kMiddle] > 1.5 * values[kMiddle - 1]);
        QVERIFY(values[kMiddle] > 1.5 * values[kMiddle + 1]);
    }

    void noiseLiftsEveryScoreAndLeavesThePeak()
    {
        SweepScene scene = focusedScene();
        scene.optics.noise_levels = 0.0;
        const std::vector<double> clean = sweep(scene);
        scene.optics.noise_levels = 3.0;
        const std::vector<double> noisy = sweep(scene);
        // Summed over every pair of pixels: the difference of two pixels has twice the variance of one; green
        // follows the luma at 255 / 219, and the variance grows with the gain.
        const double variance = kSensorGain * std::pow(3.0 * 255.0 / 219.0, 2);
        const double lift = 480.0 * 638.0 * 2.0 * variance / 1e6;
        for (std::size_t i = 0; i < clean.size(); ++i)
            QVERIFY2(std::abs(noisy[i] - clean[i] - lift) < 0.15 * lift,
                     qPrintable(QString("%1: %2, not %3").arg(i).arg(noisy[i] - clean[i]).arg(lift)));
        QCOMPARE(peakOf(noisy), kMiddle);
    }

    void dustMakesASecondFalsePeakAndTheTrueOneWins()
    {
        SweepScene scene = focusedScene();
        scene.mode = 1;
        scene.slide.dustOffset_steps = 4 * kInterval_steps;
        const SweepResult result = m_instrument.run(scene, kCentre_steps);
        QCOMPARE(peaksOf(result.values()), (std::vector<int>{kMiddle, kMiddle + 4}));
        QCOMPARE(result.chosen_steps, kFocus_steps);
    }

    void anEmptySlideGivesAFlatSweep()
    {
        SweepScene scene = focusedScene();
        scene.slide.kind = SlideKind::Empty;
        const std::vector<double> noisy = sweep(scene);
        const auto [low, high] = std::minmax_element(noisy.begin(), noisy.end());
        QVERIFY(*low > 0.0 && *high < 1.02 * *low);
    }

    void anEmptySlideWithoutNoiseScoresNothingAndTheFirstPositionWins()
    {
        SweepScene scene = focusedScene();
        scene.slide.kind = SlideKind::Empty;
        scene.optics.noise_levels = 0.0;
        const SweepResult result = m_instrument.run(scene, kCentre_steps);
        QVERIFY(result.finished);
        QCOMPARE(result.values(), std::vector<double>(kSamples, 0.0));
        QCOMPARE(result.bestIndex, 0);
        QCOMPARE(result.chosen_steps, kFocus_steps - kMiddle * kInterval_steps);
    }

    void backlashShiftsTheScoresUpwards_data()
    {
        QTest::addColumn<int>("backlash_steps");
        QTest::newRow("64") << 64;
        QTest::newRow("320") << 320;
        QTest::newRow("one interval") << kInterval_steps;
    }

    void backlashShiftsTheScoresUpwards()
    {
        QFETCH(int, backlash_steps);
        SweepScene scene = focusedScene();
        const double without = balanceOf(sweep(scene));
        scene.backlash_steps = backlash_steps;
        const std::vector<double> values = sweep(scene);
        const double shift_steps = (balanceOf(values) - without) * kInterval_steps;
        QVERIFY2(shift_steps > 0.5 * backlash_steps && shift_steps < 1.5 * backlash_steps,
                 qPrintable(QString::number(shift_steps)));
        if (backlash_steps == kInterval_steps)
            QCOMPARE(peakOf(values), kMiddle + 1);
    }

    void aDelayShowsEarlierPlaces()
    {
        SweepScene scene = focusedScene();
        double before = balanceOf(sweep(scene));
        for (int delay = 2; delay <= 6; delay += 2) {
            scene.frameDelay_frames = delay;
            const double delayed = balanceOf(sweep(scene));
            QVERIFY2(delayed > before, qPrintable(QString::number(delay)));
            before = delayed;
        }
    }

    void theSameSeedsGiveTheSameSweep()
    {
        // But for the microseconds of the serial line.
        const SweepScene scene = focusedScene();
        const std::vector<double> first = sweep(scene);
        const std::vector<double> second = sweep(scene);
        for (std::size_t i = 0; i < first.size(); ++i)
            QVERIFY(std::abs(first[i] - second[i]) < 0.01 * first[i]);
    }

    void aSavedSweepHoldsWhatWasScored_data()
    {
        QTest::addColumn<int>("mode");
        QTest::newRow("640 x 480") << 0;
        QTest::newRow("1280 x 960") << 1;
        QTest::newRow("2592 x 1944") << 2;
    }

    void aSavedSweepHoldsWhatWasScored()
    {
        QFETCH(int, mode);
        QDir runs(m_instrument.machinePath("/mnt/ORLA-II/Autofocus"));
        runs.removeRecursively();
        SweepScene scene = focusedScene();
        scene.mode = mode;
        scene.saveImages = true;
        const SweepResult result = m_instrument.run(scene, kCentre_steps);
        QVERIFY(result.finished);
        const QStringList names = runs.entryList(QDir::Dirs | QDir::NoDotAndDotDot);
        QCOMPARE(names.size(), 1);
        QVERIFY(QRegularExpression("^\\d{8}_\\d{6}$").match(names.first()).hasMatch());
        const QDir step(runs.filePath(names.first() + "/Step1"));
        const QStringList rows = linesOf(step.filePath("best_focus_value.csv"));
        QCOMPARE(rows.size(), kSamples + 2);
        const QStringList files = step.entryList({"*.tiff"}, QDir::Files, QDir::Name);
        QCOMPARE(files.size(), kSamples);
        for (int i = 0; i < kSamples; ++i) {
            const QStringList row = rows[i].split(',');
            QCOMPARE(row.size(), 3);
            const QString score = QString::number(scoreOfFile(step.filePath(files[i])));
            QCOMPARE(row[0], QString::number(i));
            QCOMPARE(row[1], QString::number(kFocus_steps + (i - kMiddle) * kInterval_steps));
            QCOMPARE(row[2], score);
            QCOMPARE(files[i],
                     QString("Autofocus_%1_%2_%3.tiff").arg(i + 1, 2, 10, QChar('0')).arg(row[1], score));
        }
        QCOMPARE(rows[kSamples], QString());
        // The last line counts from one.
        const QStringList best = rows[kSamples + 1].split(',');
        QCOMPARE(best[0].toInt(), result.bestIndex + 1);
        QCOMPARE(best.mid(1), rows[result.bestIndex].split(',').mid(1));
    }

private:
    std::vector<double> sweep(const SweepScene& scene)
    {
        const SweepResult result = m_instrument.run(scene, kCentre_steps);
        std::vector<double> values = result.values();
        QString text;
        for (double value : values)
            text += QString::number(value, 'f', 1) + ' ';
        qInfo("%s", qPrintable(text));
        values.resize(kSamples);
        return values;
    }

    static QStringList linesOf(const QString& path)
    {
        QFile file(path);
        if (!file.open(QIODevice::ReadOnly))
            return {};
        return QString::fromLatin1(file.readAll()).split('\n');
    }

    SweepInstrument m_instrument;
};

QTEST_GUILESS_MAIN(TestFocusScenes)
#include "test_focus_scenes.moc"
