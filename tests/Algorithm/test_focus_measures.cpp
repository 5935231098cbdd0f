#include "Algorithm/FocusMeasures.h"

#include <cmath>
#include <cstdint>

#include <QtTest>

#include <opencv2/imgproc.hpp>

using namespace focus_measures;

namespace {

cv::Mat randomImage(int rows, int columns, int type, std::uint64_t seed)
{
    cv::Mat image(rows, columns, type);
    cv::RNG random(seed);
    random.fill(image, cv::RNG::UNIFORM, 0, 256);
    return image;
}

/// The definition, pixel by pixel, in a width that cannot overflow and is wrapped at the end.
double naiveBrenner(const cv::Mat& plane)
{
    std::uint64_t sum = 0;
    for (int y = 0; y < plane.rows; ++y) {
        for (int x = 0; x + 2 < plane.cols; ++x) {
            const std::int64_t d =
                std::int64_t{plane.at<std::uint8_t>(y, x + 2)} - plane.at<std::uint8_t>(y, x);
            sum += static_cast<std::uint64_t>(d * d);
        }
    }
    const auto wrapped = static_cast<std::uint32_t>(sum & 0xFFFFFFFFU);
    const volatile float quotient = static_cast<float>(wrapped) / 1000000.0F;
    return quotient;
}

int reflected101(int i, int size)
{
    if (size == 1)
        return 0;
    if (i < 0)
        return -i;
    return i < size ? i : 2 * size - 2 - i;
}

double naiveLaplacianVariance(const cv::Mat& image)
{
    double sum = 0;
    double squares = 0;
    const auto at = [&image](int y, int x) {
        return int{image.at<std::uint8_t>(reflected101(y, image.rows), reflected101(x, image.cols))};
    };
    for (int y = 0; y < image.rows; ++y) {
        for (int x = 0; x < image.cols; ++x) {
            const int value = at(y - 1, x) + at(y + 1, x) + at(y, x - 1) + at(y, x + 1) - 4 * at(y, x);
            sum += value;
            squares += double(value) * value;
        }
    }
    const double count = double(image.rows) * image.cols;
    return squares / count - (sum / count) * (sum / count);
}

/// Columns 0 0 255 255 0 0 ...: every difference over two columns is 255.
cv::Mat stripes(int rows, int columns)
{
    cv::Mat image(rows, columns, CV_8UC1);
    for (int x = 0; x < columns; ++x)
        image.col(x).setTo(x % 4 < 2 ? 0 : 255);
    return image;
}

/// An RGB frame whose green plane is `outside` around a centred region of value `inside`.
cv::Mat framed(QSize size, QSize region, int inside, int outside)
{
    cv::Mat frame(size.height(), size.width(), CV_8UC3, cv::Scalar(200, outside, 200));
    const cv::Rect centre(size.width() / 2 - region.width() / 2, size.height() / 2 - region.height() / 2,
                          region.width(), region.height());
    frame(centre).setTo(cv::Scalar(200, inside, 200));
    return frame;
}

} // namespace

class TestFocusMeasures : public QObject
{
    Q_OBJECT

private slots:
    void brennerEqualsItsDefinition_data()
    {
        QTest::addColumn<QSize>("size");
        for (const QSize size : {QSize(3, 1), QSize(4, 7), QSize(17, 5), QSize(18, 3), QSize(33, 33),
                                 QSize(640, 480), QSize(1283, 97)})
            QTest::addRow("%d x %d", size.width(), size.height()) << size;
    }

    void brennerEqualsItsDefinition()
    {
        QFETCH(QSize, size);
        for (std::uint64_t seed = 1; seed <= 5; ++seed) {
            const cv::Mat image = randomImage(size.height(), size.width(), CV_8UC1, seed);
            QVERIFY(naiveBrenner(image) > 0.0);
            QCOMPARE(brennerGradient(image), naiveBrenner(image));
        }
    }

    void brennerOfARegionReadsThatRegionOnly()
    {
        const cv::Mat image = randomImage(61, 83, CV_8UC1, 7);
        for (const cv::Rect& rect : {cv::Rect(0, 0, 83, 61), cv::Rect(1, 1, 81, 59), cv::Rect(5, 9, 40, 30),
                                     cv::Rect(80, 3, 3, 50)}) {
            const cv::Mat region = image(rect);
            QCOMPARE(brennerGradient(region), naiveBrenner(region.clone()));
            QCOMPARE(brennerGradient(region), brennerGradient(region.clone()));
        }
    }

    void uniformImagesScoreZero()
    {
        for (int value : {0, 1, 128, 255}) {
            const cv::Mat image(48, 64, CV_8UC1, cv::Scalar(value));
            QCOMPARE(brennerGradient(image), 0.0);
            QCOMPARE(varianceOfLaplacian(image), 0.0);
        }
    }

