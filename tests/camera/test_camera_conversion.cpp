#include <algorithm>
#include <cmath>
#include <random>
#include <thread>
#include <vector>

extern "C" {
#include <libavutil/log.h>
}

#include <QtTest>

#include "CameraTools.h"
#include "camera/YuvConversion.h"

namespace {

constexpr uchar kGuard = 0xA7;

std::vector<uchar> flatYuyv(unsigned int width, int height, uchar y, uchar u, uchar v)
{
    std::vector<uchar> frame;
    frame.reserve(std::size_t(width) * height * 2);
    for (std::size_t pair = 0; pair < std::size_t(width) * height / 2; ++pair)
        frame.insert(frame.end(), {y, u, y, v});
    return frame;
}

int g_complaints = 0;

void countComplaint(void* /*sender*/, int level, const char* /*format*/, va_list /*arguments*/)
{
    g_complaints += level <= AV_LOG_WARNING ? 1 : 0;
}

bool near(int actual, int expected, int tolerance = 3)
{
    return qAbs(actual - expected) <= tolerance;
}

} // namespace

class TestCameraConversion : public QObject
{
    Q_OBJECT

private slots:
    // Expected values: BT.601, limited range, worked out by hand from the standard's matrix.
    void aFlatColourComesOutAsItself_data()
    {
        QTest::addColumn<QVector<int>>("yuv");
        QTest::addColumn<QVector<int>>("rgb");
        QTest::newRow("black") << QVector<int>{16, 128, 128} << QVector<int>{0, 0, 0};
        QTest::newRow("white") << QVector<int>{235, 128, 128} << QVector<int>{255, 255, 255};
        QTest::newRow("grey") << QVector<int>{126, 128, 128} << QVector<int>{128, 128, 128};
        QTest::newRow("red") << QVector<int>{81, 90, 240} << QVector<int>{255, 0, 0};
        QTest::newRow("green") << QVector<int>{145, 54, 34} << QVector<int>{0, 255, 0};
        QTest::newRow("blue") << QVector<int>{41, 240, 110} << QVector<int>{0, 0, 255};
        QTest::newRow("yellow") << QVector<int>{210, 16, 146} << QVector<int>{255, 255, 0};
        QTest::newRow("nothing at all") << QVector<int>{0, 0, 0} << QVector<int>{0, 135, 0};
        QTest::newRow("beyond white") << QVector<int>{255, 128, 128} << QVector<int>{255, 255, 255};
    }

    void aFlatColourComesOutAsItself()
    {
        QFETCH(QVector<int>, yuv);
        QFETCH(QVector<int>, rgb);
        constexpr unsigned int kWidth = 640;
        constexpr int kHeight = 480;
        const std::vector<uchar> source =
            flatYuyv(kWidth, kHeight, uchar(yuv[0]), uchar(yuv[1]), uchar(yuv[2]));
        std::vector<uchar> destination(std::size_t(kWidth) * kHeight * 3 + 1, kGuard);
        sws_yuv2rgb24(kWidth, kHeight, source.data(), destination.data());
        for (std::size_t i = 0; i + 1 < destination.size(); ++i)
            if (!near(destination[i], rgb[int(i % 3)]))
                QFAIL(qPrintable(QString("byte %1 is %2").arg(i).arg(destination[i])));
        QCOMPARE(destination.back(), kGuard);
    }

    // A colour that was mixed from two pairs would be far off where neighbours have nothing in common.
    void bothPixelsOfAPairHaveThePairsColour()
    {
        constexpr unsigned int kWidth = 640;
        constexpr int kHeight = 480;
        std::vector<uchar> source(std::size_t(kWidth) * kHeight * 2);
        std::mt19937 noise(1);
        for (uchar& byte : source)
            byte = uchar(noise() & 0xFF);
        std::vector<uchar> destination(std::size_t(kWidth) * kHeight * 3);
        sws_yuv2rgb24(kWidth, kHeight, source.data(), destination.data());
        const auto byteOf = [](double value) { return int(std::lround(std::clamp(value, 0.0, 255.0))); };
        for (std::size_t pixel = 0; pixel < std::size_t(kWidth) * kHeight; ++pixel) {
            const uchar* pair = &source[pixel / 2 * 4];
            const double y = (source[pixel * 2] - 16) * 255.0 / 219.0;
            const double u = (pair[1] - 128) * 255.0 / 224.0;
            const double v = (pair[3] - 128) * 255.0 / 224.0;
            const int expected[] = {byteOf(y + 1.402 * v), byteOf(y - 0.344136 * u - 0.714136 * v),
                                    byteOf(y + 1.772 * u)};
            for (std::size_t channel = 0; channel < 3; ++channel) {
                const uchar is = destination[pixel * 3 + channel];
                if (!near(is, expected[channel]))
                    QFAIL(qPrintable(QString("channel %1 of pixel %2 is %3, not %4")
                                         .arg(channel)
                                         .arg(pixel)
                                         .arg(is)
                                         .arg(expected[channel])));
            }
        }
    }

