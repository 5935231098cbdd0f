#include <cstdint>
#include <cstring>
#include <random>

#include <QCryptographicHash>
#include <QtTest>

#include <opencv2/core.hpp>

#include "Algorithm/FocusMeasures.h"
#include "QC/TwoPointMeasurement.h"
#include "QC/ViewOffset.h"

namespace {

constexpr QSize kSizes[] = {{640, 480}, {1280, 960}, {2592, 1944}};

template <class Value>
void add(QCryptographicHash& hash, Value value)
{
    static_assert(Q_BYTE_ORDER == Q_LITTLE_ENDIAN, "the recorded bytes begin with the lowest");
    char bytes[sizeof value];
    std::memcpy(bytes, &value, sizeof value);
    hash.addData(bytes, sizeof bytes);
}

QByteArray hexOf(const QCryptographicHash& hash)
{
    return hash.result().toHex().left(16);
}

} // namespace

/**
 * What the instrument's files hold has the same digits on every machine: results against what was
 * recorded on an x86-64 one, bit for bit.
 */
class TestRecordedValues : public QObject
{
    Q_OBJECT

private slots:
    void theFocusMeasure()
    {
        const quint64 recorded[] = {0x40aa2210a0000000, 0x408126dfa0000000, 0x40ab1cb720000000};
        for (int i = 0; i < 3; ++i) {
            cv::Mat plane(kSizes[i].height(), kSizes[i].width(), CV_8UC1);
            std::mt19937 random(static_cast<std::uint32_t>(i + 1));
            for (int y = 0; y < plane.rows; ++y)
                for (int x = 0; x < plane.cols; ++x)
                    plane.ptr(y)[x] = static_cast<std::uint8_t>(random());
            const double measure = focus_measures::brennerGradient(plane);
            quint64 bits = 0;
            std::memcpy(&bits, &measure, sizeof bits);
            QCOMPARE(QByteArray::number(bits, 16), QByteArray::number(recorded[i], 16));
        }
    }

    void magnificationAndVolumeFactor()
    {
        std::mt19937 random(4);
        QCryptographicHash hash(QCryptographicHash::Sha256);
        for (const QSize& size : kSizes) {
            const auto point = [&] {
                const int x = static_cast<int>(random() % static_cast<unsigned int>(size.width()));
                return QPoint(x, static_cast<int>(random() % static_cast<unsigned int>(size.height())));
            };
            for (int i = 0; i < 1000; ++i) {
                const QPoint first = point();
                const TwoPointMeasurement measured = measureTwoPoints(first, point(), size);
                for (float value :
                     {measured.info.length_pixel, measured.info.length_mm, measured.info.pixel_size,
                      measured.info.Magnification, measured.info.area_mm, measured.info.Volume_factor,
                      measured.exactMagnification, measured.area_mm, measured.exactVolumeFactor})
                    add(hash, value);
            }
        }
        QCOMPARE(hexOf(hash), QByteArray("0ee3dfe2b3c434bb"));
    }

    void panOffsets()
    {
        QCryptographicHash hash(QCryptographicHash::Sha256);
        for (const QSize& size : kSizes)
            for (int offset = -100; offset <= size.width(); offset += 7)
                for (double scale : {0.1, 1.0 / 3.0, 0.3086, 0.75, 1.0, 1.1, 1.7, 2.0, 3.3, 8.0})
                    add(hash, qint32(clampedViewOffset(offset, size.width(), 640, scale)));
        QCOMPARE(hexOf(hash), QByteArray("966fc9345514d857"));
    }
};

QTEST_GUILESS_MAIN(TestRecordedValues)
#include "test_recorded_values.moc"