    void imagesWithoutThreeColumnsScoreZero_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::newRow("empty") << QSize(0, 0);
        QTest::newRow("no rows") << QSize(10, 0);
        QTest::newRow("no columns") << QSize(0, 10);
        QTest::newRow("one column") << QSize(1, 10);
        QTest::newRow("two columns") << QSize(2, 10);
    }

    void imagesWithoutThreeColumnsScoreZero()
    {
        QFETCH(QSize, size);
        cv::Mat image(size.height(), size.width(), CV_8UC1, cv::Scalar(255));
        if (!image.empty())
            image.col(0).setTo(0);
        QCOMPARE(brennerGradient(image), 0.0);
    }

    void brennerIgnoresOtherPixelTypes()
    {
        QCOMPARE(brennerGradient(randomImage(8, 8, CV_8UC3, 1)), 0.0);
        QCOMPARE(brennerGradient(cv::Mat::eye(8, 8, CV_32F)), 0.0);
    }

    void brennerSumWrapsAtThirtyTwoBits()
    {
        // 256 x 256 differences of 255 squared: 65,536 x 65,025 = 4,261,478,400 fits; one row
        // more passes 2^32 and starts again.
        const double fits = brennerGradient(stripes(256, 258));
        QCOMPARE(fits, double(4261478400.0F / 1000000.0F));
        const double wrapped = brennerGradient(stripes(259, 258));
        const std::uint64_t sum = 259ULL * 256ULL * 65025ULL;
        QVERIFY(sum > 0xFFFFFFFFULL);
        QCOMPARE(wrapped, double(static_cast<float>(sum - 0x100000000ULL) / 1000000.0F));
        QVERIFY(wrapped < fits);
        QCOMPARE(brennerGradient(stripes(1944, 2592)), naiveBrenner(stripes(1944, 2592)));
    }

    void brennerSurvivesVeryWideRows()
    {
        for (int columns : {32769, 32770, 32771, 70003}) {
            QCOMPARE(brennerGradient(stripes(2, columns)), naiveBrenner(stripes(2, columns)));
            const cv::Mat random = randomImage(2, columns, CV_8UC1, 3);
            QCOMPARE(brennerGradient(random), naiveBrenner(random));
        }
    }

    void brennerDividesInSinglePrecision()
    {
        // One difference of 1: 1 / 1,000,000 in single precision is not the double 0.000001.
        cv::Mat image(1, 3, CV_8UC1, cv::Scalar(10));
        image.at<std::uint8_t>(0, 2) = 11;
        QVERIFY(brennerGradient(image) == double(1.0F / 1000000.0F));
        QVERIFY(brennerGradient(image) != 0.000001);
    }

    void sharperStripesScoreHigher()
    {
        double previous = 1e9;
        for (int radius : {0, 1, 2, 4, 8}) {
            cv::Mat blurred;
            cv::blur(stripes(64, 64), blurred, cv::Size(2 * radius + 1, 1));
            const double score = brennerGradient(blurred);
            QVERIFY2(score < previous, qPrintable(QString::number(radius)));
            previous = score;
        }
    }

    void laplacianEqualsItsDefinition_data()
    {
        brennerEqualsItsDefinition_data();
        QTest::newRow("one pixel") << QSize(1, 1);
        QTest::newRow("one column") << QSize(1, 9);
    }

    void laplacianEqualsItsDefinition()
    {
        QFETCH(QSize, size);
        const cv::Mat image = randomImage(size.height(), size.width(), CV_8UC1, 11);
        const double expected = naiveLaplacianVariance(image);
        const double measured = varianceOfLaplacian(image);
        QVERIFY2(std::abs(measured - expected) <= 1e-6 * std::max(1.0, expected),
                 qPrintable(QStringLiteral("%1 %2").arg(measured).arg(expected)));
    }

    void laplacianOfAFrameLooksAtItsFirstChannel()
    {
        const cv::Mat frame = randomImage(20, 30, CV_8UC3, 5);
        cv::Mat first;
        cv::extractChannel(frame, first, 0);
        QCOMPARE(varianceOfLaplacian(frame), varianceOfLaplacian(first));
    }

    void laplacianOfAnEmptyImageIsZero() { QCOMPARE(varianceOfLaplacian(cv::Mat()), 0.0); }

    void darkPixelsLieFromFiveToThirtyFive_data()
    {
        QTest::addColumn<int>("value");
        QTest::addColumn<int>("count");
        QTest::newRow("0") << 0 << 0;
        QTest::newRow("4") << 4 << 0;
        QTest::newRow("5") << 5 << 320 * 240;
        QTest::newRow("20") << 20 << 320 * 240;
        QTest::newRow("35") << 35 << 320 * 240;
        QTest::newRow("36") << 36 << 0;
        QTest::newRow("255") << 255 << 0;
    }

    void darkPixelsLieFromFiveToThirtyFive()
    {
        QFETCH(int, value);
        const cv::Mat frame(480, 640, CV_8UC3, cv::Scalar(0, value, 0));
        QTEST(darkPixelCount(frame, 1, FOCUS_WINDOW_320x240), "count");
    }

    void windowsAreCentred_data()
    {
        QTest::addColumn<QSize>("frame");
        QTest::addColumn<int>("window");
        QTest::addColumn<QSize>("region");
        QTest::newRow("VGA, window 0") << QSize(640, 480) << 0 << QSize(320, 240);
        QTest::newRow("VGA, window 1: all of it") << QSize(640, 480) << 1 << QSize(640, 480);
        QTest::newRow("1280, window 0") << QSize(1280, 960) << 0 << QSize(320, 240);
        QTest::newRow("1280, window 1") << QSize(1280, 960) << 1 << QSize(640, 480);
        QTest::newRow("5M, window 0") << QSize(2592, 1944) << 0 << QSize(320, 240);
        QTest::newRow("5M, window 1") << QSize(2592, 1944) << 1 << QSize(640, 480);
    }

    void windowsAreCentred()
    {
        QFETCH(QSize, frame);
        QFETCH(int, window);
        QFETCH(QSize, region);
        const auto size = static_cast<FOCUS_WINDOW_SIZE>(window);
        // Exactly the region is dark: all of it counts. Only its surroundings are: nothing does.
        QCOMPARE(darkPixelCount(framed(frame, region, 10, 100), 1, size), region.width() * region.height());
        QCOMPARE(darkPixelCount(framed(frame, region, 100, 10), 1, size), 0);
    }

    void oddSizesAreHalvedTowardsZero()
    {
        // 643 / 2 - 320 = 1, 485 / 2 - 240 = 2 for the larger window.
        cv::Mat frame(485, 643, CV_8UC3, cv::Scalar(0, 100, 0));
        frame(cv::Rect(1, 2, 640, 480)).setTo(cv::Scalar(0, 10, 0));
        QCOMPARE(darkPixelCount(frame, 1, FOCUS_WINDOW_640x480), 640 * 480);
    }

    void windowsBeyondTheFrameAreCutOff_data()
    {
        QTest::addColumn<QSize>("size");
        QTest::addColumn<int>("window");
        QTest::addColumn<int>("count");
        QTest::newRow("one pixel") << QSize(1, 1) << 0 << 1;
        QTest::newRow("smaller than window 0") << QSize(100, 50) << 0 << 100 * 50;
        QTest::newRow("narrower than window 0") << QSize(100, 500) << 0 << 100 * 240;
        QTest::newRow("smaller than window 1") << QSize(320, 240) << 1 << 320 * 240;
        QTest::newRow("lower than window 1") << QSize(1280, 100) << 1 << 640 * 100;
    }

    void windowsBeyondTheFrameAreCutOff()
    {
        QFETCH(QSize, size);
        QFETCH(int, window);
        const cv::Mat frame(size.height(), size.width(), CV_8UC3, cv::Scalar(0, 10, 0));
        QTEST(darkPixelCount(frame, 1, static_cast<FOCUS_WINDOW_SIZE>(window)), "count");
    }

    void greyModeReadsTheFrameAsBlueGreenRed()
    {
        // The weights of B, G and R are 0.114, 0.587 and 0.299: 100 in the last channel is a
        // grey of 30, in the first one of 11, in both of 41.
        const auto count = [](const cv::Scalar& colour) {
            return darkPixelCount(cv::Mat(240, 320, CV_8UC3, colour), 3, FOCUS_WINDOW_320x240);
        };
        QCOMPARE(count(cv::Scalar(0, 0, 100)), 320 * 240);
        QCOMPARE(count(cv::Scalar(100, 0, 0)), 320 * 240);
        QCOMPARE(count(cv::Scalar(100, 0, 100)), 0);
        QCOMPARE(count(cv::Scalar(0, 0, 15)), 0);
        QCOMPARE(count(cv::Scalar(0, 0, 135)), 0);
        QCOMPARE(count(cv::Scalar(135, 0, 0)), 320 * 240);
    }

    void unknownModesWindowsAndFramesCountNothing()
    {
        const cv::Mat dark(480, 640, CV_8UC3, cv::Scalar(10, 10, 10));
        for (int mode : {-1, 0, 2, 4})
            QCOMPARE(darkPixelCount(dark, mode, FOCUS_WINDOW_320x240), 0);
        QCOMPARE(darkPixelCount(dark, 1, static_cast<FOCUS_WINDOW_SIZE>(2)), 0);
        QCOMPARE(darkPixelCount(dark, 1, static_cast<FOCUS_WINDOW_SIZE>(-1)), 0);
        QCOMPARE(darkPixelCount(cv::Mat(), 1, FOCUS_WINDOW_320x240), 0);
        QCOMPARE(darkPixelCount(cv::Mat(9, 9, CV_8UC1, cv::Scalar(10)), 1, FOCUS_WINDOW_320x240), 0);
    }
};

QTEST_GUILESS_MAIN(TestFocusMeasures)
#include "test_focus_measures.moc"