    void everyPixelStaysInItsPlaceAndNoneBeyondIsWritten_data() { addModes(); }

    void everyPixelStaysInItsPlaceAndNoneBeyondIsWritten()
    {
        QFETCH(QSize, size);
        const int width = size.width();
        const int height = size.height();
        std::vector<uchar> source = flatYuyv(unsigned(width), height, 16, 128, 128);
        const auto luma = [&](int column, int row) -> uchar& {
            return source[(std::size_t(row) * width + column) * 2];
        };
        const int columns[] = {0, 1, width / 2, width - 1};
        const int rows[] = {0, height / 2, height - 1};
        for (int row : rows)
            for (int column : columns)
                luma(column, row) = 235;

        const std::size_t size_bytes = std::size_t(width) * height * 3;
        std::vector<uchar> destination(size_bytes + 64, kGuard);
        sws_yuv2rgb24(unsigned(width), height, source.data(), destination.data());
        for (int row = 0; row < height; ++row) {
            for (int column = 0; column < width; ++column) {
                const int expected = luma(column, row) == 235 ? 255 : 0;
                const uchar* pixel = &destination[(std::size_t(row) * width + column) * 3];
                if (!near(pixel[0], expected) || !near(pixel[1], expected) || !near(pixel[2], expected))
                    QFAIL(qPrintable(QString("pixel %1, %2 is %3").arg(column).arg(row).arg(pixel[0])));
            }
        }
        for (std::size_t i = size_bytes; i < destination.size(); ++i)
            QCOMPARE(destination[i], kGuard);
    }

    void whatCannotBeConvertedLeavesTheDestination()
    {
        const std::vector<uchar> source = flatYuyv(8, 8, 200, 128, 128);
        const std::vector<uchar> untouched(std::size_t(8) * 8 * 3, kGuard);
        std::vector<uchar> destination = untouched;
        // A camera without a frame is no error, and the library is not to complain of one.
        g_complaints = 0;
        av_log_set_callback(countComplaint);
        sws_yuv2rgb24(8, 8, nullptr, destination.data());
        sws_yuv2rgb24(8, 8, source.data(), nullptr);
        av_log_set_callback(av_log_default_callback);
        QCOMPARE(g_complaints, 0);
        sws_yuv2rgb24(0, 8, source.data(), destination.data());
        sws_yuv2rgb24(8, 0, source.data(), destination.data());
        sws_yuv2rgb24(8, -8, source.data(), destination.data());
        QCOMPARE(destination, untouched);
    }

    void aConversionLeavesNoMemoryBehind()
    {
        constexpr std::size_t kSlack_bytes = 100000; // less than one context's
        const std::vector<uchar> source = flatYuyv(640, 480, 200, 128, 128);
        std::vector<uchar> destination(std::size_t(640) * 480 * 3);
        sws_yuv2rgb24(640, 480, source.data(), destination.data());
        const std::size_t before = allocatedBytes();
        for (int round = 0; round < 20; ++round)
            sws_yuv2rgb24(640, 480, source.data(), destination.data());
        QVERIFY(allocatedBytes() < before + kSlack_bytes);
    }

    void manyThreadsMayConvertAtOnce()
    {
        constexpr int kThreads = 4;
        std::vector<std::vector<uchar>> results(kThreads, std::vector<uchar>(std::size_t(64) * 64 * 3));
        std::vector<std::thread> threads;
        threads.reserve(kThreads);
        for (int i = 0; i < kThreads; ++i) {
            threads.emplace_back([&results, i] {
                const std::vector<uchar> source = flatYuyv(64, 64, uchar(60 + 40 * i), 128, 128);
                for (int round = 0; round < 50; ++round)
                    sws_yuv2rgb24(64, 64, source.data(), results[std::size_t(i)].data());
            });
        }
        for (std::thread& thread : threads)
            thread.join();
        for (int i = 0; i < kThreads; ++i) {
            const int expected = qRound((60 + 40 * i - 16) * 255.0 / 219.0);
            for (uchar byte : results[std::size_t(i)])
                QVERIFY(near(byte, expected));
        }
    }
};

QTEST_GUILESS_MAIN(TestCameraConversion)
#include "test_camera_conversion.moc"
