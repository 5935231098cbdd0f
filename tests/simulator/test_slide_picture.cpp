// A picture's file as what lies under the microscope.

#include <cmath>
#include <vector>

#include <QFile>
#include <QTemporaryDir>
#include <QtTest>

#include <opencv2/core.hpp>
#include <opencv2/imgcodecs.hpp>

#include "PictureMeasures.h"
#include "simulator/optics/Optics.h"
#include "simulator/optics/SlidePicture.h"

namespace {

constexpr double kDark = 2.0;
constexpr double kField = 205.0;

OpticsParameters withoutNoise()
{
    OpticsParameters parameters;
    parameters.noise_levels = 0.0;
    parameters.bestFocus_steps = 32000.0;
    return parameters;
}

/// Half black, half white, with the edge down the middle.
cv::Mat edge(int width, int height)
{
    cv::Mat picture(height, width, CV_8UC3, cv::Scalar::all(255));
    picture.colRange(0, width / 2).setTo(cv::Scalar::all(0));
    return picture;
}

} // namespace

class TestSlidePicture : public QObject
{
    Q_OBJECT

private slots:
    void aPictureIsLitAsTheDrawnSlidesAre_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("depth");
        QTest::newRow("PNG") << "slide.png" << CV_8UC3;
        QTest::newRow("grey PNG") << "slide.png" << CV_8UC1;
        QTest::newRow("PNG of 16 bits") << "slide.png" << CV_16UC3;
        QTest::newRow("TIFF") << "slide.tif" << CV_8UC3;
        QTest::newRow("grey TIFF of 16 bits") << "slide.tif" << CV_16UC1;
        QTest::newRow("JPEG") << "slide.jpg" << CV_8UC3;
        QTest::newRow("grey JPEG") << "slide.jpg" << CV_8UC1;
    }

    void aPictureIsLitAsTheDrawnSlidesAre()
    {
        QFETCH(QString, file);
        QFETCH(int, depth);
        const bool grey = CV_MAT_CN(depth) == 1;
        const double unit = CV_MAT_DEPTH(depth) == CV_16U ? 257.0 : 1.0;
        // Blue, green and red, as the library keeps them.
        const cv::Scalar colour = grey ? cv::Scalar::all(128) : cv::Scalar(200, 128, 60);
        Optics optics = over(cv::Mat(300, 400, depth, colour * unit), file);
        for (const PictureMode& mode : kPictureModes)
            for (const int ledLevel : {225, 90}) {
                const auto mean = drawn(optics, mode, nominalInputs(optics, 0.0, ledLevel)).mean();
                for (std::size_t channel = 0; channel < 3; ++channel) {
                    const double passed = colour[2 - static_cast<int>(channel)] / 255.0;
                    const double expected = kDark + (kField - kDark) * ledLevel / 225.0 * passed;
                    QVERIFY2(std::abs(mean[channel] - expected) < 2.5,
                             qPrintable(QString("%1 for %2").arg(mean[channel]).arg(expected)));
                }
            }
    }

    void itsBlurIsThatOfTheDrawnSlides_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<double>("distance");
        for (const double distance : {0.0, -1200.0, 2500.0, 20000.0})
            for (const int mode : {0, 1, 2})
                QTest::addRow("mode %d, %g steps", mode, distance) << mode << distance;
    }

    // The edge's spread is measured by the part of the light beside it: a Gaussian's mean
    // distance from its middle is sigma times the root of 2 by pi.
    void itsBlurIsThatOfTheDrawnSlides()
    {
        QFETCH(int, mode);
        QFETCH(double, distance);
        Optics optics = over(edge(2592, 1944), "edge.png");
        const PictureMode& format = kPictureModes[static_cast<std::size_t>(mode)];
        const MeasuredPicture picture = drawn(optics, format, nominalInputs(optics, distance));
        const double middle = (kFullWidth_px / 2.0 - format.left_px) / format.scale;
        double beside = 0.0;
        for (int x = 0; x < format.width_px; ++x) {
            const double lit = (picture.green(x, format.height_px / 2) - kDark) / (kField - kDark);
            beside += x + 0.5 < middle ? lit : 1.0 - lit;
        }
        const double sigma_px = beside / std::sqrt(2.0 / M_PI) * format.scale;
        const double expected_px = optics.blur_px(32000.0 + distance, {});
        QVERIFY2(std::abs(sigma_px - expected_px) < 1.2 + 0.06 * expected_px,
                 qPrintable(QString("%1 px for %2 px").arg(sigma_px).arg(expected_px)));
    }

    void theSharpestPictureIsAtTheFocus()
    {
        cv::Mat picture(600, 800, CV_8UC3);
        cv::randu(picture, 0, 255);
        Optics optics = over(picture, "grains.png");
        const auto valueAt = [&optics](double distance) {
            return drawn(optics, kPictureModes[1], nominalInputs(optics, distance)).focusValue();
        };
        double last = valueAt(0.0);
        for (const double distance : {640.0, 1280.0, 2560.0, 5120.0}) {
            const double value = valueAt(distance);
            QVERIFY(value < last);
            QCOMPARE(valueAt(-distance), value);
            last = value;
        }
    }

    void itFillsTheFieldInItsOwnProportions_data()
    {
        QTest::addColumn<int>("width");
        QTest::addColumn<int>("height");
        QTest::newRow("wide") << 3000 << 1000;
        QTest::newRow("high") << 500 << 2000;
        QTest::newRow("small") << 40 << 30;
    }

    void itFillsTheFieldInItsOwnProportions()
    {
        QFETCH(int, width);
        QFETCH(int, height);
        // A dark square in the middle stays a square, whatever is cut off.
        cv::Mat picture(height, width, CV_8UC3, cv::Scalar::all(255));
        const int side = std::min(width, height) / 2;
        picture(cv::Rect((width - side) / 2, (height - side) / 2, side, side)).setTo(cv::Scalar::all(0));
        Optics optics = over(picture, "square.png");
        const PictureMode& mode = kPictureModes[1];
        const MeasuredPicture seen = drawn(optics, mode, nominalInputs(optics));
        int across = 0;
        int down = 0;
        for (int x = 0; x < mode.width_px; ++x)
            across += seen.green(x, mode.height_px / 2) < 100 ? 1 : 0;
        for (int y = 0; y < mode.height_px; ++y)
            down += seen.green(mode.width_px / 2, y) < 100 ? 1 : 0;
        const double scale = std::max(1280.0 / width, 960.0 / height);
        QVERIFY2(std::abs(across - side * scale) < 4.0, qPrintable(QString::number(across)));
        QVERIFY2(std::abs(down - side * scale) < 4.0, qPrintable(QString::number(down)));
        QVERIFY(seen.green(mode.width_px / 2, mode.height_px / 2) < 10);
    }

    void whatCannotBeReadIsTold_data()
    {
        QTest::addColumn<QByteArray>("content");
        std::vector<std::uint8_t> png;
        cv::imencode(".png", edge(400, 300), png);
        const QByteArray whole(reinterpret_cast<const char*>(png.data()), static_cast<int>(png.size()));
        QTest::newRow("nothing") << QByteArray();
        QTest::newRow("text") << QByteArray("no picture at all\n");
        QTest::newRow("beginning only") << whole.left(30);
        // A header that asks for more than any memory has.
        QTest::newRow("endless size")
            << QByteArray(whole).replace(16, 8, QByteArray("\x7f\xff\xff\xff\x7f\xff\xff\xff", 8));
    }

    void whatCannotBeReadIsTold()
    {
        QFETCH(QByteArray, content);
        QFile file(m_directory.filePath("slide.png"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
        file.close();
        std::string error;
        QVERIFY(SlidePicture::read(file.fileName().toStdString(), error) == nullptr);
        QVERIFY2(QString::fromStdString(error).contains("slide.png\" cannot be read"), error.c_str());
    }

    void whatIsNoFileOfAPictureIsTold()
    {
        QFile huge(m_directory.filePath("huge.png"));
        QVERIFY(huge.open(QIODevice::WriteOnly) && huge.resize(3LL << 30));
        for (const QString& path : {m_directory.filePath("missing.png"), m_directory.path(),
                                    QString("/dev/zero"), huge.fileName()}) {
            std::string error;
            QVERIFY(SlidePicture::read(path.toStdString(), error) == nullptr);
            QVERIFY2(error.find(path.toStdString()) != std::string::npos, error.c_str());
        }
    }

private:
    Optics over(const cv::Mat& picture, const QString& name)
    {
        const std::string file = m_directory.filePath(name).toStdString();
        cv::imwrite(file, picture);
        std::string error;
        SlideParameters parameters;
        parameters.kind = SlideKind::Picture;
        parameters.picture = SlidePicture::read(file, error);
        if (!parameters.picture)
            qFatal("%s", error.c_str());
        return {withoutNoise(), Slide(parameters)};
    }

    QTemporaryDir m_directory;
};

QTEST_GUILESS_MAIN(TestSlidePicture)
#include "test_slide_picture.moc"
