#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

#include <QtTest>

#include "QC/TwoPointMeasurement.h"

namespace {

/// One row of the table that two_point_reference.py works out in exact fractions.
struct ReferenceRow
{
    int x1, y1, x2, y2, width, height;
    std::uint32_t bits[9];
};

const ReferenceRow kReference[] = {
#include "TwoPointReference.inc"
};

const char* const kValueNames[9] = {"length_pixel",        "length_mm", "pixel_size",
                                    "Magnification",       "area_mm",   "Volume_factor",
                                    "exact magnification", "log area",  "exact volume factor"};

QVector<float> valuesOf(const TwoPointMeasurement& m)
{
    return {m.info.length_pixel,  m.info.length_mm, m.info.pixel_size,
            m.info.Magnification, m.info.area_mm,   m.info.Volume_factor,
            m.exactMagnification, m.area_mm,        m.exactVolumeFactor};
}

std::uint32_t bitsOf(float value)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    return bits;
}

float floatOf(std::uint32_t bits)
{
    float value = 0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

constexpr QSize kFullFrame(2592, 1944);
constexpr float kInfinity = std::numeric_limits<float>::infinity();

} // namespace

class TestTwoPointMeasurement : public QObject
{
    Q_OBJECT

private slots:
    // Among them random points in either order.
    void everyBitEqualsTheExactReference()
    {
        int rows = 0;
        for (const ReferenceRow& row : kReference) {
            const TwoPointMeasurement m =
                measureTwoPoints({row.x1, row.y1}, {row.x2, row.y2}, {row.width, row.height});
            const QVector<float> values = valuesOf(m);
            for (int i = 0; i < 9; ++i) {
                const float expected = floatOf(row.bits[i]);
                const bool same =
                    std::isnan(expected) ? std::isnan(values[i]) : bitsOf(values[i]) == row.bits[i];
                QVERIFY2(same, qPrintable(QStringLiteral("%1 of (%2, %3)-(%4, %5): %6 instead of %7")
                                              .arg(QLatin1String(kValueNames[i]))
                                              .arg(row.x1)
                                              .arg(row.y1)
                                              .arg(row.x2)
                                              .arg(row.y2)
                                              .arg(double(values[i]), 0, 'g', 9)
                                              .arg(double(expected), 0, 'g', 9)));
            }
            ++rows;
        }
        QVERIFY2(rows > 6000, "the table is there as a whole");
    }

    void whatTwoPointsMeasure_data()
    {
        QTest::addColumn<QPoint>("to");
        QTest::addColumn<QVector<float>>("expected"); // in the order of kValueNames
        const float none = std::numeric_limits<float>::quiet_NaN();
        QTest::newRow("a thousand pixels are one millimetre")
            << QPoint(700, 900)
            << QVector<float>{1000, 1, 1, 1.4F, 5.038848F, 0.50388F, 1.4F, 5.038848F, 0.5038848F};
        QTest::newRow("equal points: not a number")
            << QPoint(100, 100) << QVector<float>{0, 0, none, none, none, none, none, none, none};
        QTest::newRow("below half a tenth of a millimetre: infinite")
            << QPoint(149, 100) << QVector<float>{49, 0, 0, kInfinity, 0, 0, kInfinity, 0, 0};
    }

    void whatTwoPointsMeasure()
    {
        QFETCH(QPoint, to);
        QFETCH(QVector<float>, expected);
        const QVector<float> values = valuesOf(measureTwoPoints({100, 100}, to, kFullFrame));
        for (int i = 0; i < values.size(); ++i)
            QVERIFY2(qIsNaN(expected[i]) ? qIsNaN(values[i])
                                         : qFuzzyCompare(values[i], expected[i]) || values[i] == expected[i],
                     kValueNames[i]);
    }

    void distanceIsEuclidean()
    {
        QCOMPARE(pointDistance({0, 0}, {3, 4}), 5.0F);
        QCOMPARE(pointDistance({-3, 4}, {0, 0}), 5.0F);
        QCOMPARE(pointDistance({5, 5}, {5, 5}), 0.0F);
        const int low = std::numeric_limits<int>::min();
        const int high = std::numeric_limits<int>::max();
        QCOMPARE(pointDistance({low, 0}, {high, 0}), 4294967295.0F);
    }

    void valuesRoundToAFractionHalvesAwayFromZero_data()
    {
        QTest::addColumn<float>("value");
        QTest::addColumn<float>("factor");
        QTest::addColumn<float>("expected");
        QTest::newRow("up") << 2.345F << 100.0F << 2.35F;
        QTest::newRow("down when negative") << -2.345F << 100.0F << -2.35F;
        QTest::newRow("half") << 0.5F << 1.0F << 1.0F;
        QTest::newRow("negative half") << -0.5F << 1.0F << -1.0F;
        QTest::newRow("below half") << 0.49F << 1.0F << 0.0F;
        QTest::newRow("zero") << 0.0F << 10.0F << 0.0F;
        QTest::newRow("no fraction left") << 3e9F << 1.0F << 3e9F;
        QTest::newRow("no fraction left, negative") << -3e9F << 10.0F << -3e9F;
        QTest::newRow("infinite") << kInfinity << 10.0F << kInfinity;
    }

    void valuesRoundToAFractionHalvesAwayFromZero()
    {
        QFETCH(float, value);
        QFETCH(float, factor);
        QFETCH(float, expected);
        QCOMPARE(bitsOf(roundToFraction(value, factor)), bitsOf(expected));
    }

    void notANumberStaysWhatItIs()
    {
        QVERIFY(std::isnan(roundToFraction(std::numeric_limits<float>::quiet_NaN(), 10.0F)));
    }
};

QTEST_GUILESS_MAIN(TestTwoPointMeasurement)
#include "test_two_point_measurement.moc"
