#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <vector>

#include <QtTest>

#include "simulator/optics/BlurredDiscs.h"

namespace {

constexpr int kWidth_px = 208;
constexpr int kHeight_px = 3 * BlurredDiscs::kStripRows;

double normalIntegral(double x)
{
    return 0.5 * std::erfc(-x / std::sqrt(2.0));
}

// What the discs take away at a pixel, in levels of 255, straight from the formula: across its
// edge a disc falls off as the normal integral does, and in the middle 1 - exp(-r^2 / 2 sigma^2) of it
// remains.
double absorption(const std::vector<BlurredDisc>& discs, int x_px, int y_px)
{
    double sum = 0;
    for (const BlurredDisc& disc : discs) {
        const double radius = disc.radius_px / disc.sigma_px;
        const double distance = std::hypot(x_px - disc.x_px, y_px - disc.y_px) / disc.sigma_px;
        const double height =
            disc.absorption * (1.0 - std::exp(-0.5 * radius * radius)) / std::erf(radius / std::sqrt(2.0));
        sum += 255.0 * height * (normalIntegral(radius - distance) + normalIntegral(radius + distance) - 1.0);
    }
    return std::min(sum, 255.0);
}

} // namespace

class TestBlurredDiscs : public QObject
{
    Q_OBJECT

private slots:
    void aPlaneIsReducedOnlyWhereTheBlurHidesIt()
    {
        QCOMPARE(reductionFor(0.3), 1);
        QCOMPARE(reductionFor(4.999), 1);
        QCOMPARE(reductionFor(5.0), 2);
        QCOMPARE(reductionFor(9.999), 2);
        QCOMPARE(reductionFor(10.0), 4);
        QCOMPARE(reductionFor(19.999), 4);
        QCOMPARE(reductionFor(20.0), 8);
        QCOMPARE(reductionFor(1000.0), 8);
    }

    void everyPixelIsAsTheFormulaSays_data()
    {
        QTest::addColumn<QVector<double>>("sigmas_px");
        QTest::addColumn<double>("tolerance_levels");
        QTest::newRow("sharp") << QVector<double>{1.2, 3.0, 4.9} << 1.5;
        // What the interpolation between two samples is off by, and a rounding for each disc.
        QTest::newRow("at half the size") << QVector<double>{5.0, 7.0, 9.0} << 3.0;
        QTest::newRow("at a quarter") << QVector<double>{10.0, 13.0, 19.0} << 3.0;
        QTest::newRow("at an eighth") << QVector<double>{20.0, 24.0, 33.0} << 3.0;
        // The sharpest decides, wherever it stands among them.
        QTest::newRow("sharp among blurred") << QVector<double>{25.0, 1.2, 20.0} << 2.0;
    }

    void everyPixelIsAsTheFormulaSays()
    {
        QFETCH(QVector<double>, sigmas_px);
        QFETCH(double, tolerance_levels);
        // Over the left and the right edge, over two strips, and two that overlap.
        const std::vector<BlurredDisc> discs{{-3.5, 20.25, 14.0, sigmas_px[0], 0.9},
                                             {201.5, 63.5, 17.0, sigmas_px[1], 0.8},
                                             {90.0, 47.5, 9.0, sigmas_px[2], 0.7},
                                             {110.0, 50.0, 16.0, sigmas_px[0], 0.6}};
        BlurredDiscs painter;
        painter.prepare(discs, kWidth_px);
        double offBy = 0;
        int pixels = 0;
        for (int first = 0; first < kHeight_px; first += BlurredDiscs::kStripRows) {
            painter.paintStrip(first);
            for (int r = 0; r < BlurredDiscs::kStripRows; ++r) {
                const std::uint8_t* row = painter.row(r);
                for (int x = 0; x < kWidth_px; ++x) {
                    const double expected = absorption(discs, x, first + r);
                    QVERIFY2(std::abs(row[x] - expected) <= tolerance_levels,
                             qPrintable(QStringLiteral("%1, %2: %3 instead of %4")
                                            .arg(x)
                                            .arg(first + r)
                                            .arg(row[x])
                                            .arg(expected)));
                    // At the ends of the scale a level more or less is on one side only.
                    if (expected > 5.0 && expected < 250.0) {
                        offBy += row[x] - expected;
                        ++pixels;
                    }
                }
            }
        }
        // Off by as much upwards as downwards: nowhere is cut off instead of rounded.
        QVERIFY(pixels > 2000);
        QVERIFY2(std::abs(offBy / pixels) < 0.12, qPrintable(QString::number(offBy / pixels)));
    }

    void aPictureHoldsNothingOfTheOneBefore()
    {
        BlurredDiscs painter;
        painter.prepare({{40.0, 16.0, 12.0, 2.0, 1.0}}, kWidth_px);
        painter.prepare({{150.0, 16.0, 12.0, 2.0, 1.0}}, kWidth_px);
        painter.paintStrip(0);
        QCOMPARE(int(painter.row(16)[40]), 0);
        QVERIFY(painter.row(16)[150] > 250);
    }

    void whereDiscsCoverEachOtherNothingIsLeft()
    {
        BlurredDiscs painter;
        painter.prepare({{40.0, 16.0, 12.0, 1.0, 1.0}, {44.0, 16.0, 12.0, 1.0, 1.0}}, kWidth_px);
        painter.paintStrip(0);
        QCOMPARE(int(painter.row(16)[42]), 255);
        QCOMPARE(int(painter.row(16)[150]), 0);
    }

    void aStripHoldsNothingOfTheOneBefore()
    {
        BlurredDiscs painter;
        for (double sigma_px : {2.0, 8.0, 16.0, 30.0}) {
            painter.prepare({{100.0, 10.0, 10.0, sigma_px, 1.0}}, kWidth_px);
            painter.paintStrip(0);
            QVERIFY(painter.row(10)[100] > 0);
            painter.paintStrip(8 * BlurredDiscs::kStripRows);
            for (int r = 0; r < BlurredDiscs::kStripRows; ++r)
                QCOMPARE(std::count(painter.row(r), painter.row(r) + kWidth_px, 0),
                         std::ptrdiff_t(kWidth_px));
        }
    }
};

QTEST_APPLESS_MAIN(TestBlurredDiscs)

#include "test_blurred_discs.moc"
